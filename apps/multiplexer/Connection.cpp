#include "Connection.h"

#include "Session.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <platform/SocketErrors.h>
#include <platform/Wait.h>

namespace mux {

namespace platform = vintok::platform;
namespace socketErrors = vintok::socketErrors;

namespace {

constexpr std::size_t securePiece = 16384;

bool isTemporary(int error) {
    return error == socketErrors::wouldBlock || error == socketErrors::interrupted;
}

} // namespace

Connection::Connection(platform::Poller &poller, int descriptor, const Endpoint &peer)
    : m_poller(poller), m_descriptor(descriptor), m_peer(peer) {
    platform::setBlockingMode(descriptor, false);
    platform::setNoDelayOption(descriptor);
}

Connection::~Connection() {
    close();
}

std::unique_ptr<Connection> Connection::call(platform::Poller &poller, const Endpoint &peer) {
    const int descriptor = platform::openSocket(peer.family);
    if (descriptor == -1)
        return nullptr;
    auto connection = std::make_unique<Connection>(poller, descriptor, peer);
    if (!platform::connectSocket(descriptor, peer) &&
        platform::socketError() != socketErrors::inProgress &&
        !isTemporary(platform::socketError()))
        return nullptr;
    return connection;
}

bool Connection::connected() const {
    return platform::connectSucceeded(m_descriptor);
}

void Connection::setPeerTimeout(std::chrono::seconds timeout) const {
    const std::chrono::milliseconds limit = timeout;
    platform::setPeerTimeout(m_descriptor, static_cast<std::uint32_t>(limit.count()));
}

bool Connection::peerEnded() const {
    return platform::endArrived(m_descriptor);
}

void Connection::ready(bool readable, bool writable) {
    // An event from before it was closed in the same round.
    if (!isClosed() && m_session != nullptr)
        m_session->ready(*this, readable, writable);
}

void Connection::watch(bool reading, bool writing) {
    writing = writing || hasBacklog();
    if (!isClosed() && (reading != m_reading || writing != m_writing)) {
        m_poller.watch(m_descriptor, reading, writing, static_cast<Watched *>(this));
        m_reading = reading;
        m_writing = writing;
    }
}

Connection::Result Connection::receive(char *buffer, std::size_t length, std::size_t &count,
                                       bool fromSocket) {
    if (!m_unread.empty()) {
        count = std::min(length, m_unread.size());
        std::memcpy(buffer, m_unread.data(), count);
        m_unread.erase(0, count);
        return Result::bytes;
    }
    if (m_secure)
        return receiveSecure(buffer, length, count, fromSocket);
    return fromSocket ? receiveRaw(buffer, length, count) : Result::blocked;
}

Connection::Result Connection::receiveRaw(char *buffer, std::size_t length, std::size_t &count) {
    const std::int64_t received =
        platform::receive(m_descriptor, reinterpret_cast<unsigned char *>(buffer), length);
    if (received > 0) {
        count = static_cast<std::size_t>(received);
        return Result::bytes;
    }
    if (received == 0)
        return Result::ended;
    return isTemporary(platform::socketError()) ? Result::blocked : Result::lost;
}

Connection::Result Connection::receiveSecure(char *buffer, std::size_t length, std::size_t &count,
                                             bool fromSocket) {
    for (;;) {
        const SecureStream::Result opened = m_secure->open(buffer, length, count);
        if (!sendSealed() || opened == SecureStream::Result::failed)
            return Result::lost;
        if (opened == SecureStream::Result::bytes)
            return Result::bytes;
        if (opened == SecureStream::Result::ended && m_sendsPlain) {
            m_unread = m_secure->takeRest();
            m_secure.reset();
            return receive(buffer, length, count, fromSocket);
        }
        if (opened == SecureStream::Result::ended)
            return Result::ended;
        if (!fromSocket)
            return Result::blocked;
        std::array<char, securePiece> sealed;
        std::size_t taken = 0;
        const Result received = receiveRaw(sealed.data(), sealed.size(), taken);
        if (received != Result::bytes) {
            // The stream must not end before the channel does.
            return received == Result::ended ? Result::lost : received;
        }
        m_secure->feed(std::string_view(sealed.data(), taken));
    }
}

bool Connection::hasUnread() const {
    return !m_unread.empty() || (m_secure && m_secure->hasBytes());
}

void Connection::secure(std::unique_ptr<SecureStream> secure) {
    m_secure = std::move(secure);
    m_secure->feed(m_unread);
    m_unread = std::string();
}

bool Connection::send(std::string_view bytes) {
    if (m_secure && !m_sendsPlain)
        return m_secure->seal(bytes) && sendSealed();
    return sendRaw(bytes);
}

bool Connection::sendLastSecure(std::string_view bytes) {
    if (!m_secure->seal(bytes))
        return false;
    m_secure->close();
    m_sendsPlain = true;
    return sendRaw(m_secure->takeSealed());
}

// Once this side has closed the channel nothing of it may come between plain bytes.
bool Connection::sendSealed() {
    const std::string sealed = m_secure->takeSealed();
    return m_sendsPlain || sendRaw(sealed);
}

bool Connection::sendRaw(std::string_view bytes) {
    if (hasBacklog()) {
        m_backlog.append(bytes);
        return flush();
    }
    while (!bytes.empty()) {
        const std::int64_t sent = platform::send(
            m_descriptor, reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size());
        if (sent <= 0) {
            m_backlog = bytes;
            return sent < 0 && isTemporary(platform::socketError());
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool Connection::flush() {
    if (hasBacklog()) {
        std::string bytes;
        bytes.swap(m_backlog); // its memory goes, too, once all of it is sent
        if (!sendRaw(bytes))
            return false;
    }
    if (m_ending && !hasBacklog()) {
        m_ending = false;
        platform::shutdownSending(m_descriptor);
    }
    return true;
}

void Connection::endSending() {
    if (m_secure && !m_sendsPlain) {
        m_secure->close();
        sendSealed();
    }
    m_ending = true;
    flush();
}

bool Connection::ownEnd(Endpoint &endpoint) const {
    Endpoint bound;
    if (!platform::boundEndpoint(m_descriptor, m_peer.family, bound))
        return false;
    endpoint = plain(bound);
    return true;
}

void Connection::close() {
    if (!isClosed()) {
        m_poller.watch(m_descriptor, false, false, nullptr);
        platform::closeSocket(m_descriptor);
        m_descriptor = -1;
    }
}

} // namespace mux
