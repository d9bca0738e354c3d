#include "platform/Socket.h"

#include "platform/SocketAddress.h"
#include "platform/Wait.h"
#include "platform/win32/SocketError.h"

#include <algorithm>
#include <array>
#include <limits>

namespace vintok::platform {

namespace {

// The system's handles of sockets fit an int: only their low 32 bits are significant.
SOCKET socketOf(int descriptor) {
    return static_cast<SOCKET>(descriptor);
}

int descriptorOf(SOCKET socket) {
    return succeeded(socket == INVALID_SOCKET ? SOCKET_ERROR : 0) ? static_cast<int>(socket) : -1;
}

int boundedLength(std::size_t length) {
    return static_cast<int>(std::min<std::size_t>(length, std::numeric_limits<int>::max()));
}

std::int64_t receiveWith(int descriptor, unsigned char *buffer, std::size_t length, int flags) {
    const int count =
        recv(socketOf(descriptor), reinterpret_cast<char *>(buffer), boundedLength(length), flags);
    if (succeeded(count) && count == 0)
        setSocketError(0);
    return count;
}

constexpr int maxRetransmissionTime = 5; // an option of TCP that not all headers name
constexpr std::size_t mostPieces = 64;   // in one call

std::int64_t wouldBlock() {
    setSocketError(WSAEWOULDBLOCK);
    return -1;
}

} // namespace

bool startSockets(std::uint16_t wanted, std::uint16_t &granted) {
    WSADATA data = {};
    const int error = WSAStartup(wanted, &data);
    if (error != 0) {
        setSocketError(error);
        return false;
    }
    granted = data.wVersion;
    return true;
}

void stopSockets() {
    WSACleanup();
}

int openSocket(Family family) {
    return descriptorOf(WSASocketW(systemFamily(family), SOCK_STREAM, 0, nullptr, 0,
                                   WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT));
}

bool closeSocket(int descriptor) {
    return succeeded(closesocket(socketOf(descriptor)));
}

bool shutdownBoth(int descriptor) {
    return succeeded(shutdown(socketOf(descriptor), SD_BOTH));
}

bool shutdownSending(int descriptor) {
    return succeeded(shutdown(socketOf(descriptor), SD_SEND));
}

bool bindSocket(int descriptor, const Endpoint &endpoint) {
    SocketAddress address;
    return toSystem(endpoint, address) &&
           succeeded(bind(socketOf(descriptor), &address.any, address.length));
}

bool listenSocket(int descriptor, int backlog) {
    return succeeded(listen(socketOf(descriptor), backlog));
}

bool connectSocket(int descriptor, const Endpoint &endpoint) {
    SocketAddress address;
    return toSystem(endpoint, address) &&
           succeeded(connect(socketOf(descriptor), &address.any, address.length));
}

int acceptSocket(int descriptor, Family family, Endpoint &peer) {
    SocketAddress address;
    address.length = sizeof address.local;
    const SOCKET accepted = accept(socketOf(descriptor), &address.any, &address.length);
    if (accepted == INVALID_SOCKET)
        return descriptorOf(accepted);
    SetHandleInformation(reinterpret_cast<HANDLE>(accepted), HANDLE_FLAG_INHERIT, 0);
    peer = fromSystem(family, &address.any);
    return descriptorOf(accepted);
}

bool boundEndpoint(int descriptor, Family family, Endpoint &endpoint) {
    SocketAddress address;
    address.length = sizeof address.local;
    if (!succeeded(getsockname(socketOf(descriptor), &address.any, &address.length)))
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
    const int count = ::send(socketOf(descriptor), reinterpret_cast<const char *>(buffer),
                             boundedLength(length), 0);
    succeeded(count);
    return count;
}

std::int64_t receiveNow(int descriptor, unsigned char *buffer, std::size_t length) {
    return awaitSocket(descriptor, Await::readable, 0) ? receive(descriptor, buffer, length)
                                                       : wouldBlock();
}

std::int64_t sendNow(int descriptor, const unsigned char *buffer, std::size_t length) {
    const Piece piece = {buffer, length};
    return sendNow(descriptor, &piece, 1);
}

// There is no flag for this here, so the descriptor's mode changes for the call. A failure's error
// outlives the change back.
std::int64_t sendNow(int descriptor, const Piece *pieces, std::size_t count) {
    std::array<WSABUF, mostPieces> parts;
    count = std::min(count, parts.size());
    for (std::size_t i = 0; i < count; ++i)
        parts[i] = {static_cast<ULONG>(boundedLength(pieces[i].length)),
                    reinterpret_cast<CHAR *>(const_cast<unsigned char *>(pieces[i].bytes))};
    DWORD sent = 0;
    setBlockingMode(descriptor, false);
    const bool good = succeeded(WSASend(socketOf(descriptor), parts.data(),
                                        static_cast<DWORD>(count), &sent, 0, nullptr, nullptr));
    const int error = socketError();
    setBlockingMode(descriptor, true);
    setSocketError(error);
    return good ? static_cast<std::int64_t>(sent) : -1;
}

bool bytesWaiting(int descriptor, std::size_t &count) {
    u_long waiting = 0;
    if (!succeeded(ioctlsocket(socketOf(descriptor), FIONREAD, &waiting)))
        return false;
    count = waiting;
    return true;
}

bool setPeerTimeout(int descriptor, std::uint32_t milliseconds) {
    const DWORD seconds = milliseconds / 1000 + (milliseconds % 1000 != 0 ? 1 : 0);
    // For what is sent and not taken. Older systems do not know it.
    setsockopt(socketOf(descriptor), IPPROTO_TCP, maxRetransmissionTime,
               reinterpret_cast<const char *>(&seconds), sizeof seconds);
    // The system asks ten times.
    constexpr ULONG longestInterval = 32767000; // more is refused
    tcp_keepalive settings = {1, std::clamp<ULONG>(milliseconds / 2, 1, longestInterval),
                              std::clamp<ULONG>(milliseconds / 20, 1, longestInterval)};
    DWORD size = 0;
    return succeeded(WSAIoctl(socketOf(descriptor), SIO_KEEPALIVE_VALS, &settings, sizeof settings,
                              nullptr, 0, &size, nullptr, nullptr));
}

bool setBlockingMode(int descriptor, bool blocking) {
    u_long nonBlocking = blocking ? 0 : 1;
    return succeeded(ioctlsocket(socketOf(descriptor), FIONBIO, &nonBlocking));
}

} // namespace vintok::platform
