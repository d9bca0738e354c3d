// The library's side of a secure channel. The transport is the application's; it is read without a
// lock wherever bytes move, and under lock id 3 where a descriptor enters or leaves it.
#include "vintok/TCPStream.h"

#include "vintok/StreamInternal.h"

namespace vintok {

namespace {

TCPTransport *installedTransport() {
    const Globals *globals = s_globals;
    return globals != nullptr ? globals->m_transport.load() : nullptr;
}

void reportLost(const DescriptorState &state, const ErrorContext &name,
                const SourcePlace &place = SourcePlace::caller()) {
    errorAt(place, state.closed ? TCP_ERROR_CONNECTION_RESET : TCP_ERROR_BAD_FILE_DESCRIPTOR, name);
}

// A descriptor for which the handshake did not work out goes on as a plain one.
template <typename Handshake>
bool shakeHands(int fd, const ErrorContext &name, Handshake handshake,
                const SourcePlace &place = SourcePlace::caller()) {
    if (!addDescriptor(fd, true, false, false, false))
        return false;
    TCPTransport *installed = transport();
    bool noMemory = false;
    try {
        if (installed != nullptr && handshake(*installed))
            return true;
    } catch (const std::bad_alloc &) {
        noMemory = true;
    }
    setSecure(fd, false);
    if (noMemory)
        errorAt(place, TCP_ERROR_OUT_OF_MEMORY, name);
    else if (installed == nullptr)
        errorAt(place, TCP_ERROR_SSL_TRANSPORT, name);
    return false;
}

using Progress = TCPBackgroundTransport::Progress;

template <typename Act>
TCPBackgroundTransport::Step takeStep(int fd, Act act) {
    TCPBackgroundTransport::Step step = {Progress::failed, 0};
    try {
        if (TCPBackgroundTransport *background = backgroundTransport())
            step = act(*background);
    } catch (const std::bad_alloc &) {
        VINTOK_ERROR(TCP_ERROR_OUT_OF_MEMORY, "vintok::continueHandshake");
    }
    if (step.progress == Progress::plain || step.progress == Progress::failed)
        setSecure(fd, false);
    return step;
}

bool tellTransport(TCPMutex &mutex, const ErrorContext &name, bool (TCPTransport::*tell)(int),
                   int fd, const SourcePlace &place = SourcePlace::caller()) {
    return underLock(
        mutex, name,
        [&] {
            if (TCPTransport *installed = installedTransport())
                return (installed->*tell)(fd);
            errorAt(place, TCP_ERROR_NOT_INITIALIZED, name);
            return false;
        },
        place);
}

} // namespace

bool setTransport(TCPTransport *newTransport) {
    static TCPMutex mutex(LOCK_TRANSPORT);
    return underLock(mutex, "vintok::setTransport", [newTransport] {
        Globals *globals = startedGlobals();
        if (globals != nullptr) {
            globals->m_background = nullptr;
            globals->m_transport = newTransport;
        }
        return globals != nullptr;
    });
}

bool setBackgroundTransport(TCPBackgroundTransport *newTransport) {
    static TCPMutex mutex(LOCK_TRANSPORT);
    return underLock(mutex, "vintok::setBackgroundTransport", [newTransport] {
        Globals *globals = startedGlobals();
        if (globals != nullptr)
            globals->m_background = newTransport;
        return globals != nullptr;
    });
}

TCPTransport *transport() {
    return startedGlobals() != nullptr ? installedTransport() : nullptr;
}

bool secureConnect(int fd, const std::string &peerName) {
    const char *peer = peerName.empty() ? nullptr : peerName.c_str();
    return shakeHands(fd, "vintok::secureConnect",
                      [=](TCPTransport &installed) { return installed.secureConnect(fd, peer); });
}

bool secureAccept(int fd) {
    return shakeHands(
        fd, "vintok::secureAccept",
        [fd](TCPTransport &installed) { return installed.secureAccept(fd); });
}

// ---- Without waiting ----

TCPBackgroundTransport *backgroundTransport() {
    const Globals *globals = s_globals;
    return globals != nullptr ? globals->m_background.load() : nullptr;
}

TCPBackgroundTransport::Step beginHandshake(int fd, bool accepts, const std::string &peerName) {
    if (!addDescriptor(fd, true, false, false, false))
        return {Progress::plain, 0};
    const char *peer = peerName.empty() ? nullptr : peerName.c_str();
    return takeStep(fd, [=](TCPBackgroundTransport &background) {
        return accepts ? background.beginAccept(fd) : background.beginConnect(fd, peer);
    });
}

TCPBackgroundTransport::Step continueHandshake(int fd) {
    return takeStep(
        fd, [=](TCPBackgroundTransport &background) { return background.continueHandshake(fd); });
}

// ---- For the descriptor table ----

bool sf_addSecureDescriptor(int fd) {
    static TCPMutex mutex(LOCK_TRANSPORT);
    return tellTransport(mutex, "sf_addSecureDescriptor", &TCPTransport::addSecureDescriptor, fd);
}

bool sf_removeSecureDescriptor(int fd) {
    static TCPMutex mutex(LOCK_TRANSPORT);
    return tellTransport(mutex, "sf_removeSecureDescriptor", &TCPTransport::removeSecureDescriptor,
                         fd);
}

// ---- Bytes ----

bool sf_secureBytesPending(int fd, std::size_t &pending) {
    pending = 0;
    TCPTransport *installed = installedTransport();
    if (installed == nullptr) {
        VINTOK_ERROR(TCP_ERROR_SSL_TRANSPORT,
                     "sf_secureBytesPending (s_globals && s_globals->m_transport)");
        return false;
    }
    if (installed->secureBytesPending(fd, &pending, false)) {
        if (pending != 0)
            return true;
        std::size_t raw = 0;
        if (!sf_socketBytesPending(fd, raw) || raw == 0)
            return true;
        if (installed->secureBytesPending(fd, &pending, true))
            return true;
    }
    VINTOK_ERROR(TCP_ERROR_SSL_TRANSPORT, "sf_secureBytesPending transport returned false");
    return false;
}

std::int64_t sf_securePeek(int fd, unsigned char *buffer, std::size_t length) {
    std::size_t pending = 0;
    if (!sf_secureBytesPending(fd, pending))
        return -1;
    if (length > pending) {
        VINTOK_ERROR(TCP_ERROR_WOULD_BLOCK, "sf_securePeek");
        return -1;
    }
    if (TCPTransport *installed = installedTransport())
        return installed->securePeek(fd, buffer, length);
    // Speaks of the receive, as it always has.
    VINTOK_ERROR(TCP_ERROR_SSL_TRANSPORT, "sf_secureRecv (s_globals && s_globals->m_transport)");
    return -1;
}

// Without a transport the next two return 0, unlike the peek: callers can tell it from a plain
// failure.
std::int64_t sf_secureRecv(int fd, unsigned char *buffer, std::size_t length) {
    if (TCPTransport *installed = installedTransport())
        return installed->secureRecv(fd, buffer, length);
    VINTOK_ERROR(TCP_ERROR_SSL_TRANSPORT, "sf_secureRecv (s_globals && s_globals->m_transport)");
    return 0;
}

std::int64_t sf_secureSend(int fd, const unsigned char *buffer, std::size_t length) {
    if (TCPTransport *installed = installedTransport())
        return installed->secureSend(fd, buffer, length);
    VINTOK_ERROR(TCP_ERROR_SSL_TRANSPORT, "sf_secureSend (s_globals && s_globals->m_transport)");
    return 0;
}

// ---- Questions ----

bool secureStatus(int fd, std::size_t &value, std::string &text) {
    const DescriptorState state(fd);
    if (!state.known) {
        reportLost(state, "vintok::secureStatus");
        return false;
    }
    // From here on the result of a refusal is true; the error is what counts.
    ErrorContext refusal = "vintok::secureStatus (%d) no transport";
    TCPError code = TCP_ERROR_BAD_FILE_DESCRIPTOR;
    if (state.bound()) {
        refusal = "vintok::secureStatus (%d) Attempt to read from bound socket.";
    } else if (!state.secure) {
        refusal = "vintok::secureStatus (%d) Attempt to get secure status from non secure "
                  "descriptor";
    } else if (TCPTransport *installed = transport()) {
        return installed->secureStatus(fd, value, text);
    } else {
        code = TCP_ERROR_SSL_TRANSPORT;
    }
    VINTOK_ERROR(code, withNumber(refusal, fd));
    return true;
}

SecureError lastSecureError(int fd) {
    const DescriptorState state(fd);
    if (!state.known) {
        reportLost(state, "vintok::lastSecureError");
        return SECURE_ERROR_BAD_DESCRIPTOR;
    }
    // A listener of the local family is not asked for here and falls under "not secure".
    if (state.boundIPv4 || state.boundIPv6) {
        VINTOK_ERROR(TCP_ERROR_BAD_FILE_DESCRIPTOR,
                     withNumber("vintok::lastSecureError (%d) Get error on bound socket.", fd));
        return SECURE_ERROR_NOT_SECURE;
    }
    if (!state.secure)
        return SECURE_ERROR_NOT_SECURE;
    if (TCPTransport *installed = transport())
        return installed->lastSecureError(fd);
    VINTOK_ERROR(TCP_ERROR_SSL_TRANSPORT, "vintok::lastSecureError");
    return SECURE_ERROR_NO_TRANSPORT;
}

bool certificateInfo(int fd, TCPCertInfo &info) {
    const DescriptorState state(fd);
    TCPTransport *installed = transport();
    if (!state.known || !state.secure || installed == nullptr)
        return state.known;
    return installed->certificateInfo(fd, info);
}

} // namespace vintok
