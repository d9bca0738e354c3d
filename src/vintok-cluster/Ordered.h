// What is said in one order over all hosts, on its way to the engine that keeps the order and back.
//
// One packet at a time is on its way to be stored, and what is said meanwhile goes into the next.
// So the engine may be asked again and again, and still stores the packets of a host in their
// order.
#ifndef VINTOK_CLUSTER_ORDERED_H
#define VINTOK_CLUSTER_ORDERED_H

#include "vintok-cluster/Carrier.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>

namespace vintok::cluster {

class Ordered {
public:
    Ordered(Carrier &carrier, std::uint64_t incarnation) // of this host
        : m_carrier(carrier), m_incarnation(incarnation) {}

    // To be stored; `state` is the packet of this host's stream that must be known before.
    void add(View speaker, View frames, std::uint64_t state);
    // Where what was added so far ends: behind this packet, if it is not stored yet, and this
    // place.
    struct End {
        std::uint64_t number = 0;
        std::uint64_t place = 0;
    };
    End end() const;
    // Hands the next packet to the carrier unless one is on its way.
    void close();
    void stored(std::uint64_t number, std::uint64_t place);
    bool isStoring() const { return !m_out.empty(); }
    // All that are there have taken the order up to this place.
    void release(std::uint64_t place);
    std::uint64_t waiting() const { return m_waiting; } // bytes that not all have

    // What comes back.
    struct Item {
        std::uint64_t sender = 0;
        std::uint64_t number = 0;
        std::uint64_t state = 0;
        std::uint64_t place = 0;
        bool isPast = false;
        std::uint64_t since = 0; // when it came
        Packet packet = nullptr; // null: the past ends here
    };
    void keep(Item item);
    const Item *first() const { return m_items.empty() ? nullptr : &m_items.front(); }
    // Takes the first one away and hands on what is said in it, as far as it is whole. What is
    // there a second time is passed over.
    using Handler = std::function<void(View speaker, View frames)>;
    void takeFirst(const Handler &handler);
    bool hasRoom() const { return m_itemBytes < mostBytes; }
    std::uint64_t place() const { return m_place; } // up to which it is taken; 0: not at all
    bool isTaken(std::uint64_t sender, const End &end) const;

    static constexpr std::size_t mostBytes = 32 << 20;
    static constexpr std::size_t packetHead = Header::size + 8 + 8;

private:
    struct Out {
        std::uint64_t state;
        Bytes items;
    };
    struct Stored {
        std::uint64_t place;
        std::uint64_t bytes;
    };
    struct Sender {
        std::uint64_t number = 0;
        Joiner joiner;
    };

    Carrier &m_carrier;
    const std::uint64_t m_incarnation;
    std::deque<Out> m_out; // the first may be on its way
    bool m_onItsWay = false;
    std::uint64_t m_number = 0; // of the last that was given to the carrier
    std::uint64_t m_waiting = 0;
    std::uint64_t m_storedPlace = 0;
    std::deque<Stored> m_stored; // that not all have

    std::deque<Item> m_items;
    std::uint64_t m_itemBytes = 0;
    std::uint64_t m_place = 0;
    std::map<std::uint64_t, Sender> m_senders;
};

} // namespace vintok::cluster

#endif
