#include "platform/Socket.h"

#include "platform/SocketAddress.h"
#include "platform/posix/SocketError.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <unistd.h>

namespace vintok::platform {

namespace {

constexpr int firstDescriptor = 3;
constexpr std::size_t mostPieces = 64; // in one call

// A program that closed a standard stream would get its number for a socket, and then write what it
// prints into the meeting.
int awayFromStandardStreams(int descriptor) {
    if (descriptor < 0 || descriptor >= firstDescriptor)
        return descriptor;
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, firstDescriptor);
    succeeded(moved);
    close(descriptor);
    return moved;
}

std::int64_t receiveWith(int descriptor, unsigned char *buffer, std::size_t length, int flags) {
    const ssize_t count = recv(descriptor, buffer, length, flags);
    // The system leaves an old error standing at the end of a stream.
    if (succeeded(count) && count == 0)
        setSocketError(0);
    return count;
}

std::int64_t sendWith(int descriptor, const unsigned char *buffer, std::size_t length, int flags) {
    const ssize_t count = ::send(descriptor, buffer, length, flags);
    succeeded(count);
    return count;
}

} // namespace

bool startSockets(std::uint16_t wanted, std::uint16_t &granted) {
    granted = wanted;
    return true;
}

void stopSockets() {}

int openSocket(Family family) {
    const int descriptor = socket(systemFamily(family), SOCK_STREAM | SOCK_CLOEXEC, 0);
    return succeeded(descriptor) ? awayFromStandardStreams(descriptor) : -1;
}

bool closeSocket(int descriptor) {
    return succeeded(close(descriptor));
}

bool shutdownBoth(int descriptor) {
    return succeeded(shutdown(descriptor, SHUT_RDWR));
}

bool shutdownSending(int descriptor) {
    return succeeded(shutdown(descriptor, SHUT_WR));
}

bool bindSocket(int descriptor, const Endpoint &endpoint) {
    SocketAddress address;
    return toSystem(endpoint, address) && succeeded(bind(descriptor, &address.any, address.length));
}

bool listenSocket(int descriptor, int backlog) {
    return succeeded(listen(descriptor, backlog));
}

bool connectSocket(int descriptor, const Endpoint &endpoint) {
    SocketAddress address;
    return toSystem(endpoint, address) &&
           succeeded(connect(descriptor, &address.any, address.length));
}

int acceptSocket(int descriptor, Family family, Endpoint &peer) {
    SocketAddress address;
    address.length = sizeof address.local;
    const int accepted = accept4(descriptor, &address.any, &address.length, SOCK_CLOEXEC);
    if (!succeeded(accepted))
        return -1;
    peer = fromSystem(family, &address.any);
    return awayFromStandardStreams(accepted);
}

bool boundEndpoint(int descriptor, Family family, Endpoint &endpoint) {
    SocketAddress address;
    address.length = sizeof address.local;
    if (!succeeded(getsockname(descriptor, &address.any, &address.length)))
        return false;
    endpoint = fromSystem(family, &address.any);
    return true;
}

std::int64_t receive(int descriptor, unsigned char *buffer, std::size_t length) {
    return receiveWith(descriptor, buffer, length, 0);
}

std::int64_t peek(int descriptor, unsigned char *buffer, std::size_t length) {
    return receiveWith(descriptor, buffer, length, MSG_PEEK);
}

std::int64_t send(int descriptor, const unsigned char *buffer, std::size_t length) {
    return sendWith(descriptor, buffer, length, MSG_NOSIGNAL);
}

std::int64_t receiveNow(int descriptor, unsigned char *buffer, std::size_t length) {
    return receiveWith(descriptor, buffer, length, MSG_DONTWAIT);
}

std::int64_t sendNow(int descriptor, const unsigned char *buffer, std::size_t length) {
    return sendWith(descriptor, buffer, length, MSG_NOSIGNAL | MSG_DONTWAIT);
}

std::int64_t sendNow(int descriptor, const Piece *pieces, std::size_t count) {
    std::array<iovec, mostPieces> parts;
    count = std::min(count, parts.size());
    for (std::size_t i = 0; i < count; ++i)
        parts[i] = {const_cast<unsigned char *>(pieces[i].bytes), pieces[i].length};
    msghdr message = {};
    message.msg_iov = parts.data();
    message.msg_iovlen = count;
    const ssize_t sent = sendmsg(descriptor, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    succeeded(sent);
    return sent;
}

bool bytesWaiting(int descriptor, std::size_t &count) {
    int waiting = 0;
    if (!succeeded(ioctl(descriptor, FIONREAD, &waiting)))
        return false;
    count = static_cast<std::size_t>(waiting);
    return true;
}

bool setPeerTimeout(int descriptor, std::uint32_t milliseconds) {
    constexpr int longestInterval = 32767; // that the system takes
    const int seconds = static_cast<int>((std::uint64_t{milliseconds} + 999) / 1000);
    const int timeout = static_cast<int>(std::min<std::uint32_t>(milliseconds, 0x7FFFFFFF));
    const struct {
        int level;
        int option;
        int value;
    } settings[] = {
        {IPPROTO_TCP, TCP_KEEPIDLE,
         std::clamp(seconds / 2, 1, longestInterval)}, // then it is asked
        {IPPROTO_TCP, TCP_KEEPINTVL, std::clamp(seconds / 8, 1, longestInterval)},
        {IPPROTO_TCP, TCP_KEEPCNT, 4},
        {IPPROTO_TCP, TCP_USER_TIMEOUT, timeout},
        {SOL_SOCKET, SO_KEEPALIVE, 1},
    };
    return std::all_of(std::begin(settings), std::end(settings), [&](const auto &each) {
        return succeeded(
            setsockopt(descriptor, each.level, each.option, &each.value, sizeof each.value));
    });
}

bool setBlockingMode(int descriptor, bool blocking) {
    int nonBlocking = blocking ? 0 : 1;
    return succeeded(ioctl(descriptor, FIONBIO, &nonBlocking));
}

} // namespace vintok::platform
