#include "platform/win32/SocketError.h"

#include "platform/Socket.h"

#include <SystemSockets.h>

namespace vintok::platform {

namespace {

thread_local int t_error = 0;

} // namespace

bool succeeded(int result) {
    if (result != SOCKET_ERROR)
        return true;
    t_error = WSAGetLastError();
    return false;
}

int socketError() {
    return t_error;
}

void setSocketError(int error) {
    t_error = error;
}

} // namespace vintok::platform
