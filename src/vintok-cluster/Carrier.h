// The two seams of a node: what brings its packets to the others, and the meeting at its side. Both
// have another implementation in the tests.
#ifndef VINTOK_CLUSTER_CARRIER_H
#define VINTOK_CLUSTER_CARRIER_H

#include "vintok-cluster/Wire.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace vintok {

class ConferenceRosterEntry;

namespace cluster {

// Sends without waiting. What it is given may be lost, repeated and overtaken, but not changed.
class Carrier {
public:
    virtual void toAll(const Packet &packet) = 0;
    virtual void toOne(std::uint64_t incarnation, const Packet &packet) = 0;
    // Has it stored in the one order of all hosts, again and again until it is, and before whatever
    // is given to it later. `Node::stored` is called with the number and the place then.
    virtual void store(std::uint64_t number, const Packet &packet) = 0;
    // Bytes that a packet may have.
    virtual std::size_t longestPacket() const = 0;
    // Sees to it that `Node::turn` is called soon.
    virtual void wake() = 0;

protected:
    ~Carrier() = default;
};

// `LinkedMeeting` with its host, as far as a node needs it.
class Side {
public:
    virtual bool entry(const ConferenceRosterEntry &entry) = 0;
    virtual bool left(const TCPAddress &party) = 0;
    virtual bool said(const TCPAddress &speaker, View frames) = 0;
    virtual bool saidTo(const TCPAddress &party, View frames) = 0;
    virtual bool hasRoom() = 0;
    virtual bool message(const TCPAddress &party, const TCPAddress &sender, View frame) = 0;
    virtual bool leader(const TCPAddress &leader) = 0;
    virtual void authorityChanged() = 0;
    virtual void giveColors(bool anew) = 0;
    // Who leads by what this side knows; empty: nobody.
    virtual TCPAddress leader() = 0;
    // For the application and the log.
    enum class Event { came, went, authority };
    virtual void happened(Event event, std::uint64_t host) = 0;
    virtual void log(const std::string &text) = 0;

protected:
    ~Side() = default;
};

} // namespace cluster
} // namespace vintok

#endif
