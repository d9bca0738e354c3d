#include "vintok-cluster/Node.h"

#include "vintok/FrameLayout.h"
#include "vintok/TCPGUID.h"

#include <algorithm>
#include <utility>

namespace vintok::cluster {

namespace {

constexpr std::size_t turnBytes = 1 << 20; // taken in one turn
constexpr std::uint32_t blockedWait = 5;   // milliseconds until room is looked for again
constexpr std::uint32_t beatDistance = 10; // between two that are wanted
constexpr std::uint32_t longestBeatTime = 200;
constexpr std::size_t addressSize = Key().size();

View bytesOf(const Key &key) {
    return key;
}

bool isBroadcast(View frame) {
    static const Bytes wanted = [] {
        Bytes bytes;
        const TCPGUID &id = TCP_broadcastMessage;
        Writer(bytes).number(id.Data1).number(id.Data2).number(id.Data3).raw(id.Data4);
        return bytes;
    }();
    return std::ranges::equal(frame.subspan(layout::identifier, wanted.size()), wanted);
}

// Sets a mark for as long as it lives.
struct Marked {
    explicit Marked(bool &mark) : m_mark(mark) { m_mark = true; }
    ~Marked() { m_mark = false; }
    Marked(const Marked &) = delete;
    Marked &operator=(const Marked &) = delete;
    bool &m_mark;
};

} // namespace

Node::Node(const NodeOptions &options, Carrier &carrier, Side &side, std::uint64_t now,
           std::uint64_t wall)
    : m_options(options),
      m_carrier(carrier),
      m_side(side),
      m_self(keyOf(options.address)),
      m_beatTime(std::clamp(options.hostTimeout / 10, 10U, longestBeatTime)),
      m_claimsFrom(now + 2 * m_beatTime),
      m_wall(wall),
      m_rank(options.rank),
      m_now(now),
      m_lastTurn(now),
      m_outgoing(carrier, options.rank.incarnation, options.window, options.retention),
      m_ordered(carrier, options.rank.incarnation) {}

// ---- What this side says ----

void Node::entryChanged(const ConferenceRosterEntry &entry) {
    const Key key = keyOf(entry);
    const auto known = m_local.find(key);
    const std::uint64_t since = known != m_local.end() ? known->second.since : m_now + m_wall;
    Bytes body = encode(since, entry);
    if (known != m_local.end() && known->second.body == body)
        return;
    m_outgoing.add(ItemKind::entry, {body});
    if (known == m_local.end()) {
        m_beatWanted = true;
        m_shown.erase(key); // who is connected here has taken the place of the other
        if (key == m_self)
            for (const auto &[incarnation, host] : m_hosts)
                unsettle(*host);
        else if (m_options.history != 0)
            m_newcomers.insert(key);
    }
    m_local.insert_or_assign(key, Local{since, std::move(body)});
}

void Node::entryLeft(const TCPAddress &party) {
    const Key key = keyOf(party);
    if (m_local.erase(key) == 0)
        return;
    const Ordered::End end = m_ordered.end();
    Bytes lastWords;
    Writer(lastWords).number(end.number).number(end.place);
    m_outgoing.add(ItemKind::left, {bytesOf(key), lastWords});
    m_unsettled.insert(key);
    m_beatWanted = true;
}

void Node::meetingEnded() {
    while (!m_local.empty())
        entryLeft(addressOf(m_local.begin()->first));
    m_shown.clear();
    m_unsettled.clear();
}

void Node::say(const TCPAddress &speaker, const unsigned char *frames, std::size_t length) {
    const Key key = keyOf(speaker);
    const View view(frames, length);
    m_counters.messagesOut += countFrames(view);
    m_counters.bytesOut += length;
    if (length > longestItem - addressSize) {
        m_side.log("what is longer than 64 MiB is not passed on");
        ++m_counters.lost;
    } else if (m_options.ordered) {
        m_ordered.add(bytesOf(key), view, m_outgoing.last() + (m_outgoing.isOpen() ? 1 : 0));
    } else {
        m_outgoing.add(ItemKind::said, {bytesOf(key), view});
    }
}

std::uint64_t Node::waiting() const {
    return m_outgoing.bytesBehind(m_live) + m_ordered.waiting();
}

bool Node::hasRoom() const {
    return waiting() < m_options.window;
}

bool Node::sendTo(const TCPAddress &party, const TCPAddress &sender, const unsigned char *frame,
                  std::size_t length) {
    const Key to = keyOf(party);
    const Key from = keyOf(sender);
    if (ownerOf(to) == nullptr || length > longestItem - 2 * addressSize)
        return false;
    m_outgoing.add(ItemKind::toParty, {bytesOf(to), bytesOf(from), View(frame, length)});
    return true;
}

bool Node::sendToAuthority(const TCPAddress &sender, const unsigned char *frame,
                           std::size_t length) {
    const Key from = keyOf(sender);
    if (m_authority == 0 || hasAuthority() || length > longestItem - addressSize)
        return false;
    m_outgoing.add(ItemKind::toAuthority, {bytesOf(from), View(frame, length)});
    return true;
}

void Node::leaderChanged(const TCPAddress &leader) {
    if (!hasAuthority())
        return;
    m_leader = leader;
    m_beatWanted = true;
    m_carrier.wake();
}

unsigned short Node::takeColor() {
    const std::uint16_t color = m_colors.take();
    if (m_colors.wants()) {
        m_beatWanted = true;
        m_carrier.wake();
    }
    return color;
}

// ---- What the others say ----

void Node::take(RemoteHost &host, ItemKind kind, View body) {
    switch (kind) {
    case ItemKind::entry:
        return takeEntry(host, body);
    case ItemKind::left:
        return takeLeft(host, body);
    case ItemKind::said:
        if (body.size() > addressSize)
            takeSaid(body.first(addressSize), body.subspan(addressSize));
        return;
    case ItemKind::toParty:
    case ItemKind::toAuthority:
        return takeMessage(kind, body);
    case ItemKind::goodbye:
        host.isEnded = true;
        return unsettle(host);
    }
}

void Node::takeSaid(View speaker, View frames) {
    m_counters.messagesIn += countFrames(frames);
    m_counters.bytesIn += frames.size();
    Reader reader(speaker);
    if (takesPart() && !m_side.said(reader.address(), frames))
        ++m_counters.refused;
}

// Everybody gets what is for one party. Only its host takes it.
void Node::takeMessage(ItemKind kind, View body) {
    Reader reader(body);
    const TCPAddress party = kind == ItemKind::toParty ? reader.address() : addressOf(m_self);
    const TCPAddress sender = reader.address();
    const bool isOurs = kind == ItemKind::toParty ? m_local.contains(keyOf(party)) : hasAuthority();
    if (reader.good() && takesPart() && isOurs && !m_side.message(party, sender, reader.rest()))
        ++m_counters.refused;
}

// A packet of each host in turn. True if there are more.
bool Node::takePackets() {
    std::size_t bytes = 0;
    bool any = true;
    while (any && bytes < turnBytes) {
        any = false;
        for (const auto &[incarnation, host] : m_hosts) {
            const Packet packet = host->isLive && !host->isEnded ? host->incoming.next() : nullptr;
            if (packet == nullptr)
                continue;
            m_blocked = !m_side.hasRoom();
            if (m_blocked)
                return false;
            any = true;
            bytes += packet->size();
            host->incoming.taken();
            if (!host->joiner.take(
                    View(*packet).subspan(Outgoing::packetHead),
                    [&, &from = *host](ItemKind kind, View body) { take(from, kind, body); }))
                ++m_counters.refused;
        }
    }
    m_takenBytes += bytes;
    return any;
}

// What is said has to wait for what its host has said of its parties before, but not for ever.
bool Node::isInTime(const Ordered::Item &item) const {
    if (item.packet == nullptr || item.isPast || item.sender == m_rank.incarnation)
        return true;
    const auto found = m_hosts.find(item.sender);
    return (found != m_hosts.end() && found->second->incoming.last() >= item.state) ||
           m_now - item.since >= m_options.hostTimeout;
}

bool Node::takeOrdered() {
    std::size_t bytes = 0;
    while (const Ordered::Item *first = m_ordered.first()) {
        if (!isInTime(*first))
            return false;
        m_blocked = !m_side.hasRoom();
        if (m_blocked || bytes >= turnBytes)
            return !m_blocked;
        m_isPastThere = m_isPastThere || !first->isPast || first->packet == nullptr;
        tellNewcomers();
        const std::size_t size = first->packet != nullptr ? first->packet->size() : 0;
        bytes += size;
        m_takenBytes += size;
        m_ordered.takeFirst([this, isPast = first->isPast](View speaker, View frames) {
            remember(frames);
            if (!isPast)
                takeSaid(speaker, frames);
        });
        letLeave();
        settleAll();
    }
    return false;
}

// Messages of the application alone: what is left of a file would be of no use.
void Node::remember(View frames) {
    while (m_options.history != 0 && frames.size() >= layout::sizeIPv4) {
        const std::size_t length = layout::frameLength(frames.data());
        if (length < layout::sizeIPv4 || length > frames.size())
            return;
        if (isBroadcast(frames)) {
            m_history.emplace_back(frames.begin(), frames.begin() + std::ptrdiff_t(length));
            m_historyBytes += length;
        }
        while (m_history.size() > m_options.history ||
               (m_historyBytes > m_options.window && !m_history.empty())) {
            m_historyBytes -= m_history.front().size();
            m_history.pop_front();
        }
        frames = frames.subspan(length);
    }
}

void Node::tellNewcomers() {
    if (!m_isPastThere)
        return;
    for (const Key &key : std::exchange(m_newcomers, {}))
        for (const Bytes &frame : m_history)
            if (m_local.contains(key))
                m_side.saidTo(addressOf(key), frame);
}

void Node::ordered(const Packet &packet, std::uint64_t place, bool isPast, std::uint64_t now) {
    if (packet == nullptr)
        return m_ordered.keep({.place = place, .isPast = isPast, .since = now});
    Reader reader(*packet);
    const auto header = readHeader(reader);
    const auto number = reader.number<std::uint64_t>();
    const auto state = reader.number<std::uint64_t>();
    if (header && header->kind == Kind::ordered && reader.good())
        m_ordered.keep({header->sender, number, state, place, isPast, now, packet});
    else
        ++m_counters.refused;
}

// ---- A turn ----

std::uint32_t Node::turn(std::uint64_t now) {
    if (m_inTurn) // an application that runs the loop from a callback
        return m_beatTime;
    const Marked mark(m_inTurn);
    m_now = now;
    m_outgoing.setTime(now);
    m_blocked = false;
    lookForSilence();
    letLeave();
    settleAll();
    lookForAuthority();
    tellNewcomers();
    bool more = takePackets();
    more = takeOrdered() || more;
    settleAll();
    takeLeader();
    giveBlocks();
    takeColors();
    m_outgoing.close();
    m_ordered.close();
    for (const auto &[incarnation, host] : m_hosts)
        askFor(*host);
    if (m_takenBytes > m_options.window / 8)
        m_beatWanted = true;
    if (now >= m_nextBeat || (m_beatWanted && now + m_beatTime >= m_nextBeat + beatDistance))
        sendBeat();
    release();
    forget();
    if (more)
        return 0;
    return m_blocked ? blockedWait : m_beatWanted ? beatDistance : m_beatTime;
}

// What all that are there have is forgotten; what those lack that may come again is kept a while.
void Node::release() {
    std::uint64_t live = m_outgoing.last();
    std::uint64_t gone = isNew() ? 0 : live; // others may be about to find this host
    for (const auto &[incarnation, host] : m_hosts)
        if (host->acknowledged && !host->isEnded) {
            std::uint64_t &least = host->isLive ? live : gone;
            least = std::min(least, *host->acknowledged);
        }
    m_live = live;
    m_outgoing.release(live, gone);
    releaseOrdered();
}

// A host that takes nothing in order yet does not hold the others up.
void Node::releaseOrdered() {
    if (!m_options.ordered)
        return;
    std::uint64_t place = m_ordered.place();
    for (const auto &[incarnation, host] : m_hosts)
        if (host->isLive && !host->isEnded && host->beat.place != 0)
            place = std::min(place, host->beat.place);
    m_ordered.release(place);
}

bool Node::store() {
    m_ordered.close();
    return m_ordered.isStoring();
}

void Node::leave() {
    m_outgoing.add(ItemKind::goodbye, {});
    m_outgoing.close();
}

} // namespace vintok::cluster
