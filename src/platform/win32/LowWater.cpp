#include "platform/win32/LowWater.h"

#include "platform/Socket.h"
#include "platform/Wait.h"
#include "platform/win32/SocketError.h"

#include <SystemSockets.h>
#include <map>
#include <mutex>

namespace vintok::platform {

namespace {

constexpr ULONGLONG longestHold = 250; // milliseconds

struct Mark {
    std::size_t count = 0;
    bool held = false;
    ULONGLONG heldSince = 0;
};

struct Marks {
    std::mutex lock;
    std::map<int, Mark> byDescriptor;
};

// Never destroyed: sockets are closed until the process ends.
Marks &marks() {
    static Marks &all = *new Marks;
    return all;
}

} // namespace

bool isBelowLowWater(int descriptor) {
    const std::lock_guard guard(marks().lock);
    const auto found = marks().byDescriptor.find(descriptor);
    if (found == marks().byDescriptor.end())
        return false;
    Mark &mark = found->second;
    std::size_t waiting = 0;
    // Readable without a byte is the end of the stream.
    if (!bytesWaiting(descriptor, waiting) || waiting == 0 || waiting >= mark.count ||
        endArrived(descriptor)) {
        mark.held = false;
        return false;
    }
    const ULONGLONG now = GetTickCount64();
    if (!mark.held) {
        mark.held = true;
        mark.heldSince = now;
    } else if (now - mark.heldSince >= longestHold) {
        mark.held = false;
    }
    return mark.held;
}

void forgetLowWater(int descriptor) {
    const std::lock_guard guard(marks().lock);
    marks().byDescriptor.erase(descriptor);
}

bool setReceiveLowWater(int descriptor, int count) {
    int type = 0;
    int length = sizeof type;
    if (!succeeded(getsockopt(static_cast<SOCKET>(descriptor), SOL_SOCKET, SO_TYPE,
                              reinterpret_cast<char *>(&type), &length)))
        return false;
    const std::lock_guard guard(marks().lock);
    marks().byDescriptor[descriptor] = Mark{static_cast<std::size_t>(count > 0 ? count : 1)};
    return true;
}

} // namespace vintok::platform
