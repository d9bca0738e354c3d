// From an address to a socket and back. The family follows from the address: local before IPv6
// before IPv4. Every socket that comes out of here is in the descriptor table, which also makes it
// blocking and sizes its buffers; every one that fails on the way is closed. Whatever goes wrong
// with the table itself shows when bytes are to move.
#include "vintok/TCPStream.h"

#include "platform/Socket.h"
#include "platform/SocketErrors.h"
#include "platform/Thread.h"
#include "platform/Wait.h"
#include "vintok/ByteOrder.h"
#include "vintok/StreamInternal.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <new>
#include <utility>

namespace vintok {

namespace {

constexpr int longestBacklog = 0x7FFFFFFF;

// Closed again at the end of the scope, unless it is given away.
class NewSocket {
public:
    explicit NewSocket(int fd = -1) : m_fd(fd) {}
    ~NewSocket() { replace(-1); }
    NewSocket(const NewSocket &) = delete;
    NewSocket &operator=(const NewSocket &) = delete;

    int fd() const { return m_fd; } // -1 when it could not be made
    void replace(int fd) {
        if (m_fd != -1)
            platform::closeSocket(m_fd);
        m_fd = fd;
    }
    int give() { return std::exchange(m_fd, -1); }

private:
    int m_fd;
};

bool takeAddress(const TCPAddress &address, platform::Endpoint &endpoint) {
    switch (endpoint.family) {
    case platform::FAMILY_LOCAL:
        endpoint.path.reserve(platform::maxLocalPath); // so that `name` fails for no want of it
        return address.name(endpoint.path) && endpoint.path.size() <= platform::maxLocalPath;
    case platform::FAMILY_IPV6:
        return address.IPv6(endpoint.ipv6.data());
    default:
        return address.IPv4(endpoint.ipv4);
    }
}

int outOfMemory(const ErrorContext &name, const SourcePlace &place = SourcePlace::caller()) {
    errorAt(place, TCP_ERROR_OUT_OF_MEMORY, name);
    return -1;
}

// ---- Listening ----

// What is to be bound, as address and type together say it.
struct Binding {
    Binding(const TCPAddress &address, TCPAddress::IPType type)
        : wantV4(address.isIPv4() || type == TCPAddress::IPTYPE_IPV4),
          wantV6(address.isIPv6() || type == TCPAddress::IPTYPE_IPV6),
          wantUnix(address.isUnix() || type == TCPAddress::IPTYPE_UNIX) {
        endpoint.family = wantUnix ? platform::FAMILY_LOCAL
                          : wantV6 ? platform::FAMILY_IPV6
                                   : platform::FAMILY_IPV4;
        platform::Endpoint held;
        anyAddress =
            (wantV4 && address.IPv4(held.ipv4) && held.ipv4 == 0) ||
            (wantV6 && address.IPv6(held.ipv6.data()) && held.ipv6 == platform::Endpoint().ipv6);
    }

