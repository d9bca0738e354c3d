// Literals in and out, and net masks.
//
// An IPv4 literal is cut from the front at its dots. An IPv6 literal is cut from the back: the mask
// is met first, then the fields of a dotted quad, then the groups, which fill eight slots from the
// last one towards the first. The slot between two colons is the gap; once everything is cut, the
// slots before the gap move to the front and those up to the gap become zero.
//
// Groups, mask lengths and the fields of a quad inside an IPv6 literal convert as far as they are
// digits and keep their low 16 bits, deliberately: "12345" is the group 2345 and "/65560" the
// length 24.
#include "vintok/TCPAddress.h"

#include "vintok/ByteOrder.h"
#include "vintok/TextNumber.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

namespace vintok {

namespace {

using Words = std::array<std::uint16_t, 8>; // host byte order

constexpr std::size_t ipv4TextLimit = 20; // the first length that is refused
constexpr std::size_t ipv6TextLimit = 50;
constexpr std::uint16_t ipv4MaskLimit = 32;
constexpr std::uint16_t ipv6MaskLimit = 128;

constexpr TCPAddress::IPType ipv4Network{TCPAddress::IPTYPE_IPV4 | TCPAddress::IPTYPE_NETWORK};
constexpr TCPAddress::IPType ipv6Network{TCPAddress::IPTYPE_IPV6 | TCPAddress::IPTYPE_NETWORK};

// An empty length leaves `bits` alone; one above the limit makes it 0.
bool parseMaskLength(std::string_view text, std::uint16_t limit, std::uint16_t &bits) {
    if (text.empty())
        return true;
    if (!leadingNumber(text, 10, bits))
        return false;
    if (bits <= limit)
        return true;
    bits = 0;
    return false;
}

// The fields of an IPv6 literal in lower case, which must outlive them.
class IPv6Fields {
public:
    explicit IPv6Fields(std::string_view text) : m_text(text), m_end(text.size()) {}

    // Both are false for what is no literal.
    bool cut();
    bool convert(Words &words);

    std::string_view mask() const { return m_mask; }

private:
    static constexpr std::size_t none = 8;

    bool takeMask(std::size_t slash);
    bool takeQuadField(std::size_t dot);
    bool takeGroup(std::size_t colon);
    bool takeFirstGroup();
    bool addGroup(std::string_view field);
    bool convertQuad(Words &words);
    void fillGap();

    // From behind a separator up to the one cut before.
    std::string_view fieldBehind(std::size_t separator) const {
        return m_text.substr(separator + 1, m_end - separator - 1);
    }

    std::string_view m_text; // without the mask once that is cut
    std::size_t m_end;       // of the field being scanned
    std::string_view m_mask;
    bool m_maskSeen = false;
    std::array<std::string_view, 4> m_quad;
    std::size_t m_quadFirst = 4; // fields from this one on are cut
    std::array<std::string_view, 8> m_groups;
    std::size_t m_first = none; // groups from this one on are cut
    std::size_t m_gap = none;
    bool m_colonSeen = false;
};

bool IPv6Fields::cut() {
    for (std::size_t i = m_text.size(); i-- > 0;) {
        const char c = m_text[i];
        if (digitValue(c) < 16)
            continue;
        const bool accepted = c == '/'   ? takeMask(i)
                              : c == '.' ? takeQuadField(i)
                              : c == ':' ? takeGroup(i)
                                         : false;
        if (!accepted)
            return false;
        m_end = i;
    }
    return takeFirstGroup();
}

bool IPv6Fields::takeMask(std::size_t slash) {
    if (m_maskSeen || m_colonSeen || m_quadFirst < m_quad.size())
        return false;
    m_maskSeen = true;
    m_mask = fieldBehind(slash);
    m_text = m_text.substr(0, slash);
    return true;
}

bool IPv6Fields::takeQuadField(std::size_t dot) {
    if (m_colonSeen || m_quadFirst <= 1)
        return false;
    m_quad[--m_quadFirst] = fieldBehind(dot);
    return true;
}

bool IPv6Fields::takeGroup(std::size_t colon) {
    const bool firstColon = !m_colonSeen;
    m_colonSeen = true;
    if (firstColon && m_quadFirst < m_quad.size()) {
        if (m_quadFirst != 1)
            return false;
        m_quad[--m_quadFirst] = fieldBehind(colon);
        return true;
    }
    const bool atEnd = colon + 1 == m_text.size();
    if (atEnd && colon > 0 && m_text[colon - 1] == ':')
        return true; // the colon in front makes the gap, and nothing stands behind it
    if (!addGroup(fieldBehind(colon)))
        return false;
    if (!atEnd && m_text[colon + 1] == ':')
        m_gap = m_first; // of several the leftmost counts, and the others stay empty groups
    return true;
}

bool IPv6Fields::takeFirstGroup() {
    if (m_text.substr(0, 2) == "::")
        return true;
    return addGroup(m_text.substr(0, m_end));
}

bool IPv6Fields::addGroup(std::string_view field) {
    if (m_first == 0)
        return false;
    m_groups[--m_first] = field;
    return true;
}

bool IPv6Fields::convert(Words &words) {
    std::size_t count = words.size();
    if (m_quadFirst < m_quad.size()) {
        if (!convertQuad(words))
            return false;
        count -= 2;
    }
    fillGap();
    for (std::size_t i = 0; i < count; ++i)
        if (!leadingNumber(m_groups[i], 16, words[i]))
            return false;
    return true;
}

// Puts the quad in the last two words and moves the groups out of its way.
bool IPv6Fields::convertQuad(Words &words) {
    std::array<std::uint16_t, 4> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i)
        if (!leadingNumber(m_quad[i], 10, bytes[i]) || bytes[i] > 255)
            return false;
    if (m_first < 2)
        return false;
    words[6] = static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
    words[7] = static_cast<std::uint16_t>(bytes[2] << 8 | bytes[3]);
    std::copy(m_groups.begin() + 2, m_groups.end(), m_groups.begin());
    m_first -= 2;
    if (m_gap != none)
        m_gap -= 2;
    return true;
}

void IPv6Fields::fillGap() {
    if (m_gap == none)
        return;
    const auto gap = m_groups.begin() + static_cast<std::ptrdiff_t>(m_gap);
    const auto first = m_groups.begin() + static_cast<std::ptrdiff_t>(m_first);
    const auto filled = std::copy(first, gap, m_groups.begin());
    std::fill(filled, gap + 1, std::string_view("0000"));
}

// Drops the leading zeros of each group. A group of nothing but zeros keeps one of them, save for
// the last group, which vanishes: deliberate, as peers compare such texts.
std::string dropLeadingZeros(const std::string &text) {
    std::string kept;
    bool afterColon = false;
    bool afterDropped = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool beforeColon = i + 1 < text.size() && text[i + 1] == ':';
        bool drop = text[i] == '0';
        if (drop && !afterColon)
            drop = !beforeColon && (i == 0 || afterDropped);
        if (!drop)
            kept += text[i];
        afterColon = text[i] == ':';
        afterDropped = drop;
    }
    return kept;
}

