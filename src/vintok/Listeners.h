// Internal. The listening sockets of one owner: one for each address family on one port, watched by
// the owner's loop. The owner keeps their descriptors, -1 for none.
#ifndef VINTOK_LISTENERS_H
#define VINTOK_LISTENERS_H

#include "vintok/TCPAddress.h"
#include "vintok/TCPSelect.h"

#include <cstddef>

namespace vintok {

// What could be listened on. In each function the IPv6 socket takes exactly the port that the IPv4
// socket has found; without an IPv4 socket it searches `tries` ports from `port` (host order) by
// itself.
struct Listeners {
    int ipv4 = -1;
    int ipv6 = -1;
    TCPAddress addressIPv4; // where the sockets listen
    TCPAddress addressIPv6;

    // The IPv4 record has the port and no address, deliberately: a party that only local ones can
    // reach is known by its IPv6 address.
    static Listeners onLoopback(unsigned short port, std::size_t tries);
    static Listeners anywhere(unsigned short port, std::size_t tries);
    // On the addresses that this machine's name stands for.
    static Listeners onOwnAddress(unsigned short port, std::size_t tries);

    bool exist() const { return ipv4 != -1 || ipv6 != -1; }
    // Host order; 0 for none.
    unsigned short port() const;
};

// `select` calls `function` with `owner` for each caller. A socket that it does not take is closed.
void watchListener(TCPSelect &select, int &listener, TCPSelectCallback function, void *owner);

// Leaves -1. `select` is null for an owner that has no loop.
void closeListener(TCPSelect *select, int &listener, TCPSelectCallback function, void *owner);

} // namespace vintok

#endif