    bool wantV4;
    bool wantV6;
    bool wantUnix;
    bool anyAddress;
    platform::Endpoint endpoint;
};

// A system that refuses an option does not stop the socket from being made.
void setListenerOptions(int fd, const Binding &binding, const SourcePlace &place) {
    if (!binding.wantUnix && !platform::setExclusiveAddress(fd))
        errorAt(place, TCP_ERROR_SYSTEM_ERROR,
                withSystemText("set SO_REUSEADDR vintok::createBoundSocket"));
    if (binding.endpoint.family == platform::FAMILY_IPV6 && !platform::setIPv6Only(fd))
        errorAt(place, TCP_ERROR_SYSTEM_ERROR,
                withSystemText("set IPV6_V6ONLY vintok::createBoundSocket"));
}

bool bindOnce(int fd, const platform::Endpoint &endpoint, const SourcePlace &place) {
    if (platform::bindSocket(fd, endpoint))
        return true;
    errorAt(place, TCP_ERROR_SYSTEM_ERROR, withSystemText("bind vintok::createBoundSocket"));
    return false;
}

bool openListener(NewSocket &socket, const Binding &binding, const SourcePlace &place) {
    socket.replace(platform::openSocket(binding.endpoint.family));
    if (socket.fd() != -1) {
        setListenerOptions(socket.fd(), binding, place);
        return true;
    }
    errorAt(place, TCP_ERROR_SYSTEM_ERROR, withSystemText("socket vintok::createBoundSocket"));
    return false;
}

enum class Outcome { listens, isTaken, failed };

// Several can be bound to one port on some systems, until one of them listens. The others have come
// too late then, and go on with another socket, as theirs stays bound.
Outcome listenAt(NewSocket &socket, const Binding &binding, int backlog, const SourcePlace &place) {
    if (!bindOnce(socket.fd(), binding.endpoint, place))
        return Outcome::isTaken;
    if (platform::listenSocket(socket.fd(), backlog))
        return Outcome::listens;
    if (platform::socketError() != socketErrors::addressInUse)
        return Outcome::failed;
    errorAt(place, TCP_ERROR_SYSTEM_ERROR, withSystemText("bind vintok::createBoundSocket"));
    return openListener(socket, binding, place) ? Outcome::isTaken : Outcome::failed;
}

// The port after 65535 is 0.
bool walkPorts(NewSocket &socket, Binding &binding, TCPAddress &address, int backlog,
               std::size_t tries, const SourcePlace &place) {
    std::uint16_t port = address.hostByteOrderPort();
    Outcome outcome = Outcome::isTaken;
    for (; tries > 0 && outcome == Outcome::isTaken; tries--, port++) {
        binding.endpoint.port = networkOrder(port);
        outcome = listenAt(socket, binding, backlog, place);
    }
    if (outcome == Outcome::listens)
        address.setPort(binding.endpoint.port);
    return outcome == Outcome::listens;
}

// The caller is to learn an address that others can call, so a wildcard becomes this host's own.
void updateAddress(const Binding &binding, TCPAddress &address) {
    if (binding.wantUnix)
        return;
    if (binding.anyAddress)
        address.resolve(binding.wantV6 ? TCPAddress::IPTYPE_IPV6 : TCPAddress::IPTYPE_IPV4);
    else if (binding.wantV6)
        address.setIPv6(binding.endpoint.ipv6.data());
    else
        address.setIPv4(binding.endpoint.ipv4);
}

// ---- Connecting ----

// What a failed connect is called; tested in this order, and by the plain numbers where they are
// plain.
TCPError connectError(int error) {
    switch (error) {
    case socketErrors::noMemory:
        return TCP_ERROR_OUT_OF_MEMORY;
    case socketErrors::tooManyDescriptors:
        return TCP_ERROR_MAX_DESCRIPTORS;
    case socketErrors::wrongMedium:
        return TCP_ERROR_OUT_OF_MEMORY;
    case socketErrors::connectionRefused:
        return TCP_ERROR_CONNECTION_REFUSED;
    default:
        return TCP_ERROR_SYSTEM_ERROR;
    }
}

bool setLimit(std::atomic<std::uint32_t> Globals::*limit, std::uint32_t value,
              const ErrorContext &name, const SourcePlace &place = SourcePlace::caller()) {
    Globals *globals = startedGlobals();
    if (globals == nullptr) {
        errorAt(place, TCP_ERROR_NOT_INITIALIZED, name);
        return false;
    }
    globals->*limit = value;
    return true;
}

// Whether the connect under way has ended well within `timeout`.
bool awaitConnected(int fd, std::chrono::milliseconds timeout) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + timeout;
    for (auto left = timeout; left.count() > 0;
         left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now())) {
        const std::int64_t turn = std::min<std::int64_t>(left.count(), 1000);
        if (platform::awaitSocket(fd, platform::Await::writable, static_cast<std::int32_t>(turn)))
            return platform::connectSucceeded(fd);
    }
    platform::setSocketError(socketErrors::timedOut);
    return false;
}

// A local socket whose queue is full has no connect under way: it is asked again.
bool connectLocally(int fd, const platform::Endpoint &endpoint, std::chrono::milliseconds timeout) {
    constexpr std::uint32_t pause = 10; // milliseconds
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!platform::connectSocket(fd, endpoint)) {
        const int error = platform::socketError();
        if (error == socketErrors::isConnected)
            return true;
        if (error != socketErrors::wouldBlock)
            return false;
        if (std::chrono::steady_clock::now() >= end) {
            platform::setSocketError(socketErrors::timedOut);
            return false;
        }
        platform::sleepMilliseconds(pause);
    }
    return true;
}

