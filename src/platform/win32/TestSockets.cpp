#include "platform/TestSockets.h"

#include <winsock2.h>

namespace vintok::platform {

bool shutdownSending(int descriptor) {
    return ::shutdown(static_cast<SOCKET>(descriptor), SD_SEND) == 0;
}

bool resetOnClose(int descriptor) {
    const linger option = {1, 0};
    return ::setsockopt(static_cast<SOCKET>(descriptor), SOL_SOCKET, SO_LINGER,
                        reinterpret_cast<const char *>(&option), sizeof(option)) == 0;
}

std::size_t descriptorLimit() {
    return 0;
}

bool setDescriptorLimit(std::size_t) {
    return false;
}

} // namespace vintok::platform
