// A secure transport of which a test writes only what it is about: every operation succeeds, and
// nothing is ever moved.
#ifndef VINTOK_TESTS_SUPPORT_STUBTRANSPORT_H
#define VINTOK_TESTS_SUPPORT_STUBTRANSPORT_H

#include "vintok/TCPTransport.h"

namespace vintok::test {

class StubTransport : public TCPTransport {
public:
    bool secureAccept(int) override { return true; }
    bool secureConnect(int, const char *) override { return true; }
    std::int64_t securePeek(int, unsigned char *, std::size_t) override { return -1; }
    std::int64_t secureRecv(int, unsigned char *, std::size_t) override { return -1; }
    std::int64_t secureSend(int, const unsigned char *, std::size_t) override { return -1; }
    bool secureBytesPending(int, std::size_t *pending, bool) override {
        *pending = 0;
        return true;
    }
    bool addSecureDescriptor(int) override { return true; }
    bool removeSecureDescriptor(int) override { return true; }
    bool secureStatus(int, std::size_t &, std::string &) override { return true; }
    bool certificateInfo(int, TCPCertInfo &) override { return true; }
    SecureError lastSecureError(int) override { return SECURE_ERROR_NOT_SECURE; }
};

} // namespace vintok::test

#endif
