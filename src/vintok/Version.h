// The version of the library: of the headers that a program is compiled with, and of the library
// that it runs with. Not that of the protocol (`ConferenceParticipant::majorVersion`).
//
// Programs run with every later library of the same major number. The number stands here alone; the
// build reads it.
#ifndef VINTOK_VERSION_H
#define VINTOK_VERSION_H

#include "vintok/Export.h"

#include <cstdint>

// The three numbers of the headers.
#define VINTOK_VERSION_MAJOR 4
#define VINTOK_VERSION_MINOR 0
#define VINTOK_VERSION_PATCH 0

// The headers' version as one number, for `#if VINTOK_VERSION >= 40100` (4.1.0).
#define VINTOK_VERSION                                                                             \
    (VINTOK_VERSION_MAJOR * 10000 + VINTOK_VERSION_MINOR * 100 + VINTOK_VERSION_PATCH)

// How the next is made.
#define VINTOK_VERSION_QUOTED(number) #number
#define VINTOK_VERSION_JOINED(major, minor, patch)                                                 \
    VINTOK_VERSION_QUOTED(major) "." VINTOK_VERSION_QUOTED(minor) "." VINTOK_VERSION_QUOTED(patch)
// The headers' version as a literal: "4.0.0".
#define VINTOK_VERSION_TEXT                                                                        \
    VINTOK_VERSION_JOINED(VINTOK_VERSION_MAJOR, VINTOK_VERSION_MINOR, VINTOK_VERSION_PATCH)

namespace vintok {

// The same two of the library that is loaded. Callable on any thread, before `init` too.
VINTOK_API const char *version() noexcept;
VINTOK_API std::uint32_t versionNumber() noexcept;

} // namespace vintok

#endif
