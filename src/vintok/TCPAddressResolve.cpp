// Host names. Everything comes down to `sf_dnsResolve`, the one place that asks the resolver.
//
// The resolver's order decides: the first address that is not IPv6 link-local wins. Where all
// addresses are wanted, an IPv4 address wins only if it is the very first, and an IPv6 one only as
// long as nothing else is known of the address, its port and its name included.
//
// A party is known to others by the address that its machine's own name resolves to. On some
// systems that is loopback, as which every machine knows itself; an interface then gives the
// address.
#include "vintok/TCPAddress.h"

#include "platform/Resolve.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace vintok {

namespace {

platform::Lookup lookupFor(TCPAddress::IPType type) {
    switch (type & TCPAddress::IPTYPE_BOTH) {
    case TCPAddress::IPTYPE_IPV4:
        return platform::Lookup::ipv4;
    case TCPAddress::IPTYPE_IPV6:
        return platform::Lookup::ipv6;
    case TCPAddress::IPTYPE_BOTH:
        return platform::Lookup::mapped;
    default:
        return platform::Lookup::any;
    }
}

// IPv4 or IPv6 for a literal, none for any other name.
TCPAddress::IPType literalFamily(const std::string &name) {
    std::uint32_t ipv4 = 0;
    std::uint16_t words[8];
    std::uint16_t bits = 0;
    if (TCPAddress::sf_parseIPv4(name, ipv4, bits))
        return TCPAddress::IPTYPE_IPV4;
    return TCPAddress::sf_parseIPv6(name, words, bits) ? TCPAddress::IPTYPE_IPV6
                                                       : TCPAddress::IPTYPE_NONE;
}

bool isWanted(TCPAddress::IPType family, TCPAddress::IPType type) {
    return type == TCPAddress::IPTYPE_NONE || (type & family) != 0;
}

bool isLinkLocal(const platform::ResolvedAddress &entry) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(entry.endpoint.ipv6.data());
    return entry.endpoint.family == platform::FAMILY_IPV6 && bytes[0] == 0xFE && bytes[1] == 0x80;
}

void store(const platform::ResolvedAddress &entry, TCPAddress &address) {
    const platform::Endpoint &endpoint = entry.endpoint;
    if (endpoint.family == platform::FAMILY_IPV4) {
        address.setIPv4(endpoint.ipv4);
    } else if (entry.mappedIPv4) {
        std::uint32_t ipv4 = 0;
        std::memcpy(&ipv4, &endpoint.ipv6[6], sizeof(ipv4));
        address.setIPv4(ipv4);
    } else {
        address.setIPv6(endpoint.ipv6.data());
    }
}

bool isLinkLocalIPv6(const TCPAddress &address) {
    platform::ResolvedAddress entry;
    entry.endpoint.family = platform::FAMILY_IPV6;
    return address.IPv6(entry.endpoint.ipv6.data()) && isLinkLocal(entry);
}

// Whether the entry at `index` of the resolver's list is the one to keep in `address`.
bool isKept(const platform::ResolvedAddress &entry, std::size_t index, bool wantAll,
            const TCPAddress &address) {
    if (entry.endpoint.family == platform::FAMILY_IPV4)
        return !wantAll || index == 0;
    if (isLinkLocal(entry))
        return false;
    return address.empty() || (!wantAll && !entry.mappedIPv4);
}

// All of 127.0.0.0/8, of which the flags know one address only, and ::1.
bool isLoopbackNet(const TCPAddress &address) {
    std::uint32_t ipv4 = 0;
    if (!address.IPv4(ipv4))
        return address.isLoopback();
    return *reinterpret_cast<const unsigned char *>(&ipv4) == 127;
}

} // namespace

bool TCPAddress::sf_dnsResolve(const std::string &name, TCPAddress &address,
                               std::vector<TCPAddress> &all, bool literal, IPType type,
                               bool wantAll) try {
    std::vector<platform::ResolvedAddress> entries;
    if (name.empty() || !platform::resolveHost(name, lookupFor(type), literal, entries))
        return false;
    const std::uint16_t port = address.port();
    address.clear();
    address.setPort(port);
    all.clear();
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const platform::ResolvedAddress &entry = entries[i];
        if (wantAll) {
            TCPAddress each;
            store(entry, each);
            each.m_name = entry.canonicalName;
            all.push_back(each);
        }
        if (isKept(entry, i, wantAll, address))
            store(entry, address);
        if (!entry.canonicalName.empty())
            address.m_name = entry.canonicalName;
        if (!wantAll && !isLinkLocal(entry))
            break;
    }
    return !address.empty() || !all.empty();
} catch (const std::bad_alloc &) {
    return false;
}

// ---- Resolving ----

bool TCPAddress::resolve(const std::string &name) {
    return resolve(name, IPTYPE_NONE);
}

