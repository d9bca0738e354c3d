// Which way a client is sent. A participant's CONNECT names its meeting, and an address: for a
// participant that calls this server directly, or through a proxy elsewhere, that is the address of
// this server itself. One for which this server is the proxy names the party that it wants, and
// comes with two requests on one connection, of which only the first one can carry credentials.
//
// Who answers is looked for in this order: a party that offers to, the one that the operator has
// listed, the one that the client names. Where nobody can be reached the client waits.
#include "Session.h"

#include "HTTPHead.h"
#include "Reply.h"
#include "Server.h"

#include <algorithm>
#include <cstring>
#include <vintok/HTTPText.h>

namespace mux {

namespace {

constexpr char jump[] = "pLorMUX_ProxyJump";
constexpr char responseRequired[] = "pLorMUX_ResponseRequired";
constexpr std::size_t mostAddresses = 4; // of one party

} // namespace

void Session::takeConnect(const Request &request) {
    const Options &options = m_server.options();
    if (options.secureOnly && !m_near.connection->isSecure())
        return refuse(403, "only over TLS");
    m_meeting = request.header(vintok::http_pLorMUX_MeetingID);
    if (m_meeting.empty() && request.says(jump, "true"))
        return takeJump(request);
    // The line behind CONNECT has the same address with a port that may look negative.
    Authority named;
    const std::string_view address = request.header(vintok::http_pLorMUX_ConferenceAddress);
    if (!parseAuthority(address.empty() ? request.target : address, named))
        return refuse(400, "no address that can be called");
    if (m_meeting.empty())
        return refuse(400, "no meeting identifier");
    if (!isAuthorized(request))
        return challenge(401);
    for (const std::string &key : {m_meeting, named.text()}) {
        const auto found = options.redirects.find(key);
        if (found != options.redirects.end()) {
            return refuse(302, "go elsewhere",
                          "Location: http://" + found->second.text() + "/\r\n");
        }
    }
    if (m_server.isFull())
        return refuse(503, "too many tunnels");
    m_offers = request.says(app::offerHeader, "true");
    m_near.readyMissing =
        request.says(responseRequired, "true") ? std::strlen(vintok::http_pLorMUX_Ready) : 0;
    route(named);
}

// The client takes this server for a proxy on its way. The way ends here, wherever it leads: the
// request that follows says who is wanted.
void Session::takeJump(const Request &request) {
    if (m_authorized)
        return refuse(400, "no meeting identifier");
    if (!isAuthorized(request))
        return challenge(407);
    m_authorized = true;
    if (!m_near.connection->send(jumpedReply()))
        return finish();
    enter(State::request);
}

bool Session::isAuthorized(const Request &request) const {
    const Options &options = m_server.options();
    const auto &open = options.openMeetings;
    return options.credentials.empty() || m_authorized ||
           std::find(open.begin(), open.end(), m_meeting) != open.end() ||
           options.credentials.accept(request.header("Proxy-Authorization")) ||
           options.credentials.accept(request.header("Authorization"));
}

void Session::challenge(int status) {
    refuse(status, "credentials are needed",
           std::string(status == 407 ? "Proxy" : "WWW") +
               "-Authenticate: Basic realm=\"multiplexer\"\r\n");
}

void Session::route(const Authority &named) {
    Meetings &meetings = m_server.meetings();
    if (Session *other = m_offers ? meetings.takeCaller(*this) : meetings.takeOffer(*this))
        return join(*other);
    const auto &listed = m_server.options().meetings;
    const auto found = listed.find(m_meeting);
    if (m_offers || (found != listed.end() && !found->second)) {
        wait();
    } else if (found != listed.end()) {
        m_listed = true;
        call(*found->second);
    } else if (isSelf(named)) {
        waitForPartner();
    } else {
        call(named);
    }
}

bool Session::isSelf(const Authority &named) const {
    const std::vector<Authority> &names = m_server.options().names;
    return std::find(names.begin(), names.end(), named) != names.end();
}

bool Session::isSelf(const Endpoint &endpoint) const {
    Endpoint own;
    return portOf(endpoint) == m_server.port() &&
           (isLoopback(endpoint) ||
            (m_near.connection->ownEnd(own) && addressBytes(own) == addressBytes(endpoint)));
}

void Session::call(const Authority &party) {
    Endpoint literal;
    if (makeEndpoint(party.host, party.port, literal))
        return called({literal});
    const Rules &allowed = m_server.options().allowed;
    m_allowed = m_listed || allowed.allowsName(party);
    // A name may be another one of this server's own.
    if (!m_allowed && !allowed.mayAllowPort(party.port) && party.port != m_server.port())
        return refuse(403, "this party may not be called");
    if (!m_server.resolver().ask(m_id, party.host, party.port))
        return refuse(503, "too many names to look up");
    m_near.connection->watch(!m_near.connection->hasUnread());
    enter(State::resolving);
}

void Session::resolved(const std::vector<Endpoint> &found) {
    if (m_state == State::resolving)
        called(found);
}

// The party that is wanted has these addresses.
void Session::called(const std::vector<Endpoint> &found) {
    const Rules &allowed = m_server.options().allowed;
    if (!m_listed && std::any_of(found.begin(), found.end(),
                                 [this](const Endpoint &each) { return isSelf(each); }))
        return waitForPartner();
    for (const Endpoint &endpoint : found)
        if (m_listed || m_allowed || allowed.allowsAddress(endpoint))
            m_untried.insert(m_untried.begin(), endpoint);
    if (m_untried.empty() && !found.empty())
        return refuse(403, "this party may not be called");
    if (m_untried.size() > mostAddresses)
        m_untried.erase(m_untried.begin(), m_untried.end() - mostAddresses);
    m_called = true;
    callNext();
}

void Session::callNext() {
    if (m_far.connection)
        m_server.bury(std::move(m_far.connection));
    while (!m_untried.empty() && !m_far.connection) {
        m_far.connection = Connection::call(m_server.poller(), m_untried.back());
        if (m_far.connection)
            m_server.guard(*m_far.connection);
        m_untried.pop_back();
    }
    if (!m_far.connection)
        return waitForPartner();
    m_far.isClient = false;
    m_far.connection->belongsTo(this);
    m_far.connection->watch(false, true);
    m_near.connection->watch(!m_near.connection->hasUnread());
    enter(State::connecting);
}

void Session::connectEnded() {
    if (m_far.connection->connected())
        open("called");
    else
        callNext();
}

void Session::waitForPartner() {
    Meetings &meetings = m_server.meetings();
    Session *other =
        m_listed || meetings.hasAnswerer(m_meeting) ? nullptr : meetings.takeCaller(*this);
    if (other != nullptr)
        join(*other);
    else
        wait();
}

void Session::wait() {
    if (m_server.meetings().waiting() >= m_server.options().maxWaiting)
        return refuse(503, "too many wait");
    if (!m_offers && m_server.meetings().hasUnfitOffer(*this))
        return refuse(403, encrypts() ? "the other party has come without TLS"
                                      : "the other party has come over TLS");
    m_near.connection->watch(!m_near.connection->hasUnread());
    enter(State::waiting);
    m_server.meetings().add(*this);
    m_server.log().line("wait", m_id, description() + (m_offers ? " offers" : ""));
}

// With one that has waited.
void Session::join(Session &other) {
    m_far = std::move(other.m_near);
    m_far.connection->belongsTo(this);
    other.finish();
    m_answered = m_offers || other.m_offers;
    if (m_offers)
        std::swap(m_near, m_far);
    if (m_answered)
        m_server.meetings().answered(m_meeting);
    open(m_answered ? "offered" : "joined");
}

} // namespace mux
