#include "LoopbackPair.h"

#include <vintok/TCPStream.h>

#include <array>
#include <chrono>
#include <random>
#include <thread>

namespace app {

namespace {

constexpr int tries = 16; // how many strangers may come first
constexpr std::size_t ports = 255;
constexpr int patienceMs = 500; // for bytes that have been sent within this machine

using Cookie = std::array<unsigned char, 16>;

Cookie randomCookie() {
    std::random_device source;
    Cookie cookie;
    for (unsigned char &byte : cookie)
        byte = static_cast<unsigned char>(source());
    return cookie;
}

bool arrives(int descriptor, std::size_t count) {
    for (int waited = 0; waited < patienceMs; ++waited) {
        const std::int64_t pending = vintok::bytesPending(descriptor);
        if (pending < 0 || pending >= static_cast<std::int64_t>(count))
            return pending > 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

bool shows(int descriptor, const Cookie &cookie) {
    Cookie shown = {};
    // A stranger that sends nothing must not be read from: that would wait for ever.
    return arrives(descriptor, shown.size()) &&
           vintok::readBytes(descriptor, shown.data(), shown.size(), nullptr) ==
               static_cast<std::int64_t>(shown.size()) &&
           shown == cookie;
}

// Listens on some port above those that services use.
int listenSomewhere(unsigned short &port) {
    std::random_device source;
    port = static_cast<unsigned short>(20000 + source() % 40000);
    return vintok::createLocalIPv4Socket(port, 0, ports, true);
}

// One try. Both ends are -1 or good afterwards.
void tryPair(int &readEnd, int &writeEnd,
             const std::function<void(unsigned short port)> &listening) {
    unsigned short port = 0;
    int listener = listenSomewhere(port);
    if (listener != -1 && listening)
        listening(port);
    vintok::TCPAddress address;
    address.setLoopbackIPv4();
    address.setHostByteOrderPort(port);
    const Cookie cookie = randomCookie();
    writeEnd = listener == -1 ? -1 : vintok::connectToBoundSocket(address);
    if (writeEnd != -1 && vintok::writeBytes(writeEnd, cookie.data(), cookie.size(), nullptr) ==
                              static_cast<std::int64_t>(cookie.size()))
        readEnd = vintok::acceptAndCloseBoundSocket(listener);
    if (listener != -1)
        vintok::shutdownSocket(listener);
    if (readEnd == -1 || !shows(readEnd, cookie)) {
        vintok::shutdownSocket(readEnd);
        vintok::shutdownSocket(writeEnd);
        readEnd = writeEnd = -1;
    }
}

} // namespace

bool makeLoopbackPair(int &readEnd, int &writeEnd,
                      const std::function<void(unsigned short port)> &listening) {
    readEnd = writeEnd = -1;
    for (int i = 0; i < tries && readEnd == -1; ++i)
        tryPair(readEnd, writeEnd, listening);
    return readEnd != -1;
}

} // namespace app
