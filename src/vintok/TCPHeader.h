// One message as it goes over the wire, header and body in one run of bytes, with the header's
// fields beside it. The base is the message's origin address.
//
// Header of an IPv4 frame (major version 1), 36 bytes: total length 4, major version 2, minor
// version 2, origin IPv4 address 4, time 4, identifier 16, message major and minor version 2 + 2.
// Header of a long frame (any other major version), 60 bytes: total length 4, major version 2,
// minor version 2, time 8, identifier 16, message versions 2 + 2, origin address 24.
//
// Setters keep fields and bytes in step as long as there is a body; a message without one gets its
// fields into its bytes with `write`. Nothing here sets a `TCPError`; a message belongs to one
// thread and owns its bytes.
#ifndef VINTOK_TCPHEADER_H
#define VINTOK_TCPHEADER_H

#include "vintok/Export.h"
#include "vintok/RawBuffer.h"
#include "vintok/TCPAddress.h"
#include "vintok/TCPGUID.h"

#include <cstdint>

namespace vintok {

class VINTOK_API TCPHeader : public TCPAddress {
public:
    static constexpr std::uint16_t s_majorVersionIPv4 = 1; // of frames with the shorter header
    static constexpr std::uint64_t s_sizeIPv4 = 36;        // its bytes
    static const TCPGUID s_zeroID;                         // a new message's identifier

    // The versions are those of the frame's format.
    TCPHeader(std::uint16_t major, std::uint16_t minor);
    TCPHeader(const TCPAddress &origin, std::uint16_t major, std::uint16_t minor);

    // Copies of the fields and the bytes. Throw std::bad_alloc when there is no memory.
    TCPHeader(const TCPHeader &other);
    TCPHeader &operator=(const TCPHeader &other);

    // Replaces the origin alone.
    TCPHeader &operator=(const TCPAddress &origin);

    // ---- Sizes in bytes ----

    std::uint64_t headerSize() const;     // of this frame's own form
    std::uint64_t headerSizeIPv4() const; // 36
    std::uint64_t headerSizeIPv6() const; // 60

    // ---- Bytes ----

    // Makes room for a whole frame of `size` bytes, keeping those that are there; new ones are
    // zero. There is no body until `read` has found one. False for 4 GiB or more, changing nothing,
    // and where there is no memory.
    bool allocateRawBuffer(std::uint64_t size);

    // Makes an outgoing message with a body of `size` bytes: the bytes of the header are written
    // and its time is now. With a body of no bytes the identifier must be set before, as it is not
    // rewritten later. False where there is no memory, or for an IPv6 origin in an IPv4 frame.
    bool allocateMessageBuffer(std::uint64_t size);

    // The frame and its body, owned by the message. Null when there are none; valid until the next
    // allocation, read or assignment.
    unsigned char *rawBuffer() const;
    std::uint64_t rawBufferLength() const;
    unsigned char *messageBuffer() const;
    std::uint64_t messageBufferLength() const;

    // Take the fields from the bytes, and put them there. False for bytes that are no frame or do
    // not hold the header. `read` takes the form that arrives, and later writes then use that form;
    // the origin's name is lost. After a failure some fields may be those of the failed frame.
    bool read();
    bool write();

    // ---- Fields ----

    // Of the frame's format.
    std::uint16_t majorVersion() const;
    std::uint16_t minorVersion() const;

    const TCPGUID &messageID() const; // what the body is
    std::int64_t timeStamp() const;   // seconds, as `getTime` gives them

    // The sender's own, carried unchanged.
    std::uint16_t messageMajorVersion() const;
    std::uint16_t messageMinorVersion() const;

    // True unless there is a body and its frame could not be written.
    bool setMessageID(const TCPGUID &messageID);
    bool setMessageMajorVersion(std::uint16_t version);
    bool setMessageMinorVersion(std::uint16_t version);
    bool setTimeStamp(std::int64_t timeStamp);

    // The bytes of the frame as the buffer that holds them.
    const RawBuffer &rawBytes() const { return m_rawBuffer; }

protected:
    // Where the bytes of another frame are put; there is no body until `read` has found one.
    RawBuffer &mf_rawBytes();

    bool mf_allocBuffer();
    bool mf_ensureHeader(bool reallocate);
    bool mf_ensureMembers();
    bool mf_writeHeader();
    bool mf_readHeader();

private:
    void mf_readFields(const unsigned char *frame);
    void mf_adoptBuffer(const TCPHeader &other);
    template <typename T>
    bool mf_setField(T &field, T value);

    std::uint64_t m_messageBufferLength = 0;
    std::uint16_t m_majorVersion;
    std::uint16_t m_minorVersion;
    std::int64_t m_timeStamp = 0;
    TCPGUID m_messageID = s_zeroID;
    std::uint16_t m_messageMajorVersion = 0;
    std::uint16_t m_messageMinorVersion = 0;
    RawBuffer m_rawBuffer;
    unsigned char *m_messageBuffer = nullptr;
};

} // namespace vintok

#endif
