#include "support/SocketPair.h"

#include "platform/TestSockets.h"
#include "platform/Thread.h"
#include "platform/Wait.h"
#include "support/Meeting.h"
#include "vintok/TCPStream.h"

#include <array>
#include <chrono>
#include <cstring>
#include <thread>

namespace vintok::test {

bool comesTrue(const std::function<bool()> &condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        platform::sleepMilliseconds(1);
    }
    return true;
}

platform::Endpoint loopbackEndpoint(unsigned short port) {
    platform::Endpoint endpoint;
    const std::array<unsigned char, 4> address = {127, 0, 0, 1};
    const std::array<unsigned char, 2> bytes = {static_cast<unsigned char>(port >> 8),
                                                static_cast<unsigned char>(port)};
    std::memcpy(&endpoint.ipv4, address.data(), address.size());
    std::memcpy(&endpoint.port, bytes.data(), bytes.size());
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
    const auto *data = reinterpret_cast<const unsigned char *>(bytes.data());
    const auto sent = rawWriteBytes(m_peer, data, bytes.size(), true, nullptr);
    return sent == static_cast<std::int64_t>(bytes.size()) && awaitBytes(m_mine, bytes.size());
}

bool SocketPair::receiveWaits() {
    std::thread sender([this] {
        platform::sleepMilliseconds(30); // one that does not wait has returned by then
        platform::send(m_peer, reinterpret_cast<const unsigned char *>("x"), 1);
    });
    unsigned char byte = 0;
    const bool waited = platform::receive(m_mine, &byte, 1) == 1;
    sender.join();
    return waited;
}

bool awaitBytes(int fd, std::size_t count) {
    return comesTrue([&] {
        std::size_t waiting = 0;
        return platform::bytesWaiting(fd, waiting) && waiting >= count;
    });
}

bool awaitEnd(int fd) {
    return comesTrue([&] {
        platform::DescriptorSet set;
        set.insert(fd);
        std::size_t waiting = 0;
        return platform::waitReadable(set, true) == 1 && platform::bytesWaiting(fd, waiting) &&
               waiting == 0;
    });
}

} // namespace vintok::test
