#include "platform/TestSockets.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace vintok::platform {

namespace {

bool setTimer(suseconds_t first, suseconds_t interval) {
    const itimerval timer = {{0, interval}, {0, first}};
    return ::setitimer(ITIMER_REAL, &timer, nullptr) == 0;
}

bool handleAlarm(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    return ::sigaction(SIGALRM, &action, nullptr) == 0;
}

} // namespace

bool resetOnClose(int descriptor) {
    const linger option = {1, 0};
    return ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &option, sizeof(option)) == 0;
}

std::size_t descriptorLimit() {
    rlimit limit = {};
    return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : 0;
}

bool setDescriptorLimit(std::size_t count) {
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    limit.rlim_cur = count;
    return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

bool limitFileSize(std::size_t bytes) {
    rlimit limit = {};
    if (::getrlimit(RLIMIT_FSIZE, &limit) != 0)
        return false;
    limit.rlim_cur = bytes != 0 ? bytes : limit.rlim_max;
    return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

bool isInherited(int descriptor) {
    const int flags = ::fcntl(descriptor, F_GETFD);
    return flags != -1 && (flags & FD_CLOEXEC) == 0;
}

bool isInherited(std::FILE *file) {
    return isInherited(::fileno(file));
}

std::intptr_t fileNumber(std::FILE *file) {
    return ::fileno(file);
}

bool isOpenFile(std::intptr_t number) {
    return ::fcntl(static_cast<int>(number), F_GETFD) != -1;
}

bool startInterrupting() {
    return handleAlarm([](int) {}) && setTimer(5000, 5000);
}

void stopInterrupting() {
    setTimer(0, 0);
    std::signal(SIGALRM, SIG_DFL);
}

bool interruptOnce(std::uint32_t microseconds, void (*handler)(int)) {
    return handleAlarm(handler) && setTimer(static_cast<suseconds_t>(microseconds), 0);
}

bool leaveNetwork() {
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return false;
    ifreq loopback = {};
    std::strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP;
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return ::ioctl(descriptor, SIOCSIFFLAGS, &loopback) == 0;
}

} // namespace vintok::platform
