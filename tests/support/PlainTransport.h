// A secure transport that changes nothing: descriptors count as secure, and a peer without a
// transport reads what goes over them.
#ifndef VINTOK_TESTS_SUPPORT_PLAINTRANSPORT_H
#define VINTOK_TESTS_SUPPORT_PLAINTRANSPORT_H

#include "support/StubTransport.h"
#include "vintok/TCPStream.h"

#include <string>
#include <vector>

namespace vintok::test {

class PlainTransport : public StubTransport {
public:
    // Whether a handshake works with a peer that is named, and with one that is not.
    bool connectsByName = true;
    bool connectsUnnamed = false;
    std::vector<std::string> names; // that were connected to
    int removed = 0;

    bool secureConnect(int, const char *peerName) override {
        if (peerName == nullptr)
            return connectsUnnamed;
        names.emplace_back(peerName);
        return connectsByName;
    }
    bool secureAccept(int) override { return false; }
    std::int64_t securePeek(int fd, unsigned char *buffer, std::size_t length) override {
        return rawPeekBytes(fd, buffer, length);
    }
    std::int64_t secureRecv(int fd, unsigned char *buffer, std::size_t length) override {
        return rawReadBytes(fd, buffer, length, true, nullptr);
    }
    std::int64_t secureSend(int fd, const unsigned char *buffer, std::size_t length) override {
        return rawWriteBytes(fd, buffer, length, true, nullptr);
    }
    bool secureBytesPending(int fd, std::size_t *pending, bool) override {
        const std::int64_t waiting = rawBytesPending(fd);
        *pending = waiting > 0 ? static_cast<std::size_t>(waiting) : 0;
        return waiting >= 0;
    }
    bool removeSecureDescriptor(int) override {
        ++removed;
        return true;
    }
};

} // namespace vintok::test

#endif
