// Names and addresses of hosts, through the system's resolver. Blocking.
#ifndef VINTOK_PLATFORM_RESOLVE_H
#define VINTOK_PLATFORM_RESOLVE_H

#include "platform/Socket.h"

#include <string>
#include <vector>

namespace vintok::platform {

// Which families a look-up wants. `mapped` also takes IPv4 addresses in their IPv6 form.
enum class Lookup { any, ipv4, ipv6, mapped };

struct ResolvedAddress {
    Endpoint endpoint;
    bool mappedIPv4 = false;   // only after Lookup::mapped: the last four bytes are an IPv4 address
    std::string canonicalName; // on the first entry only
};

// Asks the resolver for stream addresses of `name`, in the resolver's order; with `literal` no name
// service is asked. Addresses of a family that the machine has no network for are left out,
// loopback ones excepted. False when nothing is found; `result` is then empty.
bool resolveHost(const std::string &name, Lookup lookup, bool literal,
                 std::vector<ResolvedAddress> &result);

// This machine's own name, fully qualified where the system knows it so. On failure prints the
// reason with `perror` and returns false.
bool hostName(std::string &name);

// The address of the first interface of the family that is up and not loopback, link-local IPv6
// excepted; its port is 0. False when there is none.
bool interfaceAddress(Family family, Endpoint &endpoint);

} // namespace vintok::platform

#endif
