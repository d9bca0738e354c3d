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

void Ordered::stored(std::uint64_t number) {
    if (!m_onItsWay || number != m_number)
        return;
    m_onItsWay = false;
    m_waiting -= m_out.front().items.size();
    m_out.pop_front();
    m_carrier.wake();
}

void Ordered::keep(Item item) {
    m_itemBytes += item.packet->size();
    m_items.push_back(std::move(item));
}

void Ordered::takeFirst(const Handler &handler) {
    const Item item = std::move(m_items.front());
    m_items.pop_front();
    m_itemBytes -= item.packet->size();
    if (m_joiners.size() >= mostSenders)
        m_joiners.clear();
    m_joiners[item.sender].take(
        View(*item.packet).subspan(packetHead), [&](ItemKind kind, View body) {
            if (kind == ItemKind::said && body.size() > Key().size())
                handler(body.first(Key().size()), body.subspan(Key().size()));
        });
}

} // namespace vintok::cluster
