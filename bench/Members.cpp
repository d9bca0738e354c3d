#include "Members.h"
#include "Child.h"
#include "Hosts.h"

#include "vintok/vintok.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/tcp.h>
#include <string>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr std::size_t readSize = 256 * 1024;
constexpr std::uint64_t fence = ~std::uint64_t{0}; // in place of a talk
constexpr std::size_t kindOffset = 21;             // where identifiers differ, in both headers
constexpr std::size_t shortestHeader = 36;
constexpr char lineEnd[] = "\r\n"; // of a NATS server

unsigned char kindOf(const vintok::TCPGUID &identifier) {
    return static_cast<unsigned char>(identifier.Data2);
}

bool isTalk(const unsigned char *frame) {
    return frame[kindOffset] == kindOf(vintok::TCP_broadcastMessage) ||
           frame[kindOffset] == kindOf(vintok::TCP_fileTransferData);
}

// What a member says of itself.
Bytes makeEntry(const vintok::TCPGUID &kind, std::size_t number) {
    vintok::TCPAddress address; // one that no other member has
    address.setIPv4(htonl(0x0A4D0000U + static_cast<std::uint32_t>(number)));
    address.setHostByteOrderPort(7777);
    vintok::ConferenceRosterEntry entry(address);
    entry.setFirstName("Member");
    entry.setMajorVersion(4);
    Bytes frame = makeFrame(kind, entry.size());
    if (!entry.write(frame.data() + frameHeader, frame.size() - frameHeader))
        fail("making an entry");
    return frame;
}

} // namespace

int connectTo(unsigned short port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0), on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        fail("connecting");
    return descriptor;
}

void sayWho(int descriptor, std::size_t number, bool joins) {
    for (const auto *said : {&vintok::TCP_rosterEntry, &vintok::TCP_joinRequest}) {
        const Bytes entry = makeEntry(*said, number);
        if (said == &vintok::TCP_rosterEntry || joins)
            send(descriptor, entry.data(), entry.size(), MSG_NOSIGNAL);
    }
}

Bytes makeFrame(const vintok::TCPGUID &kind, std::size_t body) {
    vintok::TCPMessage message;
    message.setMessageMajorVersion(4);
    message.setMessageID(kind);
    if (!message.allocateMessageBuffer(body))
        fail("making a frame");
    std::memset(message.messageBuffer(), 'm', body);
    return {message.rawBuffer(), message.rawBuffer() + message.rawBufferLength()};
}

Members::Members(std::vector<unsigned short> ports, bool joins, Speaks speaks)
    : m_ports(std::move(ports)),
      m_joins(joins),
      m_speaks(speaks),
      m_epoll(epoll_create1(0)),
      m_scratch(readSize + readSize / 2) {}

Members::~Members() {
    for (const Member &member : m_members)
        close(member.descriptor);
    close(m_epoll);
}

void Members::join() {
    m_members.emplace_back(connectTo(m_ports[count() % m_ports.size()]));
    watch(EPOLL_CTL_ADD, count() - 1);
    if (m_speaks == Speaks::natively) {
        constexpr std::string_view greeting = "CONNECT {\"verbose\":false,\"echo\":false}\r\n"
                                              "SUB bench 1\r\nPING\r\n";
        m_members.back().out.assign(greeting.begin(), greeting.end());
        flush(count() - 1);
    }
    if (m_joins)
        turnUntil([this] { return m_members.back().joined; });
}

void Members::takeRoster() {
    turnUntil([this] {
        return m_members.back().roster >= count() + m_ports.size(); // the hosts are in it too
    });
}

void Members::passFence() {
    m_fenced = 0;
    Bytes frame = makeFrame(vintok::TCP_broadcastMessage, sizeof(Stamp));
    say(count() - 1, frame, {0, 0, fence});
    flush(count() - 1);
    turnUntil([this] { return m_fenced == count() - 1; });
}

void Members::stopLast() {
    epoll_ctl(m_epoll, EPOLL_CTL_DEL, m_members.back().descriptor, nullptr);
    ++m_stopped;
}

void Members::say(std::size_t member, Bytes &frame, const Stamp &stamp) {
    std::memcpy(frame.data() + frameHeader, &stamp, sizeof stamp);
    Bytes &out = m_members[member].out;
    if (m_speaks == Speaks::frames) {
        out.insert(out.end(), frame.begin(), frame.end());
        return;
    }
    const std::string line = "PUB bench " + std::to_string(frame.size() - frameHeader) + lineEnd;
    out.insert(out.end(), line.begin(), line.end());
    out.insert(out.end(), frame.begin() + frameHeader, frame.end());
    out.insert(out.end(), lineEnd, lineEnd + 2);
}

void Members::flush(std::size_t number) {
    Member &member = m_members[number];
    while (member.sent < member.out.size()) {
        const ssize_t sent = send(member.descriptor, member.out.data() + member.sent,
                                  member.out.size() - member.sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EAGAIN)
            fail("sending");
        if (sent < 0)
            break;
        member.sent += static_cast<std::size_t>(sent);
    }
    if (member.sent == member.out.size() || member.sent > readSize) {
        member.out.erase(member.out.begin(), member.out.begin() + static_cast<long>(member.sent));
        member.sent = 0;
    }
    if (member.full != !member.out.empty()) {
        member.full = !member.full;
        watch(EPOLL_CTL_MOD, number);
    }
}

