// The operations that ask the descriptor table first: they refuse what is no open connection, and
// go on to the transport for a secure descriptor and to the socket for a plain one.
#include "vintok/TCPStream.h"

#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"

#include <algorithm>
#include <array>

namespace vintok {

namespace {

enum class Way { refused, plain, secure };

// How a descriptor's bytes move, and its buffers, if it has any. Those of a plain one are met where
// its socket is used.
struct Route {
    Way way = Way::refused;
    std::shared_ptr<StreamBuffer> buffer;
};

// Each may hold a "%d" for the descriptor.
struct Refusals {
    ErrorContext bound;
    ErrorContext closed;
    ErrorContext unknown;
};

const Refusals readRefusals = {"Attempt to read from bound socket vintok::readBytes",
                               "vintok::readBytes", "vintok::readBytes"};

Route routeOf(int fd, const Refusals &texts, const SourcePlace &place = SourcePlace::caller()) {
    const DescriptorState state(fd, place);
    if (state.known && !state.bound())
        return {state.secure ? Way::secure : Way::plain, state.buffer};
    const ErrorContext &text = state.known    ? texts.bound
                               : state.closed ? texts.closed
                                              : texts.unknown;
    const TCPError code = state.closed ? TCP_ERROR_CONNECTION_RESET : TCP_ERROR_BAD_FILE_DESCRIPTOR;
    errorAt(place, code, withNumber(text, fd));
    return {};
}

std::int64_t pendingResult(bool known, std::size_t pending) {
    return known ? static_cast<std::int64_t>(pending) : -1;
}

std::int64_t plainBytesPending(int fd) {
    std::size_t pending = 0;
    const bool known = sf_socketBytesPending(fd, pending);
    return pendingResult(known, pending);
}

std::int64_t transportBytesPending(int fd, const Route &route) {
    std::size_t pending = 0;
    const bool known = sf_secureBytesPending(fd, pending);
    return pendingResult(known, pending + (route.buffer != nullptr ? route.buffer->held() : 0));
}

// What the buffers hold of a secure connection comes before what the transport has.
std::int64_t readSecure(int fd, const Route &route, unsigned char *buffer, std::size_t length) {
    const std::size_t held = route.buffer != nullptr ? route.buffer->read(buffer, length) : 0;
    return held != 0 ? static_cast<std::int64_t>(held) : sf_secureRecv(fd, buffer, length);
}

std::int64_t peekSecure(int fd, const Route &route, unsigned char *buffer, std::size_t length) {
    if (route.buffer == nullptr || route.buffer->held() < length)
        return sf_securePeek(fd, buffer, length);
    return static_cast<std::int64_t>(route.buffer->peek(buffer, length));
}

std::int64_t writeSecure(int fd, const Route &route, const unsigned char *buffer,
                         std::size_t length) {
    return route.buffer != nullptr ? route.buffer->write(buffer, length)
                                   : sf_secureSend(fd, buffer, length);
}

} // namespace

std::int64_t readBytes(int fd, unsigned char *buffer, std::size_t length,
                       TCPStatusCallback *status) {
    if (buffer == nullptr || length == 0)
        return -1;
    const Route route = routeOf(fd, readRefusals);
    switch (route.way) {
    case Way::plain:
        return sf_socketRecv(fd, buffer, length, true, status);
    case Way::secure:
        return readSecure(fd, route, buffer, length);
    default:
        return -1;
    }
}

std::int64_t writeBytes(int fd, const unsigned char *buffer, std::size_t length,
                        TCPStatusCallback *status) {
    if (buffer == nullptr || length == 0)
        return -1;
    const Route route = routeOf(fd, {"vintok::writeBytes (%d) Attempt to write from bound socket.",
                                     "vintok::writeBytes (%d) descriptor closed.",
                                     "vintok::writeBytes (%d) descriptor bad."});
    switch (route.way) {
    case Way::plain:
        return sf_socketSend(fd, buffer, length, true, status);
    case Way::secure:
        return writeSecure(fd, route, buffer, length);
    default:
        return -1;
    }
}

// Refuses in the name of the read, as it always has.
std::int64_t peekBytes(int fd, unsigned char *buffer, std::size_t length) {
    if (buffer == nullptr || length == 0)
        return -1;
    const Route route = routeOf(fd, readRefusals);
    switch (route.way) {
    case Way::plain:
        return sf_socketPeek(fd, buffer, length);
    case Way::secure:
        return peekSecure(fd, route, buffer, length);
    default:
        return -1;
    }
}

std::int64_t bytesPending(int fd) {
    const Route route = routeOf(fd, {"Attempt to read from bound socket vintok::bytesPending",
                                     "vintok::bytesPending", "vintok::bytesPending"});
    switch (route.way) {
    case Way::plain:
        return plainBytesPending(fd);
    case Way::secure:
        return transportBytesPending(fd, route);
    default:
        return -1;
    }
}

// Refuses a listening socket in the name of the next one, as it always has.
std::int64_t socketBytesPending(int fd) {
    const Route route = routeOf(fd, {"Attempt to read from bound socket vintok::secureBytesPending",
                                     "vintok::socketBytesPending", "vintok::socketBytesPending"});
    if (route.way == Way::plain)
        return plainBytesPending(fd);
    if (route.way == Way::secure)
        VINTOK_ERROR(TCP_ERROR_BAD_FILE_DESCRIPTOR,
                     "Attempt to read from secure socket vintok::socketBytesPending");
    return -1;
}

std::int64_t secureBytesPending(int fd) {
    const Route route = routeOf(fd, {"Attempt to read from bound socket vintok::secureBytesPending",
                                     "vintok::secureBytesPending", "vintok::secureBytesPending"});
    if (route.way == Way::secure)
        return transportBytesPending(fd, route);
    if (route.way == Way::plain)
        VINTOK_ERROR(TCP_ERROR_BAD_FILE_DESCRIPTOR,
                     "Attempt to read from non secure socket vintok::secureBytesPending");
    return -1;
}

std::int64_t clearSocket(int fd, std::size_t count) {
    std::array<unsigned char, clearChunk> scratch;
    std::size_t total = 0;
    std::size_t chunk = scratch.size();
    for (std::size_t passes = 0; passes < clearPasses(count) && total < count; passes++) {
        const std::int64_t pending = bytesPending(fd);
        if (pending <= 0)
            break;
        // Once small, it stays small.
        chunk = std::min({chunk, count - total, static_cast<std::size_t>(pending)});
        const std::int64_t got = readBytes(fd, scratch.data(), chunk, nullptr);
        if (got == 0 || (got < 0 && lastError() != TCP_ERROR_INTERRUPT))
            break;
        if (got < 0)
            continue;
        total += static_cast<std::size_t>(got);
        VINTOK_LOG(SEVERITY_INFO, formatText("vintok::clearSocket(%d) --  discarded %lu bytes  \n",
                                             fd, static_cast<unsigned long>(got)));
    }
    return countOrFailure(total);
}

} // namespace vintok
