#include "platform/win32/SocketError.h"

#include "platform/Socket.h"

#include <SystemSockets.h>

namespace vintok::platform {

bool succeeded(int result) {
    if (result != SOCKET_ERROR)
        return true;
    setSocketError(WSAGetLastError());
    return false;
}

} // namespace vintok::platform
