// The library frame and the stream layer: start and stop, errors, log, clock, descriptors, sockets,
// bytes, secure channels.
//
// Holds for every operation here, unless it says otherwise:
// - Failure is false, -1 or a null pointer. `lastError` of the calling thread then tells the kind,
//   and `lastErrorString` the context: the operation's name, and for a failure of the system a
//   newline and the row of the system error table. Success leaves `lastError` as it was.
// - Between `init` and `fini` it may be called on any thread. Otherwise it fails with
//   TCP_ERROR_NOT_INITIALIZED.
// - A lock that cannot be had gives TCP_ERROR_LOCK_FAILED. One that cannot be released gives
//   TCP_ERROR_UNLOCK_FAILED, but the operation has happened and its result stands.
// - A descriptor is an int; -1 means none. Counts are bytes. It does not block.
#ifndef VINTOK_TCPSTREAM_H
#define VINTOK_TCPSTREAM_H

#include "vintok/Export.h"
#include "vintok/TCPAddress.h"
#include "vintok/TCPBackgroundTransport.h"
#include "vintok/TCPTransport.h"

#include <cstddef>
#include <cstdint>
#include <string>

// Headers of the systems define some of the names below as macros. They get them back at the end.
#pragma push_macro("LOG_INFO")
#pragma push_macro("LOG_DEBUG")
#pragma push_macro("LOG_WARNING")
#pragma push_macro("SEVERITY_ERROR")
#undef LOG_INFO
#undef LOG_DEBUG
#undef LOG_WARNING
#undef SEVERITY_ERROR

