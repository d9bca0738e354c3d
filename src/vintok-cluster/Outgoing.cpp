#include "vintok-cluster/Outgoing.h"

#include <algorithm>
#include <utility>

namespace vintok::cluster {

namespace {

constexpr unsigned liveWindows = 4;

} // namespace

Outgoing::Outgoing(Carrier &carrier, std::uint64_t incarnation, std::uint64_t window,
                   std::uint32_t retention)
    : m_carrier(carrier), m_incarnation(incarnation), m_window(window), m_retention(retention) {
    begin();
}

void Outgoing::begin() {
    m_open.clear();
    Writer writer(m_open);
    write(writer, {Kind::stream, m_incarnation});
    writer.number(m_next);
}

// An item is cut where its packet ends. Each piece has a head of its own.
void Outgoing::add(ItemKind kind, std::initializer_list<View> parts) {
    std::size_t left = 0;
    for (const View part : parts)
        left += part.size();
    if (!isOpen())
        m_carrier.wake();
    auto part = parts.begin();
    std::size_t taken = 0; // of that part
    std::uint8_t mark = 0;
    do {
        const std::size_t longest = m_carrier.longestPacket();
        if (isOpen() && m_open.size() + itemHead + std::min(left, leastPiece) > longest)
            close();
        const std::size_t length = std::min(left, longest - m_open.size() - itemHead);
        left -= length;
        Writer writer(m_open);
        write(writer, kind, static_cast<std::uint8_t>((left > 0 ? moreFollows : 0) | mark), length);
        mark = goesOn;
        for (std::size_t missing = length; missing > 0;) {
            const std::size_t some = std::min(missing, part->size() - taken);
            writer.raw(part->subspan(taken, some));
            missing -= some;
            taken += some;
            if (taken == part->size()) {
                ++part;
                taken = 0;
            }
        }
    } while (left > 0);
}

bool Outgoing::close() {
    if (!isOpen())
        return false;
    m_end += m_open.size();
    m_kept.push_back({std::make_shared<const Bytes>(std::move(m_open)), m_now, m_end});
    ++m_next;
    begin();
    m_carrier.toAll(m_kept.back().packet);
    return true;
}

Packet Outgoing::at(std::uint64_t sequence) const {
    return sequence >= first() && sequence < m_next ? m_kept[sequence - first()].packet : nullptr;
}

std::uint64_t Outgoing::bytes() const {
    return m_end - m_released;
}

std::uint64_t Outgoing::bytesBehind(std::uint64_t sequence) const {
    if (sequence < first())
        return bytes() + m_open.size() - packetHead;
    return m_end - (sequence < m_next ? m_kept[sequence - first()].end : m_end) + m_open.size() -
           packetHead;
}

void Outgoing::release(std::uint64_t live, std::uint64_t gone) {
    const auto isNeeded = [&] {
        const Kept &oldest = m_kept.front();
        if (first() > live)
            return bytes() <= m_window * liveWindows;
        return first() > gone && bytes() <= m_window && m_now - oldest.time <= m_retention;
    };
    while (!m_kept.empty() && !isNeeded()) {
        m_released = m_kept.front().end;
        m_kept.pop_front();
    }
}

} // namespace vintok::cluster
