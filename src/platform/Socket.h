// Sockets as the stream layer needs them: one call of the operating system behind each function, no
// retry, no logging, no policy. A descriptor is an int, -1 means none. After a failure
// `socketError()` tells why, in the numbers of the system error table.
#ifndef VINTOK_PLATFORM_SOCKET_H
#define VINTOK_PLATFORM_SOCKET_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vintok::platform {

// Address families, by the numbers that the library speaks; the system's own may differ.
enum Family : int { FAMILY_LOCAL = 1, FAMILY_IPV4 = 2, FAMILY_IPV6 = 23 };

// The longest path of a local socket, its zero byte not counted.
inline constexpr std::size_t maxLocalPath = 107;

// An endpoint as bind, connect and accept take it. What the family does not use is ignored.
struct Endpoint {
    Family family = FAMILY_IPV4;
    std::uint32_t ipv4 = 0;                 // network byte order
    std::array<std::uint16_t, 8> ipv6 = {}; // network byte order
    std::uint16_t port = 0;                 // network byte order
    std::string path;                       // local family only
};

// Starts the socket layer with a wanted version word (low byte major, high byte minor). On success
// `granted` is the version word that was given. Systems that need no start grant what was asked.
bool startSockets(std::uint16_t wanted, std::uint16_t &granted);
void stopSockets();

// The calling thread's last socket error, in the numbers of the system error table. A call that
// succeeds leaves it standing, but 0 follows a receive or peek that met the end of the stream.
// Where the system's own numbers are those of the table they come as they are. Elsewhere each error
// becomes its like-named row, a write after the end 10058, and five stay the plain numbers that the
// byte layer asks for: 4 interrupted, 9 bad descriptor, 12 no memory, 22 invalid, 24 too many
// descriptors.
int socketError();

// Sets what `socketError()` will say: for whoever stands in for a socket call on this thread.
void setSocketError(int error);

// A new stream socket that children do not inherit. Never 0, 1 or 2, which the standard streams own
// even when they are closed.
int openSocket(Family family);
bool closeSocket(int descriptor);
bool shutdownBoth(int descriptor);
// Ends our side of the stream; the peer's side stays open.
bool shutdownSending(int descriptor);

// A local path that is empty or above `maxLocalPath` is refused with 10014.
bool bindSocket(int descriptor, const Endpoint &endpoint);
bool listenSocket(int descriptor, int backlog);
bool connectSocket(int descriptor, const Endpoint &endpoint);
// How a connect that did not wait has ended, once the descriptor can be written. Takes the error.
bool connectSucceeded(int descriptor);

// `family` is the listener's. On success `peer` is filled, its path excepted.
int acceptSocket(int descriptor, Family family, Endpoint &peer);

// The socket's own end, its path excepted: tells which port the system gave to a bind to port 0.
bool boundEndpoint(int descriptor, Family family, Endpoint &endpoint);

// Both return the count, 0 at the end of the stream, or -1.
std::int64_t receive(int descriptor, unsigned char *buffer, std::size_t length);
std::int64_t peek(int descriptor, unsigned char *buffer, std::size_t length);

// Returns the count or -1. Raises no signal when the peer is gone.
std::int64_t send(int descriptor, const unsigned char *buffer, std::size_t length);

// The same for an owner who does the waiting: they never wait, whatever mode the descriptor is in.
// -1 with 10035 when nothing can be moved now.
std::int64_t receiveNow(int descriptor, unsigned char *buffer, std::size_t length);
std::int64_t sendNow(int descriptor, const unsigned char *buffer, std::size_t length);

// The same with bytes that lie in several places: sent as if they lay one behind the other.
struct Piece {
    const unsigned char *bytes;
    std::size_t length;
};
std::int64_t sendNow(int descriptor, const Piece *pieces, std::size_t count);

// How many bytes can be received now.
bool bytesWaiting(int descriptor, std::size_t &count);

bool setBlockingMode(int descriptor, bool blocking);
bool setNoDelayOption(int descriptor);
// Lets the connection fail when its other side has been silent so long though it was asked, or has
// not taken what was sent. Systems round up to seconds.
bool setPeerTimeout(int descriptor, std::uint32_t milliseconds);

// Nobody else may listen on the port; a port that only waits out old connections may be taken.
bool setExclusiveAddress(int descriptor);
bool setIPv6Only(int descriptor);

bool setReceiveBuffer(int descriptor, int size);
bool receiveBuffer(int descriptor, int &size);
bool setSendBuffer(int descriptor, int size);
bool sendBuffer(int descriptor, int &size);

} // namespace vintok::platform

#endif
