// Buffers for the connections of an application, with the limits that it sets.
#include "vintok/TCPStream.h"

#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"

namespace vintok {

bool bufferMessages(int fd, std::uint64_t longest, std::uint64_t unsent) {
    const DescriptorState state(fd);
    if (!state.known || state.bound()) {
        VINTOK_ERROR(TCP_ERROR_BAD_FILE_DESCRIPTOR, "vintok::bufferMessages");
        return false;
    }
    if (!bufferFrames(fd)) {
        VINTOK_ERROR(TCP_ERROR_OUT_OF_MEMORY, "vintok::bufferMessages");
        return false;
    }
    if (const std::shared_ptr<StreamBuffer> buffer = bufferOf(fd))
        buffer->setLimits(static_cast<std::size_t>(longest), static_cast<std::size_t>(unsent));
    readAhead(fd);
    return true;
}

bool awaitSent(int fd, int milliseconds) {
    const std::shared_ptr<StreamBuffer> buffer = bufferOf(fd);
    return buffer == nullptr || buffer->awaitSent(std::chrono::milliseconds(milliseconds));
}

} // namespace vintok
