#include "platform/Wait.h"

#include "platform/Socket.h"
#include "platform/posix/SocketError.h"

#include <cerrno>
#include <poll.h>

namespace vintok::platform {

int waitReadable(DescriptorSet &set, bool immediate) {
    std::array<pollfd, DescriptorSet::capacity> polled;
    nfds_t count = 0;
    for (const int descriptor : set)
        polled[count++] = {descriptor, POLLIN, 0};
    set.clear();
    if (count == 0) {
        setSocketError(
            translatedError(EINVAL)); // otherwise nothing but a signal would ever end the wait
        return -1;
    }

    const int ready = poll(polled.data(), count, immediate ? 0 : -1);
    if (!succeeded(ready))
        return -1;
    // What is reported without being asked for (an end, an error, a closed descriptor) counts too:
    // its owner learns of it by reading.
    for (nfds_t i = 0; i < count; ++i) {
        if (polled[i].revents != 0)
            set.insert(polled[i].fd);
    }
    return ready;
}

} // namespace vintok::platform
