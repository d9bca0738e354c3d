#include "support/MemoryTransport.h"

#include "platform/Thread.h"
#include "support/Stream.h"

#include <algorithm>

namespace vintok::test {

namespace {

constexpr std::size_t lengthSize = 2;

void turnBits(std::string &text) {
    for (char &c : text)
        c = static_cast<char>(static_cast<unsigned char>(c) ^ MemoryTransport::key);
}

bool sendAll(int fd, const std::string &bytes) {
    const auto sent = rawWriteBytes(fd, bytesOf(bytes), bytes.size(), true, nullptr);
    return sent == static_cast<std::int64_t>(bytes.size());
}

// Cuts the first record off `raw` and opens it. False when it is not all there.
bool openRecord(std::string &raw, std::string &plain) {
    if (raw.size() < lengthSize)
        return false;
    const std::size_t length = static_cast<std::size_t>(static_cast<unsigned char>(raw[0])) << 8 |
                               static_cast<unsigned char>(raw[1]);
    if (raw.size() < lengthSize + length)
        return false;
    plain = raw.substr(lengthSize, length);
    turnBits(plain);
    raw.erase(0, lengthSize + length);
    return true;
}

} // namespace

std::string MemoryTransport::record(const std::string &plain) {
    std::string body = plain;
    turnBits(body);
    const char length[] = {static_cast<char>(plain.size() >> 8),
                           static_cast<char>(plain.size() & 0xFF)};
    return std::string(length, sizeof length) + body;
}

bool MemoryTransport::greet(int fd) {
    const std::string hello = record(greeting);
    switch (handshake) {
    case Handshake::works:
        m_channels[fd].awaitsGreeting = true;
        return sendAll(fd, hello);
    case Handshake::isAbsent:
        return true;
    case Handshake::breaks:
        sendAll(fd, hello.substr(0, hello.size() / 2));
        setLastError(TCP_ERROR_SSL_TRANSPORT, "handshake broken");
        return false;
    default:
        setLastError(TCP_ERROR_SSL_TRANSPORT, "handshake refused");
        return false;
    }
}

bool MemoryTransport::secureAccept(int fd) {
    calls.push_back("accept " + std::to_string(fd));
    return greet(fd);
}

bool MemoryTransport::secureConnect(int fd, const char *peerName) {
    calls.push_back("connect " + std::to_string(fd) + " " +
                    (peerName != nullptr ? peerName : "(nobody)"));
    return greet(fd);
}

void MemoryTransport::takeIn(int fd) {
    Channel &channel = m_channels[fd];
    const std::int64_t waiting = rawBytesPending(fd);
    if (waiting > 0) {
        std::vector<unsigned char> bytes(static_cast<std::size_t>(waiting));
        const std::int64_t got = rawReadBytes(fd, bytes.data(), bytes.size(), true, nullptr);
        if (got > 0)
            channel.raw.append(bytes.begin(), bytes.begin() + got);
    }
    std::string plain;
    while (openRecord(channel.raw, plain)) {
        if (channel.awaitsGreeting && plain == greeting)
            channel.awaitsGreeting = false;
        else
            channel.plain += plain;
    }
}

bool MemoryTransport::awaitPlain(int fd) {
    Channel &channel = m_channels[fd];
    while (channel.plain.empty()) {
        takeIn(fd);
        unsigned char byte = 0;
        if (channel.plain.empty() && rawPeekBytes(fd, &byte, 1) < 0) {
            if (lastError() != TCP_ERROR_WOULD_BLOCK)
                return false;
            platform::sleepMilliseconds(1);
        }
    }
    return true;
}

std::int64_t MemoryTransport::securePeek(int fd, unsigned char *buffer, std::size_t length) {
    const std::string &plain = m_channels[fd].plain;
    std::copy_n(plain.begin(), length, buffer);
    return static_cast<std::int64_t>(length);
}

std::int64_t MemoryTransport::secureRecv(int fd, unsigned char *buffer, std::size_t length) {
    if (!awaitPlain(fd))
        return -1;
    std::string &plain = m_channels[fd].plain;
    const std::size_t count = std::min(length, plain.size());
    std::copy_n(plain.begin(), count, buffer);
    plain.erase(0, count);
    return static_cast<std::int64_t>(count);
}

std::int64_t MemoryTransport::secureSend(int fd, const unsigned char *buffer, std::size_t length) {
    const std::string plain(reinterpret_cast<const char *>(buffer), length);
    for (std::size_t at = 0; at < length; at += recordSize)
        if (!sendAll(fd, record(plain.substr(at, recordSize))))
            return -1;
    return static_cast<std::int64_t>(length);
}

bool MemoryTransport::secureBytesPending(int fd, std::size_t *pending, bool socketHasData) {
    pendingCalls++;
    if (!answersPending)
        return false;
    if (socketHasData)
        takeIn(fd);
    *pending = m_channels[fd].plain.size();
    return true;
}

bool MemoryTransport::addSecureDescriptor(int fd) {
    calls.push_back("add " + std::to_string(fd));
    if (takesDescriptors)
        descriptors.insert(fd);
    return takesDescriptors;
}

bool MemoryTransport::removeSecureDescriptor(int fd) {
    calls.push_back("remove " + std::to_string(fd));
    descriptors.erase(fd);
    m_channels.erase(fd);
    return givesDescriptorsBack;
}

bool MemoryTransport::secureStatus(int, std::size_t &value, std::string &text) {
    value = 128;
    text = "memory";
    return true;
}

bool MemoryTransport::certificateInfo(int fd, TCPCertInfo &info) {
    info.m_status = static_cast<std::uint32_t>(fd);
    info.m_text1 = "memory";
    return true;
}

SecureError MemoryTransport::lastSecureError(int) {
    return error;
}

} // namespace vintok::test
