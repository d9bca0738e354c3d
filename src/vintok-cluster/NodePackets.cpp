// What a node does with the packets of the others, and what it sends them besides its stream.
#include "vintok-cluster/Node.h"

#include <algorithm>
#include <utility>

namespace vintok::cluster {

namespace {

constexpr std::size_t mostHosts = 512;
constexpr std::uint64_t askAllAgain = 300; // milliseconds
constexpr std::uint64_t answerAllAgain = 50;
constexpr std::uint64_t askAgain = 150;
constexpr std::size_t mostGaps = 64;
constexpr std::uint64_t mostAsked = 64; // packets at a time
constexpr std::size_t gapSize = 16;

Packet request(Kind kind, std::uint64_t sender, const Incoming::Gaps &gaps = {}) {
    Bytes bytes;
    Writer writer(bytes);
    write(writer, {kind, sender});
    if (kind == Kind::wantsAgain)
        writer.number(static_cast<std::uint16_t>(gaps.size()));
    for (const auto &[first, last] : gaps)
        writer.number(first).number(last);
    return std::make_shared<const Bytes>(std::move(bytes));
}

} // namespace

void Node::received(const Packet &packet, std::uint64_t now) {
    m_now = std::max(m_now, now);
    ++m_counters.packetsIn;
    Reader reader(*packet);
    const auto header = readHeader(reader);
    if (!header) {
        ++m_counters.refused;
        return;
    }
    if (header->sender == m_rank.incarnation)
        return;
    if (header->kind == Kind::beat)
        return takeBeat(reader, header->sender);
    const auto found = m_hosts.find(header->sender);
    if (found == m_hosts.end()) // its beat will come
        return;
    RemoteHost &host = *found->second;
    if (header->kind == Kind::stream)
        takeStream(host, reader, packet);
    else if (header->kind == Kind::snapshot)
        takeSnapshot(host, reader);
    else if (header->kind == Kind::wantsAll)
        answerAll(host);
    else if (header->kind == Kind::wantsAgain)
        answerAgain(host, reader);
    else
        ++m_counters.refused;
}

// The host of this beat; null for one that does not count: of two with one address the younger
// does, for the other was there before.
RemoteHost *Node::meet(const Beat &beat) {
    const auto found = m_hosts.find(beat.rank.incarnation);
    if (found != m_hosts.end())
        return found->second.get();
    if (m_hosts.size() >= mostHosts || keyOf(beat.address) == m_self)
        return nullptr;
    for (const auto &[incarnation, other] : m_hosts) {
        if (other->isEnded || keyOf(other->beat.address) != keyOf(beat.address))
            continue;
        if (beat.rank < other->beat.rank)
            return nullptr;
        other->isEnded = true;
        unsettle(*other);
    }
    if (beat.has(Beat::ordered) != m_options.ordered)
        m_side.log("host " + beat.name + " keeps another order of what is said");
    m_beatWanted = true; // it is to know this one soon
    return m_hosts
        .emplace(beat.rank.incarnation, std::make_unique<RemoteHost>(2 * m_options.window))
        .first->second.get();
}

void Node::takeBeat(Reader &reader, std::uint64_t sender) {
    Beat beat;
    beat.rank.incarnation = sender;
    if (!decode(reader, beat)) {
        ++m_counters.refused;
        return;
    }
    RemoteHost *const host = meet(beat);
    if (host == nullptr || host->isEnded)
        return;
    if (!host->isLive) {
        host->isLive = true;
        unsettle(*host);
    }
    // Who comes never outranks who is there, whatever the clocks say.
    if (m_now < m_claimsFrom && beat.has(Beat::settled) && m_rank < beat.rank)
        m_rank.start = beat.rank.start + 1;
    host->beat = std::move(beat);
    host->heard = m_now;
    takeAcknowledgements(*host);
    takeBlocks(*host);
}

// One that has stopped taking this host's stream does not hold it up.
void Node::takeAcknowledgements(RemoteHost &host) {
    const auto &taken = host.beat.taken;
    const auto ours = std::find_if(taken.begin(), taken.end(), [this](const auto &pair) {
        return pair.first == m_rank.incarnation;
    });
    if (ours != taken.end() && ours->second <= m_outgoing.last()) {
        host.acknowledged = ours->second;
        host.namedUs = m_now;
    } else if (m_now - host.namedUs > m_options.hostTimeout) {
        host.acknowledged.reset();
    }
}

void Node::takeStream(RemoteHost &host, Reader &reader, const Packet &packet) {
    const auto sequence = reader.number<std::uint64_t>();
    if (!reader.good() || sequence == 0) {
        ++m_counters.refused;
        return;
    }
    host.heard = std::max(host.heard, m_now);
    host.incoming.keep(sequence, packet);
}

void Node::takeSnapshot(RemoteHost &host, Reader &reader) {
    if (!host.snapshot.take(reader))
        return;
    const auto [sequence, first] = host.snapshot.at;
    // As long as what is missing can be had there is no need to pass over it.
    if (host.incoming.counts() &&
        (sequence <= host.incoming.last() || first <= host.incoming.last() + 1))
        return;
    if (const std::uint64_t lost = host.incoming.countFrom(sequence)) {
        m_counters.lost += lost;
        m_side.log(std::to_string(lost) + " packets of host " + host.beat.name + " are lost");
    }
    host.joiner.clear();
    host.leaving.clear();
    unsettle(host);
    const Parties old = std::exchange(host.parties, std::move(host.snapshot.parties));
    host.snapshot.parties.clear();
    for (const auto &[key, party] : host.parties) {
        const auto shown = m_shown.find(key);
        const auto before = old.find(key);
        if (shown != m_shown.end() && shown->second == host.beat.rank.incarnation &&
            (before == old.end() || encode(0, before->second.entry) != encode(0, party.entry)))
            shown->second = 0; // is shown anew
    }
    unsettle(host);
}

// The parties of this host, and the packet behind which its stream goes on from there.
void Node::answerAll(RemoteHost &asker) {
    if (asker.answeredAll != 0 && m_now - asker.answeredAll < answerAllAgain)
        return;
    asker.answeredAll = m_now;
    m_outgoing.close();
    std::map<Key, Bytes> bodies;
    for (const auto &[key, local] : m_local)
        bodies.emplace(key, local.body);
    if (!asker.acknowledged) // it may still have use for whatever is kept
        asker.acknowledged = m_outgoing.first() - 1;
    asker.namedUs = m_now;
    const Snapshot::At at{m_outgoing.last(), m_outgoing.first()};
    for (const Packet &part :
         Snapshot::make(m_rank.incarnation, ++m_snapshots, at, bodies, m_carrier.longestPacket()))
        m_carrier.toOne(asker.beat.rank.incarnation, part);
}

void Node::answerAgain(RemoteHost &asker, Reader &reader) {
    std::uint64_t count = 0;
    for (std::size_t gaps = reader.count(gapSize); gaps > 0; --gaps) {
        const auto first = reader.number<std::uint64_t>();
        const auto last = std::min(reader.number<std::uint64_t>(), m_outgoing.last());
        for (std::uint64_t sequence = first; sequence <= last && count < mostAsked; ++sequence) {
            const Packet packet = m_outgoing.at(sequence);
            if (packet == nullptr)
                return answerAll(asker);
            ++count;
            ++m_counters.sentAgain;
            m_carrier.toOne(asker.beat.rank.incarnation, packet);
        }
    }
}

// Asks a host for what is missing of it.
void Node::askFor(RemoteHost &host) {
    if (!host.isLive || host.isEnded)
        return;
    if (!host.incoming.counts() && host.beat.has(Beat::isNew))
        host.incoming.countFrom(0); // nothing it has said before we met is to be missed
    if (!host.incoming.counts()) {
        if (host.askedAll == 0 || m_now - host.askedAll >= askAllAgain) {
            host.askedAll = m_now;
            m_carrier.toOne(host.beat.rank.incarnation,
                            request(Kind::wantsAll, m_rank.incarnation));
        }
        return;
    }
    const bool isUnderWay =
        m_now - host.askedAgain < askAgain && host.incoming.last() < host.askedUpTo;
    if (isUnderWay || host.incoming.isWhole(host.beat.last))
        return;
    Incoming::Gaps gaps = host.incoming.gaps(host.beat.last, mostGaps);
    std::uint64_t count = 0;
    for (auto gap = gaps.begin(); gap != gaps.end(); ++gap) {
        if (gap->second - gap->first >= mostAsked - count) {
            gap->second = gap->first + (mostAsked - count) - 1;
            gaps.erase(gap + 1, gaps.end());
            count = mostAsked;
            break;
        }
        count += gap->second - gap->first + 1;
    }
    std::erase_if(gaps, [](const auto &gap) { return gap.second < gap.first; });
    if (gaps.empty())
        return;
    m_counters.askedAgain += count;
    host.askedAgain = m_now;
    host.askedUpTo = gaps.back().second;
    m_carrier.toOne(host.beat.rank.incarnation,
                    request(Kind::wantsAgain, m_rank.incarnation, gaps));
}

Beat Node::beat() const {
    Beat beat;
    beat.rank = m_rank;
    const auto flag = [&](bool is, Beat::Flag bit) {
        beat.flags = static_cast<std::uint8_t>(beat.flags | (is ? bit : 0));
    };
    flag(takesPart(), Beat::takesPart);
    flag(m_now >= m_claimsFrom, Beat::settled);
    flag(takesPart() && m_colors.wants(), Beat::wantsColors);
    flag(hasAuthority(), Beat::hasAuthority);
    flag(m_options.ordered, Beat::ordered);
    flag(isNew() && m_outgoing.first() == 1, Beat::isNew);
    beat.last = m_outgoing.last();
    beat.address = m_options.address;
    beat.name = m_options.name;
    beat.advertised = m_options.advertised;
    beat.port = m_options.port;
    beat.members = static_cast<std::uint32_t>(m_local.size() - (takesPart() ? 1 : 0));
    beat.mostMembers = m_options.mostMembers;
    if (hasAuthority())
        beat.leader = m_leader;
    beat.blocks = m_colors.own();
    beat.grants.assign(m_colors.grants().begin(), m_colors.grants().end());
    for (const auto &[incarnation, host] : m_hosts)
        if (host->incoming.counts())
            beat.taken.emplace_back(incarnation, host->incoming.last());
    beat.place = m_ordered.place();
    return beat;
}

void Node::sendBeat() {
    m_carrier.toAll(encode(beat()));
    m_beatWanted = false;
    m_takenBytes = 0;
    m_nextBeat = m_now + m_beatTime;
}

Packet Node::answer() {
    return takesPart() ? encode(beat()) : nullptr;
}

} // namespace vintok::cluster
