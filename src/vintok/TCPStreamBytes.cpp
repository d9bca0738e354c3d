// The bytes of a plain socket, without a look at the descriptor table.
//
// The loops finish the whole transfer if they can. Each turn makes one call of the socket and sorts
// its result: bytes, a reason to wait and try again, or the loss of the peer, which marks the
// descriptor closed for everybody. The receive and the send wait and give up by different rules,
// and are kept apart for that. The peek alone can tell a clean end of stream.
//
// Every byte passes `takeIn` or `putOut`, or is looked at by `lookAt` and `countWaiting`. A
// connection with buffers has its bytes go through these: what is held comes before what the socket
// has, and what is queued leaves before what is written.
#include "vintok/TCPStream.h"

#include "platform/Socket.h"
#include "platform/SocketErrors.h"
#include "platform/Thread.h"
#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPStatusCallback.h"

#include <algorithm>
#include <array>

namespace vintok {

namespace {

using BufferPtr = std::shared_ptr<StreamBuffer>;

// Of a secure connection the buffers hold plaintext, and the socket is the transport's.
BufferPtr plainBufferOf(int fd) {
    BufferPtr buffers = bufferOf(fd);
    return buffers != nullptr && !buffers->isSecure() ? buffers : nullptr;
}

std::int64_t takeIn(int fd, unsigned char *buffer, std::size_t length) {
    const BufferPtr buffers = plainBufferOf(fd);
    const std::size_t held = buffers != nullptr ? buffers->read(buffer, length) : 0;
    return held != 0 ? static_cast<std::int64_t>(held) : platform::receive(fd, buffer, length);
}

std::int64_t lookAt(int fd, unsigned char *buffer, std::size_t length) {
    const BufferPtr buffers = plainBufferOf(fd);
    const std::size_t held = buffers != nullptr ? buffers->peek(buffer, length) : 0;
    if (held == 0)
        return platform::peek(fd, buffer, length);
    const std::int64_t behind =
        held < length ? platform::peek(fd, buffer + held, length - held) : 0;
    return static_cast<std::int64_t>(held) + std::max<std::int64_t>(behind, 0);
}

bool countWaiting(int fd, std::size_t &count) {
    if (!platform::bytesWaiting(fd, count))
        return false;
    if (const BufferPtr buffers = plainBufferOf(fd))
        count += buffers->held();
    return true;
}

std::int64_t putOut(int fd, const unsigned char *buffer, std::size_t length) {
    if (const BufferPtr buffers = plainBufferOf(fd))
        return buffers->write(buffer, length);
    return platform::send(fd, buffer, length);
}

// ---- What socket errors mean ----

using namespace socketErrors;

bool isConnectionLost(int error) {
    constexpr std::array<int, 10> lost = {
        networkDown,  networkUnreachable, networkReset,      connectionAborted, connectionReset,
        notConnected, shutDown,           connectionRefused, hostDown,          hostUnreachable};
    return std::find(lost.begin(), lost.end(), error) != lost.end();
}

constexpr unsigned failureLimit = 30;
constexpr std::uint32_t blockStep = 100;     // milliseconds
constexpr std::uint32_t receivePause = 1000; // milliseconds
constexpr std::uint32_t sendPauseStep = 10;  // milliseconds

// ---- The receive loop ----

struct ReceiveLoop {
    int fd;
    unsigned char *buffer;
    std::size_t length;
    TCPStatusCallback *status;
    SourcePlace place; // of the operation
    std::size_t total = 0;
    bool keepGoing = true;
    unsigned failures = 0;
    unsigned blockCount = 0;

    // One call of the socket. False when the loop has ended.
    bool turn() {
        const std::int64_t count = takeIn(fd, buffer + total, length - total);
        if (count > 0) {
            total += static_cast<std::size_t>(count);
            report();
            failures = 0;
            return keepGoing && total < length;
        }
        // The end of the stream comes here too, with no error to its name.
        return failed(platform::socketError()) && keepGoing;
    }

private:
    void report() {
        if (status != nullptr)
            status->byteRead(fd, false, total, length - total, &keepGoing);
    }

