#include "vintok-cluster/Ordered.h"

#include <algorithm>
#include <utility>

namespace vintok::cluster {

namespace {

constexpr std::size_t mostSenders = 4096;

} // namespace

void Ordered::add(View speaker, View frames, std::uint64_t state) {
    Bytes body(speaker.begin(), speaker.end());
    body.insert(body.end(), frames.begin(), frames.end());
    View left = body;
    const std::size_t room = m_carrier.longestPacket() - packetHead - itemHead;
    std::uint8_t mark = 0;
    m_carrier.wake();
    do {
        const std::size_t first = m_onItsWay ? 1 : 0;
        const bool fits = m_out.size() > first &&
                          m_out.back().items.size() + std::min(left.size(), leastPiece) <= room;
        if (!fits)
            m_out.push_back({state, {}});
        Out &out = m_out.back();
        out.state = state;
        const std::size_t length = std::min(left.size(), room - out.items.size());
        const bool more = length < left.size();
        Writer writer(out.items);
        write(writer, ItemKind::said, static_cast<std::uint8_t>((more ? moreFollows : 0) | mark),
              length);
        writer.raw(left.first(length));
        mark = goesOn;
        left = left.subspan(length);
        m_waiting += itemHead + length;
    } while (!left.empty());
}

void Ordered::close() {
    if (m_onItsWay || m_out.empty())
        return;
    m_onItsWay = true;
    Bytes bytes;
    Writer writer(bytes);
    write(writer, {Kind::ordered, m_incarnation});
    writer.number(++m_number).number(m_out.front().state).raw(m_out.front().items);
    m_carrier.store(m_number, std::make_shared<const Bytes>(std::move(bytes)));
}

Ordered::End Ordered::end() const {
    return {m_out.empty() ? 0 : m_number + m_out.size() - (m_onItsWay ? 1 : 0), m_storedPlace};
}

void Ordered::stored(std::uint64_t number, std::uint64_t place) {
    if (!m_onItsWay || number != m_number)
        return;
    m_onItsWay = false;
    m_storedPlace = std::max(m_storedPlace, place);
    m_stored.push_back({place, m_out.front().items.size()});
    m_out.pop_front();
    m_carrier.wake();
}

void Ordered::release(std::uint64_t place) {
    while (!m_stored.empty() && m_stored.front().place <= place) {
        m_waiting -= m_stored.front().bytes;
        m_stored.pop_front();
    }
}

void Ordered::keep(Item item) {
    m_itemBytes += item.packet != nullptr ? item.packet->size() : 0;
    m_items.push_back(std::move(item));
}

bool Ordered::isTaken(std::uint64_t sender, const End &end) const {
    const auto found = m_senders.find(sender);
    const std::uint64_t number = found != m_senders.end() ? found->second.number : 0;
    return number >= end.number && m_place >= end.place;
}

void Ordered::takeFirst(const Handler &handler) {
    const Item item = std::move(m_items.front());
    m_items.pop_front();
    m_place = std::max(m_place, item.place);
    if (item.packet == nullptr)
        return;
    m_itemBytes -= item.packet->size();
    if (m_senders.size() >= mostSenders && !m_senders.contains(item.sender))
        m_senders.clear();
    Sender &sender = m_senders[item.sender];
    if (item.number <= sender.number)
        return;
    if (item.number != sender.number + 1)
        sender.joiner.clear();
    sender.number = item.number;
    sender.joiner.take(View(*item.packet).subspan(packetHead), [&](ItemKind kind, View body) {
        if (kind == ItemKind::said && body.size() > Key().size())
            handler(body.first(Key().size()), body.subspan(Key().size()));
    });
}

} // namespace vintok::cluster
