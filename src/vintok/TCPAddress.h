// The one value type for an endpoint: an address (IPv4, IPv6 or a Unix path), a port, the length of
// a net mask, and a name. It names sockets, hosts and networks, and is a field of 24 bytes in
// messages.
//
// A plain value: no lock, no cache, nothing owned beyond its name. Ports and addresses are in
// network byte order unless a name says otherwise. Operations that resolve names ask the system's
// resolver and block for as long as that takes; every other one returns at once. Failures are told
// by the result alone, want of memory too: no operation here sets a `TCPError`. What has no result
// and takes a text (`setName`, `setUnix`, a copy) throws std::bad_alloc and changes nothing.
#ifndef VINTOK_TCPADDRESS_H
#define VINTOK_TCPADDRESS_H

#include "vintok/Export.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vintok {

class VINTOK_API TCPAddress {
public:
    // A set of flags. An address that holds nothing but a name has none of them. As a filter for
    // resolving, a family (or both) says which addresses are wanted, and 0 that any will do.
    enum IPType : std::uint32_t {
        IPTYPE_NONE = 0,
        IPTYPE_IPV4 = 1,
        IPTYPE_IPV6 = 2,
        IPTYPE_BOTH = 3,
        IPTYPE_UNIX = 4,
        IPTYPE_LOOPBACK = 8,
        IPTYPE_BROADCAST = 16,
        IPTYPE_NETWORK = 32,
    };

    // Sixteen bytes in network order. An IPv4 address is the last of the `longs`, the rest being
    // zero.
    union IPFormats {
        std::uint16_t words[8]; // the groups of an IPv6 address
        std::uint32_t longs[4]; // the last is an IPv4 address
    };

    // All of an address but its name. Copied and ordered as the 24 bytes that it is.
    struct Storage {
        IPFormats ip;           // of a Unix path nothing: that is the name
        IPType type;            // flags
        std::uint16_t port;     // network byte order
        std::uint16_t maskBits; // 0: no mask
    };

    // The bit by which a small ASCII letter differs from the capital one.
    static constexpr char s_c_lower = 0x20;

    TCPAddress() = default;
    TCPAddress(const TCPAddress &) = default;
    TCPAddress &operator=(const TCPAddress &) = default;

    // Resolves `text`; an empty text changes nothing. `empty` tells whether it worked. Blocks.
    TCPAddress &operator=(const std::string &text);

    // Back to no type, no address, no port, no mask and no name.
    virtual void clear();

    // An address with only a port, or only a name, is not empty.
    virtual bool empty() const;

    // Makes `target` a copy of this address and leaves what a derived class added to it alone.
    void clone(TCPAddress &target) const;

    // Compares names if the left side has only a name, or the right side is a path or only a name;
    // otherwise address and port. a == b can differ from b == a.
    bool operator==(const TCPAddress &other) const;
    bool operator!=(const TCPAddress &other) const;

    // A strict order of the stored bytes as they lie in memory, names left out: good for
    // containers, and not the same on every kind of host. `<=` and `>=` also hold where `==` does.
    bool operator<(const TCPAddress &other) const;
    bool operator>(const TCPAddress &other) const;
    bool operator<=(const TCPAddress &other) const;
    bool operator>=(const TCPAddress &other) const;

    // ---- Address and flags ----

    // The flags, all of them and each for itself.
    IPType ipType() const;
    bool isIPv4() const;
    bool isIPv6() const;
    bool isUnix() const;
    bool isLoopback() const;
    bool isBroadcast() const;
    bool isNetwork() const;

    // `address` is 0 when the result is false, which it is for anything but an IPv4 address whose
    // unused bytes are zero.
    bool IPv4(std::uint32_t &address) const;

    // Sets the flags too: 127.0.0.1 is loopback, 255.255.255.255 is broadcast.
    void setIPv4(std::uint32_t address);
    void setLoopbackIPv4();
    void setBroadcastIPv4();

    // Eight words. False for a null pointer or anything but an IPv6 address.
    bool IPv6(std::uint16_t *const words) const;

    // Sets the flags too: ::1 is loopback, a multicast address of the well-known kind is broadcast.
    void setIPv6(const std::uint16_t *const words);
    void setLoopbackIPv6();
    void setBroadcastIPv6(); // ff01::1

    // Makes this the address of a local socket. Port and mask stay.
    void setUnix(const std::string &path);

    // The raw parts, taken and given as they are: no flag is worked out. The getters return true.
    bool IPdata(IPFormats &data, IPType &type) const;
    void setIPdata(const IPFormats &data, IPType type);
    bool storage(Storage &storage) const;
    void setStorage(const Storage &storage);

    // ---- Port and name ----

    // 0: none. In network byte order, and as a number.
    std::uint16_t port() const;
    void setPort(std::uint16_t port);
    std::uint16_t hostByteOrderPort() const;
    void setHostByteOrderPort(std::uint16_t port);

    // False, with `text` as it was, when there is no name.
    bool name(std::string &text) const;

    // Takes a name, and the address too if the name is a literal. Never resolves. An empty text
    // does nothing.
    void setName(const std::string &text);

    // ---- Networks ----

    // The length of the net mask in bits, 0 when there is none.
    std::uint16_t maskBits() const;

