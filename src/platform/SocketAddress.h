// Between the library's endpoints and the socket addresses of the systems, which agree here.
// <SystemSockets.h> is found in the folder of the system that is built for.
#ifndef VINTOK_PLATFORM_SOCKETADDRESS_H
#define VINTOK_PLATFORM_SOCKETADDRESS_H

#include "platform/Socket.h"

#include <SystemSockets.h>

namespace vintok::platform {

// Room for each of the three, and the length that is in use.
struct SocketAddress {
    union {
        sockaddr any = {};
        sockaddr_in ipv4;
        sockaddr_in6 ipv6;
        sockaddr_un local;
    };
    socklen_t length = 0;
};

// The system's number of a family.
int systemFamily(Family family);

// False for a local path that is empty or too long; `socketError()` then is 10014.
bool toSystem(const Endpoint &endpoint, SocketAddress &address);

// Takes family, address and port over; a local endpoint gets no path.
Endpoint fromSystem(Family family, const sockaddr *address);

bool isLoopback(const Endpoint &endpoint);
// IPv6 only: IPv4 link-local addresses are as good as others.
bool isLinkLocal(const Endpoint &endpoint);
bool isMappedIPv4(const Endpoint &endpoint);

} // namespace vintok::platform

#endif
