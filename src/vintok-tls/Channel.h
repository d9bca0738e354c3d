// One connection under TLS: OpenSSL's object between the socket and two buffers.
#ifndef VINTOK_TLS_CHANNEL_H
#define VINTOK_TLS_CHANNEL_H

#include "vintok-tls/OpenSSL.h"
#include "vintok/TCPCertInfo.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vintok::tls {

// Reads never wait; `write` waits until all is sent, and the library may read meanwhile. One thread
// may read while another one writes.
class Channel {
public:
    explicit Channel(int descriptor);
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    enum class Progress {
        done,
        waitsToRead,
        waitsToWrite,
        ended // `failure` tells why
    };

    // The handshake, which a thread does alone: `begin` once, then `shake` until it is done.
    void begin(Connection connection);
    Progress shake();
    bool isUp() const;

    // Up to `length` bytes of plaintext, at least one when it is done.
    Progress read(unsigned char *buffer, std::size_t length, std::size_t &count);
    // Copies `length` bytes that `pending` covers, or fails.
    bool peek(unsigned char *buffer, std::size_t length) const;
    // Opens what the socket has, up to a bound; returns how many bytes of plaintext are ready.
    std::size_t takeIn();
    std::size_t pending();

    // All or nothing; `last` adds the close of the channel to the same write.
    bool write(const unsigned char *buffer, std::size_t length, bool last);
    // What there is room for: the count, or -1. What is not counted is given again, as the
    // beginning of the next write of either kind: a part of its record may be on its way.
    std::int64_t writeNow(const unsigned char *buffer, std::size_t length);

    // Says the close, without waiting, unless the channel has failed or somebody writes. Looks
    // first whether the peer has ended the stream without one, and then `failure` says so.
    void close();

    Failure failure() const;
    // The failure of a channel that was up and was not closed in order; told once.
    Failure takeBreak();
    void fail(const Failure &failure);
    std::size_t strength(std::string &text) const;
    void describePeer(TCPCertInfo &info) const;

private:
    friend struct SocketBio;
    class Writing;
    int receive(BIO *bio, char *buffer, int length);
    std::int64_t receiveRaw(unsigned char *buffer, std::size_t length);
    int hold(const char *buffer, int length);

    Progress explain(int result);
    Progress openRecord(unsigned char *buffer, std::size_t &count);
    void keep(const unsigned char *plain, std::size_t length);
    bool encrypt(const unsigned char *buffer, std::size_t length);
    enum class Flushed { all, some, failed };
    Flushed flush(bool wait);
    void flushAside();
    std::size_t ready() const { return m_plain.size() - m_taken; }
    std::size_t take(unsigned char *buffer, std::size_t length);

    const int m_descriptor;

    mutable std::mutex m_lock; // of all that follows, up to the next one
    Connection m_connection;
    bool m_up = false;
    bool m_socketEnded = false;
    int m_firstByte = -1; // that the peer sent
    std::string m_socketFailure;
    Failure m_failure;
    bool m_breakTaken = false;
    std::vector<unsigned char> m_plain; // opened, of which `m_taken` have been read
    std::size_t m_taken = 0;
    std::unique_ptr<unsigned char[]> m_raw; // off the socket, of which OpenSSL has taken a part
    std::size_t m_rawTaken = 0;
    std::size_t m_rawEnd = 0;
    bool m_exact = false;                // takes no byte of the stream that OpenSSL did not ask for
    std::vector<unsigned char> m_sealed; // not yet handed to the writer

    // Of what is on its way; taken before `m_lock`. Whoever writes may read meanwhile, and would
    // then find the lock taken by itself.
    std::mutex m_writing;
    std::atomic<std::thread::id> m_writer{};
    std::vector<unsigned char> m_sending;
    std::size_t m_sent = 0;
    std::size_t m_uncounted =
        0; // plaintext that is sealed in there, and that `writeNow` has not counted
};

} // namespace vintok::tls

#endif
