// The loop calls with a listening socket that somebody knocks at, or with a client that has sent a
// whole frame, or has ended. One call takes one connection, or a share of the messages that have
// come. Broadcasts that lie behind each other are relayed as one run; who cannot be written to is
// found out when his own descriptor turns up. A client is dropped by its own message, by a reset,
// or by the end of its stream; an unfinished or malformed frame drops nobody.
#include "vintok/TCPServer.h"

#include "vintok/AcceptGuard.h"
#include "vintok/Listeners.h"
#include "vintok/Log.h"
#include "vintok/RelayRun.h"
#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"
#include "vintok/StreamLoop.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <exception>
#include <new>

namespace vintok {

namespace {

constexpr std::size_t portsToTry = 255;

} // namespace

TCPServer::TCPServer(unsigned short port, bool exactPort, bool localOnly)
    : m_relay(std::make_shared<RelayRun>(sf_spread, this)) {
    init();
    const std::size_t tries = exactPort ? 1 : portsToTry;
    const Listeners listeners =
        localOnly ? Listeners::onLoopback(port, tries) : Listeners::anywhere(port, tries);
    m_listenIPv4 = listeners.ipv4;
    m_listenIPv6 = listeners.ipv6;
    m_port = listeners.port();
    if (!listeners.exist()) {
        VINTOK_LOG(SEVERITY_ERROR, "TCPServer could not create socket");
        return;
    }
    try {
        m_select = std::make_shared<TCPSelect>();
        m_acceptGuard = std::make_shared<AcceptGuard>();
    } catch (const std::exception &) {
        VINTOK_LOG(SEVERITY_ERROR, "TCPServer could not allocate select object");
        m_select.reset();
        mf_closeListeners();
        m_port = 0;
        return;
    }
    watchListener(*m_select, m_listenIPv4, sf_connectCB, this);
    watchListener(*m_select, m_listenIPv6, sf_connectCB, this);
    if (m_listenIPv4 == -1 && m_listenIPv6 == -1) {
        m_select.reset();
        m_port = 0;
        VINTOK_LOG(SEVERITY_ERROR, "TCPServer could not add connect callback");
    }
}

TCPServer::~TCPServer() {
    mf_release();
    fini();
}

TCPServer::TCPServer(const TCPServer &other)
    : m_select(other.m_select),
      m_dataCB(other.m_dataCB),
      m_clients(other.m_clients),
      m_listenIPv4(other.m_listenIPv4),
      m_listenIPv6(other.m_listenIPv6),
      m_port(other.m_port),
      m_majorVersion(other.m_majorVersion),
      m_minorVersion(other.m_minorVersion),
      m_acceptGuard(other.m_acceptGuard),
      m_relay(std::make_shared<RelayRun>(sf_spread, this)) {
    init(); // for its own destructor
}

TCPServer &TCPServer::operator=(const TCPServer &other) {
    if (this == &other)
        return *this;
    mf_release();
    m_select = other.m_select;
    m_dataCB = other.m_dataCB;
    m_clients = other.m_clients;
    m_listenIPv4 = other.m_listenIPv4;
    m_listenIPv6 = other.m_listenIPv6;
    m_port = other.m_port;
    m_majorVersion = other.m_majorVersion;
    m_minorVersion = other.m_minorVersion;
    m_acceptGuard = other.m_acceptGuard;
    return *this;
}

void TCPServer::setVersion(unsigned short major, unsigned short minor) {
    m_majorVersion = major;
    m_minorVersion = minor;
}

void TCPServer::run() {
    if (m_select != nullptr)
        m_select->run();
}

bool TCPServer::running() const {
    return m_select != nullptr && m_select->running();
}

void TCPServer::interrupt() {
    if (m_select != nullptr)
        m_select->interrupt();
}

// ---- Listening sockets ----

void TCPServer::mf_closeListeners() {
    closeListener(m_select.get(), m_listenIPv4, sf_connectCB, this);
    closeListener(m_select.get(), m_listenIPv6, sf_connectCB, this);
}

// Lets go of everything but the library.
void TCPServer::mf_release() {
    mf_shutdown();
    mf_closeListeners();
    m_select.reset();
}

void TCPServer::sf_connectCB(int descriptor, void *data, bool /*hangup*/) {
    auto *const server = static_cast<TCPServer *>(data);
    if (server != nullptr &&
        (descriptor == server->m_listenIPv4 || descriptor == server->m_listenIPv6))
        server->mf_connectPending(descriptor);
}

void TCPServer::mf_connectPending(int listener) {
    const int descriptor = m_acceptGuard->accept(listener);
    if (descriptor == -1)
        return;
    if (m_select == nullptr ||
        !m_select->addSocketCallback(descriptor, sf_dataCB, this, true, false)) {
        VINTOK_LOG(SEVERITY_ERROR, "mf_connectPending addSocketCallback failed");
        shutdownSocket(descriptor);
        return;
    }
    try {
        m_clients.push_back(descriptor);
    } catch (const std::bad_alloc &) {
        m_select->removeCallback(descriptor, sf_dataCB, this);
        shutdownSocket(descriptor);
        return;
    }
    bufferFrames(descriptor);
    readAhead(descriptor);
    VINTOK_LOG(SEVERITY_INFO, formatText("Connection accepted fd = %d", descriptor));
}

// ---- Clients ----

void TCPServer::sf_dataCB(int descriptor, void *data, bool hangup) {
    auto *const server = static_cast<TCPServer *>(data);
    if (server == nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "sf_dataCB no server instance data");
        return;
    }
    const std::vector<int> &clients = server->m_clients;
    if (clients.empty())
        VINTOK_LOG(SEVERITY_ERROR, "sf_dataCB no attendees");
    else if (std::find(clients.begin(), clients.end(), descriptor) == clients.end())
        VINTOK_LOG(SEVERITY_ERROR, "Data Pending on non peer descriptor");
    else
        server->mf_dataPending(descriptor, hangup);
}

