// One datagram socket that sends to itself: what the system waits for are sockets alone.
#include "platform/Waker.h"

#include "platform/win32/SocketError.h"

#include <SystemSockets.h>

namespace vintok::platform {

Waker::~Waker() {
    if (m_readEnd != -1)
        closesocket(static_cast<SOCKET>(m_readEnd));
}

bool Waker::open() {
    const SOCKET socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    if (socket == INVALID_SOCKET)
        return false;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto *const name = reinterpret_cast<sockaddr *>(&address);
    int size = sizeof(address);
    u_long nonBlocking = 1;
    if (bind(socket, name, size) != 0 || getsockname(socket, name, &size) != 0 ||
        connect(socket, name, size) != 0 || ioctlsocket(socket, FIONBIO, &nonBlocking) != 0) {
        closesocket(socket);
        return false;
    }
    m_readEnd = m_writeEnd = static_cast<int>(socket);
    return true;
}

void Waker::wake() const {
    const char byte = 0;
    send(static_cast<SOCKET>(m_writeEnd), &byte, 1, 0);
}

void Waker::clear() const {
    char byte;
    while (recv(static_cast<SOCKET>(m_readEnd), &byte, 1, 0) > 0) {
    }
}

} // namespace vintok::platform
