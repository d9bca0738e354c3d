// What goes over the wire between parties, written and read by hand: nothing here uses the library,
// so that both cannot be wrong in the same way.
#ifndef VINTOK_TESTS_SUPPORT_WIRE_H
#define VINTOK_TESTS_SUPPORT_WIRE_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vintok::test {

using Bytes = std::vector<unsigned char>;

// What stands in bodies: letters, texts one behind the other, a number.
inline Bytes letters(const std::string &text) {
    return {text.begin(), text.end()};
}
Bytes wireTexts(const std::vector<std::string> &texts);
Bytes wireNumber(std::uint64_t value, int bytes = 4);
// So many letters without a period.
std::string pattern(std::size_t size);

// Messages, by the one byte in which their identifiers differ.
namespace id {
inline constexpr unsigned char broadcast = 0x12, joinRequest = 0x13, joinReply = 0x14,
                               leadRequest = 0x15, leadChange = 0x16, rosterRequest = 0x17,
                               rosterReply = 0x18, rosterEntry = 0x19, hangup = 0x23,
                               stopLead = 0x24, keepAlive = 0x25, fileBegin = 0x26, fileData = 0x27,
                               fileEnd = 0x28, leaveNotify = 0x30, leadReply = 0x31,
                               echoRequest32 = 0x32, echoReply32 = 0x33, colorIndex = 0x43,
                               fileAck = 0x44;
} // namespace id

// Bits of a party's state word.
namespace state {
inline constexpr std::uint32_t meeting = 0x1, host = 0x4, leader = 0x8, server = 0x10,
                               joinPending = 0x20, shadow = 0x40, leadPending = 0x80,
                               secureRequired = 0x400, proxyPending = 0x1000,
                               proxyConnection = 0x2000, multiplexerPending = 0x20000,
                               hiding = 0x400000;
} // namespace state

// Appends big-endian values.
class WireWriter {
public:
    explicit WireWriter(Bytes &bytes) : m_bytes(bytes) {}
    void number(std::uint64_t value, int bytes);
    void text(const std::string &value);
    void raw(const unsigned char *bytes, std::size_t count) {
        m_bytes.insert(m_bytes.end(), bytes, bytes + count);
    }

private:
    Bytes &m_bytes;
};

// Takes big-endian values from the front; once something is missing it stays not `good`.
class WireReader {
public:
    WireReader(const unsigned char *bytes, std::size_t count) : m_bytes(bytes), m_left(count) {}
    std::uint64_t number(int bytes);
    std::string text();
    void raw(unsigned char *bytes, std::size_t count);
    bool good() const { return m_good; }
    bool done() const { return m_good && m_left == 0; }

private:
    const unsigned char *m_bytes;
    std::size_t m_left;
    bool m_good = true;
};

struct WireAddress {
    std::array<unsigned char, 16> ip = {}; // IPv4 in the last four
    std::uint32_t type = 0;
    std::uint16_t port = 0, maskBits = 0;

    static WireAddress ipv4(std::uint32_t address, std::uint16_t port);
    void write(WireWriter &writer) const;
    void read(WireReader &reader);
    bool operator==(const WireAddress &) const = default;
};

// A party as the bodies of join, roster, leave and lead carry it.
struct WireEntry {
    WireAddress address;
    std::string firstName, lastName, title, email, phone;
    std::uint16_t major = 4, minor = 0, color = 65535;
    std::uint32_t state = 0;
    std::string meetingName, meetingID;

    // A party with an address of its own that nobody listens on: 10.77.x.y.
    static WireEntry party(const std::string &name, unsigned number);
    Bytes encode() const;
    static std::optional<WireEntry> decode(const Bytes &body);
    bool operator==(const WireEntry &) const = default;
};

struct WireFrame {
    std::uint16_t format = 2, formatMinor = 0; // 1: the frame with an IPv4 origin
    std::int64_t time = 0;
    unsigned char id = 0; // 0 stands for an identifier that is none of the system's
    std::uint16_t major = 4, minor = 0;
    WireAddress origin = {};
    Bytes body = {};

    Bytes encode() const;
    // Takes the first whole frame from the front of `bytes`; nothing when it is not all there.
    static std::optional<WireFrame> take(Bytes &bytes);
};

} // namespace vintok::test

#endif
