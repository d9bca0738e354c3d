#include "platform/Waker.h"

#include "platform/posix/SocketError.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace vintok::platform {

Waker::~Waker() {
    if (m_readEnd == -1)
        return;
    close(m_readEnd);
    close(m_writeEnd);
}

bool Waker::open() {
    int ends[2];
    if (!succeeded(pipe2(ends, O_CLOEXEC | O_NONBLOCK)))
        return false;
    m_readEnd = ends[0];
    m_writeEnd = ends[1];
    return true;
}

// A pipe that is full is readable as it is.
void Waker::wake() const {
    const int error = errno; // of whatever a signal handler interrupts
    const char byte = 0;
    static_cast<void>(!write(m_writeEnd, &byte, 1));
    errno = error;
}

void Waker::clear() const {
    char bytes[256];
    while (read(m_readEnd, bytes, sizeof(bytes)) > 0) {
    }
}

} // namespace vintok::platform
