// Two connected sockets of this process, made over the loopback address with the library's own
// calls, so that what other threads have to say can wake the loop on every system.
#ifndef VINTOK_APP_LOOPBACKPAIR_H
#define VINTOK_APP_LOOPBACKPAIR_H

#include <functional>

namespace app {

// Any process of this machine can connect to a loopback port while it listens: the connection that
// is kept is the one that shows a random number that was sent over ours. False when no pair could
// be made; the caller owns the descriptors otherwise. `listening` is for tests that play such a
// process: it is called with each port, before this one connects to it.
bool makeLoopbackPair(int &readEnd, int &writeEnd,
                      const std::function<void(unsigned short port)> &listening = nullptr);

} // namespace app

#endif