namespace vintok {

class TCPStatusCallback;

// ---- Errors ----

// The kinds of failure.
enum TCPError : std::uint32_t {
    TCP_ERROR_NO_ERROR = 0,
    TCP_ERROR_UNSPECIFIED_ERROR = 1,   // what cannot be done now, among others: the text says it
    TCP_ERROR_NOT_INITIALIZED = 2,     // no `init`
    TCP_ERROR_WOULD_BLOCK = 3,         // cannot go on now: try again
    TCP_ERROR_BAD_FILE_DESCRIPTOR = 4, // unknown, invalid, or of the wrong kind
    TCP_ERROR_LOCK_FAILED = 5,
    TCP_ERROR_UNLOCK_FAILED = 6,
    TCP_ERROR_INTERRUPT = 7,        // a signal came in between
    TCP_ERROR_CONNECTION_RESET = 8, // the peer is gone
    TCP_ERROR_CONNECTION_REFUSED = 9,
    TCP_ERROR_MAX_DESCRIPTORS = 10,  // too many are open
    TCP_ERROR_OUT_OF_MEMORY = 11,    // memory or socket buffers
    TCP_ERROR_CORRUPT_HEADER = 12,   // a message's header failed its checks
    TCP_ERROR_SSL_TRANSPORT = 13,    // no secure transport, or it refused
    TCP_ERROR_STREAM_BUFFER = 14,    // socket buffers could not be set
    TCP_ERROR_INVALID_ADDRESS = 15,  // of no usable family, or nobody's
    TCP_ERROR_INVALID_ARGUMENT = 16, // null buffer or zero length
    TCP_ERROR_SYSTEM_ERROR = 17      // any other failure of the system
};

// Each thread has its own code and text, from its first use of the library to its end, whether the
// library is started or not. False, TCP_ERROR_NO_ERROR and an empty text when there is no memory
// for them or the thread is already taking its storage down.
VINTOK_API bool setLastError(TCPError code, const std::string &text);
VINTOK_API TCPError lastError();
// The context given with the code, never the code's name.
VINTOK_API std::string lastErrorString();
// "TCP_ERROR_CONNECTION_RESET" and so on; "??" for a number that is none of them. Never null.
VINTOK_API const char *errorName(TCPError code);

// On: every `setLastError` is logged too, at Error, or at Debug when it clears the error. For all
// threads; survives `fini`. The environment's VINTOK_ERROR_PRINT=True does the same at start-up.
VINTOK_API void setErrorDebug(bool on);

// The text of a row of the system error table (Winsock's numbers), which ends in a newline, or
// "Unknown Error". Never null; not to be freed.
VINTOK_API const char *sysErrorString(int code);

// ---- Log ----

// Which severities are written; each level includes those above it.
enum LogLevel : std::uint32_t {
    LOG_NONE = 0,
    LOG_FATAL = 1,
    LOG_ERROR = 3,
    LOG_WARNING = 7,
    LOG_INFO = 15,
    LOG_DEBUG = 31,
    LOG_TRACE = 63 // adds source file, line and function to every message and to error contexts
};

// Of one entry of the log: the bits of `LogLevel`.
enum ErrSeverity : std::uint32_t {
    SEVERITY_FATAL = 1,
    SEVERITY_ERROR = 2,
    SEVERITY_WARNING = 4,
    SEVERITY_INFO = 8,
    SEVERITY_DEBUG = 16,
    SEVERITY_TRACE = 32
};

// LOG_ERROR while the library is not started; from `init` on LOG_NONE, or what the environment's
// VINTOK_ERROR_LOG_LEVEL said ("NONE", "FATAL", "ERROR", "WARNING", "INFO", "DEBUG", "TRACE").
VINTOK_API LogLevel logLevel();
VINTOK_API bool setLogLevel(LogLevel level);

// Messages are appended to this file, which is opened and closed for each of them; an empty name
// means standard error. At start-up the environment's VINTOK_ERROR_LOG_FILE says it. Not while
// another thread may log. Always returns false, whether the name was stored or not.
VINTOK_API bool setLogFileName(const std::string &name);

// Entries that the level lets through go to the callback instead of standard error, as the bare
// message, on the thread that logs; a log file gets them as well. What the callback logs itself
// goes where it would without. Null: nowhere else. `data` is the application's own. For all
// threads; survives `fini`. Not while another thread may log.
using LogCallback = void (*)(ErrSeverity severity, const char *message, void *data);
VINTOK_API void setLogCallback(LogCallback callback, void *data);

// Writes one entry if the level lets it through: a line with prefix, process, thread and local
// time, then the message between lines of braces. True when the entry was written. Sets no error;
// trouble with the log goes to `perror`.
VINTOK_API bool logMessage(const char *message, ErrSeverity severity);

// A text of a stranger's as a log or a line can take it: each byte of a control character, those of
// the second set in UTF-8 too, stands as "\x1b", and what is longer than `most` bytes then is cut
// and ends in "...". Every other byte stays as it is.
VINTOK_API std::string visibleText(const std::string &text, std::size_t most = 4096);

// ---- Start and stop ----

// Starts the library, or joins it: the first call does the work, and each needs its `fini`, also
// one that returned false because this host's own name does not resolve. May block in the resolver.
// After TCP_ERROR_LOCK_FAILED, and when the socket layer of the system cannot be started, nothing
// was joined.
VINTOK_API bool init();

// The last call ends the library. Descriptors stay open and the transport is told nothing. False
// without an `init` to match, and when the lock could not be released.
VINTOK_API bool fini();

// ---- Clock ----

// Seconds since 1970-01-01 00:00:00 UTC by the system's clock, plus `getAddTime`, minus
// `getSubtractTime`. Never fails: before `init` it is the system's time, with the error set.
VINTOK_API std::int64_t getTime();

// Move the library's clock for the whole process. If more is subtracted than added, only the
// difference is kept. If more is added, all of that is kept and the subtracted time is dropped.
VINTOK_API bool addTime(std::int64_t seconds);
VINTOK_API bool subtractTime(std::int64_t seconds);
VINTOK_API bool zeroTime();

// Seconds; 0 also before `init`.
VINTOK_API std::int64_t getAddTime();
VINTOK_API std::int64_t getSubtractTime();

// ---- Descriptors ----

// The library moves bytes only over descriptors that it knows. Sockets that it creates, connects or
// accepts are known at once; a socket from elsewhere is made known with `addDescriptor`, which also
// sizes its buffers and makes it blocking. At most one of the three bound flags, IPv4 first, marks
// a listening socket, and `secure` then counts for nothing. A known descriptor stays as it is, but
// is made secure if asked. TCP_ERROR_SSL_TRANSPORT when the transport refuses,
// TCP_ERROR_STREAM_BUFFER when the socket does.
VINTOK_API bool addDescriptor(int fd, bool secure, bool boundIPv4, bool boundIPv6, bool boundUnix);

// Forgets it; the socket stays open. TCP_ERROR_BAD_FILE_DESCRIPTOR when it is unknown or below 1.
VINTOK_API bool removeDescriptor(int fd);

// True for a known open descriptor. Set all five outputs to false before the call. False with
// `closed` true: the peer is gone. False with `closed` false: unknown, and no output is written.
VINTOK_API bool descriptorState(int fd, bool &secure, bool &closed, bool &boundIPv4,
                                bool &boundIPv6, bool &boundUnix);

// Marks the peer as gone, for good. False without an error for an unknown descriptor.
VINTOK_API bool setClosed(int fd);

// Switches between plain and secure without a handshake, and tells the transport. Back to plain
// happens even when the transport refuses, with TCP_ERROR_SSL_TRANSPORT and false.
VINTOK_API bool setSecure(int fd, bool secure);

// Forgets the descriptor and closes the socket at once; the result is that of `removeDescriptor`.
VINTOK_API bool closeDescriptor(int fd);

// ---- Sockets ----

// Listens on `address`; the type decides where the address leaves the family open. `backlog` 0 is
// the system's maximum. Tries as many consecutive ports as `tries` says, from the address's own (0
// tries: fails). `flag` has no effect. On success the address holds what was bound, this host's own
// address in place of a wildcard. IPv6 listeners take no IPv4. Returns the descriptor, or -1 with
// TCP_ERROR_SYSTEM_ERROR; a path, address or `tries` that cannot be used gives -1 with no error.
VINTOK_API int createBoundSocket(TCPAddress &address, int backlog, std::size_t tries, bool flag,
                                 TCPAddress::IPType type);

// The same on all interfaces, and on the loopback address. `port` is in host byte order and becomes
// the one that was taken; of `address` only the port counts. `createLocalSocket` takes the family
// that this host has, IPv4 first.
VINTOK_API int createIPv4Socket(unsigned short &port, int backlog, std::size_t tries, bool flag);
VINTOK_API int createIPv4Socket(TCPAddress &address, int backlog, std::size_t tries, bool flag);
VINTOK_API int createIPv6Socket(unsigned short &port, int backlog, std::size_t tries, bool flag);
VINTOK_API int createIPv6Socket(TCPAddress &address, int backlog, std::size_t tries, bool flag);
VINTOK_API int createLocalIPv4Socket(unsigned short &port, int backlog, std::size_t tries,
                                     bool flag);
VINTOK_API int createLocalIPv6Socket(unsigned short &port, int backlog, std::size_t tries,
                                     bool flag);
VINTOK_API int createLocalSocket(unsigned short &port, int backlog, std::size_t tries, bool flag);

// `path` is at most 107 bytes and must not exist.
VINTOK_API int createUnixSocket(const std::string &path, int backlog, bool flag);

// Connects, blocking as long as the system takes, or as `setConnectTimeout` says. -1 with
// TCP_ERROR_CONNECTION_REFUSED, TCP_ERROR_OUT_OF_MEMORY, TCP_ERROR_MAX_DESCRIPTORS or
// TCP_ERROR_SYSTEM_ERROR; with no error when the address holds nothing to connect to. `port` is in
// host byte order, on the loopback address.
VINTOK_API int connectToBoundSocket(const TCPAddress &address);
VINTOK_API int connectLocal(unsigned short port);
VINTOK_API int connectUnix(const std::string &path);

// Bounds how long each connect of the process waits for an answer, in milliseconds, that of
// `placeCall` too. 0, as at the start: as long as the system does, which may be minutes. What takes
// longer fails with TCP_ERROR_SYSTEM_ERROR and the row "Connection timed out.".
// False when the library is not started; the end of the library sets it back.
VINTOK_API bool setConnectTimeout(std::uint32_t milliseconds);

// How long the other side of a connection may show no sign of life, in milliseconds, in the whole
// process, for connections that are made or accepted from now on; 0, as at the start: as long as
// the system waits, which may be for ever. The systems ask each other when nothing is said; the
// application on the other side need not do anything. When nothing has come for so long, or what
// was sent has not been taken for so long, the connection has ended. Systems round up to seconds.
// False when the library is not started; the end of the library sets it back.
VINTOK_API bool setPeerTimeout(std::uint32_t milliseconds);

// Accepts one connection, blocking until there is one. `peer` becomes its address and stays as it
// was on a local socket. -1 with TCP_ERROR_CONNECTION_RESET, TCP_ERROR_BAD_FILE_DESCRIPTOR (also
// for a socket that does not listen), TCP_ERROR_INTERRUPT or TCP_ERROR_SYSTEM_ERROR.
VINTOK_API int acceptBoundSocket(int fd, TCPAddress &peer);
VINTOK_API int acceptBoundSocket(int fd);
// On success also closes the listening socket and sets `fd` to -1.
VINTOK_API int acceptAndCloseBoundSocket(int &fd);

// Ends the connection both ways, discards what had arrived, forgets the descriptor and closes it. A
// listening socket is only forgotten and closed. True when the descriptor was known and open.
VINTOK_API bool shutdownSocket(int fd);

// Refusals of the system are not told.
VINTOK_API void setNoDelay(int fd);
VINTOK_API void setNonBlocking(int fd);
VINTOK_API void setBlocking(int fd);

// Asks for `size` bytes of buffer each way, at least 4096; 0 asks for 32767. Also makes the socket
// blocking and sends without delay. A smaller grant is fine from 512 bytes up.
VINTOK_API bool setSystemBuffers(int fd, std::size_t size);

// This host's own address, as `init` found it or the application set it; the port of the argument
// stays as it is, and the own address keeps port 0. Before `init`, `localAddress` is false but
// still resolves the address. TCP_ERROR_INVALID_ADDRESS for one that is neither IPv4 nor IPv6.
VINTOK_API bool localAddress(TCPAddress &address);
VINTOK_API bool setLocalAddress(const TCPAddress &address);

// ---- Bytes ----

// The checked operations serve known connections, plain and secure. Others are refused:
// TCP_ERROR_BAD_FILE_DESCRIPTOR for an unknown or listening descriptor, TCP_ERROR_CONNECTION_RESET
// for one whose peer is gone. The `raw` ones go straight to the socket and ask no table.

// Read and write transfer all of `length`, blocking until that is done or the socket fails. Less
// than `length` means that it ended early, -1 that nothing was transferred; `lastError` then tells
// why. TCP_ERROR_WOULD_BLOCK may also be left after a success on a non-blocking socket. A peer that
// is found gone marks the descriptor closed. `status` may be null, and is not used on secure
// descriptors, where the transport's results are passed on, 0 when none is installed. -1 with no
// error for a null buffer or zero length, which the raw ones call TCP_ERROR_INVALID_ARGUMENT.
VINTOK_API std::int64_t readBytes(int fd, unsigned char *buffer, std::size_t length,
                                  TCPStatusCallback *status);
VINTOK_API std::int64_t writeBytes(int fd, const unsigned char *buffer, std::size_t length,
                                   TCPStatusCallback *status);

// Without `wait`, the read returns -1 at once and with no error when nothing has arrived, and the
// write gives up after the first pause when the socket would block.
VINTOK_API std::int64_t rawReadBytes(int fd, unsigned char *buffer, std::size_t length, bool wait,
                                     TCPStatusCallback *status);
VINTOK_API std::int64_t rawWriteBytes(int fd, const unsigned char *buffer, std::size_t length,
                                      bool wait, TCPStatusCallback *status);

// Copies what has arrived and leaves it to be read. Never blocks: -1 with TCP_ERROR_WOULD_BLOCK
// when there is nothing, on a secure descriptor also when there is less than `length`. A stream
// that the peer has ended is found here: -1 with TCP_ERROR_CONNECTION_RESET, and the descriptor is
// closed from then on.
VINTOK_API std::int64_t peekBytes(int fd, unsigned char *buffer, std::size_t length);
VINTOK_API std::int64_t rawPeekBytes(int fd, unsigned char *buffer, std::size_t length);

// Bytes that can be read now, or -1. The second refuses secure descriptors and the third plain
// ones.
VINTOK_API std::int64_t bytesPending(int fd);
VINTOK_API std::int64_t socketBytesPending(int fd);
VINTOK_API std::int64_t secureBytesPending(int fd);
VINTOK_API std::int64_t rawBytesPending(int fd);

// Discard up to `count` bytes that have arrived. The number, or -1 for none.
VINTOK_API std::int64_t clearSocket(int fd, std::size_t count);
VINTOK_API std::int64_t rawClearSocket(int fd, std::size_t count);

// Waits, without limit, until the socket has room to be written to, or has failed. Meanwhile the
// connections of this thread's participants and servers take in what arrives, so that two ends that
// write at once do not wait for each other; nobody is called. For a TCPTransport whose `secureSend`
// finds no room: its reading operations may be called for the same descriptor from within.
VINTOK_API void awaitRoom(int fd);

// ---- Buffers for messages ----

// Gives a connection that the table knows, and over which messages come, buffers of its own. From
// then on, for the `TCPSelect` of this thread, it can be read when a whole message is there, what
// is no message, or the end, so nobody waits inside a message; `TCPMessage::read` takes it, one at
// a time, and gives TCP_ERROR_WOULD_BLOCK where there is none.
//
// A message of more than `longest` bytes, header included, is passed over without being stored: the
// read gives TCP_ERROR_CORRUPT_HEADER, and messages behind it come whole. 0: any length.
//
// A write returns at once while no more than `unsent` bytes wait to be sent, which the thread's
// loop sends as the peer takes them; beyond that it waits. 0: a write waits until its own bytes are
// sent.
//
// False with an error when the table does not know the descriptor, it is bound, or there is no
// memory.
VINTOK_API bool bufferMessages(int fd, std::uint64_t longest, std::uint64_t unsent);

// Sends what waits to be sent, for at most so many milliseconds. Whether all of it is sent; true
// for a connection without buffers.
VINTOK_API bool awaitSent(int fd, int milliseconds);

// ---- Secure channels ----

// The one transport of the process, not owned; null takes it out. False without an error before
// `init`.
VINTOK_API bool setTransport(TCPTransport *transport);
VINTOK_API TCPTransport *transport();
// What that transport can do without waiting, for those who ask for it: connections with limits on
// what waits to be sent, and `ConferenceParticipant::setBackgroundHandshakes`. `setTransport` takes
// it out. False as above.
VINTOK_API bool setBackgroundTransport(TCPBackgroundTransport *transport);

// The handshake, as client or as server, on a connected descriptor; blocks as the transport does.
// An empty name is passed on as none. On failure the descriptor is plain again and can be used;
// TCP_ERROR_SSL_TRANSPORT when no transport is installed, otherwise the error is the transport's.
VINTOK_API bool secureConnect(int fd, const std::string &peerName);
VINTOK_API bool secureAccept(int fd);

// The transport's answers for a secure descriptor. On an open descriptor that is not secure, or
// with no transport, the first two return true and leave their outputs alone; only `secureStatus`
// sets an error.
VINTOK_API bool secureStatus(int fd, std::size_t &value, std::string &text);
VINTOK_API bool certificateInfo(int fd, TCPCertInfo &info);
// Otherwise one of the three values of the library.
VINTOK_API SecureError lastSecureError(int fd);

} // namespace vintok

#pragma pop_macro("SEVERITY_ERROR")
#pragma pop_macro("LOG_WARNING")
#pragma pop_macro("LOG_DEBUG")
#pragma pop_macro("LOG_INFO")

#endif
