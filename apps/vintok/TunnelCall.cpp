// Whom a participant names to the library depends on the way:
//
//     way                                remote name      proxy name
//     the multiplexer alone              multiplexer      none
//     a party, by way of a multiplexer   the party        multiplexer
//     through a proxy to a multiplexer   multiplexer      proxy
//
// Without a proxy name there is one request, else two on one connection, and the first of the two
// alone can carry credentials. In the second way both go to the multiplexer, which learns from the
// last one which party is wanted; in the others it learns the meeting identifier alone.
//
// Credentials are sent to nobody who has not asked for them: the first call goes without, and the
// answer to a challenge is a second call. A multiplexer that was called alone is then named as its
// own proxy, in other words for the same place, since the library makes one request of equal names.
// A redirect never takes credentials to another server.
#include "TunnelCall.h"

#include "Base64.h"

#include <vintok/HTTPAddress.h>
#include <vintok/HTTPText.h>
#include <vintok/TCPAddress.h>
#include <vintok/TCPStream.h>

#include <algorithm>

namespace app {

namespace {

// How many redirects and challenges are followed.
constexpr unsigned int usualRetries = 5;

// Behind CONNECT the library writes a port as a number of 16 bits with a sign.
constexpr unsigned short lastPlainPort = 32767;

// The same place under another name: a literal of IPv4 in its IPv6 form (RFC 4291), a literal of
// IPv6 as it is, for that gets brackets, a name with one letter in the other case.
std::string inOtherWords(std::string host) {
    vintok::TCPAddress address;
    if (host.find(':') != std::string::npos)
        return host;
    if (address.setName(host); address.isIPv4())
        return "::ffff:" + host;
    for (char &c : host) {
        const bool small = c >= 'a' && c <= 'z';
        if (small || (c >= 'A' && c <= 'Z')) {
            c = static_cast<char>(c ^ ('a' ^ 'A'));
            break;
        }
    }
    return host;
}

} // namespace

std::string CallPlan::remoteName() const {
    const bool literal = remote.host.find(':') != std::string::npos;
    return literal && !proxy.host.empty() ? '[' + remote.host + ']' : remote.host;
}

TunnelCall::TunnelCall(const TunnelOptions &tunnel, const Target &target, bool secure,
                       Report &report)
    : m_tunnel(tunnel), m_target(target), m_secure(secure), m_report(report) {
    plan(tunnel.multiplexer);
    m_plan.meetingID = tunnel.meetingID;
    m_plan.retries = usualRetries;
}

// How to call by way of this multiplexer.
void TunnelCall::plan(const Target &multiplexer) {
    m_plan.remote = multiplexer;
    m_plan.proxy = Target();
    if (hasProxy()) {
        m_plan.proxy = m_tunnel.proxy;
    } else if (!m_target.host.empty()) {
        m_plan.remote = m_target;
        m_plan.proxy = multiplexer;
    }
}

bool TunnelCall::takeNext() {
    if (!m_next)
        return false;
    m_plan = *m_next;
    m_next.reset();
    m_answers = 0;
    m_anyAnswer = false;
    return true;
}

std::string TunnelCall::fault() const {
    const std::size_t remote = m_plan.remoteName().size();
    const std::size_t proxy = m_plan.proxy.host.size();
    if (!vintok::fitsMultiplexerRequest(remote, proxy, m_plan.meetingID.size()))
        return "the meeting identifier is too long for a request";
    // Who is asked for them may be named twice.
    const std::size_t credentials = base64(m_tunnel.credentials).size();
    if (credentials != 0 && !vintok::fitsProxyRequest(remote, std::max(remote, proxy), credentials))
        return "the user name and the password are too long for a request";
    return "";
}

// ---- Who answers ----

// The last one of a connection that came so far.
Target TunnelCall::answerer() const {
    return hasProxy() && m_answers > 1 ? m_plan.remote : m_plan.connectsTo();
}

std::string TunnelCall::role() const {
    return hasProxy() && m_answers <= 1 ? "proxy" : "multiplexer";
}

std::string TunnelCall::who() const {
    return "the " + role() + ' ' + answerer().text();
}

// ---- What was answered ----

void TunnelCall::answered(unsigned int status, const std::string &reply) {
    if (m_anyAnswer && !vintok::isHTTPSuccess(m_status))
        return; // the library tells a server's failure twice
    ++m_answers;
    m_anyAnswer = true;
    m_status = static_cast<int>(status);
    m_reply = readServerReply(reply);
    m_silent = reply.empty();
    m_paused = status == 0 && vintok::lastError() == vintok::TCP_ERROR_WOULD_BLOCK;
    m_opened = vintok::isHTTPSuccess(m_status) && (m_answers == 2 || !asksTwice());
    if (status == 0)
        return;
    Notice notice;
    notice.event = "reply";
    notice.sentence = "The " + who().substr(4) + " answers " + m_reply.text() + '.';
    notice.fields.text("from", role())
        .text("whom", answerer().text())
        .number("status", m_reply.status)
        .text("reason", m_reply.reason)
        .text("detail", m_reply.detail);
    m_report.notice(notice);
}

void TunnelCall::challenged(unsigned int retries) {
    if (m_answers != 1 || !m_plan.authentication.empty() || m_tunnel.credentials.empty() ||
        !m_reply.takesBasic)
        return; // `failure` says why
    const std::string user = m_tunnel.credentials.substr(0, m_tunnel.credentials.find(':'));
    Notice notice;
    notice.event = "challenge";
    notice.sentence = "It asks for a user name and a password" +
                      (m_reply.realm.empty() ? "" : " for \"" + m_reply.realm + '"') +
                      ": calling again as " + user + '.';
    notice.fields.text("from", role())
        .text("whom", answerer().text())
        .text("realm", m_reply.realm)
        .text("user", user);
    m_report.notice(notice);
    m_next = m_plan;
    m_next->authentication = base64(m_tunnel.credentials);
    m_next->retries = retries;
    if (!asksTwice()) {
        m_next->proxy = m_plan.remote;
        m_next->remote.host = inOtherWords(m_plan.remote.host);
    }
}

void TunnelCall::redirected(const std::string &name, unsigned short port, unsigned int retries) {
    const Target to{name, port};
    if (m_opened) {
        m_sentOn = to.text();
        return;
    }
    Notice notice;
    notice.event = "redirected";
    notice.sentence = "It sends the call on to " + to.text() + '.';
    notice.fields.text("from", role()).text("whom", answerer().text()).text("to", to.text());
    m_report.notice(notice);
    const CallPlan before = m_plan;
    plan(to);
    m_plan.retries = retries;
    if (!hasProxy())
        m_plan.authentication.clear();
    m_next = m_plan;
    m_plan = before;
}

// ---- Why nothing came of it ----

std::string TunnelCall::challengeFailure() const {
    const std::string asks = who() + " asks for a user name and a password";
    const bool answered = !m_plan.authentication.empty() && m_answers == 1;
    if (const std::string fault = m_reply.challengeFault(answered); !fault.empty())
        return who() + fault;
    if (m_answers != 1)
        return asks + ", which cannot be brought to it through a proxy";
    return asks + ": give them with --auth-file, --auth or VINTOK_PROXY_AUTH";
}

std::string TunnelCall::secureServer() const {
    return m_opened && m_reply.encryption == "true" ? who() : "";
}

std::string TunnelCall::failure() const {
    if (!m_sentOn.empty())
        return "the host is full, and sends the call on to " + m_sentOn +
               ", which is to be called without a multiplexer";
    if (m_opened && m_secure && !m_reply.encryption.empty() && secureServer().empty())
        return who() + " goes on without TLS, which is required";
    if (!m_anyAnswer || vintok::isHTTPSuccess(m_status))
        return "";
    if (m_status == 0) {
        return who() + (m_paused
                            ? " has sent a part of its answer only, and the rest is not waited for"
                        : m_silent ? " has closed the connection without a whole answer"
                                   : " answers in something that is not HTTP");
    }
    if (m_reply.isChallenge())
        return challengeFailure();
    if (m_status == 302) {
        return who() + (vintok::HTTPAddress().setURL(m_reply.location)
                            ? " sends the call on once too often"
                            : " sends the call on and does not say where");
    }
    std::string refusal = who() + " refuses the call: " + m_reply.text();
    if (hasProxy() && m_answers == 1 && m_plan.remote.port > lastPlainPort) {
        refusal +=
            "; a port above 32767 is written in the request as a negative number, which many "
            "proxies do not understand";
    }
    return refusal;
}

} // namespace app
