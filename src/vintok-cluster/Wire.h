// What the hosts of a meeting say to each other, as bytes: packets, and the items that they carry.
// docs/cluster.md describes them. Everything here takes hostile bytes.
#ifndef VINTOK_CLUSTER_WIRE_H
#define VINTOK_CLUSTER_WIRE_H

#include "vintok/TCPAddress.h"

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace vintok::cluster {

using Bytes = std::vector<unsigned char>;
using View = std::span<const unsigned char>;
// Shared by who keeps it and who sends it.
using Packet = std::shared_ptr<const Bytes>;

inline constexpr std::uint8_t wireVersion = 1;

enum class Kind : std::uint8_t {
    beat = 1,       // the state of a host, some times a second
    stream = 2,     // numbered; carries items
    snapshot = 3,   // the parties of a host, a part of them
    wantsAll = 4,   // asks for a snapshot
    wantsAgain = 5, // asks for packets of the stream
    ordered = 6,    // kept by the engine in one order over all hosts
};

enum class ItemKind : std::uint8_t {
    entry = 1,
    left = 2,
    said = 3,
    toParty = 4,
    toAuthority = 5,
    goodbye = 6,
};

// An address as the key of a table.
using Key = std::array<unsigned char, 24>;
Key keyOf(const TCPAddress &address);
TCPAddress addressOf(const Key &key);

// The order among hosts: the smallest has authority.
struct Rank {
    std::uint64_t start = 0; // milliseconds since 1970 by its own word
    std::uint64_t incarnation = 0;
    auto operator<=>(const Rank &) const = default;
};

// Appends numbers, most significant byte first, and texts behind their length.
class Writer {
public:
    explicit Writer(Bytes &bytes) : m_bytes(bytes) {}
    template <typename T>
    Writer &number(T value) {
        for (std::size_t shift = 8 * sizeof(T); shift > 0;) {
            shift -= 8;
            m_bytes.push_back(static_cast<unsigned char>(value >> shift));
        }
        return *this;
    }
    Writer &raw(View bytes);
    Writer &text(const std::string &text);
    Writer &rank(const Rank &rank) { return number(rank.start).number(rank.incarnation); }
    Writer &address(const TCPAddress &address) { return raw(keyOf(address)); }

private:
    Bytes &m_bytes;
};

// Takes the same. What is not there reads as 0, and `good` is false from then on.
class Reader {
public:
    explicit Reader(View bytes) : m_rest(bytes) {}
    template <typename T>
    T number() {
        T value = 0;
        for (const unsigned char byte : raw(sizeof(T)))
            value = static_cast<T>(value << 8 | byte);
        return value;
    }
    View raw(std::size_t length);
    std::string text();
    Rank rank();
    TCPAddress address();
    // How many records of so many bytes follow, never more than there are.
    std::size_t count(std::size_t size);

    View rest() const { return m_rest; }
    bool good() const { return m_good; }
    bool atEnd() const { return m_good && m_rest.empty(); }

private:
    View m_rest;
    bool m_good = true;
};

// What every packet begins with.
struct Header {
    Kind kind = Kind::beat;
    std::uint64_t sender = 0; // incarnation
    static constexpr std::size_t size = 10;
};
void write(Writer &writer, const Header &header);
// Nothing for another version, or an unknown kind.
std::optional<Header> readHeader(Reader &reader);

// Sixty-four colours, and by whose authority they were given away.
struct Block {
    std::uint16_t number = 0;
    Rank grantor;
};

// What a host says of itself, again and again: to lose one does no harm.
struct Beat {
    enum Flag : std::uint8_t {
        takesPart = 1,    // the host is in the meeting
        settled = 2,      // it has been there for a while
        wantsColors = 4,  // it asks whoever has authority for a block
        hasAuthority = 8, // by what it has heard
        ordered = 16,
        isNew = 32, // and its stream can be had from the first packet on
    };
    Rank rank;
    std::uint8_t flags = 0;
    std::uint64_t last = 0; // packet of its stream that is out
    TCPAddress address;
    std::string name;
    std::string advertised;
    std::uint16_t port = 0;
    std::uint32_t members = 0;
    std::uint32_t mostMembers = 0;
    TCPAddress leader; // from the host that has authority; empty where nobody is known to lead
    std::vector<Block> blocks;
    std::vector<std::pair<std::uint64_t, std::uint16_t>> grants; // to which host, which block
    std::vector<std::pair<std::uint64_t, std::uint64_t>> taken;  // of whose stream, up to where
    std::uint64_t place = 0; // up to which the order of all hosts is taken; 0: not at all yet

    bool has(Flag flag) const { return (flags & flag) != 0; }
};
Packet encode(const Beat &beat);
// The header has been read.
bool decode(Reader &reader, Beat &beat);

inline constexpr std::size_t longestItem = 64 << 20;
// An item: what it is, 1 byte, its length, 4 bytes, and its body. One that is cut is several of
// these, all but the last marked as followed by more, and all but the first as going on.
inline constexpr std::size_t itemHead = 5;
inline constexpr std::uint8_t moreFollows = 0x80;
inline constexpr std::uint8_t goesOn = 0x40;
inline constexpr std::size_t leastPiece = 256; // what is shorter goes into the next packet
// Its head.
void write(Writer &writer, ItemKind kind, std::uint8_t marks, std::size_t length);

// The items of a packet. One that was cut is joined, over as many packets as it takes.
class Joiner {
public:
    using Handler = std::function<void(ItemKind, View)>;
    // False, with the rest of the packet unread, when this is no item or the item is too long. The
    // rest of one whose beginning was not there is passed over.
    bool take(View items, const Handler &handler);
    void clear();

private:
    bool join(std::uint8_t head, View body, const Handler &handler);

    std::uint8_t m_kind = 0; // of what is joined; 0: nothing
    Bytes m_joined;
};

// How many messages the bytes hold, one behind the other.
std::uint64_t countFrames(View frames);

// A meeting's identifier as a part of a subject: letters, digits and "-" stand for themselves, any
// other byte as "_" and two hexadecimal digits. What is long is cut, with "__" and a number that is
// made of all of it behind.
std::string subjectToken(const std::string &text);
std::string hexadecimal(std::uint64_t number);

} // namespace vintok::cluster

#endif
