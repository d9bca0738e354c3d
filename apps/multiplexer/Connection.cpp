#include "Connection.h"

#include "Session.h"

#include <algorithm>
#include <cstring>

namespace mux {

namespace platform = vintok::platform;

namespace {

// Numbers of the system error table.
constexpr int INTERRUPTED = 4;
constexpr int WOULD_BLOCK = 10035;
constexpr int IN_PROGRESS = 10036;

bool isTemporary(int error) {
    return error == WOULD_BLOCK || error == INTERRUPTED;
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
    if (descriptor == -1) {
        return nullptr;
    }
    auto connection = std::make_unique<Connection>(poller, descriptor, peer);
    if (!platform::connectSocket(descriptor, peer) && platform::socketError() != IN_PROGRESS &&
        !isTemporary(platform::socketError())) {
        return nullptr;
    }
    return connection;
}

bool Connection::connected() const {
    return platform::connectSucceeded(m_descriptor);
}

void Connection::ready(bool readable, bool writable) {
    // An event from before it was closed in the same round.
    if (!isClosed() && m_session != nullptr) {
        m_session->ready(*this, readable, writable);
    }
}

void Connection::watch(bool reading, bool writing) {
    writing = writing || hasBacklog();
    if (!isClosed() && (reading != m_reading || writing != m_writing)) {
        m_poller.watch(m_descriptor, reading, writing, static_cast<Watched *>(this));
        m_reading = reading;
        m_writing = writing;
    }
}

Connection::Result Connection::receive(char *buffer, std::size_t length, std::size_t &count) {
    if (!m_unread.empty()) {
        count = std::min(length, m_unread.size());
        std::memcpy(buffer, m_unread.data(), count);
        m_unread.erase(0, count);
        return Result::bytes;
    }
    const std::int64_t received =
        platform::receive(m_descriptor, reinterpret_cast<unsigned char *>(buffer), length);
    if (received > 0) {
        count = static_cast<std::size_t>(received);
        return Result::bytes;
    }
    if (received == 0) {
        return Result::ended;
    }
    return isTemporary(platform::socketError()) ? Result::blocked : Result::lost;
}

bool Connection::send(std::string_view bytes) {
    if (hasBacklog()) {
        m_backlog.append(bytes);
        return flush();
    }
    while (!bytes.empty()) {
        const std::int64_t sent = platform::send(
            m_descriptor, reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size());
        if (sent < 0 && !isTemporary(platform::socketError())) {
            return false;
        }
        if (sent < 0) {
            m_backlog = bytes;
            return true;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool Connection::flush() {
    if (hasBacklog()) {
        std::string bytes;
        bytes.swap(m_backlog); // its memory goes, too, once all of it is sent
        if (!send(bytes)) {
            return false;
        }
    }
    if (m_ending && !hasBacklog()) {
        m_ending = false;
        platform::shutdownSending(m_descriptor);
    }
    return true;
}

void Connection::endSending() {
    m_ending = true;
    flush();
}

bool Connection::ownEnd(Endpoint &endpoint) const {
    Endpoint bound;
    if (!platform::boundEndpoint(m_descriptor, m_peer.family, bound)) {
        return false;
    }
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