    // Make this a network from a literal, with the mask as "/length" or given apart. The text
    // becomes the name; a text that is no literal sets nothing else. False for an
    // empty one and a mask that does not fit; what was stored before the mask was refused stays.
    bool setNetwork(const std::string &text);
    bool setNetwork(const std::string &text, std::uint16_t bits);
    bool setNetwork(const std::string &text, std::string mask);

    // Set the mask of this address: a length up to 32 for IPv4 and 128 for everything else, or a
    // mask in the form of an address. False, changing nothing, when it does not fit. A mask with a
    // byte of 0xF0 is refused; give its length instead.
    bool setNetMask(const std::string &mask);
    bool setNetMask(std::uint16_t bits);

    // Whether this address lies in `network`. Every IPv6 address lies in every IPv6 network that
    // has a mask.
    bool isInNet(const TCPAddress &network) const;

    // Appends the mask of a network ("255.255.255.0", "ffff:ffff:0:0:0:0:0:0") to `text`. False,
    // with nothing appended, for what is not a network.
    bool maskString(std::string &text) const;

    // ---- Text and names; those that take or use a name may block ----

    // The address as text: "0.0.0.0" where there is none, a network with "/length" behind it. IPv6
    // groups lose their leading zeros but are not folded to "::", and a last group of zero prints
    // as nothing. The flag has no effect. False, with "Internal Error", for a type that does not
    // occur.
    bool ipString(std::string &text, bool flag = false) const;

    // Make this the address of `name`, a literal or a host name, or of this machine. An IPv4 or
    // IPv6 `type` takes addresses of that family alone. On success the name is the one given and
    // the port is unchanged; after a failure the address may have been cleared. A name that yields
    // nothing usable succeeds all the same when a port is set. For this machine the address of an
    // interface is preferred to loopback, and taken where the machine's name is loopback in the
    // other family alone.
    bool resolve(const std::string &name);
    bool resolve(const std::string &name, IPType type);
    bool resolve(IPType type);
    bool resolve(std::nullptr_t) = delete; // a 0 would be a text, at no address
    bool resolve();

    // Like `resolve`, but by way of the canonical name that the resolver reports, which is also the
    // name kept. False when it reports none.
    bool resolveNetName(const std::string &name);
    bool resolveNetName(const std::string &name, IPType type);
    bool resolveNetName(IPType type);
    bool resolveNetName(std::nullptr_t) = delete;
    bool resolveNetName();

    // Fills whichever of name and address is missing: the name becomes the address as text, the
    // address what the name resolves to. False when both are missing or the name does not resolve.
    bool resolveName();

    // Every address of a name or literal, in the resolver's order.
    static bool lookup(const std::string &name, std::vector<TCPAddress> &result, IPType type);

    // Whether two texts denote the same address. False when either cannot be resolved.
    static bool areEqual(const std::string &a, const std::string &b);

    // This machine's name, fully qualified where the system knows it so. On failure prints the
    // reason to standard error.
    static bool nodeName(std::string &name);

    // "1.2.3.4" or "1.2.3.4/24", of fewer than 20 characters. Without a length `bits` stays as the
    // caller set it; a length above 32 is refused and sets it to 0. Where anything but the length
    // is refused, `address` is 0.
    static bool sf_parseIPv4(const std::string &text, std::uint32_t &address, std::uint16_t &bits);

    // The same for IPv6, of fewer than 50 characters: groups, "::", a dotted quad at the end, and
    // "/length" up to 128. `words` takes eight words. A group of more than four digits counts by
    // its last four.
    static bool sf_parseIPv6(const std::string &text, std::uint16_t *const words,
                             std::uint16_t &bits);

    // Lower-cases one ASCII letter and leaves everything else.
    static void sf_lower(char &c);

    // Asks the resolver. `address` takes the first address that is usable (not link-local) and the
    // canonical name, and keeps its port; with `wantAll` the vector takes every address. `literal`
    // promises that `name` is one, so that no name service is asked. False, changing nothing, when
    // the resolver fails, and false when there is neither an address, a name nor a port in the end.
    static bool sf_dnsResolve(const std::string &name, TCPAddress &address,
                              std::vector<TCPAddress> &all, bool literal, IPType type,
                              bool wantAll);

    // ---- Wire form: address 16, type 4, port 2, mask length 2; the name is not sent ----

    // The number of bytes that `write` needs, the same for every kind of address.
    std::uint64_t size() const;

    // Both return 24, or 0 for a null buffer or one that is too short; the object is then as it
    // was. `read` clears first, so the name is lost, and takes the type as it comes.
    std::uint64_t write(unsigned char *buffer, std::uint64_t length) const;
    std::uint64_t read(const unsigned char *buffer, std::uint64_t length);

protected:
    std::string m_name;
    Storage m_storage{};

private:
    // The address bytes: 4, 16 or none of them, by the family.
    std::uint64_t mf_ipBytes(const unsigned char *&bytes) const;
    bool mf_takeInterface(IPType type);
    void mf_preferInterface(IPType type);
};

static_assert(sizeof(TCPAddress::Storage) == 24, "an address is stored in 24 bytes");

} // namespace vintok

#endif
