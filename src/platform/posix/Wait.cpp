#include "platform/Wait.h"

#include "platform/Socket.h"
#include "platform/posix/SocketError.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <poll.h>

namespace vintok::platform {

namespace {

using Polled = std::array<pollfd, 2 * DescriptorSet::capacity>;

timespec timeOf(std::int32_t milliseconds) {
    return {milliseconds / 1000, (milliseconds % 1000) * 1000000L};
}

int waitFor(Polled &polled, nfds_t count, const WaitLimit &limit) {
    const timespec time = timeOf(limit.milliseconds);
    const timespec *timeOut = limit.milliseconds == WaitLimit::forever ? nullptr : &time;
    if (limit.running == nullptr)
        return ppoll(polled.data(), count, timeOut, nullptr);

    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    int ready = -1;
    int error = EINTR;
    if (*limit.running) {
        ready = ppoll(polled.data(), count, timeOut, &before); // signals come in here alone
        error = errno;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return ready;
}

} // namespace

int waitReady(DescriptorSet &readers, DescriptorSet &writers, const WaitLimit &limit) {
    Polled polled;
    nfds_t count = 0;
    for (const int descriptor : readers)
        polled[count++] = {descriptor, POLLIN, 0};
    const nfds_t reading = count;
    for (const int descriptor : writers)
        polled[count++] = {descriptor, POLLOUT, 0};
    readers.clear();
    writers.clear();
    if (count == 0) {
        // Otherwise nothing but a signal would ever end the wait.
        setSocketError(translatedError(EINVAL));
        return -1;
    }

    const int ready = waitFor(polled, count, limit);
    if (!succeeded(ready))
        return -1;
    // What is reported without being asked for (an end, an error, a closed descriptor) counts too.
    for (nfds_t i = 0; i < count; ++i)
        if (polled[i].revents != 0)
            (i < reading ? readers : writers).insert(polled[i].fd);
    return ready;
}

bool awaitSocket(int descriptor, Await what, std::int32_t milliseconds) {
    pollfd polled = {descriptor, static_cast<short>(what == Await::readable ? POLLIN : POLLOUT), 0};
    return poll(&polled, 1, milliseconds < 0 ? -1 : milliseconds) == 1;
}

bool endArrived(int descriptor) {
    pollfd polled = {descriptor, POLLRDHUP, 0};
    return poll(&polled, 1, 0) == 1;
}

} // namespace vintok::platform
