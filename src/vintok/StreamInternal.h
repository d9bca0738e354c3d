// The state of the process, and the functions of the stream layer that its units share.
#ifndef VINTOK_STREAMINTERNAL_H
#define VINTOK_STREAMINTERNAL_H

#include "vintok/Log.h"
#include "vintok/TCPAddress.h"
#include "vintok/TCPMutex.h"
#include "vintok/TCPStream.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

namespace vintok {

class StreamBuffer;

enum DescriptorFlag : std::uint32_t {
    DESC_SECURE = 1,
    DESC_CLOSED = 2,
    DESC_BOUND_IPV4 = 4,
    DESC_BOUND_IPV6 = 8,
    DESC_BOUND_UNIX = 16,
    DESC_BOUND = DESC_BOUND_IPV4 | DESC_BOUND_IPV6 | DESC_BOUND_UNIX
};

struct DescriptorEntry {
    std::int32_t fd;
    std::uint32_t flags;
    std::shared_ptr<StreamBuffer> buffer; // see `bufferFrames`; null for most
};

// The one record of the process, from the first `init` to the last `fini`. What readers look at
// without a lock is atomic; the address and the log file name are the caller's to keep quiet.
struct Globals {
    TCPAddress m_localAddress;                              // port 0
    std::unordered_map<int, DescriptorEntry> m_descriptors; // by number; lock id 1
    std::atomic<std::size_t> m_buffered{0};                 // rows that have buffers
    std::atomic<std::size_t> m_secure{0};                   // rows that are secure
    std::atomic<TCPTransport *> m_transport{nullptr};
    std::atomic<TCPBackgroundTransport *> m_background{nullptr};
    std::atomic<std::int64_t> m_addTime{0};
    std::atomic<std::int64_t> m_subtractTime{0};
    std::atomic<std::uint32_t> m_connectTimeout{0}; // milliseconds, as the next
    std::atomic<std::uint32_t> m_peerTimeout{0};
    std::atomic<LogLevel> m_logLevel{LOG_NONE};
    std::string m_logFileName;
};

extern std::atomic<Globals *> s_globals;
extern std::atomic<std::uint64_t> s_startUpCount; // unmatched calls of `init`; lock id 7

// The record when the library is started and has one, else null.
inline Globals *startedGlobals() {
    return s_startUpCount.load() != 0 ? s_globals.load() : nullptr;
}

// The answer of `descriptorState`, asked when this is made.
struct DescriptorState {
    explicit DescriptorState(int fd, const SourcePlace &place = SourcePlace::caller());

    bool bound() const { return boundIPv4 || boundIPv6 || boundUnix; }

    bool secure = false;
    bool closed = false;
    bool boundIPv4 = false;
    bool boundIPv6 = false;
    bool boundUnix = false;
    bool known; // and not closed
    std::shared_ptr<StreamBuffer> buffer;
};

enum LockId : int {
    LOCK_DESCRIPTORS = 1,
    LOCK_TRANSPORT = 3,
    LOCK_LOCAL_ADDRESS = 4,
    LOCK_CLOCK = 5,
    LOCK_START_UP = 7,
    LOCK_CONTROL_PROCESS = 10,
    LOCK_SELECT_BASE = 11,
    LOCK_SIGNAL_SAFE = 12
};

// A lock from here on, if it could be had, and to the end of the scope at the latest: whatever is
// thrown in between, others are not shut out.
class HeldLock {
public:
    explicit HeldLock(TCPMutex &mutex) : m_mutex(mutex), m_held(mutex.lock() == 0) {}
    ~HeldLock() { release(); }
    HeldLock(const HeldLock &) = delete;
    HeldLock &operator=(const HeldLock &) = delete;

