// Turns failures of this system's socket calls into the numbers that the library speaks.
#ifndef VINTOK_PLATFORM_POSIX_SOCKETERROR_H
#define VINTOK_PLATFORM_POSIX_SOCKETERROR_H

namespace vintok::platform {

// The number of `error`, an `errno` value.
int translatedError(int error);

// True when a call that answers -1 for a failure succeeded; otherwise keeps the error that `errno`
// holds for `socketError()`. A success leaves the earlier error in place.
bool succeeded(long long result);

} // namespace vintok::platform

#endif