std::string ipv4Text(const unsigned char *bytes) {
    char text[16];
    std::snprintf(text, sizeof(text), "%hu.%hu.%hu.%hu", std::uint16_t{bytes[0]},
                  std::uint16_t{bytes[1]}, std::uint16_t{bytes[2]}, std::uint16_t{bytes[3]});
    return text;
}

std::string ipv6Text(const unsigned char *bytes) {
    std::string text;
    for (std::size_t i = 0; i < 16; i += 2) {
        char group[8];
        std::snprintf(group, sizeof(group), "%s%02x%02x", i == 0 ? "" : ":", unsigned{bytes[i]},
                      unsigned{bytes[i + 1]});
        text += group;
    }
    return text;
}

// The bits that a byte of a mask stands for. False for what is no such byte, among them 0xF0: who
// sets masks by text relies on 255.255.240.0 being refused.
bool maskByteBits(unsigned char byte, std::uint16_t &bits) {
    constexpr unsigned char known[] = {0x00, 0x80, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC, 0xFE, 0xFF};
    const auto *found = std::find(std::begin(known), std::end(known), byte);
    bits = static_cast<std::uint16_t>(found - std::begin(known));
    return found != std::end(known) && byte != 0xF0;
}

// The length of a mask given as its bytes.
bool maskLength(const unsigned char *bytes, std::size_t count, std::uint16_t &length) {
    length = 0;
    bool ended = false;
    for (std::size_t i = 0; i < count; ++i) {
        std::uint16_t bits = 0;
        if ((ended && bytes[i] != 0) || !maskByteBits(bytes[i], bits))
            return false;
        length = static_cast<std::uint16_t>(length + bits);
        ended = ended || bytes[i] != 0xFF;
    }
    return true;
}

} // namespace

// ---- Parsing ----

void TCPAddress::sf_lower(char &c) {
    if (c >= 'A' && c <= 'Z')
        c = static_cast<char>(c + s_c_lower);
}

bool TCPAddress::sf_parseIPv4(const std::string &text, std::uint32_t &address,
                              std::uint16_t &bits) {
    address = 0;
    if (text.empty() || text.size() >= ipv4TextLimit)
        return false;
    const char *place = text.data();
    const char *const end = place + text.size();
    unsigned char bytes[4];
    for (std::size_t i = 0; i < 4; ++i) {
        if (i > 0 && (place == end || *place++ != '.'))
            return false;
        const auto [behind, error] = std::from_chars(place, end, bytes[i]);
        if (error != std::errc())
            return false;
        place = behind;
    }
    std::string_view mask(place, static_cast<std::size_t>(end - place));
    if (!mask.empty()) {
        if (mask.front() != '/')
            return false;
        mask.remove_prefix(1);
        if (!std::all_of(mask.begin(), mask.end(), [](char c) { return digitValue(c) < 10; }))
            return false;
    }
    std::memcpy(&address, bytes, sizeof(address));
    return parseMaskLength(mask, ipv4MaskLimit, bits);
}