    explicit operator bool() const { return m_held; }
    // False when the unlock failed.
    bool release() { return !std::exchange(m_held, false) || m_mutex.unlock() == 0; }

private:
    TCPMutex &m_mutex;
    bool m_held;
};

// The result of `operation`, run with `mutex` held, or false when that could not be had or there is
// no memory. All of this is reported as of the operation `name`, with a text of its own for the
// lock where there is one; a failed unlock does not undo what was done.
template <typename Operation>
bool underLock(TCPMutex &mutex, const ErrorContext &lockFailed, const ErrorContext &name,
               Operation operation, const SourcePlace &place = SourcePlace::caller()) {
    HeldLock lock(mutex);
    if (!lock) {
        errorAt(place, TCP_ERROR_LOCK_FAILED, lockFailed);
        return false;
    }
    bool result = false;
    try {
        result = operation();
    } catch (const std::bad_alloc &) {
        errorAt(place, TCP_ERROR_OUT_OF_MEMORY, name);
    }
    if (!lock.release())
        errorAt(place, TCP_ERROR_UNLOCK_FAILED, name);
    return result;
}

template <typename Operation>
bool underLock(TCPMutex &mutex, const ErrorContext &name, Operation operation,
               const SourcePlace &place = SourcePlace::caller()) {
    return underLock(mutex, name, name, operation, place);
}

// The bytes of a plain socket. What `readBytes`, `writeBytes` and so on come down to, without
// asking the descriptor table.
std::int64_t sf_socketRecv(int fd, unsigned char *buffer, std::size_t length, bool wait,
                           TCPStatusCallback *status);
// The same with waiting, for a caller that has just asked how much is pending: spares the question.
std::int64_t sf_socketRecvPending(int fd, unsigned char *buffer, std::size_t length,
                                  std::size_t pending, TCPStatusCallback *status);
std::int64_t sf_socketSend(int fd, const unsigned char *buffer, std::size_t length, bool wait,
                           TCPStatusCallback *status);
std::int64_t sf_socketPeek(int fd, unsigned char *buffer, std::size_t length);
bool sf_socketBytesPending(int fd, std::size_t &pending);
std::int64_t sf_clearSocket(int fd, std::size_t count);

// What a transfer that moved `total` bytes returns.
inline std::int64_t countOrFailure(std::size_t total) {
    return total != 0 ? static_cast<std::int64_t>(total) : -1;
}

// How much the two that discard bytes take at a time, and how often they try for `count` bytes.
inline constexpr std::size_t clearChunk = 4096;
inline std::size_t clearPasses(std::size_t count) {
    return count / clearChunk + 10;
}

// The bytes of a secure descriptor, through the transport.
std::int64_t sf_secureRecv(int fd, unsigned char *buffer, std::size_t length);
std::int64_t sf_secureSend(int fd, const unsigned char *buffer, std::size_t length);
std::int64_t sf_securePeek(int fd, unsigned char *buffer, std::size_t length);
bool sf_secureBytesPending(int fd, std::size_t &pending);

// What the transport can do without waiting; null when it cannot.
TCPBackgroundTransport *backgroundTransport();

// A handshake that goes on in the background: begun and continued as far as it goes. Once it is
// plain or has failed the descriptor is not secure any more.
TCPBackgroundTransport::Step beginHandshake(int fd, bool accepts, const std::string &peerName);
TCPBackgroundTransport::Step continueHandshake(int fd);
inline bool isUnderWay(TCPBackgroundTransport::Progress progress) {
    return progress >= TCPBackgroundTransport::Progress::waitsToRead;
}

// Tell the transport, under lock id 3.
bool sf_addSecureDescriptor(int fd);
bool sf_removeSecureDescriptor(int fd);

inline constexpr std::size_t smallestFrame = 36;

// Gives a connection that carries frames buffers of its own, which belong to the loop of the
// calling thread: from then on it counts as readable when a whole frame is there, or the end.
// Called when a connection turns to frames. False, without an error, when the descriptor is unknown
// or listens, or there is no memory.
bool bufferFrames(int fd);
// Takes them away again, for a handshake that goes on in the background. False when there are none,
// or they have failed.
bool unbufferFrames(int fd);
// From now on takes in what comes, as it comes: for a connection that will not turn secure any
// more.
void readAhead(int fd);
// Lets the callers of a listening socket send as much at a time as a connection that reads ahead
// takes: a connection's receive window never grows beyond what its listener allowed.
void admitReadAhead(int listener);
// The buffers of a connection; null when it has none.
std::shared_ptr<StreamBuffer> bufferOf(int fd);

// A connect that does not wait: begun, and ended once the descriptor can be written to. The first
// returns -1 and leaves an error when it failed at once; the second tells whether it went well, and
// makes the descriptor a connection as `connectToBoundSocket` leaves it, or closes it.
int beginConnect(const TCPAddress &address);
bool endConnect(int fd, const TCPAddress &address);
// What `setConnectTimeout` has set.
std::uint32_t connectTimeout();

// For whoever has lock id 1: the row of a descriptor, or null.
DescriptorEntry *findEntry(Globals &globals, int fd);

} // namespace vintok

#endif
