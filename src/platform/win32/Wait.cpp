#include "platform/Wait.h"

#include "platform/Socket.h"
#include "platform/win32/LowWater.h"
#include "platform/win32/SocketError.h"

#include <SystemSockets.h>
#include <algorithm>

namespace vintok::platform {

namespace {

constexpr long forever = -1;
constexpr int interrupted = 4;
constexpr long slice = 10; // milliseconds between two looks at descriptors that are held back

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
    for (const int descriptor : set) {
        if (predicate(descriptor))
            kept.insert(descriptor);
    }
    set = kept;
}

// As `select` with a read set. One dead descriptor makes that fail as a whole; here it counts as
// readable, so that its owner learns of it.
int selectReadable(DescriptorSet &set, long milliseconds) {
    timeval limit = {milliseconds / 1000, milliseconds % 1000 * 1000};
    fd_set readable = {};
    for (const int descriptor : set)
        readable.fd_array[readable.fd_count++] = static_cast<SOCKET>(descriptor);
    const int ready =
        select(0, &readable, nullptr, nullptr, milliseconds == forever ? nullptr : &limit);
    if (!succeeded(ready)) {
        if (socketError() == WSAENOTSOCK)
            keepIf(set, isDead);
        else
            set.clear();
        return set.size() == 0 ? -1 : static_cast<int>(set.size());
    }
    set.clear();
    for (u_int i = 0; i < readable.fd_count && ready > 0; ++i)
        set.insert(static_cast<int>(readable.fd_array[i]));
    return ready;
}

// Gives the descriptors of `all` that are not in `held` a moment to become readable.
void pauseFor(DescriptorSet all, const DescriptorSet &held, long milliseconds) {
    keepIf(all, [&held](int descriptor) { return !held.contains(descriptor); });
    if (all.size() == 0)
        Sleep(static_cast<DWORD>(milliseconds));
    else
        selectReadable(all, milliseconds);
}

// What is left of a wait that began at `began`.
long timeLeft(const WaitLimit &limit, ULONGLONG began) {
    if (limit.milliseconds == WaitLimit::FOREVER)
        return forever;
    const auto passed = static_cast<long long>(GetTickCount64() - began);
    return static_cast<long>(std::max(0LL, limit.milliseconds - passed));
}

} // namespace

int waitReadable(DescriptorSet &set, const WaitLimit &limit) {
    if (limit.running != nullptr && !*limit.running) {
        set.clear();
        setSocketError(interrupted);
        return -1;
    }
    const ULONGLONG began = GetTickCount64();
    const DescriptorSet all = set;
    for (;;) {
        const long left = timeLeft(limit, began);
        const int ready = selectReadable(set, left);
        if (ready <= 0)
            return ready;
        const DescriptorSet found = set;
        keepIf(set, [](int descriptor) { return !isBelowLowWater(descriptor); });
        if (set.size() != 0 || left == 0)
            return static_cast<int>(set.size());
        pauseFor(all, found, left == forever ? slice : std::min(left, slice));
        set = all;
    }
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
