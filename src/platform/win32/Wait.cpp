#include "platform/Wait.h"

#include "platform/Socket.h"
#include "platform/SocketErrors.h"
#include "platform/win32/SocketError.h"

#include <SystemSockets.h>

namespace vintok::platform {

namespace {

bool isDead(int descriptor) {
    int type = 0;
    int length = sizeof type;
    return getsockopt(static_cast<SOCKET>(descriptor), SOL_SOCKET, SO_TYPE,
                      reinterpret_cast<char *>(&type), &length) == SOCKET_ERROR &&
           WSAGetLastError() == WSAENOTSOCK;
}

template <typename Predicate>
void keepIf(DescriptorSet &set, Predicate predicate) {
    DescriptorSet kept;
    for (const int descriptor : set)
        if (predicate(descriptor))
            kept.insert(descriptor);
    set = kept;
}

fd_set systemSet(const DescriptorSet &set) {
    fd_set result = {};
    for (const int descriptor : set)
        result.fd_array[result.fd_count++] = static_cast<SOCKET>(descriptor);
    return result;
}

void takeOver(DescriptorSet &set, const fd_set &found, bool any) {
    set.clear();
    for (u_int i = 0; i < found.fd_count && any; ++i)
        set.insert(static_cast<int>(found.fd_array[i]));
}

// A connect that has failed does not make its socket writable here.
void addFailedConnects(DescriptorSet &set, const fd_set &exceptional) {
    for (u_int i = 0; i < exceptional.fd_count; ++i) {
        sockaddr_storage peer = {};
        int length = sizeof peer;
        if (getpeername(exceptional.fd_array[i], reinterpret_cast<sockaddr *>(&peer), &length) ==
            SOCKET_ERROR)
            set.insert(static_cast<int>(exceptional.fd_array[i]));
    }
}

} // namespace

// One dead descriptor makes `select` fail as a whole; here it counts as ready, so that its owner
// learns of it.
int waitReady(DescriptorSet &readers, DescriptorSet &writers, const WaitLimit &limit) {
    if (limit.running != nullptr && !*limit.running) {
        readers.clear();
        writers.clear();
        setSocketError(socketErrors::interrupted);
        return -1;
    }
    timeval time = {limit.milliseconds / 1000, limit.milliseconds % 1000 * 1000};
    fd_set readable = systemSet(readers);
    fd_set writable = systemSet(writers);
    fd_set exceptional = writable;
    const int ready = select(0, &readable, &writable, &exceptional,
                             limit.milliseconds == WaitLimit::forever ? nullptr : &time);
    if (succeeded(ready)) {
        takeOver(readers, readable, ready > 0);
        takeOver(writers, writable, ready > 0);
        if (ready > 0)
            addFailedConnects(writers, exceptional);
        return static_cast<int>(readers.size() + writers.size());
    }
    if (socketError() == WSAENOTSOCK) {
        keepIf(readers, isDead);
        keepIf(writers, isDead);
    } else {
        readers.clear();
        writers.clear();
    }
    const std::size_t dead = readers.size() + writers.size();
    return dead == 0 ? -1 : static_cast<int>(dead);
}

bool awaitSocket(int descriptor, Await what, std::int32_t milliseconds) {
    timeval limit = {milliseconds / 1000, milliseconds % 1000 * 1000};
    fd_set wanted = {};
    fd_set failed = {};
    FD_SET(static_cast<SOCKET>(descriptor), &wanted);
    FD_SET(static_cast<SOCKET>(descriptor), &failed);
    fd_set *const reading = what == Await::readable ? &wanted : nullptr;
    fd_set *const writing = what == Await::writable ? &wanted : nullptr;
    return select(0, reading, writing, &failed, milliseconds < 0 ? nullptr : &limit) != 0;
}

bool endArrived(int descriptor) {
    WSAPOLLFD polled = {static_cast<SOCKET>(descriptor), 0, 0};
    return WSAPoll(&polled, 1, 0) == 1;
}

} // namespace vintok::platform