bool TCPAddress::sf_parseIPv6(const std::string &text, std::uint16_t *const words,
                              std::uint16_t &bits) {
    std::fill_n(words, 8, std::uint16_t{0});
    if (text.empty() || text.size() >= ipv6TextLimit)
        return false;
    std::array<char, ipv6TextLimit> lower;
    std::copy(text.begin(), text.end(), lower.begin());
    std::for_each(lower.begin(), lower.begin() + text.size(), sf_lower);
    IPv6Fields fields(std::string_view(lower.data(), text.size()));
    Words parsed{};
    if (!fields.cut() || !fields.convert(parsed))
        return false;
    std::transform(parsed.begin(), parsed.end(), words, networkOrder);
    return parseMaskLength(fields.mask(), ipv6MaskLimit, bits);
}

void TCPAddress::setName(const std::string &text) {
    if (text.empty())
        return;
    std::uint32_t address = 0;
    std::uint16_t words[8];
    std::uint16_t bits = 0;
    m_name = text;
    if (sf_parseIPv4(m_name, address, bits))
        setIPv4(address);
    else if (sf_parseIPv6(m_name, words, bits))
        setIPv6(words);
}

// ---- Printing ----

bool TCPAddress::ipString(std::string &text, bool) const try {
    const unsigned char *bytes = nullptr;
    mf_ipBytes(bytes);
    const std::string mask = '/' + std::to_string(m_storage.maskBits);
    switch (static_cast<std::uint32_t>(m_storage.type)) {
    case IPTYPE_NONE:
    case IPTYPE_UNIX:
        text = "0.0.0.0";
        return true;
    case IPTYPE_IPV4:
    case IPTYPE_IPV4 | IPTYPE_LOOPBACK:
    case IPTYPE_IPV4 | IPTYPE_BROADCAST:
        text = ipv4Text(bytes);
        return true;
    case ipv4Network:
        text = ipv4Text(bytes) + mask;
        return true;
    case IPTYPE_IPV6:
    case IPTYPE_IPV6 | IPTYPE_LOOPBACK:
    case IPTYPE_IPV6 | IPTYPE_BROADCAST:
        text = dropLeadingZeros(ipv6Text(bytes));
        return true;
    case ipv6Network:
        text = ipv6Text(bytes) + mask;
        return true;
    default:
        text = "Internal Error";
        return false;
    }
} catch (const std::bad_alloc &) {
    return false;
}

bool TCPAddress::maskString(std::string &text) const try {
    if (m_storage.type != ipv4Network && m_storage.type != ipv6Network)
        return false;
    const bool ipv4 = m_storage.type == ipv4Network;
    const unsigned width = ipv4 ? 8 : 16;
    std::string mask;
    unsigned left = m_storage.maskBits;
    for (unsigned i = 0; i < (ipv4 ? 4U : 8U); ++i) {
        const unsigned bits = std::min(left, width);
        const unsigned field = (0xFFFFU << (width - bits)) & (0xFFFFU >> (16 - width));
        char part[8];
        std::snprintf(part, sizeof(part), ipv4 ? "%u" : bits == 0 ? "%x" : "%04x", field);
        mask += i == 0 ? "" : ipv4 ? "." : ":";
        mask += part;
        left -= bits;
    }
    text += mask;
    return true;
} catch (const std::bad_alloc &) {
    return false;
}

// ---- Networks ----

bool TCPAddress::setNetwork(const std::string &text) try {
    if (text.empty())
        return false;
    m_name = text;
    std::uint32_t address = 0;
    std::uint16_t words[8];
    std::uint16_t bits = 0;
    if (sf_parseIPv4(text, address, bits)) {
        setIPv4(address);
        m_storage.type = ipv4Network;
    } else if (sf_parseIPv6(text, words, bits = 0)) {
        setIPv6(words);
        m_storage.type = ipv6Network;
    }
    if (bits != 0)
        m_storage.maskBits = bits;
    return true;
} catch (const std::bad_alloc &) {
    return false;
}

bool TCPAddress::setNetwork(const std::string &text, std::uint16_t bits) {
    return setNetwork(text) && setNetMask(bits);
}

bool TCPAddress::setNetwork(const std::string &text, std::string mask) {
    return setNetwork(text) && setNetMask(mask);
}

bool TCPAddress::setNetMask(const std::string &mask) {
    std::uint32_t address = 0;
    std::uint16_t words[8];
    std::uint16_t ignored = 0;
    std::uint16_t length = 0;
    bool valid = false;
    if (sf_parseIPv4(mask, address, ignored))
        valid = maskLength(reinterpret_cast<const unsigned char *>(&address), 4, length);
    else if (sf_parseIPv6(mask, words, ignored))
        valid = maskLength(reinterpret_cast<const unsigned char *>(words), 16, length);
    return valid && setNetMask(length);
}

bool TCPAddress::setNetMask(std::uint16_t bits) {
    if (bits > (isIPv4() ? ipv4MaskLimit : ipv6MaskLimit))
        return false;
    m_storage.maskBits = bits;
    return true;
}

} // namespace vintok
