// Bytes from one end to the other. What is received is sent on at once; what the other end does not
// take is its backlog, and while it has one nothing more is received for it. So each direction
// holds one piece at most, and none when nothing is under way.
//
// A participant throws away what reaches it before it has written its ready line: until that has
// come, nothing is received from the other end.
#include "Session.h"

#include "Reply.h"
#include "Server.h"

#include <algorithm>
#include <cstdio>
#include <vintok/HTTPText.h>

namespace mux {

namespace {

constexpr int pieces = 8; // at a time, for the others' sake

std::string seconds(Clock::duration time) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", std::chrono::duration<double>(time).count());
    return text;
}

} // namespace

void Session::open(const std::string &how) {
    ++m_server.statistics().opened;
    m_opened = m_server.now();
    m_server.log().line("open", m_id,
                        description() + ' ' + how + ' ' + endpointText(m_far.connection->peer()));
    enter(State::passing);
    for (Leg *leg : {&m_near, &m_far})
        if (leg->isClient && !sendOpened(*leg->connection))
            return closeTunnel("lost");
    pass();
}

bool Session::encrypts() const {
    return m_near.connection->isSecure() && !m_server.options().plainTunnels;
}

bool Session::sendOpened(Connection &connection) const {
    if (!connection.isSecure() || !m_server.options().plainTunnels)
        return connection.send(openedReply(connection.isSecure()));
    return connection.sendLastSecure(openedReply(false));
}

void Session::pass() {
    if (!passFrom(m_near, m_far) || !passFrom(m_far, m_near))
        return;
    // The ready line of one end lets the other one through, and no socket tells of what was sent
    // ahead.
    if (m_near.connection->hasUnread() && !passFrom(m_near, m_far))
        return;
    if (m_near.ended && m_far.ended && !m_near.connection->hasBacklog() &&
        !m_far.connection->hasBacklog())
        return closeTunnel("ended");
    m_near.connection->watch(mayReceive(m_near, m_far));
    m_far.connection->watch(mayReceive(m_far, m_near));
}

bool Session::mayReceive(const Leg &from, const Leg &to) {
    return !from.ended && !to.connection->hasBacklog() &&
           (from.readyMissing != 0 || to.readyMissing == 0);
}

// False when that was the end of the tunnel.
bool Session::passFrom(Leg &from, Leg &to) {
    if (!to.connection->flush()) {
        closeTunnel("lost");
        return false;
    }
    for (int piece = 0; mayReceive(from, to) && (piece < pieces || from.connection->hasUnread());
         ++piece) {
        std::array<char, 65536> &scratch = m_server.scratch();
        const std::size_t room = from.readyMissing != 0 ? from.readyMissing : scratch.size();
        std::size_t count = 0;
        // The part of a record always counts as unread: the socket is left to the next round.
        switch (from.connection->receive(scratch.data(), room, count, piece < pieces)) {
        case Connection::Result::bytes:
            if (!passBytes(from, to, std::string_view(scratch.data(), count)))
                return false;
            break;
        case Connection::Result::blocked:
            return true;
        case Connection::Result::ended:
            from.ended = true;
            to.connection->endSending();
            return true;
        case Connection::Result::lost:
            closeTunnel("lost");
            return false;
        }
    }
    return true;
}

bool Session::passBytes(Leg &from, Leg &to, std::string_view bytes) {
    m_since = m_server.now();
    if (from.readyMissing != 0) {
        const std::string_view ready = vintok::http_pLorMUX_Ready;
        const std::string_view missing = ready.substr(ready.size() - from.readyMissing);
        from.readyMissing -= bytes.size();
        if (missing.substr(0, bytes.size()) != bytes) {
            closeTunnel("wrong ready line");
            return false;
        }
        return true;
    }
    from.received += bytes.size();
    Statistics &statistics = m_server.statistics();
    (&from == &m_near ? statistics.toCalled : statistics.toCaller) += bytes.size();
    if (!to.connection->send(bytes)) {
        closeTunnel("lost");
        return false;
    }
    return true;
}

std::size_t Session::held() const {
    std::size_t sum = 0;
    for (const Leg *leg : {&m_near, &m_far})
        sum += leg->connection ? leg->connection->held() : 0;
    return sum;
}

void Session::closeTunnel(const std::string &reason) {
    m_server.log().line("close", m_id,
                        description() + " sent " + std::to_string(m_near.received) + " received " +
                            std::to_string(m_far.received) + " seconds " +
                            seconds(m_server.now() - m_opened) + ' ' + quoted(reason));
    if (m_answered)
        m_server.meetings().ended(m_meeting);
    finish();
}

} // namespace mux