bool connectWithin(int fd, const platform::Endpoint &endpoint, std::chrono::milliseconds timeout) {
    if (endpoint.family == platform::FAMILY_LOCAL)
        return connectLocally(fd, endpoint, timeout);
    if (platform::connectSocket(fd, endpoint))
        return true;
    const int error = platform::socketError();
    return (error == socketErrors::inProgress || error == socketErrors::wouldBlock) &&
           awaitConnected(fd, timeout);
}

// Connects as long as the process lets a connect take.
bool connectInTime(int fd, const platform::Endpoint &endpoint) {
    const std::uint32_t timeout = connectTimeout();
    if (timeout == 0)
        return platform::connectSocket(fd, endpoint);
    platform::setBlockingMode(fd, false);
    const bool connected = connectWithin(fd, endpoint, std::chrono::milliseconds(timeout));
    const int error = platform::socketError();
    platform::setBlockingMode(fd, true);
    platform::setSocketError(error);
    return connected;
}

// Says whom, unless the address has no text or there is no memory for it.
void reportRefusal(const TCPAddress &address, int error, const SourcePlace &place) {
    const ErrorContext name = "connect vintok::connectToBoundSocket";
    try {
        std::string text;
        if (address.isUnix() ? address.name(text) : address.ipString(text, false)) {
            text = name.text() + " -- ( " + text + " )";
            errorAt(place, connectError(error), withSystemText(text, error));
            return;
        }
    } catch (const std::bad_alloc &) {
    }
    errorAt(place, connectError(error), withSystemText(name, error));
}

// A socket of the address's family, -1 after an error; `endpoint` is then where it is to go.
int openFor(const TCPAddress &address, platform::Endpoint &endpoint) {
    endpoint.family = address.isUnix()   ? platform::FAMILY_LOCAL
                      : address.isIPv6() ? platform::FAMILY_IPV6
                                         : platform::FAMILY_IPV4;
    endpoint.port = address.port();
    NewSocket socket(platform::openSocket(endpoint.family));
    if (socket.fd() == -1) {
        const int error = platform::socketError();
        VINTOK_ERROR(connectError(error),
                     withSystemText("socket vintok::connectToBoundSocket", error));
        return -1;
    }
    return takeAddress(address, endpoint) ? socket.give() : -1;
}

// ---- Accepting ----

platform::Family familyOf(const DescriptorState &listener) {
    return listener.boundIPv4   ? platform::FAMILY_IPV4
           : listener.boundIPv6 ? platform::FAMILY_IPV6
                                : platform::FAMILY_LOCAL;
}

TCPError acceptError(int error) {
    return error == socketErrors::interrupted     ? TCP_ERROR_INTERRUPT
           : error == socketErrors::badDescriptor ? TCP_ERROR_BAD_FILE_DESCRIPTOR
                                                  : TCP_ERROR_SYSTEM_ERROR;
}

void takePeer(const platform::Endpoint &endpoint, TCPAddress &peer) {
    if (endpoint.family == platform::FAMILY_LOCAL)
        return;
    if (endpoint.family == platform::FAMILY_IPV4)
        peer.setIPv4(endpoint.ipv4);
    else
        peer.setIPv6(endpoint.ipv6.data());
    peer.setPort(endpoint.port);
}

// ---- Loopback ----

// Tries `attempt` on the loopback addresses of the families that this host has, IPv4 first, and if
// that yields nothing on both.
template <typename Attempt>
int onLoopback(unsigned short port, Attempt attempt) {
    TCPAddress address;
    localAddress(address);
    const bool hasIPv4 = address.isIPv4();
    const bool hasIPv6 = address.isIPv6();
    int fd = -1;
    for (const bool both : {false, true}) {
        if (fd == -1 && (both || hasIPv4)) {
            address.setHostByteOrderPort(port);
            address.setLoopbackIPv4();
            fd = attempt(address);
        }
        if (fd == -1 && (both || hasIPv6)) {
            address.setHostByteOrderPort(port);
            address.setLoopbackIPv6();
            fd = attempt(address);
        }
    }
    return fd;
}

