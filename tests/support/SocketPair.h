// The two ends of a connection over the loopback interface, known to the library, which must be
// started. What a test has not closed is closed with it.
#ifndef VINTOK_TESTS_SUPPORT_SOCKETPAIR_H
#define VINTOK_TESTS_SUPPORT_SOCKETPAIR_H

#include "platform/Socket.h"
#include "support/Wire.h"

#include <cstddef>
#include <string>
#include <utility>

namespace vintok::test {

class SocketPair {
public:
    SocketPair();
    ~SocketPair();
    SocketPair(const SocketPair &) = delete;
    SocketPair &operator=(const SocketPair &) = delete;

    // Both -1 when they could not be made. A test that closes one says so with `forget`.
    int mine() const { return m_mine; }
    int peer() const { return m_peer; }
    int forgetMine() { return std::exchange(m_mine, -1); }
    int forgetPeer() { return std::exchange(m_peer, -1); }

    void shutDownMine();
    void shutDownPeer();
    // The peer goes, and what it has not sent with it: the connection is reset.
    void resetPeer();

    // Sends from the peer and waits until all of it can be read here.
    bool peerSends(const std::string &bytes);

    // Whether a receive of this side waits for the byte that the peer sends a moment later.
    bool receiveWaits();

private:
    int m_mine = -1;
    int m_peer = -1;
};

// The address of a port of this machine; nothing of the library is used.
platform::Endpoint loopbackEndpoint(unsigned short port);

// Waits until `count` bytes have arrived at the socket.
bool awaitBytes(int fd, std::size_t count);

// Takes one frame off the socket, and waits until it is all there.
WireFrame takeFrame(int fd);

// Waits until the end of its stream, or a reset, has arrived at the socket.
bool awaitEnd(int fd);

// A listener on the loopback interface at a port that was free; -1 when there is none.
int listenSomewhere(unsigned short &port);

} // namespace vintok::test

#endif
