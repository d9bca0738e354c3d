#include "platform/Resolve.h"

#include "platform/SocketAddress.h"

#include <array>
#include <cstdio>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <unistd.h>

namespace vintok::platform {

namespace {

bool isCandidate(const ifaddrs &interface, Family family) {
    if (interface.ifa_addr == nullptr || interface.ifa_addr->sa_family != systemFamily(family))
        return false;
    if ((interface.ifa_flags & IFF_UP) == 0 || (interface.ifa_flags & IFF_LOOPBACK) != 0)
        return false;
    return !isLinkLocal(fromSystem(family, interface.ifa_addr));
}

} // namespace

bool hostName(std::string &name) {
    std::array<char, 256> buffer = {};
    if (gethostname(buffer.data(), buffer.size() - 1) != 0) {
        std::perror("TCPAddress->nodeName ~ gethostname()");
        return false;
    }
    name = buffer.data();
    return true;
}

bool interfaceAddress(Family family, Endpoint &endpoint) {
    ifaddrs *first = nullptr;
    if (family == FAMILY_LOCAL || getifaddrs(&first) != 0)
        return false;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> list(first, &freeifaddrs);
    for (const ifaddrs *each = list.get(); each != nullptr; each = each->ifa_next) {
        if (isCandidate(*each, family)) {
            endpoint = fromSystem(family, each->ifa_addr);
            endpoint.port = 0;
            return true;
        }
    }
    return false;
}

} // namespace vintok::platform
