// The stream of packets of this host: items are packed together, and each packet is kept until
// everybody has it.
#ifndef VINTOK_CLUSTER_OUTGOING_H
#define VINTOK_CLUSTER_OUTGOING_H

#include "vintok-cluster/Carrier.h"

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <optional>

namespace vintok::cluster {

class Outgoing {
public:
    // `window` bytes are kept for hosts that are gone, none of them longer than `retention`
    // milliseconds. For those that are there it is four times as much, whatever its age.
    Outgoing(Carrier &carrier, std::uint64_t incarnation, std::uint64_t window,
             std::uint32_t retention);

    // Appends an item, made of these parts. A packet that is full goes out at once.
    void add(ItemKind kind, std::initializer_list<View> parts);
    // Sends the packet that is open. True if there was one.
    bool close();
    bool isOpen() const { return m_open.size() > packetHead; }
    void setTime(std::uint64_t now) { m_now = now; }

    std::uint64_t last() const { return m_next - 1; } // that is out; 0: none
    std::uint64_t first() const { return m_next - m_kept.size(); }
    // Null for one that is not kept.
    Packet at(std::uint64_t sequence) const;
    // Bytes of the packets behind this one.
    std::uint64_t bytesBehind(std::uint64_t sequence) const;

    // Forgets what nobody needs: `live` is what all that are there have, and `gone` what those have
    // that may come again.
    void release(std::uint64_t live, std::uint64_t gone);

    static constexpr std::size_t packetHead = Header::size + 8;

private:
    struct Kept {
        Packet packet;
        std::uint64_t time;
        std::uint64_t end; // bytes of the stream up to here
    };
    void begin();
    void append(View bytes);
    std::uint64_t bytes() const;

    Carrier &m_carrier;
    const std::uint64_t m_incarnation;
    const std::uint64_t m_window;
    const std::uint32_t m_retention;
    std::uint64_t m_now = 0;
    std::uint64_t m_next = 1;
    std::uint64_t m_end = 0;
    std::uint64_t m_released = 0;
    std::deque<Kept> m_kept; // up to the last one
    Bytes m_open;
};

} // namespace vintok::cluster

#endif
