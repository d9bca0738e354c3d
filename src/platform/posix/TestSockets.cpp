#include "platform/TestSockets.h"

#include <sys/resource.h>
#include <sys/socket.h>

namespace vintok::platform {

bool shutdownSending(int descriptor) {
    return ::shutdown(descriptor, SHUT_WR) == 0;
}

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
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return false;
    }
    limit.rlim_cur = count;
    return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

} // namespace vintok::platform
