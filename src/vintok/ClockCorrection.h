// Internal. The arithmetic of the clock echo, apart from clocks and messages.
#ifndef VINTOK_CLOCKCORRECTION_H
#define VINTOK_CLOCKCORRECTION_H

#include <cstdint>

namespace vintok {

// By how many seconds the clock is to move; at least one of the two is 0.
struct ClockCorrection {
    std::uint64_t add = 0;
    std::uint64_t subtract = 0;
    int beforeEpoch = 0; // how many of the two midpoints fell before 1970 and were taken as 0
};

// `send` and `receive` are this party's times at both ends of the exchange, `remote` is the other
// party's in between, all in seconds.
//
// Half the round trip comes off both sides, so that it cancels out: unless a midpoint falls before
// 1970 the correction is remote - receive, with the transit time left in it. Parties of all
// versions reckon like this and agree because of it.
ClockCorrection correctClock(std::uint64_t send, std::uint64_t receive, std::uint64_t remote);

// `decodeEchoReply` that refuses a correction of more than `largestStep` seconds, unless that is
// not positive. False, logged, with the clock as it was.
bool takeEchoReply(unsigned char *body, std::uint64_t length, bool use32, std::int64_t largestStep);

} // namespace vintok

#endif
