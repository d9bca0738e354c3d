// TLS as a change of bytes: what comes from a socket goes in, what belongs there comes out, and
// nothing here touches one. So a connection waits for its socket in one way, secure or not.
#ifndef MULTIPLEXER_SECURESTREAM_H
#define MULTIPLEXER_SECURESTREAM_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace mux {

// The side that accepts. The handshake happens by itself while bytes are opened.
class SecureStream {
public:
    virtual ~SecureStream() = default;

    // Takes bytes of the socket.
    virtual void feed(std::string_view sealed) = 0;
    enum class Result { bytes, more, ended, failed };
    // Up to `length` bytes of plaintext; `more` when they take more of the socket's.
    virtual Result open(char *buffer, std::size_t length, std::size_t &count) = 0;
    // Whether anything that was fed has not been opened.
    virtual bool hasBytes() const = 0;
    // What was fed and follows the peer's end: it is not part of the channel.
    virtual std::string takeRest() = 0;

    virtual bool seal(std::string_view bytes) = 0;
    // Says that nothing more will be sealed.
    virtual void close() = 0;
    // What is to be sent now. To be asked after each of the others.
    virtual std::string takeSealed() = 0;
};

class SecureContext {
public:
    virtual ~SecureContext() = default;
    // Null when there is no memory.
    virtual std::unique_ptr<SecureStream> accept() const = 0;
};

// From files in PEM form. Null, with the reason, when they are of no use or this program was built
// without TLS.
std::unique_ptr<SecureContext> makeSecureContext(const std::string &certificateFile,
                                                 const std::string &keyFile, std::string &failure);

} // namespace mux

#endif
