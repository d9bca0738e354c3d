// The signals that concern a program as a whole.
#ifndef VINTOK_PLATFORM_SIGNALS_H
#define VINTOK_PLATFORM_SIGNALS_H

#include <vector>

namespace vintok::platform {

// Those that ask a program to end: for `std::signal`.
std::vector<int> endingSignals();

// Those that tell it that its terminal has gone, which ends it by default. May be none.
std::vector<int> hangupSignals();

// A write to a pipe that nobody reads fails from now on, and does not end the process.
void ignoreBrokenPipes();

} // namespace vintok::platform

#endif
