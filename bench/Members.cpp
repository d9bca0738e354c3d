#include "Child.h"
#include "Fanout.h"

#include "vintok/vintok.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {
namespace {

// How many bytes may be on their way to each listener.
constexpr std::size_t window = 128 * 1024;

void sendEntry(int descriptor, const vintok::TCPGUID &identifier, std::size_t number) {
    vintok::TCPAddress address; // one that no other member has
    address.setLoopbackIPv4();
    address.setHostByteOrderPort(static_cast<std::uint16_t>(40000 + number));
    vintok::ConferenceRosterEntry entry(address);
    entry.setFirstName("Member");
    entry.setMajorVersion(4);
    vintok::TCPMessage message(descriptor);
    message.setMessageMajorVersion(4);
    message.setMessageID(identifier);
    if (!message.allocateMessageBuffer(entry.size()) ||
        !entry.write(message.messageBuffer(), message.messageBufferLength()) ||
        !message.write(-1, nullptr))
        fail("sending an entry");
}

} // namespace

Members::Members(unsigned short port, const Load &load, bool joins)
    : m_load(load), m_epoll(epoll_create1(0)), m_scratch(1 << 18) {
    m_frame = frame('m');
    for (std::size_t i = 0; i <= load.members; ++i) {
        int descriptor = vintok::connectLocal(port);
        if (descriptor < 0)
            fail("connecting");
        if (joins)
            join(descriptor, i);
        epoll_event event = {};
        event.events = EPOLLIN;
        event.data.fd = descriptor;
        epoll_ctl(m_epoll, EPOLL_CTL_ADD, descriptor, &event);
        if (i == 0)
            m_speaker = descriptor;
        else
            m_listeners.push_back(descriptor);
    }
    passFence();
}

Members::~Members() {
    for (int listener : m_listeners)
        vintok::shutdownSocket(listener);
    vintok::shutdownSocket(m_speaker);
    close(m_epoll);
}

void Members::talk() {
    std::size_t toSend = (warmUp + m_load.messages - 1) * m_frame.size(); // the fence was the first
    std::size_t toDrain = toSend * m_listeners.size();
    m_sent = m_drained = 0;
    while (m_drained < toDrain) {
        while (m_sent < toSend && m_sent < m_drained / m_listeners.size() + window) {
            std::size_t before = m_sent;
            send();
            if (m_sent == before)
                break;
        }
        drain(100);
    }
}

// Says hello behind the host's own hello, and asks to be let in.
void Members::join(int descriptor, std::size_t number) {
    await(descriptor, vintok::TCP_rosterEntry);
    sendEntry(descriptor, vintok::TCP_rosterEntry, number);
    sendEntry(descriptor, vintok::TCP_joinRequest, number);
    await(descriptor, vintok::TCP_joinReply);
}

// Reads messages until one of this kind; the others take their rosters meanwhile.
void Members::await(int descriptor, const vintok::TCPGUID &identifier) {
    vintok::TCPMessage message(descriptor);
    do {
        while (!message.read(-1, nullptr)) {
            if (vintok::lastError() != vintok::TCP_ERROR_WOULD_BLOCK)
                fail("awaiting a message");
            drain(0);
        }
    } while (!(message.messageID() == identifier));
}

std::vector<unsigned char> Members::frame(unsigned char filling) const {
    vintok::TCPMessage message;
    message.setMessageMajorVersion(4);
    message.setMessageID(vintok::TCP_broadcastMessage);
    if (!message.allocateMessageBuffer(m_load.body))
        fail("building a frame");
    std::memset(message.messageBuffer(), filling, m_load.body);
    return {message.rawBuffer(), message.rawBuffer() + message.rawBufferLength()};
}

// A first message comes to each listener behind everything that the joins have made the host send.
void Members::passFence() {
    std::vector<unsigned char> fence = frame('f');
    if (::send(m_speaker, fence.data(), fence.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(fence.size()))
        fail("sending the fence");
    for (int listener : m_listeners) {
        std::vector<unsigned char> seen;
        while (
            seen.size() < fence.size() ||
            !std::equal(fence.begin(), fence.end(), seen.end() - static_cast<long>(fence.size()))) {
            ssize_t got = recv(listener, m_scratch.data(), m_scratch.size(), 0);
            if (got <= 0)
                fail("receiving the fence");
            seen.insert(seen.end(), m_scratch.begin(), m_scratch.begin() + got);
        }
    }
}

// The next bytes of the run of equal frames, as many as the socket takes now.
void Members::send() {
    std::size_t offset = m_sent % m_frame.size();
    ssize_t sent = ::send(m_speaker, m_frame.data() + offset, m_frame.size() - offset,
                          MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent > 0)
        m_sent += static_cast<std::size_t>(sent);
    else if (errno != EAGAIN)
        fail("sending");
}

// Takes what has arrived for the listeners, waiting for the first of it as many milliseconds.
void Members::drain(int timeout) {
    epoll_event events[64];
    int ready = epoll_wait(m_epoll, events, 64, timeout);
    for (int i = 0; i < ready; ++i) {
        ssize_t got = recv(events[i].data.fd, m_scratch.data(), m_scratch.size(), MSG_DONTWAIT);
        if (got == 0) // the host has passed everything on, and gone
            epoll_ctl(m_epoll, EPOLL_CTL_DEL, events[i].data.fd, nullptr);
        if (got > 0 && events[i].data.fd != m_speaker)
            m_drained += static_cast<std::size_t>(got);
    }
}

} // namespace bench
