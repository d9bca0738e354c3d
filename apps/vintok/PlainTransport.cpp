#include "PlainTransport.h"

#include <vintok/TCPStream.h>

namespace app {

std::int64_t PlainTransport::securePeek(int fd, unsigned char *buffer, std::size_t length) {
    return vintok::rawPeekBytes(fd, buffer, length);
}

std::int64_t PlainTransport::secureRecv(int fd, unsigned char *buffer, std::size_t length) {
    return vintok::rawReadBytes(fd, buffer, length, true, nullptr);
}

std::int64_t PlainTransport::secureSend(int fd, const unsigned char *buffer, std::size_t length) {
    return vintok::rawWriteBytes(fd, buffer, length, true, nullptr);
}

bool PlainTransport::secureBytesPending(int fd, std::size_t *pending, bool) {
    const std::int64_t waiting = vintok::rawBytesPending(fd);
    *pending = waiting > 0 ? static_cast<std::size_t>(waiting) : 0;
    return waiting >= 0;
}

bool PlainTransport::secureStatus(int, std::size_t &value, std::string &text) {
    value = 0;
    text = "plain";
    return true;
}

bool PlainTransport::certificateInfo(int, vintok::TCPCertInfo &info) {
    info.clear();
    return true;
}

} // namespace app
