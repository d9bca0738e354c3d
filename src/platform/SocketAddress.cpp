#include "platform/SocketAddress.h"

#include "platform/SocketErrors.h"

#include <cstring>

namespace vintok::platform {

namespace {

in6_addr ipv6Of(const Endpoint &endpoint) {
    in6_addr address;
    static_assert(sizeof address == sizeof endpoint.ipv6);
    std::memcpy(&address, endpoint.ipv6.data(), sizeof address);
    return address;
}

} // namespace

int systemFamily(Family family) {
    switch (family) {
    case FAMILY_LOCAL:
        return AF_UNIX;
    case FAMILY_IPV6:
        return AF_INET6;
    case FAMILY_IPV4:
        break;
    }
    return AF_INET;
}

bool toSystem(const Endpoint &endpoint, SocketAddress &address) {
    static_assert(sizeof address.local.sun_path == maxLocalPath + 1);
    std::memset(&address.local, 0, sizeof address.local);
    switch (endpoint.family) {
    case FAMILY_LOCAL:
        if (endpoint.path.empty() || endpoint.path.size() > maxLocalPath) {
            setSocketError(socketErrors::badAddress);
            return false;
        }
        address.local.sun_family = AF_UNIX;
        std::memcpy(address.local.sun_path, endpoint.path.data(), endpoint.path.size());
        address.length = sizeof address.local;
        return true;
    case FAMILY_IPV6:
        address.ipv6.sin6_family = AF_INET6;
        address.ipv6.sin6_port = endpoint.port;
        address.ipv6.sin6_addr = ipv6Of(endpoint);
        address.length = sizeof address.ipv6;
        return true;
    case FAMILY_IPV4:
        break;
    }
    address.ipv4.sin_family = AF_INET;
    address.ipv4.sin_port = endpoint.port;
    address.ipv4.sin_addr.s_addr = endpoint.ipv4;
    address.length = sizeof address.ipv4;
    return true;
}

Endpoint fromSystem(Family family, const sockaddr *address) {
    Endpoint endpoint;
    endpoint.family = family;
    if (family == FAMILY_IPV4) {
        sockaddr_in ipv4;
        std::memcpy(&ipv4, address, sizeof ipv4);
        endpoint.ipv4 = ipv4.sin_addr.s_addr;
        endpoint.port = ipv4.sin_port;
    } else if (family == FAMILY_IPV6) {
        sockaddr_in6 ipv6;
        std::memcpy(&ipv6, address, sizeof ipv6);
        std::memcpy(endpoint.ipv6.data(), &ipv6.sin6_addr, sizeof ipv6.sin6_addr);
        endpoint.port = ipv6.sin6_port;
    }
    return endpoint;
}

bool isLoopback(const Endpoint &endpoint) {
    if (endpoint.family == FAMILY_IPV4)
        return (ntohl(endpoint.ipv4) >> 24) == 127;
    const in6_addr address = ipv6Of(endpoint);
    return endpoint.family == FAMILY_IPV6 && IN6_IS_ADDR_LOOPBACK(&address);
}

bool isLinkLocal(const Endpoint &endpoint) {
    const in6_addr address = ipv6Of(endpoint);
    return endpoint.family == FAMILY_IPV6 && IN6_IS_ADDR_LINKLOCAL(&address);
}

bool isMappedIPv4(const Endpoint &endpoint) {
    const in6_addr address = ipv6Of(endpoint);
    return endpoint.family == FAMILY_IPV6 && IN6_IS_ADDR_V4MAPPED(&address);
}

} // namespace vintok::platform
