#include "platform/Wait.h"

#include "platform/Socket.h"
#include "platform/win32/LowWater.h"
#include "platform/win32/SocketError.h"

#include <SystemSockets.h>

namespace vintok::platform {

namespace {

constexpr long forever = -1;
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
    timeval limit = {0, milliseconds * 1000};
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
void pauseFor(DescriptorSet all, const DescriptorSet &held) {
    keepIf(all, [&held](int descriptor) { return !held.contains(descriptor); });
    if (all.size() == 0)
        Sleep(slice);
    else
        selectReadable(all, slice);
}

} // namespace

int waitReadable(DescriptorSet &set, bool immediate) {
    const DescriptorSet all = set;
    for (;;) {
        const int ready = selectReadable(set, immediate ? 0 : forever);
        if (ready <= 0)
            return ready;
        const DescriptorSet found = set;
        keepIf(set, [](int descriptor) { return !isBelowLowWater(descriptor); });
        if (set.size() != 0 || immediate)
            return static_cast<int>(set.size());
        pauseFor(all, found);
        set = all;
    }
}

} // namespace vintok::platform
