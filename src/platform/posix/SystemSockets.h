// The system's own socket headers, for the sources of the platform layer that both systems share.
#ifndef VINTOK_PLATFORM_POSIX_SYSTEMSOCKETS_H
#define VINTOK_PLATFORM_POSIX_SYSTEMSOCKETS_H

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace vintok::platform {

// Here this option lets no second listener in: it only makes connections that wait out their time
// on the port no obstacle for a host that starts again.
inline constexpr int exclusiveAddress = SO_REUSEADDR;

} // namespace vintok::platform

#endif
