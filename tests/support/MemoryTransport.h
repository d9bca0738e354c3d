// A secure transport for tests, with the one trait of real ones that matters: it reads whole
// records off the socket and keeps what it has opened, so that bytes can be ready while the socket
// has none, and the socket can have some while no byte is ready. It hides nothing from anybody.
//
// A record is a length of two bytes, high first, and so many bytes, each with its bits turned by
// `key`. A handshake sends a greeting record and does not wait for the other side's, which is taken
// in with whatever comes first; so both ends can live on one thread.
#ifndef VINTOK_TESTS_SUPPORT_MEMORYTRANSPORT_H
#define VINTOK_TESTS_SUPPORT_MEMORYTRANSPORT_H

#include "vintok/TCPTransport.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace vintok::test {

class MemoryTransport : public TCPTransport {
public:
    static constexpr unsigned char key = 0x5A;
    static constexpr const char *greeting = "secure hello";

    // What a handshake does from now on.
    enum class Handshake {
        works,
        isRefused, // nothing is sent
        breaks,    // in the middle of the greeting
        isAbsent   // succeeds, but nothing is sent or expected
    };
    Handshake handshake = Handshake::works;

    bool takesDescriptors = true; // what addSecureDescriptor answers
    bool givesDescriptorsBack = true, answersPending = true;
    std::size_t recordSize = 1000; // what a send puts in one record, at most

    // What it was asked to do, in order: "add 5", "connect 5 example.org", "connect 5 (nobody)",
    // "accept 5", "remove 5". Bytes are not noted.
    std::vector<std::string> calls;
    unsigned pendingCalls = 0;
    std::set<int> descriptors; // that it has now
    SecureError error = static_cast<SecureError>(0);

    bool secureAccept(int fd) override;
    bool secureConnect(int fd, const char *peerName) override;
    std::int64_t securePeek(int fd, unsigned char *buffer, std::size_t length) override;
    // What is ready, up to `length`; waits for the first byte.
    std::int64_t secureRecv(int fd, unsigned char *buffer, std::size_t length) override;
    std::int64_t secureSend(int fd, const unsigned char *buffer, std::size_t length) override;
    bool secureBytesPending(int fd, std::size_t *pending, bool socketHasData) override;
    bool addSecureDescriptor(int fd) override;
    bool removeSecureDescriptor(int fd) override;
    // 128 and "memory".
    bool secureStatus(int fd, std::size_t &value, std::string &text) override;
    // The status is the descriptor.
    bool certificateInfo(int fd, TCPCertInfo &info) override;
    SecureError lastSecureError(int fd) override;

    // The bytes of one record, for a peer without a transport.
    static std::string record(const std::string &plain);

private:
    struct Channel {
        std::string raw;   // off the socket, not yet a whole record
        std::string plain; // opened, not yet read
        bool awaitsGreeting = false;
    };

    bool greet(int fd);
    // Reads what the socket has, without waiting, and opens the whole records.
    void takeIn(int fd);
    bool awaitPlain(int fd);

    std::map<int, Channel> m_channels;
};

} // namespace vintok::test

#endif
