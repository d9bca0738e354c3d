// What is done to a socket that exists: its options, its buffers, its end. And this host's own
// address.
#include "vintok/TCPStream.h"

#include "platform/Socket.h"
#include "platform/SocketErrors.h"
#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"

#include <algorithm>
#include <new>

namespace vintok {

namespace {

constexpr std::size_t defaultBuffer = 32767;
constexpr std::size_t smallestBuffer = 4096;
constexpr int smallestGrant = 512;

bool refuseNegative(int fd, const ErrorContext &name,
                    const SourcePlace &place = SourcePlace::caller()) {
    if (fd >= 0)
        return false;
    errorAt(place, TCP_ERROR_BAD_FILE_DESCRIPTOR, name);
    return true;
}

// One direction's buffer: sets it, and sees what the system granted.
struct BufferTexts {
    ErrorContext setFailed;
    ErrorContext getFailed;
    ErrorContext notApplied;
};

bool sizeBuffer(int fd, int size, bool (*set)(int, int), bool (*get)(int, int &),
                const BufferTexts &texts, const SourcePlace &place) {
    int granted = 0;
    const ErrorContext *failure = !set(fd, size)            ? &texts.setFailed
                                  : !get(fd, granted)       ? &texts.getFailed
                                  : granted < smallestGrant ? &texts.notApplied
                                                            : nullptr;
    if (failure != nullptr)
        errorAt(place, TCP_ERROR_SYSTEM_ERROR, withSystemText(*failure));
    return failure == nullptr;
}

void shutBothWays(int fd, const SourcePlace &place) {
    if (platform::shutdownBoth(fd))
        return;
    const int error = platform::socketError();
    const ErrorContext name = "vintok::shutdownSocket";
    switch (error) {
    case socketErrors::badDescriptor:
    case socketErrors::notSocket:
    case socketErrors::notConnected:
        errorAt(place, TCP_ERROR_BAD_FILE_DESCRIPTOR, withSystemText(name, error));
        return;
    case socketErrors::noMemory:
    case socketErrors::wrongMedium:
        errorAt(place, TCP_ERROR_SYSTEM_ERROR, withSystemText(name, error));
        return;
    default:
        errorAt(place, TCP_ERROR_SYSTEM_ERROR, name);
    }
}

} // namespace

void setNoDelay(int fd) {
    if (!refuseNegative(fd, "vintok::setNoDelay"))
        platform::setNoDelayOption(fd);
}

void setNonBlocking(int fd) {
    if (!refuseNegative(fd, "vintok::setNonBlocking"))
        platform::setBlockingMode(fd, false);
}

void setBlocking(int fd) {
    if (!refuseNegative(fd, "vintok::setBlocking"))
        platform::setBlockingMode(fd, true);
}

bool setSystemBuffers(int fd, std::size_t size) {
    const SourcePlace place = SourcePlace::caller();
    const std::size_t wanted = size == 0 ? defaultBuffer : std::max(size, smallestBuffer);
    const auto bytes = static_cast<int>(static_cast<std::uint32_t>(wanted));
    if (refuseNegative(fd, "Bad descriptor", place))
        return false;
    // The first "not applied" text is spelled as it always has been.
    if (!sizeBuffer(fd, bytes, platform::setReceiveBuffer, platform::receiveBuffer,
                    {"Set receive buffer failed", "Get receive buffer failed",
                     "Recieve buffer size not applied"},
                    place))
        return false;
    if (!sizeBuffer(
            fd, bytes, platform::setSendBuffer, platform::sendBuffer,
            {"Set send buffer failed", "Get send buffer failed", "Send Buffer size not applied"},
            place))
        return false;
    setBlocking(fd);
    setNoDelay(fd);
    return true;
}

bool shutdownSocket(int fd) {
    if (fd == -1)
        return false;
    const DescriptorState state(fd);
    if (!state.bound()) {
        if (state.buffer != nullptr && state.known)
            state.buffer->flush(); // what room there is for; nobody waits for the rest
        if (state.secure)
            setSecure(fd, false);
        std::size_t pending = 0;
        const bool counted = sf_socketBytesPending(fd, pending);
        shutBothWays(fd, SourcePlace::caller());
        // What is left unread when a socket closes resets the connection.
        if (counted && pending != 0)
            sf_clearSocket(fd, pending);
    }
    const bool removed = closeDescriptor(fd);
    return state.known && removed;
}

bool localAddress(TCPAddress &address) try {
    const Globals *globals = startedGlobals();
    if (globals == nullptr) {
        VINTOK_ERROR(TCP_ERROR_NOT_INITIALIZED, "vintok::localAddress");
        address.resolve();
        return false;
    }
    const std::uint16_t port = address.port();
    address = globals->m_localAddress;
    address.setPort(port);
    return true;
} catch (const std::bad_alloc &) {
    VINTOK_ERROR(TCP_ERROR_OUT_OF_MEMORY, "vintok::localAddress");
    return false;
}

bool setLocalAddress(const TCPAddress &address) {
    if (!address.isIPv4() && !address.isIPv6()) {
        VINTOK_ERROR(TCP_ERROR_INVALID_ADDRESS, "vintok::setLocalAddress");
        return false;
    }
    static TCPMutex mutex(LOCK_LOCAL_ADDRESS);
    const SourcePlace place = SourcePlace::caller();
    return underLock(mutex, "vintok::setLocalAddress", [&] {
        Globals *globals = startedGlobals();
        if (globals == nullptr) {
            errorAt(place, TCP_ERROR_NOT_INITIALIZED, "vintok::setLocalAddress");
            return false;
        }
        globals->m_localAddress = address;
        globals->m_localAddress.setPort(0);
        return true;
    });
}

} // namespace vintok
