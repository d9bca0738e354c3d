// The engine that moves one whole message: a call sends or delivers a complete frame, or it fails
// and leaves the stream as consistent as it can. Nothing of a message is kept between two calls.
//
// A message belongs to one thread. Errors are left in the calling thread's slot (`lastError`).
#ifndef VINTOK_TCPMESSAGEBASE_H
#define VINTOK_TCPMESSAGEBASE_H

#include "vintok/Export.h"
#include "vintok/TCPHeader.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace vintok {

class StreamBuffer;
class TCPStatusCallback;

// The address part of a message is its origin: where it says that it comes from.
class VINTOK_API TCPMessageBase : public TCPHeader {
public:
    // Receives one frame from `socket`, or with -1 from `socketDescriptor()`. `status`, which may
    // be null, hears of every step and may end the call by clearing `keepGoing`.
    //
    // False with TCP_ERROR_WOULD_BLOCK: fewer than 36 bytes had arrived, and none was taken; call
    // again when more have come. Once a frame has begun to arrive the call waits for the rest,
    // without limit. Other failures: TCP_ERROR_CORRUPT_HEADER (a length below 36, or a header
    // that does not decode; the bytes that waited are discarded), TCP_ERROR_OUT_OF_MEMORY,
    // TCP_ERROR_CONNECTION_RESET (closed or lost), TCP_ERROR_BAD_FILE_DESCRIPTOR (unknown, or a
    // listening socket).
    bool read(int socket, TCPStatusCallback *status);

    // Sends the frame, under the same convention for `socket` and `status`. Waits as long as a
    // living peer takes nothing. After a failure the peer may have received a part of the frame.
    bool write(int socket, TCPStatusCallback *status);

    // For the library: as `read`, from a connection with buffers. Never waits.
    bool readBuffered(StreamBuffer &buffer);

    // The same frames, back to back, in a file. A record that is cut short or malformed fails with
    // TCP_ERROR_CORRUPT_HEADER or the error that `errno` stands for. The caller keeps the stream.
    bool read(std::FILE *stream);
    bool write(std::FILE *stream);

    // Takes the fields from the bytes of the frame. False when they are not a whole header.
    bool readHeader();

    // The address part of the message; a new one is empty.
    const TCPAddress &originAddress() const;
    bool setOriginAddress(const TCPAddress &address);
    // With this host's own address; what `localAddress` answered.
    bool setOriginAddress();

    // As in the header. When the message has a body, the bytes of its frame change too.
    void setMessageID(const TCPGUID &id);
    void setMessageMajorVersion(std::uint16_t major);
    void setMessageMinorVersion(std::uint16_t minor);
    void setTimeStamp(std::int64_t time);

    // Where `read` and `write` go when they are given -1; -1 for nowhere. Not owned.
    int socketDescriptor() const { return m_socket; }
    void setSocketDescriptor(int socket) { m_socket = socket; }

    // Whether messages trace their reads and writes in the log, for the whole process.
    static bool printDebug();
    static void setPrintDebug(bool on);

protected:
    // `major` selects the form of the frame: 1 the header of 36 bytes, any other that of 60. The
    // first message of a process looks at TCP_MESSAGE_DEBUG in the environment: "True" turns
    // tracing on.
    TCPMessageBase(int socket, std::uint16_t major, std::uint16_t minor);

    // The bodies of `read` and `write`, for a descriptor that has been looked up.
    bool mf_readSocket(int socket, bool secure, TCPStatusCallback *status);
    bool mf_writeSocket(int socket, bool secure, TCPStatusCallback *status);

private:
    class Progress;

    std::int64_t mf_receive(int socket, bool secure, std::uint64_t pending, unsigned char *buffer,
                            std::size_t length, TCPStatusCallback *status) const;
    bool mf_readLength(int socket, bool secure, std::uint64_t pending, TCPStatusCallback *status);
    bool mf_readBody(int socket, bool secure, std::uint64_t pending, TCPStatusCallback *status);
    static void mf_readStep(Progress &progress, int socket, std::int64_t result);
    static bool mf_writeStep(Progress &progress, int socket, std::int64_t result);

    static std::atomic<bool> s_checkDebug; // the environment has not been looked at
    static std::atomic<bool> s_printDebug;

    int m_socket;
    bool m_rawSocket; // true would go past the descriptor table; every constructor makes it false
};

} // namespace vintok

#endif
