#include "vintok/TCPMessage_1_3.h"

#include "vintok/TCPAddress.h"

#include <limits>

namespace vintok {

namespace {

unsigned int in32Bits(std::int64_t time) {
    const bool fits = time >= 0 && time <= std::numeric_limits<std::uint32_t>::max();
    return fits ? static_cast<unsigned int>(time) : 0;
}

unsigned int addressOf(const TCPAddress &address) {
    std::uint32_t value = 0;
    return address.IPv4(value) ? value : 0;
}

std::size_t atLeastZero(int count) {
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

int createLoopback(unsigned short &port, int backlog, std::size_t tries, unsigned int *address) {
    const int descriptor = createLocalIPv4Socket(port, backlog, tries, false);
    TCPAddress own;
    if (descriptor != -1 && address != nullptr && own.resolve(TCPAddress::IPTYPE_IPV4))
        *address = addressOf(own);
    return descriptor;
}

} // namespace

TCPMessage_1_3::TCPMessage_1_3(int socket)
    : TCPMessageBase(socket, s_majorVersion, s_minorVersion) {}

unsigned short TCPMessage_1_3::majorVersion() {
    return s_majorVersion;
}

unsigned short TCPMessage_1_3::minorVersion() {
    return s_minorVersion;
}

unsigned int TCPMessage_1_3::timeStamp32() const {
    return static_cast<unsigned int>(static_cast<std::uint64_t>(timeStamp()));
}

unsigned int TCPMessage_1_3::originIPv4() const {
    return addressOf(originAddress());
}

bool TCPMessage_1_3::callStartUp() {
    return init();
}

bool TCPMessage_1_3::callCleanUp() {
    return fini();
}

TCPError TCPMessage_1_3::getLastError() {
    return lastError();
}

unsigned int TCPMessage_1_3::getTime32() {
    return in32Bits(getTime());
}

unsigned int TCPMessage_1_3::getAddTime32() {
    return in32Bits(getAddTime());
}

unsigned int TCPMessage_1_3::getSubtractTime32() {
    return in32Bits(getSubtractTime());
}

bool TCPMessage_1_3::addTime32(unsigned int seconds) {
    return addTime(seconds);
}

bool TCPMessage_1_3::subtractTime32(unsigned int seconds) {
    return subtractTime(seconds);
}

bool TCPMessage_1_3::zeroTime() {
    return vintok::zeroTime();
}

bool TCPMessage_1_3::addSocketDescriptor(int descriptor, bool secure) {
    return addDescriptor(descriptor, secure, false, false, false);
}

bool TCPMessage_1_3::removeSocketDescriptor(int descriptor) {
    return removeDescriptor(descriptor);
}

bool TCPMessage_1_3::setSecure(int descriptor, bool secure) {
    return vintok::setSecure(descriptor, secure);
}

bool TCPMessage_1_3::setTransport(TCPTransport *transport) {
    return vintok::setTransport(transport);
}

TCPTransport *TCPMessage_1_3::transport() {
    return vintok::transport();
}

int TCPMessage_1_3::acceptBoundSocket(int descriptor) {
    return vintok::acceptBoundSocket(descriptor);
}

int TCPMessage_1_3::acceptAndCloseBoundSocket(int &descriptor) {
    return vintok::acceptAndCloseBoundSocket(descriptor);
}

int TCPMessage_1_3::connectLocal(unsigned short port) {
    return vintok::connectLocal(port);
}

int TCPMessage_1_3::connectToBoundSocketIPv4(unsigned int address, unsigned short port) {
    TCPAddress target;
    target.setIPv4(address);
    target.setHostByteOrderPort(port);
    return connectToBoundSocket(target);
}

bool TCPMessage_1_3::shutdownSocket(int descriptor) {
    return vintok::shutdownSocket(descriptor);
}

int TCPMessage_1_3::createBoundSocketIPv4(unsigned short &port, int first, int mode,
                                          unsigned int *address, int count) {
    const std::size_t tries = atLeastZero(count);
    if (mode > 0)
        return createLoopback(port, first, tries, address);

    TCPAddress bound;
    int descriptor = -1;
    if (mode == 0) {
        if (!bound.resolve(TCPAddress::IPTYPE_IPV4))
            return -1;
        bound.setHostByteOrderPort(port);
        descriptor = createBoundSocket(bound, first, tries, false, TCPAddress::IPTYPE_NONE);
    } else {
        bound.setHostByteOrderPort(port);
        descriptor = createIPv4Socket(bound, first, tries, false);
    }
    if (descriptor == -1)
        return -1;
    port = bound.hostByteOrderPort();
    if (address != nullptr)
        *address = addressOf(bound);
    return descriptor;
}

unsigned int TCPMessage_1_3::resolveIPv4(const char *name) {
    TCPAddress address;
    if (name == nullptr || !address.resolve(name, TCPAddress::IPTYPE_IPV4))
        return 0;
    return addressOf(address);
}

void TCPMessage_1_3::setBlocking(int descriptor) {
    vintok::setBlocking(descriptor);
}

void TCPMessage_1_3::setNonBlocking(int descriptor) {
    vintok::setNonBlocking(descriptor);
}

void TCPMessage_1_3::setNoDelay(int descriptor) {
    vintok::setNoDelay(descriptor);
}

bool TCPMessage_1_3::setSystemBuffers(int descriptor, int size) {
    return vintok::setSystemBuffers(descriptor, atLeastZero(size));
}

bool TCPMessage_1_3::pendingBytes(int descriptor, std::uint64_t *count) {
    if (count == nullptr)
        return false;
    const std::int64_t pending = bytesPending(descriptor);
    if (pending < 0)
        return false;
    *count = static_cast<std::uint64_t>(pending);
    return true;
}

std::int64_t TCPMessage_1_3::secureBytesPending(int descriptor) {
    return vintok::secureBytesPending(descriptor);
}

bool TCPMessage_1_3::readBytes(int descriptor, unsigned char *buffer, std::uint64_t length,
                               TCPStatusCallback *status) {
    if (buffer == nullptr || length == 0)
        return false;
    const std::int64_t got = vintok::readBytes(descriptor, buffer, length, status);
    return got > 0 && static_cast<std::uint64_t>(got) == length;
}

bool TCPMessage_1_3::writeBytes(int descriptor, const unsigned char *buffer, std::uint64_t length,
                                TCPStatusCallback *status) {
    if (buffer == nullptr || length == 0)
        return false;
    const std::int64_t sent = vintok::writeBytes(descriptor, buffer, length, status);
    return sent > 0 && static_cast<std::uint64_t>(sent) == length;
}

} // namespace vintok
