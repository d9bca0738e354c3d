// The stream of packets of another host as it arrives: put in order, each once.
#ifndef VINTOK_CLUSTER_INCOMING_H
#define VINTOK_CLUSTER_INCOMING_H

#include "vintok-cluster/Wire.h"

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace vintok::cluster {

class Incoming {
public:
    // What waits may have so many bytes; more is not kept, and missing again.
    explicit Incoming(std::uint64_t mostBytes) : m_most(mostBytes) {}

    // Counts from behind this packet on. The number of packets that are passed over.
    std::uint64_t countFrom(std::uint64_t sequence);
    // Before that everything waits.
    bool counts() const { return m_counts; }

    // False for one that has been there, or finds no room.
    bool keep(std::uint64_t sequence, const Packet &packet);
    // The next in order; null while it is missing.
    Packet next() const;
    void taken();
    std::uint64_t last() const { return m_last; } // that was taken

    // Nothing is missing up to this packet, and nothing waits.
    bool isWhole(std::uint64_t last) const { return m_waiting.empty() && m_last >= last; }
    // The gaps up to this packet, from the first to the last of each.
    using Gaps = std::vector<std::pair<std::uint64_t, std::uint64_t>>;
    Gaps gaps(std::uint64_t last, std::size_t most) const;

private:
    void drop();

    const std::uint64_t m_most;
    bool m_counts = false;
    std::uint64_t m_last = 0;
    std::uint64_t m_bytes = 0;
    std::map<std::uint64_t, Packet> m_waiting;
};

} // namespace vintok::cluster

#endif
