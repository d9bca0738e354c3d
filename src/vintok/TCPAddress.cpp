// The value itself: its parts and flags, comparisons, and the wire form. Text is in
// TCPAddressText.cpp and names are in TCPAddressResolve.cpp.
//
// An IPv4 address is kept in the last four of the sixteen bytes with zeros in front; code that
// needs bytes rather than words looks at the storage through `ipBytes`, which is where the two
// families meet.
#include "vintok/TCPAddress.h"

#include "vintok/ByteOrder.h"
#include "vintok/FrameLayout.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <iterator>
#include <new>

namespace vintok {

namespace {

constexpr std::uint64_t ipv4Offset = 12;
constexpr std::uint64_t ipSize = sizeof(TCPAddress::IPFormats);

// An IPv4 address in network byte order from its four bytes.
std::uint32_t ipv4FromBytes(const std::array<unsigned char, 4> &bytes) {
    return std::bit_cast<std::uint32_t>(bytes);
}

const unsigned char *ipBytes(const TCPAddress::IPFormats &ip) {
    return reinterpret_cast<const unsigned char *>(&ip);
}

TCPAddress::IPType ipv6Type(const TCPAddress::IPFormats &ip) {
    const unsigned char *bytes = ipBytes(ip);
    const bool zeros = std::all_of(bytes, bytes + ipSize - 1, [](auto byte) { return byte == 0; });
    if (zeros && bytes[ipSize - 1] == 1)
        return TCPAddress::IPType(TCPAddress::IPTYPE_IPV6 | TCPAddress::IPTYPE_LOOPBACK);
    // Multicast of the well-known kind is what stands for broadcast in IPv6.
    if (bytes[0] == 0xFF && (bytes[1] & 0xF0) == 0)
        return TCPAddress::IPType(TCPAddress::IPTYPE_IPV6 | TCPAddress::IPTYPE_BROADCAST);
    return TCPAddress::IPTYPE_IPV6;
}

} // namespace

TCPAddress &TCPAddress::operator=(const std::string &text) {
    if (!text.empty())
        resolve(text, IPTYPE_NONE);
    return *this;
}

void TCPAddress::clear() {
    m_storage = {};
    m_name.clear();
}

bool TCPAddress::empty() const {
    const Storage nothing{};
    return std::memcmp(&m_storage, &nothing, sizeof(Storage)) == 0 && m_name.empty();
}

void TCPAddress::clone(TCPAddress &target) const {
    target.m_name = m_name;
    target.m_storage = m_storage;
}

// ---- Comparison ----

bool TCPAddress::operator==(const TCPAddress &other) const {
    if (m_storage.type == IPTYPE_NONE && !m_name.empty())
        return m_name == other.m_name;
    // Only the right side goes by name as a path too: deliberately not the same for both sides.
    if ((other.m_storage.type & ~IPTYPE_UNIX) == 0 && !other.m_name.empty())
        return m_name == other.m_name;
    return std::memcmp(&m_storage.ip, &other.m_storage.ip, ipSize) == 0 &&
           m_storage.port == other.m_storage.port;
}

bool TCPAddress::operator!=(const TCPAddress &other) const {
    return !(*this == other);
}

bool TCPAddress::operator<(const TCPAddress &other) const {
    return std::memcmp(&m_storage, &other.m_storage, sizeof(Storage)) < 0;
}

bool TCPAddress::operator>(const TCPAddress &other) const {
    return std::memcmp(&m_storage, &other.m_storage, sizeof(Storage)) > 0;
}

bool TCPAddress::operator<=(const TCPAddress &other) const {
    return *this == other || *this < other;
}

bool TCPAddress::operator>=(const TCPAddress &other) const {
    return *this == other || *this > other;
}

// ---- Address and flags ----

TCPAddress::IPType TCPAddress::ipType() const {
    return m_storage.type;
}

bool TCPAddress::isIPv4() const {
    return (m_storage.type & IPTYPE_IPV4) != 0;
}

bool TCPAddress::isIPv6() const {
    return (m_storage.type & IPTYPE_IPV6) != 0;
}

bool TCPAddress::isUnix() const {
    return (m_storage.type & IPTYPE_UNIX) != 0;
}

bool TCPAddress::isLoopback() const {
    return (m_storage.type & IPTYPE_LOOPBACK) != 0;
}

bool TCPAddress::isBroadcast() const {
    return (m_storage.type & IPTYPE_BROADCAST) != 0;
}

bool TCPAddress::isNetwork() const {
    return (m_storage.type & IPTYPE_NETWORK) != 0;
}

bool TCPAddress::IPv4(std::uint32_t &address) const {
    address = 0;
    const unsigned char *bytes = ipBytes(m_storage.ip);
    if ((m_storage.type & IPTYPE_BOTH) != IPTYPE_IPV4 ||
        std::any_of(bytes, bytes + ipv4Offset, [](auto byte) { return byte != 0; }))
        return false;
    address = m_storage.ip.longs[3];
    return true;
}

void TCPAddress::setIPv4(std::uint32_t address) {
    m_storage.ip = {};
    m_storage.ip.longs[3] = address;
    m_storage.type = IPTYPE_IPV4;
    if (address == ipv4FromBytes({127, 0, 0, 1}))
        m_storage.type = IPType(IPTYPE_IPV4 | IPTYPE_LOOPBACK);
    else if (address == ipv4FromBytes({255, 255, 255, 255}))
        m_storage.type = IPType(IPTYPE_IPV4 | IPTYPE_BROADCAST);
}

void TCPAddress::setLoopbackIPv4() {
    setIPv4(ipv4FromBytes({127, 0, 0, 1}));
}

void TCPAddress::setBroadcastIPv4() {
    setIPv4(ipv4FromBytes({255, 255, 255, 255}));
}

bool TCPAddress::IPv6(std::uint16_t *const words) const {
    if (words == nullptr || (m_storage.type & IPTYPE_BOTH) != IPTYPE_IPV6)
        return false;
    std::memcpy(words, &m_storage.ip, ipSize);
    return true;
}

void TCPAddress::setIPv6(const std::uint16_t *const words) {
    std::memcpy(&m_storage.ip, words, ipSize);
    m_storage.type = ipv6Type(m_storage.ip);
}

void TCPAddress::setLoopbackIPv6() {
    const std::uint16_t words[8] = {0, 0, 0, 0, 0, 0, 0, networkOrder(0x0001)};
    setIPv6(words);
}

void TCPAddress::setBroadcastIPv6() {
    const std::uint16_t words[8] = {networkOrder(0xFF01), 0, 0, 0, 0, 0, 0, networkOrder(0x0001)};
    setIPv6(words);
}

void TCPAddress::setUnix(const std::string &path) {
    m_name = path;
    m_storage.ip = {};
    m_storage.type = IPTYPE_UNIX;
}

bool TCPAddress::IPdata(IPFormats &data, IPType &type) const {
    data = m_storage.ip;
    type = m_storage.type;
    return true;
}

void TCPAddress::setIPdata(const IPFormats &data, IPType type) {
    m_storage.ip = data;
    m_storage.type = type;
}

bool TCPAddress::storage(Storage &storage) const {
    storage = m_storage;
    return true;
}

void TCPAddress::setStorage(const Storage &storage) {
    m_storage = storage;
}

// ---- Port and name ----

std::uint16_t TCPAddress::port() const {
    return m_storage.port;
}

void TCPAddress::setPort(std::uint16_t port) {
    m_storage.port = port;
}

std::uint16_t TCPAddress::hostByteOrderPort() const {
    return networkOrder(m_storage.port);
}

void TCPAddress::setHostByteOrderPort(std::uint16_t port) {
    m_storage.port = networkOrder(port);
}

bool TCPAddress::name(std::string &text) const try {
    if (m_name.empty())
        return false;
    text = m_name;
    return true;
} catch (const std::bad_alloc &) {
    return false;
}

// ---- Networks ----

std::uint16_t TCPAddress::maskBits() const {
    return m_storage.maskBits;
}

std::uint64_t TCPAddress::mf_ipBytes(const unsigned char *&bytes) const {
    const std::uint64_t length = isIPv6() ? ipSize : isIPv4() ? ipSize - ipv4Offset : 0;
    bytes = ipBytes(m_storage.ip) + (ipSize - length);
    return length;
}

bool TCPAddress::isInNet(const TCPAddress &network) const {
    unsigned bits = network.m_storage.maskBits;
    const unsigned char *own = nullptr;
    const unsigned char *theirs = nullptr;
    std::uint64_t length = mf_ipBytes(own);
    if (bits == 0 || !network.isNetwork() || length == 0 || length != network.mf_ipBytes(theirs))
        return false;
    // An IPv6 network is deliberately compared with this address itself: access lists rely on any
    // IPv6 address being in any IPv6 network.
    if (network.isIPv6())
        theirs = own;

    for (; bits >= 8 && length > 0; bits -= 8, --length)
        if (*own++ != *theirs++)
            return false;
    if (bits == 0 || length == 0)
        return true;
    const unsigned mask = 0xFF00U >> bits & 0xFFU;
    return (*own & mask) == (*theirs & mask);
}

// ---- Wire form ----

std::uint64_t TCPAddress::size() const {
    return layout::addressSize;
}

std::uint64_t TCPAddress::write(unsigned char *buffer, std::uint64_t length) const {
    if (buffer == nullptr || length < layout::addressSize)
        return 0;
    std::memcpy(buffer + layout::addressIP, &m_storage.ip, ipSize);
    storeNetworkOrder(buffer + layout::addressType, static_cast<std::uint32_t>(m_storage.type));
    // The port is stored as it travels.
    std::memcpy(buffer + layout::addressPort, &m_storage.port, sizeof(m_storage.port));
    storeNetworkOrder(buffer + layout::addressMaskBits, m_storage.maskBits);
    return layout::addressSize;
}

std::uint64_t TCPAddress::read(const unsigned char *buffer, std::uint64_t length) {
    if (buffer == nullptr || length < layout::addressSize)
        return 0;
    clear();
    std::memcpy(&m_storage.ip, buffer + layout::addressIP, ipSize);
    m_storage.type =
        static_cast<IPType>(loadNetworkOrder<std::uint32_t>(buffer + layout::addressType));
    std::memcpy(&m_storage.port, buffer + layout::addressPort, sizeof(m_storage.port));
    m_storage.maskBits = loadNetworkOrder<std::uint16_t>(buffer + layout::addressMaskBits);
    return layout::addressSize;
}

} // namespace vintok
