#include "support/SocketPair.h"

#include "platform/TestSockets.h"
#include "platform/Wait.h"
#include "support/Eventually.h"
#include "support/Meeting.h"
#include "support/Stream.h"

#include "vintok/ByteOrder.h"

#include <array>
#include <cstring>
#include <thread>

namespace vintok::test {

platform::Endpoint loopbackEndpoint(unsigned short port) {
    platform::Endpoint endpoint;
    const std::array<unsigned char, 4> bytes = {127, 0, 0, 1};
    std::memcpy(&endpoint.ipv4, bytes.data(), bytes.size());
    endpoint.port = networkOrder(port);
    return endpoint;
}

int listenSomewhere(unsigned short &port) {
    port = freshPort();
    return createLocalIPv4Socket(port, 0, 1000, false);
}

WireFrame takeFrame(int fd) {
    constexpr std::size_t lengthSize = 4;
    Bytes bytes(lengthSize);
    if (!awaitBytes(fd, lengthSize) || rawPeekBytes(fd, bytes.data(), lengthSize) != 4)
        return {};
    const std::uint64_t length = WireReader(bytes.data(), lengthSize).number(4);
    bytes.resize(length);
    if (!awaitBytes(fd, length) ||
        rawReadBytes(fd, bytes.data(), length, true, nullptr) != static_cast<std::int64_t>(length))
        return {};
    return WireFrame::take(bytes).value_or(WireFrame{});
}

SocketPair::SocketPair() {
    unsigned short port = 0;
    int listener = listenSomewhere(port);
    m_peer = connectLocal(port);
    m_mine = acceptAndCloseBoundSocket(listener);
}

SocketPair::~SocketPair() {
    shutDownMine();
    shutDownPeer();
}

void SocketPair::shutDownMine() {
    shutdownSocket(forgetMine());
}

void SocketPair::shutDownPeer() {
    shutdownSocket(forgetPeer());
}

void SocketPair::resetPeer() {
    platform::resetOnClose(m_peer);
    closeDescriptor(forgetPeer());
}

bool SocketPair::peerSends(const std::string &bytes) {
    const auto sent = rawWriteBytes(m_peer, bytesOf(bytes), bytes.size(), true, nullptr);
    return sent == static_cast<std::int64_t>(bytes.size()) && awaitBytes(m_mine, bytes.size());
}

bool SocketPair::receiveWaits() {
    std::thread sender([this] {
        platform::sleepMilliseconds(30); // one that does not wait has returned by then
        platform::send(m_peer, bytesOf("x"), 1);
    });
    unsigned char byte = 0;
    const bool waited = platform::receive(m_mine, &byte, 1) == 1;
    sender.join();
    return waited;
}

bool awaitBytes(int fd, std::size_t count) {
    return bool(eventually([&] {
        std::size_t waiting = 0;
        return platform::bytesWaiting(fd, waiting) && waiting >= count;
    }));
}

bool awaitEnd(int fd) {
    return bool(eventually([&] {
        platform::DescriptorSet set;
        set.insert(fd);
        std::size_t waiting = 0;
        return platform::waitReadable(set, true) == 1 && platform::bytesWaiting(fd, waiting) &&
               waiting == 0;
    }));
}

} // namespace vintok::test
