#include "vintok-cluster/Incoming.h"

namespace vintok::cluster {

namespace {

constexpr std::size_t mostPackets = 65536;

} // namespace

std::uint64_t Incoming::countFrom(std::uint64_t sequence) {
    std::uint64_t passed = m_counts && sequence > m_last ? sequence - m_last : 0;
    m_counts = true;
    m_last = sequence;
    while (!m_waiting.empty() && m_waiting.begin()->first <= sequence)
        drop();
    return passed;
}

void Incoming::drop() {
    m_bytes -= m_waiting.begin()->second->size();
    m_waiting.erase(m_waiting.begin());
}

// The next one in order is always kept, so that a full store never stands in its own way.
bool Incoming::keep(std::uint64_t sequence, const Packet &packet) {
    const bool isFull = m_bytes + packet->size() > m_most || m_waiting.size() >= mostPackets;
    if ((m_counts && sequence <= m_last) || (isFull && sequence != m_last + 1))
        return false;
    if (!m_waiting.emplace(sequence, packet).second)
        return false;
    m_bytes += packet->size();
    return true;
}

Packet Incoming::next() const {
    if (!m_counts || m_waiting.empty() || m_waiting.begin()->first != m_last + 1)
        return nullptr;
    return m_waiting.begin()->second;
}

void Incoming::taken() {
    ++m_last;
    drop();
}

Incoming::Gaps Incoming::gaps(std::uint64_t last, std::size_t most) const {
    Gaps gaps;
    std::uint64_t next = m_last + 1;
    const auto note = [&](std::uint64_t end) {
        if (end >= next)
            gaps.emplace_back(next, end);
    };
    for (const auto &[sequence, packet] : m_waiting) {
        if (gaps.size() == most)
            return gaps;
        note(sequence - 1);
        next = sequence + 1;
    }
    if (gaps.size() < most)
        note(last);
    return gaps;
}

} // namespace vintok::cluster
