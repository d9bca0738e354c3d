// What a secure channel can offer beside `TCPTransport`: handshakes and sending that never wait.
// Installed with `setBackgroundTransport`, for a transport that is installed already.
#ifndef VINTOK_TCPBACKGROUNDTRANSPORT_H
#define VINTOK_TCPBACKGROUNDTRANSPORT_H

#include "vintok/Export.h"

#include <cstddef>
#include <cstdint>

namespace vintok {

// No operation waits. Until a handshake is done the others may be called for its descriptor, and
// then fail. What is said of ownership and threads in TCPTransport.h holds here, too.
class VINTOK_API TCPBackgroundTransport {
public:
    // How far a handshake is.
    enum class Progress {
        done,         // the descriptor is secure
        plain,        // the peer has no secure channel: nothing was sent, and no byte was taken
        failed,       // there is no way back: the connection is to be closed
        waitsToRead,  // until the socket can be read, has ended or failed
        waitsToWrite, // until it has room, has ended or failed
        waits         // for the time alone
    };
    // And when it is to go on.
    struct Step {
        Progress progress; // the time counts where it waits
        // After so many it goes on in any case; 0: there is no such time.
        std::uint32_t milliseconds;
    };

    // As `secureAccept` and `secureConnect`, on a connected descriptor that was added before, as
    // far as it goes now. Bounding the time of all of it is up to the transport.
    virtual Step beginAccept(int fd) = 0;
    virtual Step beginConnect(int fd, const char *peerName) = 0;
    // Goes on with what was begun: when the socket is ready, or the time is over. It may be called
    // when neither is so. No longer once the descriptor was removed.
    virtual Step continueHandshake(int fd) = 0;

    // As `secureSend`, but only what can be sent now: the count, 0 when there is no room, or
    // negative. What is not counted is to be given again, as the beginning of the next call or of
    // the next `secureSend`: a part of its record may have been sent.
    virtual std::int64_t sendNow(int fd, const unsigned char *buffer, std::size_t length) = 0;

protected:
    // The library never deletes one: not virtual.
    ~TCPBackgroundTransport() = default;
};

} // namespace vintok

#endif
