// The one door to the system's socket headers. They define macros and types that clash with nearly
// everything, so nothing outside of the platform layer includes this.
#ifndef VINTOK_PLATFORM_WIN32_SYSTEMSOCKETS_H
#define VINTOK_PLATFORM_WIN32_SYSTEMSOCKETS_H

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#define FD_SETSIZE 1024

#include <winsock2.h>

#include <afunix.h>
#include <mstcpip.h>
#include <ws2tcpip.h>

namespace vintok::platform {

inline constexpr int exclusiveAddress = SO_EXCLUSIVEADDRUSE;

} // namespace vintok::platform

#endif
