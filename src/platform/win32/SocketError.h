// Keeps the failures of this system's socket calls for `socketError()`.
#ifndef VINTOK_PLATFORM_WIN32_SOCKETERROR_H
#define VINTOK_PLATFORM_WIN32_SOCKETERROR_H

namespace vintok::platform {

// True when a call that answers SOCKET_ERROR for a failure succeeded; otherwise keeps the system's
// error. A success leaves the earlier error in place, which the system's own memory does not
// promise.
bool succeeded(int result);

// The system's numbers are the ones that are spoken here.
inline int translatedError(int error) {
    return error;
}

} // namespace vintok::platform

#endif
