// The clock echo: one party sends its time, the other answers with that time and its own, and the
// first moves its clock (`addTime`, `subtractTime`) so that the two agree.
//
// Bodies are big-endian counts of seconds since 1970, of 4 bytes each with `use32` and of 8
// without: a request is the sender's time, a reply is that time followed by the replier's. The two
// widths have identifiers of their own. Times are those of `getTime`; the 4-byte form carries their
// low half.
//
// Every failure is logged and told by the result alone. Sending blocks until the peer has taken it.
#ifndef VINTOK_MESSAGEUTIL_H
#define VINTOK_MESSAGEUTIL_H

#include "vintok/Export.h"

#include <cstdint>

namespace vintok {

// `major` and `minor` are the versions that the message carries.
VINTOK_API bool sendEchoRequest(int descriptor, unsigned short major, unsigned short minor,
                                bool use32);

// `sendTime` is what the request said.
VINTOK_API bool sendEchoReply(int descriptor, std::uint64_t sendTime, unsigned short major,
                              unsigned short minor, bool use32);

// False, with `sendTime` as it was, for a null or short body.
VINTOK_API bool decodeEchoRequest(unsigned char *body, std::uint64_t length,
                                  std::uint64_t &sendTime, bool use32);

// Reads the reply and corrects this process's clock by it. False, with the clock as it was, for a
// null or short body.
VINTOK_API bool decodeEchoReply(unsigned char *body, std::uint64_t length, bool use32);

} // namespace vintok

#endif