// Makes a socket at an address with this port, and tells the port that was taken.
template <typename Create>
int withPort(unsigned short &port, Create create) {
    TCPAddress address;
    address.setHostByteOrderPort(port);
    const int fd = create(address);
    if (fd != -1)
        port = address.hostByteOrderPort();
    return fd;
}

} // namespace

int createBoundSocket(TCPAddress &address, int backlog, std::size_t tries, bool,
                      TCPAddress::IPType type) try {
    const SourcePlace place = SourcePlace::caller();
    Binding binding(address, type);
    NewSocket socket;
    if (!openListener(socket, binding, place) || !takeAddress(address, binding.endpoint))
        return -1;
    if (backlog == 0)
        backlog = longestBacklog;
    if (binding.wantUnix ? listenAt(socket, binding, backlog, place) != Outcome::listens
                         : !walkPorts(socket, binding, address, backlog, tries, place))
        return -1;
    updateAddress(binding, address);
    const platform::Family family = binding.endpoint.family;
    addDescriptor(socket.fd(), false, family == platform::FAMILY_IPV4,
                  family == platform::FAMILY_IPV6, family == platform::FAMILY_LOCAL);
    return socket.give();
} catch (const std::bad_alloc &) {
    return outOfMemory("vintok::createBoundSocket");
}

int createIPv4Socket(TCPAddress &address, int backlog, std::size_t tries, bool flag) {
    const std::uint16_t port = address.port();
    address.clear();
    address.setPort(port);
    address.setIPv4(0);
    return createBoundSocket(address, backlog, tries, flag, TCPAddress::IPTYPE_IPV4);
}

int createIPv6Socket(TCPAddress &address, int backlog, std::size_t tries, bool flag) {
    const std::uint16_t port = address.port();
    address.clear();
    address.setPort(port);
    address.setIPv6(std::array<std::uint16_t, 8>{}.data());
    return createBoundSocket(address, backlog, tries, flag, TCPAddress::IPTYPE_IPV6);
}

int createIPv4Socket(unsigned short &port, int backlog, std::size_t tries, bool flag) {
    return withPort(
        port, [&](TCPAddress &address) { return createIPv4Socket(address, backlog, tries, flag); });
}

int createIPv6Socket(unsigned short &port, int backlog, std::size_t tries, bool flag) {
    return withPort(
        port, [&](TCPAddress &address) { return createIPv6Socket(address, backlog, tries, flag); });
}

int createLocalIPv4Socket(unsigned short &port, int backlog, std::size_t tries, bool flag) {
    return withPort(
        port,
        [&](TCPAddress &address) {
            address.setLoopbackIPv4();
            return createBoundSocket(address, backlog, tries, flag, TCPAddress::IPTYPE_NONE);
        });
}

int createLocalIPv6Socket(unsigned short &port, int backlog, std::size_t tries, bool flag) {
    return withPort(
        port,
        [&](TCPAddress &address) {
            address.setLoopbackIPv6();
            return createBoundSocket(address, backlog, tries, flag, TCPAddress::IPTYPE_NONE);
        });
}

int createLocalSocket(unsigned short &port, int backlog, std::size_t tries, bool flag) {
    unsigned short taken = port;
    const int fd = onLoopback(port, [&](TCPAddress &address) {
        const int made = createBoundSocket(address, backlog, tries, flag, TCPAddress::IPTYPE_NONE);
        taken = address.hostByteOrderPort();
        return made;
    });
    if (fd != -1)
        port = taken;
    return fd;
}

int createUnixSocket(const std::string &path, int backlog, bool flag) try {
    TCPAddress address;
    address.setUnix(path);
    return createBoundSocket(address, backlog, 0, flag, TCPAddress::IPTYPE_NONE);
} catch (const std::bad_alloc &) {
    return outOfMemory("vintok::createUnixSocket");
}