bool TCPAddress::resolve(const std::string &name, IPType type) try {
    if (name.empty())
        return false;
    const IPType literal = literalFamily(name);
    if (literal != IPTYPE_NONE) {
        if (!isWanted(literal, type))
            return false;
        setName(name);
        return true;
    }
    std::vector<TCPAddress> scratch;
    if (!sf_dnsResolve(name, *this, scratch, false, type, false))
        return false;
    // What was asked for is remembered, not what the resolver calls it.
    m_name = name;
    return true;
} catch (const std::bad_alloc &) {
    return false;
}

bool TCPAddress::resolve(IPType type) try {
    std::string node;
    // Both families are asked for at once. A machine that knows its name as loopback has it from a
    // file, in one family as a rule: a question for the other would wait for name servers that have
    // never heard of it.
    TCPAddress own;
    std::vector<TCPAddress> all;
    if (!nodeName(node) ||
        !sf_dnsResolve(node, own, all, literalFamily(node) != IPTYPE_NONE, IPTYPE_NONE, true))
        return false;
    const bool isLocal = isLoopbackNet(all.front());
    std::erase_if(all, [type](const TCPAddress &each) {
        return !isWanted(IPType(each.ipType() & IPTYPE_BOTH), IPType(type & IPTYPE_BOTH));
    });
    const auto usable = std::find_if_not(all.begin(), all.end(), isLinkLocalIPv6);
    own = usable != all.end() ? *usable : TCPAddress();
    if (all.empty() && !(isLocal && own.mf_takeInterface(type)))
        return false;
    own.mf_preferInterface(type);
    own.m_name = node;
    own.setPort(port());
    clear();
    TCPAddress::operator=(own);
    return true;
} catch (const std::bad_alloc &) {
    return false;
}

bool TCPAddress::resolve() {
    return resolve(IPTYPE_NONE);
}

bool TCPAddress::resolveNetName(const std::string &name) {
    return resolveNetName(name, IPTYPE_NONE);
}

bool TCPAddress::resolveNetName(const std::string &name, IPType type) try {
    if (name.empty())
        return false;
    const IPType literal = literalFamily(name);
    if (literal != IPTYPE_NONE && !isWanted(literal, type))
        return false;
    if (literal == IPTYPE_IPV6)
        setName(name);
    std::vector<TCPAddress> scratch;
    if (!sf_dnsResolve(name, *this, scratch, literal != IPTYPE_NONE, type, true))
        return false;
    const std::string canonical = m_name;
    return resolve(canonical, IPTYPE_NONE);
} catch (const std::bad_alloc &) {
    return false;
}

bool TCPAddress::resolveNetName(IPType type) try {
    std::string node;
    if (!nodeName(node) || !resolveNetName(node, type))
        return false;
    mf_preferInterface(type);
    return true;
} catch (const std::bad_alloc &) {
    return false;
}

bool TCPAddress::resolveNetName() {
    return resolveNetName(IPTYPE_NONE);
}

bool TCPAddress::mf_takeInterface(IPType type) {
    platform::ResolvedAddress found;
    if ((isWanted(IPTYPE_IPV4, type) &&
         platform::interfaceAddress(platform::FAMILY_IPV4, found.endpoint)) ||
        (isWanted(IPTYPE_IPV6, type) &&
         platform::interfaceAddress(platform::FAMILY_IPV6, found.endpoint))) {
        store(found, *this);
        return true;
    }
    return false;
}

// Others must not know this machine by an address that means themselves to them.
void TCPAddress::mf_preferInterface(IPType type) {
    if (isLoopbackNet(*this))
        mf_takeInterface(type);
}

bool TCPAddress::resolveName() try {
    if (m_storage.type == IPTYPE_NONE) {
        const std::string name = m_name;
        return resolve(name, IPTYPE_NONE);
    }
    return !m_name.empty() || ipString(m_name);
} catch (const std::bad_alloc &) {
    return false;
}

bool TCPAddress::lookup(const std::string &name, std::vector<TCPAddress> &result, IPType type) {
    const IPType literal = literalFamily(name);
    if ((literal == IPTYPE_IPV4 && type == IPTYPE_IPV6) ||
        (literal == IPTYPE_IPV6 && type == IPTYPE_IPV4))
        return false;
    TCPAddress scratch;
    return sf_dnsResolve(name, scratch, result, literal != IPTYPE_NONE, type, true);
}

bool TCPAddress::areEqual(const std::string &a, const std::string &b) {
    TCPAddress left;
    TCPAddress right;
    return left.resolve(a, IPTYPE_NONE) && right.resolve(b, IPTYPE_NONE) && left == right;
}

bool TCPAddress::nodeName(std::string &name) try {
    std::string text;
    if (!platform::hostName(text))
        return false;
    text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c >= 1 && c <= 31; }),
               text.end());
    name = text;
    return true;
} catch (const std::bad_alloc &) {
    return false;
}

} // namespace vintok