    // False when the loop ends whatever a callback says.
    bool failed(int error) {
        keepGoing = false;
        const ErrorContext context = withSystemText("sf_socketRecv", error);
        if (error == wouldBlock || error == interrupted) {
            waitForData(context);
            return true;
        }
        if (error == noMemory || error == invalid) {
            // No pause and no limit.
            keepGoing = true;
            failures++;
            errorAt(place, TCP_ERROR_OUT_OF_MEMORY, context);
            return true;
        }
        if (error == badDescriptor || error == notSocket) {
            errorAt(place, TCP_ERROR_BAD_FILE_DESCRIPTOR, context);
            return lost();
        }
        if (isConnectionLost(error)) {
            errorAt(place, TCP_ERROR_CONNECTION_RESET, context);
            return lost();
        }
        return failedOtherwise(context);
    }

    void waitForData(const ErrorContext &context) {
        keepGoing = true;
        errorAt(place, TCP_ERROR_WOULD_BLOCK, context);
        if (status != nullptr)
            report();
        else
            platform::sleepMilliseconds(++blockCount * blockStep);
        failures = 0;
    }

    bool lost() {
        setClosed(fd);
        report();
        keepGoing = false;
        return false;
    }

    // Goes on only when a callback asks for it, and with or without one after a long pause.
    bool failedOtherwise(const ErrorContext &context) {
        errorAt(place, TCP_ERROR_SYSTEM_ERROR, context);
        failures++;
        report();
        if (failures > failureLimit) {
            setClosed(fd);
            return false;
        }
        platform::sleepMilliseconds(receivePause);
        return true;
    }
};

// ---- The send loop ----

struct SendLoop {
    int fd;
    const unsigned char *buffer;
    std::size_t length;
    bool wait;
    TCPStatusCallback *status;
    SourcePlace place; // of the operation
    std::size_t total = 0;
    int error = 0; // of the last call that failed
    bool keepGoing = true;
    unsigned failures = 0;
    unsigned blockCount = 0;

    // One call of the socket. False when the loop has ended.
    bool turn() {
        const std::int64_t count = putOut(fd, buffer + total, length - total);
        if (count > 0) {
            total += static_cast<std::size_t>(count);
            report();
            failures = 0;
            return keepGoing && total < length;
        }
        if (count == 0) {
            report();
            failures++;
            return pauseOrGiveUp() && keepGoing;
        }
        error = platform::socketError();
        return failed() && keepGoing;
    }

private:
    void report() {
        if (status != nullptr)
            status->byteWrite(fd, false, total, length - total, &keepGoing);
    }

    // False when the loop ends whatever a callback says.
    bool failed() {
        const ErrorContext context = withSystemText("sf_socketSend", error);
        if (error == wouldBlock || error == interrupted) {
            waitForRoom(context);
            return true;
        }
        if (isConnectionLost(error) || error == notSocket) {
            errorAt(place, TCP_ERROR_CONNECTION_RESET, context);
            lost();
        } else {
            // A bad descriptor is one of these: only failing on and on closes it.
            errorAt(place, TCP_ERROR_UNSPECIFIED_ERROR, context);
            report();
            failures++;
        }
        return pauseOrGiveUp();
    }

    void waitForRoom(const ErrorContext &context) {
        if (error == wouldBlock)
            keepGoing = wait;
        errorAt(place, TCP_ERROR_WOULD_BLOCK, context);
        if (status != nullptr)
            report();
        else
            platform::sleepMilliseconds(++blockCount * blockStep);
        failures = 0;
    }

    void lost() {
        setClosed(fd);
        report();
        keepGoing = false;
    }

