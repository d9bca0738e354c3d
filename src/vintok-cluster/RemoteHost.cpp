#include "vintok-cluster/RemoteHost.h"

#include <algorithm>
#include <utility>

namespace vintok::cluster {

namespace {

constexpr std::size_t snapshotHead = Header::size + 4 + 8 + 8 + 2 + 2;
constexpr std::size_t mostParts = 4096;
constexpr std::size_t mostParties = 65536;

} // namespace

Bytes encode(std::uint64_t since, const ConferenceRosterEntry &entry) {
    Bytes body;
    Writer(body).number(since);
    body.resize(body.size() + static_cast<std::size_t>(entry.size()));
    entry.write(body.data() + sizeof(since), body.size() - sizeof(since));
    return body;
}

bool decode(View body, Party &party) {
    Reader reader(body);
    party.since = reader.number<std::uint64_t>();
    return reader.good() && party.entry.read(reader.rest().data(), reader.rest().size()) != 0;
}

std::vector<Packet> Snapshot::make(std::uint64_t sender, std::uint32_t number, const At &at,
                                   const std::map<Key, Bytes> &parties, std::size_t longest) {
    Bytes items;
    for (const auto &[key, body] : parties) {
        Writer writer(items);
        write(writer, ItemKind::entry, 0, body.size());
        writer.raw(body);
    }
    const std::size_t share = longest - snapshotHead;
    const std::size_t count = std::max<std::size_t>(1, (items.size() + share - 1) / share);
    std::vector<Packet> packets;
    for (std::size_t part = 0; part < count; ++part) {
        Bytes packet;
        Writer writer(packet);
        write(writer, {Kind::snapshot, sender});
        writer.number(number).number(at.sequence).number(at.first);
        writer.number(static_cast<std::uint16_t>(part)).number(static_cast<std::uint16_t>(count));
        const std::size_t begin = part * share;
        writer.raw(View(items).subspan(begin, std::min(share, items.size() - begin)));
        packets.push_back(std::make_shared<const Bytes>(std::move(packet)));
    }
    return packets;
}

bool Snapshot::take(Reader &reader) {
    const auto number = reader.number<std::uint32_t>();
    const auto behind = reader.number<std::uint64_t>();
    const auto first = reader.number<std::uint64_t>();
    const std::size_t part = reader.number<std::uint16_t>();
    const std::size_t count = reader.number<std::uint16_t>();
    if (!reader.good() || part >= count || count > mostParts)
        return false;
    if (m_number != number || m_parts.size() != count) {
        m_number = number;
        at = {behind, first};
        m_parts.assign(count, {});
        m_there.assign(count, false);
        m_missing = count;
        m_bytes = 0;
    }
    if (m_there[part] || m_bytes + reader.rest().size() > longestItem)
        return false;
    m_bytes += reader.rest().size();
    m_parts[part].assign(reader.rest().begin(), reader.rest().end());
    m_there[part] = true;
    return --m_missing == 0 && join();
}

// The items of a snapshot run on from one part to the next.
bool Snapshot::join() {
    Bytes items;
    for (const Bytes &part : std::exchange(m_parts, {}))
        items.insert(items.end(), part.begin(), part.end());
    m_number.reset();
    parties.clear();
    return Joiner().take(items, [this](ItemKind kind, View body) {
        Party party;
        if (kind == ItemKind::entry && parties.size() < mostParties && decode(body, party))
            parties.insert_or_assign(keyOf(party.entry), party);
    });
}

} // namespace vintok::cluster
