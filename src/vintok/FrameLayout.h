// Where the fields of a frame's header are, in bytes from its start. Numbers are big-endian; the
// two forms differ in what is between 8 and 16, and in the origin behind the common part.
//
// IPv4 frame, major version 1:
//
//   0         4     6     8         12        16           32    34    36
//   +---------+-----+-----+---------+---------+--- ~ ------+-----+-----+--- ~ ---
//   | total   |major|minor| origin  | time,   | identifier | message   | body
//   | length  |     |     | IPv4    | 32 bits |            |major|minor|
//   +---------+-----+-----+---------+---------+--- ~ ------+-----+-----+--- ~ ---
//
// Long frame, any other major version:
//
//   0         4     6     8                   16           32    34    36           60
//   +---------+-----+-----+-------------------+--- ~ ------+-----+-----+--- ~ ------+--- ~ ---
//   | total   |major|minor| time, 64 bits     | identifier | message   | origin     | body
//   | length  |     |     |                   |            |major|minor| address    |
//   +---------+-----+-----+-------------------+--- ~ ------+-----+-----+--- ~ ------+--- ~ ---
//
// Identifier:  0 Data1 | 4 Data2 | 6 Data3 | 8 Data4, as it is | 16
// Address:     0 IP, as it is | 16 type | 20 port, as it is | 22 mask length | 24
#ifndef VINTOK_FRAMELAYOUT_H
#define VINTOK_FRAMELAYOUT_H

#include <cstddef>

namespace vintok::layout {

constexpr std::size_t totalLength = 0;
constexpr std::size_t majorVersion = 4;
constexpr std::size_t minorVersion = 6;
constexpr std::size_t originIPv4 = 8;
constexpr std::size_t timeIPv4 = 12;
constexpr std::size_t timeLong = 8;
constexpr std::size_t identifier = 16;
constexpr std::size_t messageMajorVersion = 32;
constexpr std::size_t messageMinorVersion = 34;
constexpr std::size_t sizeIPv4 = 36;
constexpr std::size_t originLong = 36;
constexpr std::size_t sizeLong = 60;

constexpr std::size_t identifierData1 = 0;
constexpr std::size_t identifierData2 = 4;
constexpr std::size_t identifierData3 = 6;
constexpr std::size_t identifierData4 = 8;

constexpr std::size_t addressIP = 0;
constexpr std::size_t addressType = 16;
constexpr std::size_t addressPort = 20;
constexpr std::size_t addressMaskBits = 22;
constexpr std::size_t addressSize = 24;

// The length of a whole frame, as its first bytes say.
inline std::size_t frameLength(const unsigned char *frame) {
    const unsigned char *const bytes = frame + totalLength;
    return std::size_t{bytes[0]} << 24 | std::size_t{bytes[1]} << 16 | std::size_t{bytes[2]} << 8 |
           std::size_t{bytes[3]};
}

} // namespace vintok::layout

#endif