    // Longer after each failure in a row.
    bool pauseOrGiveUp() {
        if (failures > failureLimit) {
            errorAt(place, TCP_ERROR_CONNECTION_RESET, "sf_socketSend");
            lost();
            return false;
        }
        if (failures > 0)
            platform::sleepMilliseconds(failures * sendPauseStep);
        return true;
    }
};

// Why nothing was sent.
void reportNothingSent(int error, const SourcePlace &place) {
    const ErrorContext context = withSystemText("sf_socketSend", error);
    if (error == interrupted)
        errorAt(place, TCP_ERROR_INTERRUPT, context);
    else if (error == wouldBlock)
        errorAt(place, TCP_ERROR_WOULD_BLOCK, context);
    else if (lastError() != TCP_ERROR_CONNECTION_RESET)
        errorAt(place, TCP_ERROR_SYSTEM_ERROR, context);
}

// ---- The peek ----

constexpr int peekAttempts = 3;

// Sets the error of a failed peek and closes the descriptor where that is what it means. Whether to
// try again.
bool peekFailed(int fd, int error, bool receiving, const SourcePlace &place) {
    TCPError code = TCP_ERROR_SYSTEM_ERROR;
    bool gone = false;
    if (error == interrupted || (receiving && error == wouldBlock)) {
        code = TCP_ERROR_WOULD_BLOCK;
    } else if (error == badDescriptor || error == notSocket) {
        code = TCP_ERROR_BAD_FILE_DESCRIPTOR;
        gone = true;
    } else if (isConnectionLost(error)) {
        code = TCP_ERROR_CONNECTION_RESET;
        gone = true;
    } else if (receiving && (error == noMemory || error == invalid)) {
        code = TCP_ERROR_OUT_OF_MEMORY;
    }
    errorAt(place, code, withSystemText("sf_socketPeek", error));
    if (gone)
        setClosed(fd);
    return error == interrupted;
}

std::int64_t peekEnded(int fd, const SourcePlace &place) {
    setClosed(fd);
    VINTOK_LOG_AT(place, SEVERITY_WARNING, "Remote connection lost without disconnect");
    errorAt(place, TCP_ERROR_CONNECTION_RESET, "sf_socketPeek connection lost");
    return -1;
}

// ---- Clearing ----

// Sets the error of a failed pass. Whether to go on with the next.
bool clearFailed(int error, const ErrorContext &text, const SourcePlace &place) {
    const TCPError code = error == interrupted     ? TCP_ERROR_INTERRUPT
                          : error == badDescriptor ? TCP_ERROR_BAD_FILE_DESCRIPTOR
                                                   : TCP_ERROR_SYSTEM_ERROR;
    errorAt(place, code, withSystemText(text, error));
    return error == interrupted;
}

} // namespace

// ---- The socket's own ----

std::int64_t sf_socketRecv(int fd, unsigned char *buffer, std::size_t length, bool wait,
                           TCPStatusCallback *status) {
    if (buffer == nullptr || length == 0) {
        VINTOK_ERROR(TCP_ERROR_INVALID_ARGUMENT, "sf_socketRecv");
        return -1;
    }
    std::size_t pending = 0;
    if (!sf_socketBytesPending(fd, pending) || (!wait && pending == 0))
        return -1;
    return sf_socketRecvPending(fd, buffer, length, pending, status);
}

std::int64_t sf_socketRecvPending(int fd, unsigned char *buffer, std::size_t length,
                                  std::size_t pending, TCPStatusCallback *status) {
    const SourcePlace place{__FILE__, __LINE__, "sf_socketRecv"}; // of which this is the rest
    ReceiveLoop loop{fd, buffer, length, status, place};
    while (loop.turn()) {
    }
    VINTOK_LOG_AT(place, SEVERITY_DEBUG,
                  formatText("sf_socketRecv (%d) read %u of %u pending = %u", fd,
                             static_cast<unsigned>(loop.total), static_cast<unsigned>(length),
                             static_cast<unsigned>(pending)));
    return countOrFailure(loop.total);
}

std::int64_t sf_socketSend(int fd, const unsigned char *buffer, std::size_t length, bool wait,
                           TCPStatusCallback *status) {
    if (buffer == nullptr || length == 0) {
        VINTOK_ERROR(TCP_ERROR_INVALID_ARGUMENT, "sf_socketSend");
        return -1;
    }
    SendLoop loop{fd, buffer, length, wait, status, VINTOK_HERE};
    while (loop.turn()) {
    }
    VINTOK_LOG(SEVERITY_TRACE,
               formatText("sf_socketSend (%d) sent %u of %u", fd, static_cast<unsigned>(loop.total),
                          static_cast<unsigned>(length)));
    if (loop.total == 0)
        reportNothingSent(loop.error, VINTOK_HERE);
    return countOrFailure(loop.total);
}

std::int64_t sf_socketPeek(int fd, unsigned char *buffer, std::size_t length) {
    const SourcePlace place = SourcePlace::caller();
    if (buffer == nullptr || length == 0) {
        VINTOK_ERROR(TCP_ERROR_INVALID_ARGUMENT, "sf_socketPeek");
        return -1;
    }
    for (int attempt = 0; attempt < peekAttempts; attempt++) {
        std::size_t pending = 0;
        if (!countWaiting(fd, pending)) {
            if (peekFailed(fd, platform::socketError(), false, place))
                continue;
            return -1;
        }
        setNonBlocking(fd);
        const std::int64_t count = lookAt(fd, buffer, length);
        setBlocking(fd);
        const int error = platform::socketError();
        if (count == 0 && error == 0)
            return peekEnded(fd, place);
        if (count >= 0) {
            VINTOK_LOG(SEVERITY_DEBUG,
                       formatText("sf_socketPeek got %d of %u", static_cast<int>(count),
                                  static_cast<unsigned>(length)));
            return count;
        }
        if (!peekFailed(fd, error, true, place))
            return -1;
    }
    return -1;
}

bool sf_socketBytesPending(int fd, std::size_t &pending) {
    pending = 0;
    for (int attempt = 0; attempt < 2; attempt++) {
        std::size_t waiting = 0;
        if (countWaiting(fd, waiting)) {
            pending = waiting;
            return true;
        }
        const int error = platform::socketError();
        const TCPError code = error == interrupted ? TCP_ERROR_INTERRUPT
                              : error == badDescriptor || error == invalid
                                  ? TCP_ERROR_BAD_FILE_DESCRIPTOR
                              : error == remoteIO ? TCP_ERROR_CONNECTION_RESET
                                                  : TCP_ERROR_SYSTEM_ERROR;
        VINTOK_ERROR(code, withSystemText("ioctl failed sf_socketBytesPending", error));
        if (error != interrupted)
            return false;
    }
    return true; // interrupted each time: nothing is known to be there
}

// Never blocks, unlike the checked form.
std::int64_t sf_clearSocket(int fd, std::size_t count) {
    const SourcePlace place = SourcePlace::caller();
    std::array<unsigned char, clearChunk> scratch;
    std::size_t total = 0;
    std::size_t chunk = scratch.size();
    for (std::size_t passes = 0; passes < clearPasses(count) && total < count; passes++) {
        std::size_t pending = 0;
        if (!countWaiting(fd, pending)) {
            if (clearFailed(platform::socketError(), "sf_clearSocket ioctl failed", place))
                continue;
            break;
        }
        if (pending == 0)
            break;
        chunk = std::min({chunk, count - total, pending}); // once small, it stays small
        setNonBlocking(fd);
        const std::int64_t got = takeIn(fd, scratch.data(), chunk);
        const int error = platform::socketError();
        setBlocking(fd);
        if (got == 0)
            break;
        if (got < 0) {
            if (clearFailed(error, "recv failed vintok::rawClearSocket", place))
                continue;
            break;
        }
        total += static_cast<std::size_t>(got);
        // The number has always been the result of the last control call, which is 0.
        VINTOK_LOG(SEVERITY_INFO,
                   formatText("sf_clearSocket (%d) --  discarded %lu bytes  \n", fd, 0UL));
    }
    return countOrFailure(total);
}

// ---- The raw operations ----

std::int64_t rawReadBytes(int fd, unsigned char *buffer, std::size_t length, bool wait,
                          TCPStatusCallback *status) {
    return sf_socketRecv(fd, buffer, length, wait, status);
}

std::int64_t rawWriteBytes(int fd, const unsigned char *buffer, std::size_t length, bool wait,
                           TCPStatusCallback *status) {
    return sf_socketSend(fd, buffer, length, wait, status);
}

std::int64_t rawPeekBytes(int fd, unsigned char *buffer, std::size_t length) {
    return sf_socketPeek(fd, buffer, length);
}

std::int64_t rawBytesPending(int fd) {
    std::size_t pending = 0;
    return sf_socketBytesPending(fd, pending) ? static_cast<std::int64_t>(pending) : -1;
}

std::int64_t rawClearSocket(int fd, std::size_t count) {
    return sf_clearSocket(fd, count);
}

} // namespace vintok
