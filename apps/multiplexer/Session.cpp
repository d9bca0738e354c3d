#include "Session.h"

#include "Reply.h"
#include "Server.h"

#include <algorithm>

namespace mux {

namespace {

constexpr std::chrono::seconds closingTime(2);
constexpr std::size_t mostDiscarded = 1 << 20;
constexpr char tlsHandshake = 0x16;     // the first byte of a stream
constexpr std::size_t mostAhead = 4096; // bytes of a client that is early

} // namespace

Session::Session(Server &server, std::uint64_t id, std::unique_ptr<Connection> connection)
    : m_server(server), m_id(id), m_since(server.now()), m_reader(server.options().maxHeader) {
    m_near.connection = std::move(connection);
    m_near.connection->belongsTo(this);
    m_near.connection->watch(true);
}

void Session::ready(Connection &connection, bool readable, bool writable) {
    switch (m_state) {
    case State::request:
        return readRequest();
    case State::connecting:
        if (&connection == m_far.connection.get())
            return connectEnded();
        return readAhead();
    case State::resolving:
    case State::waiting:
        return readAhead();
    case State::passing:
        return pass();
    case State::closing:
        if (writable && !connection.flush())
            return finish();
        if (readable)
            discard();
        return;
    case State::finished:
        return;
    }
}

void Session::tick() {
    const Options &options = m_server.options();
    const Clock::duration passed = m_server.now() - m_since;
    switch (m_state) {
    case State::request:
        if (passed > options.requestTime)
            refuse(408, "the request took too long");
        return;
    case State::resolving:
        if (passed > options.connectTime)
            waitForPartner();
        return;
    case State::connecting:
        if (passed > options.connectTime)
            callNext();
        return;
    case State::waiting:
        if (passed > options.waitTime) {
            m_server.meetings().remove(*this);
            refuse(504, whyNobodyCame());
        } else if (m_near.connection->hasUnread() && m_near.connection->peerEnded()) {
            leave(); // it has sent ahead, so nothing is received that would tell of its end
        }
        return;
    case State::passing:
        if (m_near.readyMissing + m_far.readyMissing != 0 &&
            m_server.now() - m_opened > options.requestTime)
            closeTunnel("no ready line");
        else if (m_far.isClient && !m_answered && m_near.received + m_far.received == 0 &&
                 m_server.now() - m_opened > options.requestTime)
            closeTunnel("two callers, and neither speaks first");
        else if (options.idleTime.count() != 0 && passed > options.idleTime)
            closeTunnel("idle");
        return;
    case State::closing:
        if (passed > closingTime)
            finish();
        return;
    case State::finished:
        return;
    }
}

const char *Session::whyNobodyCame() const {
    if (m_called)
        return "the party cannot be reached";
    const Meetings &meetings = m_server.meetings();
    if (!meetings.hasUnfitOffer(*this) && !meetings.hasUnfitCaller(*this))
        return "nobody came to the meeting";
    return encrypts() ? "nobody came over TLS" : "nobody came without TLS";
}

void Session::end(const std::string &reason) {
    if (m_state == State::passing)
        return closeTunnel(reason);
    if (m_state == State::waiting)
        m_server.meetings().remove(*this);
    if (m_state != State::closing && m_state != State::finished)
        refuse(503, reason);
    finish();
}

void Session::enter(State state) {
    const State before = m_state;
    m_state = state;
    m_since = m_server.now();
    m_server.changed(*this, before);
}

void Session::finish() {
    if (m_state == State::finished)
        return;
    for (Leg *leg : {&m_near, &m_far})
        if (leg->connection)
            leg->connection->close();
    enter(State::finished);
}

std::string Session::description() const {
    std::string text = "from " + endpointText(m_near.connection->peer());
    if (!m_meeting.empty() && !m_server.options().hideMeetings)
        text += " meeting " + quoted(m_meeting);
    return text;
}

// ---- Requests ----

void Session::readRequest() {
    Request request;
    while (m_state == State::request) {
        std::size_t length = 0;
        switch (m_reader.read(m_bytes, request, length)) {
        case RequestReader::Result::more:
            if (!receiveRequest())
                return;
            break;
        case RequestReader::Result::bad:
            return refuse(400, "not a request");
        case RequestReader::Result::tooLong:
            return refuse(431, "the request is too long");
        case RequestReader::Result::whole:
            m_near.connection->unread(std::string_view(m_bytes).substr(length));
            m_bytes = std::string();
            take(request);
            break;
        }
    }
}

// True when there is something new to look at.
bool Session::receiveRequest() {
    const std::size_t room = m_server.options().maxHeader + 1 - m_bytes.size();
    std::size_t count = 0;
    switch (m_near.connection->receive(m_server.scratch().data(),
                                       std::min(room, m_server.scratch().size()), count)) {
    case Connection::Result::bytes:
        m_bytes.append(m_server.scratch().data(), count);
        beginSecure();
        return true;
    case Connection::Result::blocked:
        return false;
    case Connection::Result::ended:
        if (!m_bytes.empty()) {
            refuse(400, "the request has no end");
            return false;
        }
        break;
    case Connection::Result::lost:
        break;
    }
    finish();
    return false;
}

// A client that speaks TLS begins with it, or begins it behind the answer of a proxy.
void Session::beginSecure() {
    Connection &connection = *m_near.connection;
    if (m_server.security() == nullptr || connection.isSecure() || m_bytes[0] != tlsHandshake)
        return;
    if (std::unique_ptr<SecureStream> stream = m_server.security()->accept()) {
        connection.unread(m_bytes);
        m_bytes.clear();
        connection.secure(std::move(stream));
    }
}

void Session::take(const Request &request) {
    if (request.method == "CONNECT")
        takeConnect(request);
    else if (request.method == "GET")
        takeStatus(request);
    else
        refuse(405, "only CONNECT and GET are known here", "Allow: CONNECT, GET\r\n");
}

// For whoever sits at this machine, or has credentials.
void Session::takeStatus(const Request &request) {
    const Credentials &credentials = m_server.options().credentials;
    if (request.target != "/status")
        refuse(404, "there is only /status");
    else if (isLoopback(m_near.connection->peer()) ||
             credentials.accept(request.header("Authorization")))
        answer(pageReply(m_server.statusPage()));
    else if (credentials.empty())
        refuse(403, "the status is for this machine");
    else
        challenge(401);
}

// ---- Endings ----

void Session::refuse(int status, const std::string &reason, const std::string &more) {
    ++m_server.statistics().refused;
    m_server.log().line("refuse", m_id,
                        description() + ' ' + std::to_string(status) + ' ' + quoted(reason));
    answer(refusal(status, reason, more));
}

void Session::answer(const std::string &reply) {
    if (m_far.connection)
        m_server.bury(std::move(m_far.connection));
    m_bytes = std::string();
    if (!m_near.connection->send(reply))
        return finish();
    m_near.connection->endSending();
    m_near.connection->watch(true);
    enter(State::closing);
}

void Session::discard() {
    for (std::size_t count = 0; m_discarded < mostDiscarded; m_discarded += count) {
        switch (m_near.connection->receive(m_server.scratch().data(), m_server.scratch().size(),
                                           count)) {
        case Connection::Result::bytes:
            break;
        case Connection::Result::blocked:
            return m_near.connection->watch(true);
        case Connection::Result::ended:
        case Connection::Result::lost:
            return finish();
        }
    }
    finish();
}

// The client has a party to wait for, and may send ahead a little or leave.
void Session::readAhead() {
    std::size_t count = 0;
    switch (m_near.connection->receive(m_server.scratch().data(), mostAhead, count)) {
    case Connection::Result::bytes:
        m_near.connection->unread(std::string_view(m_server.scratch().data(), count));
        return m_near.connection->watch(false);
    case Connection::Result::blocked:
        return;
    case Connection::Result::ended:
    case Connection::Result::lost:
        leave();
    }
}

void Session::leave() {
    if (m_state == State::waiting)
        m_server.meetings().remove(*this);
    m_server.log().line("leave", m_id, description());
    finish();
}

} // namespace mux