void TCPServer::mf_dataPending(int descriptor, bool hangup) {
    if (hangup) {
        VINTOK_LOG(SEVERITY_INFO, formatText("Hangup on %d", descriptor));
        mf_handleHangup(descriptor);
        return;
    }
    const std::weak_ptr<RelayRun> alive = m_relay;
    const std::shared_ptr<StreamBuffer> buffer = bufferOf(descriptor);
    TCPMessage message(descriptor);
    std::size_t taken = 0;
    do {
        if (!(buffer != nullptr ? message.readBuffered(*buffer) : message.read(-1, nullptr))) {
            if (lastError() == TCP_ERROR_CONNECTION_RESET) {
                VINTOK_LOG(SEVERITY_ERROR, formatText("Reset on %d", descriptor));
                mf_handleHangup(descriptor);
            }
            break;
        }
        taken += static_cast<std::size_t>(message.rawBufferLength());
        mf_handleMessage(message);
        if (alive.expired())
            return; // that was the end of the server
    } while (buffer != nullptr && buffer->offers(taken));
    m_relay->close();
}

void TCPServer::mf_handleMessage(TCPMessage &message) {
    if (message.messageID() == TCP_broadcastMessage) {
        mf_broadcastMessage(message);
        if (m_dataCB != nullptr)
            m_dataCB(this, message.messageBuffer(), message.messageBufferLength());
    } else if (message.messageID() == TCP_hangup) {
        mf_handleHangup(message.socketDescriptor());
    } else if (message.messageID() == TCP_keepAlive) {
        VINTOK_LOG(SEVERITY_TRACE, "Keep Alive");
    }
}

bool TCPServer::mf_broadcastMessage(TCPMessage &message) {
    if (message.rawBytes().shared() != nullptr) {
        m_relay->add(message.socketDescriptor(), message.rawBytes());
        return true;
    }
    return mf_writeClients(message, message.socketDescriptor(), nullptr);
}

void TCPServer::sf_spread(void *owner, StreamLoop &loop, int source, const Span &span) {
    for (const int client : static_cast<TCPServer *>(owner)->m_clients)
        if (client != source)
            loop.relay(client, span);
}

bool TCPServer::mf_sendKeepAlive(int except) {
    TCPMessage message;
    message.setMessageMajorVersion(m_majorVersion);
    message.setMessageMinorVersion(m_minorVersion);
    message.setMessageID(TCP_keepAlive);
    if (!message.allocateMessageBuffer(1))
        return false;
    if (message.messageBuffer() == nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "mf_sendKeepAlive allocation failed");
        return false;
    }
    message.messageBuffer()[0] = 0;
    return mf_writeClients(message, except, "mf_sendKeepAlive write failed");
}

// True unless a write failed; `complaint`, if any, is then logged.
bool TCPServer::mf_writeClients(TCPMessage &message, int except, const char *complaint) {
    bool allWritten = true;
    for (const int client : m_clients) {
        if (client == except || message.write(client, nullptr))
            continue;
        allWritten = false;
        if (complaint != nullptr)
            VINTOK_LOG(SEVERITY_ERROR, complaint);
    }
    return allWritten;
}

void TCPServer::mf_handleHangup(int descriptor) {
    const auto found = std::find(m_clients.begin(), m_clients.end(), descriptor);
    if (descriptor == -1 || found == m_clients.end())
        return;
    m_relay->close();
    m_clients.erase(found);
    if (m_select != nullptr)
        m_select->removeCallback(descriptor, sf_dataCB, this);
    shutdownSocket(descriptor);
}

void TCPServer::mf_setBlockingBroadcast() {
    std::for_each(m_clients.begin(), m_clients.end(), setBlocking);
}

void TCPServer::mf_setNonBlockingBroadcast() {
    std::for_each(m_clients.begin(), m_clients.end(), setNonBlocking);
}

void TCPServer::mf_shutdown() {
    while (!m_clients.empty())
        mf_handleHangup(m_clients.front());
}

} // namespace vintok
