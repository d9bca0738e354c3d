// A stand-in for a secure channel on the way to a multiplexer. The library sends its request to a
// multiplexer on secure descriptors alone; a multiplexer without TLS then answers that the
// connection is to be plain. This transport lets such a descriptor count as secure and hands its
// bytes through as they are. Nothing is kept secret by it.
#ifndef VINTOK_APP_PLAINTRANSPORT_H
#define VINTOK_APP_PLAINTRANSPORT_H

#include <vintok/TCPTransport.h>

namespace app {

class PlainTransport final : public vintok::TCPTransport {
public:
    // Only a multiplexer is connected to by name. Whoever calls this party, and a proxy, stays
    // plain.
    bool secureAccept(int) override { return false; }
    bool secureConnect(int, const char *peerName) override { return peerName != nullptr; }

    std::int64_t securePeek(int fd, unsigned char *buffer, std::size_t length) override;
    std::int64_t secureRecv(int fd, unsigned char *buffer, std::size_t length) override;
    std::int64_t secureSend(int fd, const unsigned char *buffer, std::size_t length) override;
    bool secureBytesPending(int fd, std::size_t *pending, bool socketHasData) override;
    bool addSecureDescriptor(int) override { return true; }
    bool removeSecureDescriptor(int) override { return true; }
    bool secureStatus(int fd, std::size_t &value, std::string &text) override;
    bool certificateInfo(int fd, vintok::TCPCertInfo &info) override;
    vintok::SecureError lastSecureError(int) override { return vintok::SECURE_ERROR_NOT_SECURE; }
};

} // namespace app

#endif
