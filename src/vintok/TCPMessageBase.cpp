// A read looks before it takes: with fewer than 36 bytes waiting it leaves all of them, so that the
// next call starts at the frame's first byte again. Once it has taken a byte it stays until the
// frame is whole or the stream has failed: a peer that sends nothing is waited for without limit,
// one that cannot send fails after 30 attempts. A read that fails discards what was waiting when it
// began, since nobody can tell any more where the next frame starts. Nothing bounds a frame but its
// 32-bit length: its buffer costs memory only as the bytes arrive.
#include "vintok/TCPMessageBase.h"

#include "platform/Thread.h"
#include "vintok/BufferManager.h"
#include "vintok/Log.h"
#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPStatusCallback.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string>

namespace vintok {

namespace {

constexpr unsigned maxFailures = 30;
constexpr int maxLengthReads = 10;
constexpr std::size_t lengthSize = 4;
constexpr std::uint64_t countLimit = 0x7FFFFFFF;
constexpr std::uint64_t clearLimit = 64 * 1024; // discarded at a time of what nobody can read
constexpr const char *operationName = "TCPMessageBase::mf_readSocket";
constexpr std::uint32_t blockPause = 100; // milliseconds, times the number of the pause
constexpr std::uint32_t failurePause = 10;

// Whether the descriptor carries messages; sets the error when not, with one of the two contexts.
bool carriesMessages(const DescriptorState &state, const ErrorContext &operation,
                     const ErrorContext &onBound, const SourcePlace &place) {
    if (!state.known)
        errorAt(place, state.closed ? TCP_ERROR_CONNECTION_RESET : TCP_ERROR_BAD_FILE_DESCRIPTOR,
                operation);
    else if (state.bound())
        errorAt(place, TCP_ERROR_BAD_FILE_DESCRIPTOR, onBound);
    return state.known && !state.bound();
}

// Discards what is left of the bytes that were waiting when the read began, then sets the error
// that ended it.
bool failRead(int socket, std::uint64_t pending, std::uint64_t got, TCPError error,
              const ErrorContext &context, const SourcePlace &place) {
    if (got < pending)
        clearSocket(socket, pending - got);
    errorAt(place, error, context);
    return false;
}

// No later attempt can get a byte more.
bool endsLengthRead(TCPError error) {
    return error == TCP_ERROR_BAD_FILE_DESCRIPTOR || error == TCP_ERROR_CONNECTION_RESET ||
           error == TCP_ERROR_OUT_OF_MEMORY;
}

unsigned printed(std::uint64_t count) {
    return static_cast<unsigned>(count);
}

} // namespace

// How far the transfer of one frame has come, and who is told.
class TCPMessageBase::Progress {
public:
    using Report = void (TCPStatusCallback::*)(int, bool, const TCPGUID &, std::size_t, std::size_t,
                                               bool *);

    Progress(int socket, bool secure, const TCPGUID &messageID, TCPStatusCallback *status,
             Report operation, std::size_t done, std::size_t total)
        : m_socket(socket),
          m_secure(secure),
          m_messageID(messageID),
          m_status(status),
          m_operation(operation),
          m_done(done),
          m_total(total) {}

    std::size_t done() const { return m_done; }
    std::size_t left() const { return m_total - m_done; }
    bool complete() const { return m_done == m_total; }
    bool isWatched() const { return m_status != nullptr; }
    bool stopped() const { return !m_keepGoing; }
    bool failing() const { return m_failures > 0; }
    bool hopeless() const { return m_failures > maxFailures; }

    void report() {
        if (m_status != nullptr)
            (m_status->*m_operation)(m_socket, m_secure, m_messageID, m_done, left(), &m_keepGoing);
    }

    void advance(std::size_t count) {
        m_done += count;
        report();
        m_failures = 0;
    }

    // A peer that blocks is a live one. Whoever is told paces the transfer; with nobody there it
    // waits longer every time.
    void block() {
        if (m_status != nullptr)
            report();
        else
            platform::sleepMilliseconds(++m_blocks * blockPause);
        m_failures = 0;
    }

    void fail() {
        report();
        ++m_failures;
    }

