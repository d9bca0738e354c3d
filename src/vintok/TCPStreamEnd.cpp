// How the owner of a connection learns that its peer has ended the stream: a read of frames cannot
// tell, because it looks only at how many bytes are waiting.

#include "vintok/Globals.h"

#include "platform/Wait.h"
#include "vintok/Log.h"

namespace vintok {

namespace {

void markEnded(int fd) {
    if (setClosed(fd))
        VINTOK_ERROR(TCP_ERROR_CONNECTION_RESET, "vintok::streamEnded");
}

} // namespace

bool streamEnded(int fd) {
    // In this order: all the bytes come before the end, so the count misses none.
    const bool ended = platform::endArrived(fd);
    const std::int64_t pending = bytesPending(fd);
    if (pending >= static_cast<std::int64_t>(smallestFrame))
        return false;
    unsigned char byte = 0;
    if (pending >= 0 && rawBytesPending(fd) == 0)
        rawPeekBytes(fd, &byte, sizeof byte); // finds a clean end and marks it
    else if (pending < 0 || ended)
        markEnded(fd); // bytes that can never become a frame, or that the transport gave up
    if (!DescriptorState(fd).known)
        return true;
    holdFrameStart(fd);
    return false;
}

} // namespace vintok
