// The seam for a secure channel: what an application implements and installs with `setTransport`.
#ifndef VINTOK_TCPTRANSPORT_H
#define VINTOK_TCPTRANSPORT_H

#include "vintok/Export.h"
#include "vintok/TCPCertInfo.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace vintok {

// What `lastSecureError` answers. These three come from the library, every other value from the
// transport, which gives them their meaning.
enum SecureError : std::uint32_t {
    SECURE_ERROR_NO_TRANSPORT = 1,
    SECURE_ERROR_BAD_DESCRIPTOR = 16,
    SECURE_ERROR_NOT_SECURE = 32
};

// Once a descriptor is secure, all its bytes go through the installed transport. The application
// owns the transport; it must outlive every secure descriptor and be replaced only while none
// carries traffic. Calls come on the thread of whoever called the library and are not serialized
// across descriptors. A failing operation sets the error itself, with `setLastError`.
class VINTOK_API TCPTransport {
public:
    // The whole handshake, as server or as client, on a connected descriptor that was added before.
    // True when it is done; after false the descriptor falls back to plain. `peerName` is null when
    // the caller named nobody. May block.
    virtual bool secureAccept(int fd) = 0;
    virtual bool secureConnect(int fd, const char *peerName) = 0;

    // Copies `length` bytes of plaintext and leaves them to be read. Called only with a length that
    // `secureBytesPending` covers. The count, or negative.
    virtual std::int64_t securePeek(int fd, unsigned char *buffer, std::size_t length) = 0;

    // The results are passed on as those of `readBytes` and `writeBytes`: the count, which may be
    // less than `length`, or negative.
    virtual std::int64_t secureRecv(int fd, unsigned char *buffer, std::size_t length) = 0;
    virtual std::int64_t secureSend(int fd, const unsigned char *buffer, std::size_t length) = 0;

    // Stores how many bytes of plaintext can be read now. `socketHasData`: the last answer was 0,
    // but the socket holds raw bytes; take them in first.
    virtual bool secureBytesPending(int fd, std::size_t *pending, bool socketHasData) = 0;

    // A descriptor becomes secure, or stops being so while its socket still works. Locks of the
    // library are held: neither may call an operation on descriptors.
    virtual bool addSecureDescriptor(int fd) = 0;
    virtual bool removeSecureDescriptor(int fd) = 0;

    // For the application, passed through as they are.
    virtual bool secureStatus(int fd, std::size_t &value, std::string &text) = 0;
    virtual bool certificateInfo(int fd, TCPCertInfo &info) = 0;
    virtual SecureError lastSecureError(int fd) = 0;

protected:
    // The library never deletes one: not virtual.
    ~TCPTransport() = default;
};

} // namespace vintok

#endif
