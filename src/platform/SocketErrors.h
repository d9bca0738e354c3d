// Names for the numbers that `socketError()` gives: five plain ones, and those of the system error
// table for the rest.
#ifndef VINTOK_PLATFORM_SOCKETERRORS_H
#define VINTOK_PLATFORM_SOCKETERRORS_H

namespace vintok::socketErrors {

inline constexpr int interrupted = 4;
inline constexpr int badDescriptor = 9;
inline constexpr int noMemory = 12;
inline constexpr int invalid = 22;
inline constexpr int tooManyDescriptors = 24;
inline constexpr int remoteIO = 121;
inline constexpr int accessDenied = 10013;
inline constexpr int wouldBlock = 10035;
inline constexpr int inProgress = 10036;
inline constexpr int notSocket = 10038;
inline constexpr int addressInUse = 10048;
inline constexpr int connectionReset = 10054;

} // namespace vintok::socketErrors

#endif