void Members::turn(std::int64_t time) {
    epoll_event events[256];
    const timespec limit = {time / 1'000'000'000, time % 1'000'000'000};
    const int ready = epoll_pwait2(m_epoll, events, 256, &limit, nullptr);
    for (int i = 0; i < ready; ++i) {
        if ((events[i].events & EPOLLOUT) != 0)
            flush(events[i].data.u64);
        if ((events[i].events & ~std::uint32_t{EPOLLOUT}) != 0)
            receive(events[i].data.u64);
    }
}

void Members::turnUntil(const std::function<bool()> &condition) {
    const std::int64_t limit = nanoseconds(CLOCK_MONOTONIC) + 60'000'000'000;
    while (!condition()) {
        if (nanoseconds(CLOCK_MONOTONIC) > limit)
            fail("waiting for the host");
        turn(100'000'000);
    }
}

void Members::receive(std::size_t number) {
    Member &member = m_members[number];
    const std::size_t before = member.start.size();
    std::copy(member.start.begin(), member.start.end(), m_scratch.begin());
    const ssize_t got = recv(member.descriptor, m_scratch.data() + before, readSize, MSG_DONTWAIT);
    if (got < 0 && errno == EAGAIN)
        return;
    if (got <= 0)
        fail("the host has gone");
    member.start.clear();
    take(number, m_scratch.data(), before + static_cast<std::size_t>(got));
}

void Members::take(std::size_t number, const unsigned char *bytes, std::size_t length) {
    Member &member = m_members[number];
    for (;;) {
        const std::size_t skipped = std::min(member.skipped, length);
        member.skipped -= skipped;
        bytes += skipped;
        length -= skipped;
        if (m_speaks == Speaks::natively) {
            if (takeLine(number, bytes, length))
                continue;
            member.start.assign(bytes, bytes + length);
            return;
        }
        if (length < shortestHeader || (isTalk(bytes) && length < frameHeader + sizeof(Stamp))) {
            member.start.assign(bytes, bytes + length);
            return;
        }
        handle(number, bytes);
        member.skipped = frameLength(bytes);
    }
}

// A line of a NATS server, with the begin of the message that it announces. False when there is no
// more than a part of that.
bool Members::takeLine(std::size_t number, const unsigned char *&bytes, std::size_t &length) {
    Member &member = m_members[number];
    const auto *end = static_cast<const unsigned char *>(std::memchr(bytes, '\n', length));
    if (end == nullptr)
        return false;
    const std::string_view line(reinterpret_cast<const char *>(bytes),
                                static_cast<std::size_t>(end - bytes) - 1);
    std::size_t used = line.size() + 2;
    if (line.substr(0, 4) == "MSG ") {
        if (length < used + sizeof(Stamp))
            return false;
        const std::size_t body = std::stoul(std::string(line.substr(line.rfind(' ') + 1)));
        handleStamp(number, bytes + used);
        member.skipped = used + body + 2;
        return true;
    }
    member.joined = member.joined || line == "PONG";
    if (line == "PING") {
        constexpr std::string_view answer = "PONG\r\n";
        member.out.insert(member.out.end(), answer.begin(), answer.end());
        flush(number);
    }
    bytes += used;
    length -= used;
    return true;
}

void Members::handle(std::size_t number, const unsigned char *frame) {
    if (isTalk(frame))
        handleStamp(number, frame + frameHeader);
    else
        handleJoin(number, frame[kindOffset]);
}

void Members::handleStamp(std::size_t number, const unsigned char *body) {
    Stamp stamp;
    std::memcpy(&stamp, body, sizeof stamp);
    if (stamp.talk == fence)
        ++m_fenced;
    else
        heard(number, stamp);
}

// Says hello behind the host's own hello, and asks to be let in.
void Members::handleJoin(std::size_t number, unsigned char kind) {
    Member &member = m_members[number];
    if (kind == kindOf(vintok::TCP_rosterEntry) && !member.joined) {
        for (const auto *said : {&vintok::TCP_rosterEntry, &vintok::TCP_joinRequest}) {
            const Bytes entry = makeEntry(*said, number);
            member.out.insert(member.out.end(), entry.begin(), entry.end());
        }
        flush(number);
    }
    member.joined = member.joined || kind == kindOf(vintok::TCP_joinReply);
    member.roster += kind == kindOf(vintok::TCP_rosterReply) ? 1 : 0;
}

void Members::watch(int operation, std::size_t number) const {
    epoll_event event = {};
    event.events = m_members[number].full ? EPOLLIN | EPOLLOUT : EPOLLIN;
    event.data.u64 = number;
    epoll_ctl(m_epoll, operation, m_members[number].descriptor, &event);
}

} // namespace bench