    void stop() {
        m_keepGoing = false;
        report();
    }

private:
    int m_socket;
    bool m_secure;
    const TCPGUID &m_messageID;
    TCPStatusCallback *m_status;
    Report m_operation;
    std::size_t m_done;
    std::size_t m_total;
    bool m_keepGoing = true;
    unsigned m_failures = 0; // in a row
    std::uint32_t m_blocks = 0;
};

std::atomic<bool> TCPMessageBase::s_checkDebug{true};
std::atomic<bool> TCPMessageBase::s_printDebug{false};

TCPMessageBase::TCPMessageBase(int socket, std::uint16_t major, std::uint16_t minor)
    : TCPHeader(major, minor), m_socket(socket), m_rawSocket(false) {
    // The load first: a message is made for each frame, and only the first has to write.
    if (!s_checkDebug.load(std::memory_order_relaxed) || !s_checkDebug.exchange(false))
        return;
    const char *debug = std::getenv("TCP_MESSAGE_DEBUG");
    if (debug == nullptr || std::strcmp(debug, "True") != 0)
        return;
    s_printDebug = true;
    if (!isLogged(SEVERITY_DEBUG))
        setLogLevel(LOG_DEBUG);
}

bool TCPMessageBase::printDebug() {
    return s_printDebug;
}

void TCPMessageBase::setPrintDebug(bool on) {
    s_printDebug = on;
}

bool TCPMessageBase::readHeader() {
    return TCPHeader::read();
}

const TCPAddress &TCPMessageBase::originAddress() const {
    return *this;
}

bool TCPMessageBase::setOriginAddress(const TCPAddress &address) {
    TCPHeader::operator=(address);
    return true;
}

bool TCPMessageBase::setOriginAddress() {
    TCPAddress own;
    const bool known = localAddress(own);
    TCPHeader::operator=(own);
    return known;
}

void TCPMessageBase::setMessageID(const TCPGUID &id) {
    TCPHeader::setMessageID(id);
}

void TCPMessageBase::setMessageMajorVersion(std::uint16_t major) {
    TCPHeader::setMessageMajorVersion(major);
}

void TCPMessageBase::setMessageMinorVersion(std::uint16_t minor) {
    TCPHeader::setMessageMinorVersion(minor);
}

void TCPMessageBase::setTimeStamp(std::int64_t time) {
    TCPHeader::setTimeStamp(time);
}

// ---- Reading ----

bool TCPMessageBase::read(int socket, TCPStatusCallback *status) {
    if (socket == -1)
        socket = m_socket;
    if (m_rawSocket)
        return mf_readSocket(socket, false, status);
    const DescriptorState state(socket);
    if (!carriesMessages(state, "TCPMessageBase::read",
                         "TCPMessageBase::read attempt to read from bound descriptor", VINTOK_HERE))
        return false;
    return state.buffer != nullptr ? readBuffered(*state.buffer)
                                   : mf_readSocket(socket, state.secure, status);
}

// Of a connection with buffers a frame is there whole or not at all, and nothing is waited for.
bool TCPMessageBase::readBuffered(StreamBuffer &buffer) {
    const int socket = buffer.descriptor();
    StreamBuffer::Taken taken = buffer.take(mf_rawBytes());
    if (taken == StreamBuffer::Taken::nothing && buffer.fill())
        taken = buffer.take(mf_rawBytes());
    switch (taken) {
    case StreamBuffer::Taken::frame:
        if (TCPHeader::read())
            return true;
        return failRead(socket, buffer.held(), 0, TCP_ERROR_CORRUPT_HEADER, operationName,
                        VINTOK_HERE);
    case StreamBuffer::Taken::nothing:
        VINTOK_ERROR(TCP_ERROR_WOULD_BLOCK, operationName);
        return false;
    case StreamBuffer::Taken::tooLong:
        VINTOK_ERROR(TCP_ERROR_CORRUPT_HEADER, operationName);
        return false;
    case StreamBuffer::Taken::corrupt:
        return failRead(socket, clearLimit, 0, TCP_ERROR_CORRUPT_HEADER, operationName,
                        VINTOK_HERE);
    case StreamBuffer::Taken::noMemory:
        return failRead(socket, clearLimit, 0, TCP_ERROR_OUT_OF_MEMORY, operationName, VINTOK_HERE);
    default:
        // Anybody can connect and go again: before it belongs to a member that is no warning.
        if (buffer.error() == 0)
            VINTOK_LOG(buffer.readsAhead() ? SEVERITY_WARNING : SEVERITY_INFO,
                       "Remote connection lost without disconnect");
        setClosed(socket);
        VINTOK_ERROR(TCP_ERROR_CONNECTION_RESET, operationName);
        return false;
    }
}

bool TCPMessageBase::mf_readSocket(int socket, bool secure, TCPStatusCallback *status) {
    if (socket == -1) {
        VINTOK_ERROR(TCP_ERROR_BAD_FILE_DESCRIPTOR, "TCPMessageBase::mf_readSocket");
        return false;
    }
    const std::int64_t waiting = secure ? secureBytesPending(socket) : rawBytesPending(socket);
    if (s_printDebug)
        VINTOK_LOG(SEVERITY_DEBUG, formatText("TCPMessageBase::mf_readSocket (%d) pending = %ld\n",
                                              socket, static_cast<long>(waiting)));
    if (waiting < 0)
        return false;
    const auto pending = static_cast<std::uint64_t>(waiting);
    const std::uint64_t minSize = headerSizeIPv4();
    if (pending < minSize) {
        VINTOK_LOG(SEVERITY_WARNING,
                   formatText("TCPMessageBase::mf_readSocket (%d) bytesPending (%u) < minSize (%u)",
                              socket, printed(pending), printed(minSize)));
        VINTOK_ERROR(TCP_ERROR_WOULD_BLOCK, "TCPMessageBase::mf_readSocket");
        return false;
    }

    if (!mf_readLength(socket, secure, pending, status) ||
        !mf_readBody(socket, secure, pending, status))
        return false;
    if (s_printDebug)
        VINTOK_LOG(SEVERITY_DEBUG, formatText("TCPMessageBase::mf_readSocket (%d) read %u", socket,
                                              printed(rawBufferLength())));
    return TCPHeader::read() ||
           failRead(socket, pending, rawBufferLength(), TCP_ERROR_CORRUPT_HEADER,
                    "TCPMessageBase::mf_readSocket", VINTOK_HERE);
}

// `pending` is what the read of the frame found and has not taken yet.
std::int64_t TCPMessageBase::mf_receive(int socket, bool secure, std::uint64_t pending,
                                        unsigned char *buffer, std::size_t length,
                                        TCPStatusCallback *status) const {
    if (m_rawSocket)
        return rawReadBytes(socket, buffer, length, false, status);
    if (!secure)
        return sf_socketRecvPending(socket, buffer, length, pending, status);
    // A transport may answer 0 without an error of its own: an older "would block" must not be
    // taken for it and waited out for ever.
    if (lastError() != TCP_ERROR_NO_ERROR)
        keepError(TCP_ERROR_NO_ERROR, "TCPMessageBase::mf_readSocket");
    return readBytes(socket, buffer, length, status);
}

// Takes the frame's length and makes the raw buffer for it, the length in its first bytes.
bool TCPMessageBase::mf_readLength(int socket, bool secure, std::uint64_t pending,
                                   TCPStatusCallback *status) {
    std::array<unsigned char, lengthSize> bytes = {};
    std::size_t got = 0;
    for (int attempt = 0; attempt < maxLengthReads && got < bytes.size(); ++attempt) {
        const std::int64_t result = mf_receive(socket, secure, pending - got, bytes.data() + got,
                                               bytes.size() - got, status);
        if (result > 0 && static_cast<std::uint64_t>(result) < countLimit)
            got += static_cast<std::size_t>(result);
        else if (endsLengthRead(lastError()))
            break;
    }
    if (s_printDebug)
        VINTOK_LOG(SEVERITY_DEBUG,
                   formatText("TCPMessageBase::mf_readSocket fd (%d) read message bytesRead (%u) "
                              "int32Size (%u)",
                              socket, printed(got), printed(lengthSize)));
    if (got == 0) {
        VINTOK_LOG(SEVERITY_DEBUG, "TCPMessageBase::mf_readSocket -- WOULD BLOCK? Failed to read "
                                   "message size");
        return false;
    }
    if (got < bytes.size()) {
        VINTOK_LOG(SEVERITY_ERROR,
                   formatText("TCPMessageBase::mf_readSocket (%d) read (%u) of (%u)", socket,
                              printed(got), printed(lengthSize)));
        return failRead(socket, pending, got, lastError(),
                        "Partial read TCPMessageBase::mf_readSocket", VINTOK_HERE);
    }

    std::uint32_t length = 0;
    BufferManager(bytes.data(), bytes.size()).read(length);
    if (length < headerSizeIPv4())
        return failRead(socket, pending, got, TCP_ERROR_CORRUPT_HEADER,
                        "TCPMessageBase::mf_readSocket", VINTOK_HERE);
    if (!allocateRawBuffer(length))
        return failRead(socket, pending, got, TCP_ERROR_OUT_OF_MEMORY,
                        "TCPMessageBase::mf_readSocket", VINTOK_HERE);
    std::memcpy(rawBuffer(), bytes.data(), bytes.size());
    return true;
}

bool TCPMessageBase::mf_readBody(int socket, bool secure, std::uint64_t pending,
                                 TCPStatusCallback *status) {
    Progress progress(socket, secure, messageID(), status, &TCPStatusCallback::messageRead,
                      lengthSize, rawBufferLength());
    while (!progress.complete()) {
        std::int64_t result =
            mf_receive(socket, secure, pending - std::min<std::uint64_t>(pending, progress.done()),
                       rawBuffer() + progress.done(), progress.left(), status);
        if (result <= 0 && lastError() == TCP_ERROR_WOULD_BLOCK)
            result = 0;
        mf_readStep(progress, socket, result);
        if (progress.hopeless() || progress.stopped() || result < 0)
            break;
    }
    if (progress.complete())
        return true;
    VINTOK_LOG(SEVERITY_ERROR,
               formatText("TCPMessageBase::mf_readSocket (%d) failed, only read %u bytes of %u\n",
                          socket, printed(progress.done()), printed(rawBufferLength())));
    return failRead(socket, pending, progress.done(), lastError(), "TCPMessageBase::mf_readSocket",
                    VINTOK_HERE);
}

void TCPMessageBase::mf_readStep(Progress &progress, int socket, std::int64_t result) {
    if (result > 0) {
        // A frame of 2 GiB or more is never counted to its end; readers rely on the bound.
        const auto count = static_cast<std::uint64_t>(result);
        progress.advance(progress.done() + count < countLimit ? count : 0);
    } else if (lastError() == TCP_ERROR_WOULD_BLOCK) {
        progress.block();
    } else {
        progress.fail();
        if (progress.hopeless()) {
            setClosed(socket);
            progress.report();
        } else {
            platform::sleepMilliseconds(failurePause);
        }
    }
}

// ---- Writing ----

bool TCPMessageBase::write(int socket, TCPStatusCallback *status) {
    if (socket == -1)
        socket = m_socket;
    if (m_rawSocket)
        return mf_writeSocket(socket, false, status);
    const DescriptorState state(socket);
    // Says "read" of a write too: the text is the one that operators know.
    return carriesMessages(state, "TCPMessageBase::write",
                           "TCPMessageBase::write attempt to read from bound descriptor",
                           VINTOK_HERE) &&
           mf_writeSocket(socket, state.secure, status);
}

bool TCPMessageBase::mf_writeSocket(int socket, bool secure, TCPStatusCallback *status) {
    if (socket == -1) {
        VINTOK_ERROR(TCP_ERROR_BAD_FILE_DESCRIPTOR, "TCPMessageBase::mf_writeSocket");
        return false;
    }
    Progress progress(socket, secure, messageID(), status, &TCPStatusCallback::messageWrite, 0,
                      rawBufferLength());
    bool goesOn = true;
    while (goesOn) {
        const unsigned char *rest = rawBuffer() + progress.done();
        const std::int64_t result =
            secure ? writeBytes(socket, rest, progress.left(), status)
                   : rawWriteBytes(socket, rest, progress.left(), true, status);
        goesOn = mf_writeStep(progress, socket, result) && !progress.complete();
    }
    if (progress.complete()) {
        if (s_printDebug)
            VINTOK_LOG(SEVERITY_DEBUG, formatText("TCPMessageBase::mf_writeSocket (%d) wrote %u",
                                                  socket, printed(progress.done())));
        return true;
    }
    VINTOK_LOG(SEVERITY_ERROR,
               formatText("TCPMessageBase::mf_writeSocket (%d) failed, only sent %u bytes of %u\n",
                          socket, printed(progress.done()), printed(rawBufferLength())));
    return false;
}

// Takes in what one write did. False when it was the last.
bool TCPMessageBase::mf_writeStep(Progress &progress, int socket, std::int64_t result) {
    const TCPError error = result < 0 ? lastError() : TCP_ERROR_NO_ERROR;
    const bool blocked = error == TCP_ERROR_WOULD_BLOCK || error == TCP_ERROR_INTERRUPT;
    if (result > 0) {
        progress.advance(static_cast<std::size_t>(result));
    } else if (result == 0) {
        progress.fail();
    } else if (blocked) {
        if (!progress.isWatched())
            VINTOK_LOG(SEVERITY_INFO, "Sleeping after block");
        progress.block();
        if (s_printDebug)
            VINTOK_LOG(SEVERITY_TRACE, "Reset concurrent failures");
    } else if (error == TCP_ERROR_CONNECTION_RESET) {
        progress.stop();
    } else if (error != TCP_ERROR_BAD_FILE_DESCRIPTOR && error != TCP_ERROR_OUT_OF_MEMORY) {
        VINTOK_ERROR(TCP_ERROR_UNSPECIFIED_ERROR, "TCPMessageBase::mf_writeSocket");
        progress.fail();
    }

    if (progress.hopeless()) {
        VINTOK_ERROR(TCP_ERROR_CONNECTION_RESET, "TCPMessageBase::mf_writeSocket");
        setClosed(socket);
        progress.stop();
        return false;
    }
    if (progress.failing())
        platform::sleepMilliseconds(failurePause);
    return !progress.stopped() && (result >= 0 || blocked);
}

} // namespace vintok
