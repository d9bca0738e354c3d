// The older message: the frame of version 1.3, with a 32-bit time stamp and an IPv4 origin, and the
// stream functions under their older names. New programs use TCPMessage and the functions of
// TCPStream.h, whose contracts hold here too; only what differs is said.
#ifndef VINTOK_TCPMESSAGE_1_3_H
#define VINTOK_TCPMESSAGE_1_3_H

#include "vintok/Export.h"
#include "vintok/TCPMessageBase.h"
#include "vintok/TCPStream.h"

#include <cstdint>

namespace vintok {

class TCPTransport;

// A message takes on the version of the frame that it reads. An IPv6 origin cannot be written.
class VINTOK_API TCPMessage_1_3 : public TCPMessageBase {
public:
    // As the function of this name, or of one like it, in TCPStream.h; the versions and the socket
    // as on TCPMessage.

    static constexpr std::uint16_t s_majorVersion = 1;
    static constexpr std::uint16_t s_minorVersion = 3;

    explicit TCPMessage_1_3(int socket = -1);

    // Of the class, not of the frame last read: 1 and 3.
    static unsigned short majorVersion();
    static unsigned short minorVersion();

    // The low 32 bits of the time stamp.
    unsigned int timeStamp32() const;
    // Network byte order; 0 when the origin has no IPv4 address.
    unsigned int originIPv4() const;

    static bool callStartUp();
    static bool callCleanUp();
    static TCPError getLastError();

    // Seconds. A time that does not fit in 32 bits is 0, not cut.
    static unsigned int getTime32();
    static unsigned int getAddTime32();
    static unsigned int getSubtractTime32();
    static bool addTime32(unsigned int seconds);
    static bool subtractTime32(unsigned int seconds);
    static bool zeroTime();

    static bool addSocketDescriptor(int descriptor, bool secure);
    static bool removeSocketDescriptor(int descriptor);
    static bool setSecure(int descriptor, bool secure);
    static bool setTransport(TCPTransport *transport);
    static TCPTransport *transport();

    static int acceptBoundSocket(int descriptor);
    static int acceptAndCloseBoundSocket(int &descriptor);
    static int connectLocal(unsigned short port);
    // `address` in network order, `port` in host order.
    static int connectToBoundSocketIPv4(unsigned int address, unsigned short port);

    static bool shutdownSocket(int descriptor);

    // A listening IPv4 socket, or -1. `port` in host order, the one that was taken comes back.
    // `first` is the backlog (0: the system's maximum), `count` how many ports to try. `mode`:
    // above 0 the loopback address, 0 this machine's own, below 0 every address. `address`, if not
    // null, gets this machine's address or the bound one, in network order.
    static int createBoundSocketIPv4(unsigned short &port, int first, int mode,
                                     unsigned int *address, int count);

    // Network byte order; 0 for a null name or one without an IPv4 address. Blocks while it asks.
    static unsigned int resolveIPv4(const char *name);

    static void setBlocking(int descriptor);
    static void setNonBlocking(int descriptor);
    static void setNoDelay(int descriptor);
    // A size below 1 is the library's own.
    static bool setSystemBuffers(int descriptor, int size);

    // False when nothing could be told; else `*count` can be read now.
    static bool pendingBytes(int descriptor, std::uint64_t *count);

    static std::int64_t secureBytesPending(int descriptor);

    // True only when all `length` bytes went; false for a null buffer or no length.
    static bool readBytes(int descriptor, unsigned char *buffer, std::uint64_t length,
                          TCPStatusCallback *status);
    static bool writeBytes(int descriptor, const unsigned char *buffer, std::uint64_t length,
                           TCPStatusCallback *status);
};

} // namespace vintok

#endif
