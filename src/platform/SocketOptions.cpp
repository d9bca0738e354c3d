// The options of a socket, and the memory of the last socket error: alike on both systems.
#include "platform/Socket.h"
#include "platform/SocketErrors.h"

#include <SocketError.h>
#include <SystemSockets.h>

namespace vintok::platform {

namespace {

thread_local int t_error = 0;

bool setOption(int descriptor, int level, int option, int value) {
    return succeeded(setsockopt(descriptor, level, option, reinterpret_cast<const char *>(&value),
                                sizeof value));
}

bool getOption(int descriptor, int level, int option, int &value) {
    socklen_t length = sizeof value;
    return succeeded(
        getsockopt(descriptor, level, option, reinterpret_cast<char *>(&value), &length));
}

} // namespace

int socketError() {
    return t_error;
}

void setSocketError(int error) {
    t_error = error;
}

bool connectSucceeded(int descriptor) {
    int error = 0;
    if (!getOption(descriptor, SOL_SOCKET, SO_ERROR, error))
        return false;
    if (error != 0)
        setSocketError(translatedError(error));
    return error == 0;
}

bool setNoDelayOption(int descriptor) {
    return setOption(descriptor, IPPROTO_TCP, TCP_NODELAY, 1);
}

bool setIPv6Only(int descriptor) {
    return setOption(descriptor, IPPROTO_IPV6, IPV6_V6ONLY, 1);
}

bool setReceiveBuffer(int descriptor, int size) {
    return setOption(descriptor, SOL_SOCKET, SO_RCVBUF, size);
}

bool receiveBuffer(int descriptor, int &size) {
    return getOption(descriptor, SOL_SOCKET, SO_RCVBUF, size);
}

bool setSendBuffer(int descriptor, int size) {
    return setOption(descriptor, SOL_SOCKET, SO_SNDBUF, size);
}

bool sendBuffer(int descriptor, int &size) {
    return getOption(descriptor, SOL_SOCKET, SO_SNDBUF, size);
}

bool setExclusiveAddress(int descriptor) {
    return setOption(descriptor, SOL_SOCKET, exclusiveAddress, 1);
}

} // namespace vintok::platform