int connectToBoundSocket(const TCPAddress &address) try {
    platform::Endpoint endpoint;
    NewSocket socket(openFor(address, endpoint));
    if (socket.fd() == -1)
        return -1;
    if (!connectInTime(socket.fd(), endpoint)) {
        reportRefusal(address, platform::socketError(), SourcePlace::caller());
        return -1;
    }
    addDescriptor(socket.fd(), false, false, false, false);
    return socket.give();
} catch (const std::bad_alloc &) {
    return outOfMemory("vintok::connectToBoundSocket");
}

int beginConnect(const TCPAddress &address) try {
    platform::Endpoint endpoint;
    NewSocket socket(openFor(address, endpoint));
    if (socket.fd() == -1)
        return -1;
    platform::setBlockingMode(socket.fd(), false);
    if (platform::connectSocket(socket.fd(), endpoint))
        return socket.give();
    const int error = platform::socketError();
    if (error == socketErrors::inProgress || error == socketErrors::wouldBlock)
        return socket.give();
    reportRefusal(address, error, SourcePlace::caller());
    return -1;
} catch (const std::bad_alloc &) {
    return outOfMemory("vintok::connectToBoundSocket");
}

bool endConnect(int fd, const TCPAddress &address) {
    NewSocket socket(fd);
    if (!platform::connectSucceeded(fd)) {
        reportRefusal(address, platform::socketError(), SourcePlace::caller());
        return false;
    }
    platform::setBlockingMode(fd, true);
    addDescriptor(fd, false, false, false, false);
    socket.give();
    return true;
}

std::uint32_t connectTimeout() {
    const Globals *globals = startedGlobals();
    return globals != nullptr ? globals->m_connectTimeout.load() : 0;
}

bool setConnectTimeout(std::uint32_t milliseconds) {
    return setLimit(&Globals::m_connectTimeout, milliseconds, "vintok::setConnectTimeout");
}

bool setPeerTimeout(std::uint32_t milliseconds) {
    return setLimit(&Globals::m_peerTimeout, milliseconds, "vintok::setPeerTimeout");
}

int connectLocal(unsigned short port) {
    return onLoopback(
        port, [](const TCPAddress &address) { return connectToBoundSocket(address); });
}

int connectUnix(const std::string &path) try {
    TCPAddress address;
    address.setUnix(path);
    return connectToBoundSocket(address);
} catch (const std::bad_alloc &) {
    return outOfMemory("vintok::connectUnix");
}

int acceptBoundSocket(int fd, TCPAddress &peer) {
    const DescriptorState state(fd);
    if (!state.known) {
        if (state.closed)
            VINTOK_ERROR(TCP_ERROR_CONNECTION_RESET, "Closed socket vintok::acceptBoundSocket");
        else
            VINTOK_ERROR(TCP_ERROR_BAD_FILE_DESCRIPTOR, "vintok::acceptBoundSocket");
        return -1;
    }
    if (!state.bound()) {
        VINTOK_ERROR(TCP_ERROR_BAD_FILE_DESCRIPTOR, "Not a bound socket vintok::acceptBoundSocket");
        return -1;
    }
    platform::Endpoint endpoint;
    int accepted = platform::acceptSocket(fd, familyOf(state), endpoint);
    int error = accepted == -1 ? platform::socketError() : 0;
    if (error == socketErrors::interrupted) {
        const DescriptorState again(fd);
        if (again.known && again.bound()) {
            accepted = platform::acceptSocket(fd, familyOf(again), endpoint);
            error = accepted == -1 ? platform::socketError() : 0;
        }
    }
    if (accepted == -1) {
        VINTOK_ERROR(acceptError(error), withSystemText("vintok::acceptBoundSocket", error));
        return -1;
    }
    takePeer(endpoint, peer);
    addDescriptor(accepted, false, false, false, false);
    return accepted;
}

int acceptBoundSocket(int fd) {
    TCPAddress peer;
    return acceptBoundSocket(fd, peer);
}

int acceptAndCloseBoundSocket(int &fd) {
    const int accepted = acceptBoundSocket(fd);
    if (accepted >= 1) {
        shutdownSocket(fd);
        fd = -1;
    }
    return accepted;
}

} // namespace vintok
