// Asks the system's resolver. The two systems have the same call for it; what they do not agree on
// is what AI_ADDRCONFIG means for a machine that has only its loopback interface. That flag keeps
// addresses away that the machine cannot reach, and some resolvers count loopback as no network at
// all: then not even "localhost" resolves. So where the machine has nothing but loopback of the
// families that are wanted, a name that was not found is asked for once more without the flag, and
// of that answer only the loopback addresses count.

#include "platform/Resolve.h"

#include "platform/SocketAddress.h"

#include <memory>

namespace vintok::platform {

namespace {

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

addrinfo hintsFor(Lookup lookup) {
    addrinfo hints = {};
    hints.ai_flags = AI_CANONNAME;
    hints.ai_socktype = SOCK_STREAM;
    switch (lookup) {
    case Lookup::any:
        hints.ai_family = AF_UNSPEC;
        break;
    case Lookup::ipv4:
        hints.ai_family = AF_INET;
        break;
    case Lookup::ipv6:
        hints.ai_family = AF_INET6;
        break;
    case Lookup::mapped:
        hints.ai_family = AF_UNSPEC;
        hints.ai_flags |= AI_V4MAPPED | AI_ALL;
        break;
    }
    return hints;
}

bool hasInterface(Lookup lookup) {
    Endpoint ignored;
    return (lookup != Lookup::ipv6 && interfaceAddress(FAMILY_IPV4, ignored)) ||
           (lookup != Lookup::ipv4 && interfaceAddress(FAMILY_IPV6, ignored));
}

// The resolver's answer; null with `error` when it has none.
AddressList ask(const std::string &name, addrinfo hints, int flags, int &error) {
    addrinfo *first = nullptr;
    hints.ai_flags |= flags;
    error = getaddrinfo(name.c_str(), nullptr, &hints, &first);
    return AddressList(error == 0 ? first : nullptr, &freeaddrinfo);
}

// False for an entry of no family of ours.
bool convert(const addrinfo &entry, Lookup lookup, ResolvedAddress &result) {
    if (entry.ai_family != AF_INET && entry.ai_family != AF_INET6)
        return false;
    result.endpoint =
        fromSystem(entry.ai_family == AF_INET ? FAMILY_IPV4 : FAMILY_IPV6, entry.ai_addr);
    // Not from the flags of the entry: some resolvers copy the flags of the question there.
    result.mappedIPv4 = lookup == Lookup::mapped && isMappedIPv4(result.endpoint);
    return true;
}

} // namespace

bool resolveHost(const std::string &name, Lookup lookup, bool literal,
                 std::vector<ResolvedAddress> &result) {
    result.clear();
    int error = 0;
    // What stands there in figures is no matter of what the machine can reach.
    AddressList list = ask(name, hintsFor(lookup), literal ? AI_NUMERICHOST : AI_ADDRCONFIG, error);
    const bool loopbackOnly = !literal && error != 0 && !hasInterface(lookup);
    if (loopbackOnly && error != EAI_AGAIN && error != EAI_MEMORY)
        list = ask(name, hintsFor(lookup), 0, error);
    for (const addrinfo *entry = list.get(); entry != nullptr; entry = entry->ai_next) {
        ResolvedAddress address;
        if (convert(*entry, lookup, address) && (!loopbackOnly || isLoopback(address.endpoint)))
            result.push_back(address);
    }
    if (!result.empty() && list->ai_canonname != nullptr)
        result.front().canonicalName = list->ai_canonname;
    return error == 0 && (!loopbackOnly || !result.empty());
}

} // namespace vintok::platform
