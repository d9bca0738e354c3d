// One thread offers: it connects, through the proxy if there is one, asks, and waits for the
// answer, which comes with a caller. The connection then becomes a passage to the host's own port,
// with a thread of its own (OfferPassages.cpp), and the next offer is made. What the thread has to
// tell is kept for the loop of the host, which alone speaks to the report (OfferReport.cpp).
//
//     answer              then
//     2xx                 a caller is there: pass bytes, offer again
//     504                 nobody came in time: offer again
//     401, 407            once with credentials, where there are some; else given up
//     302                 offer there, a few times in a row
//     5xx, 408, 429, none try again, later each time
//     anything else       given up
//
// Resolving and connecting cannot be broken off. So nobody waits for the thread at the end.
#include "TunnelOffer.h"

#include "Base64.h"
#include "Failure.h"
#include "HTTPHead.h"
#include "ServerReply.h"

#include <vintok/HTTPAddress.h>
#include <vintok/HTTPText.h>
#include <vintok/TCPAddress.h>
#include <vintok/TCPStream.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace app {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr int mostRedirects = 5; // in a row
constexpr seconds shortestDelay(1);
constexpr seconds longestDelay(60);
constexpr seconds proxyTime(60);
// An offer is renewed after that time: a firewall on the way may have forgotten the connection.
constexpr seconds offerTime(900);

bool mayPass(int status) {
    return status == 0 || status == 408 || status == 429 || (status >= 500 && status <= 599);
}

enum class Then { atOnce, differently, later, never };
enum class Server { none, proxy, multiplexer };

// What runs on the thread.
class Offerer {
public:
    Offerer(std::shared_ptr<TunnelOffer> offer, const TunnelOptions &tunnel, unsigned short port)
        : m_offer(std::move(offer)),
          m_tunnel(tunnel),
          m_port(port),
          m_multiplexer(tunnel.multiplexer) {}

    void run();

private:
    bool pause();
    Then offer();
    bool connect(Passage &passage);
    Then ask(const std::shared_ptr<Passage> &passage, Server server, const std::string &request,
             bool &granted);
    Then judge(Server server, const std::string &text);
    Then challenged(Server server, const ServerReply &reply);
    Then redirected(const ServerReply &reply);
    Then take(const std::shared_ptr<Passage> &passage);

    std::string credentials(Server server) const;
    std::string request() const;
    std::string who(Server server) const;
    Then fails(const std::string &reason, Then then);

    const std::shared_ptr<TunnelOffer> m_offer;
    const TunnelOptions m_tunnel;
    const unsigned short m_port;
    Target m_multiplexer;
    Server m_asked = Server::none; // who has asked for the credentials and gets them
    int m_redirects = 0;
    seconds m_delay = shortestDelay;
    bool m_refused = false; // the last failure came behind the request
};

void Offerer::run() {
    while (m_offer->passages.awaitRoom()) {
        const Then then = offer();
        if (then == Then::never || (then == Then::later && !pause()))
            return;
    }
}

bool Offerer::pause() {
    const seconds delay = std::exchange(m_delay, std::min(2 * m_delay, longestDelay));
    return m_offer->passages.pause(delay);
}

Then Offerer::offer() {
    const auto passage = std::make_shared<Passage>();
    if (!passage->open())
        return fails(withLastFailure("cannot make sockets on the loopback address"), Then::later);
    if (!connect(*passage))
        return Then::later;
    bool granted = true;
    if (!m_tunnel.proxy.host.empty()) {
        const std::string jump = "CONNECT " + m_multiplexer.text() + " HTTP/1.0\r\n" +
                                 credentials(Server::proxy) + "\r\n";
        const Then then = ask(passage, Server::proxy, jump, granted);
        if (!granted)
            return then;
    }
    const Clock::time_point begin = Clock::now();
    const Then then = ask(passage, Server::multiplexer, request(), granted);
    if (granted)
        return take(passage);
    // A server that ends every offer at once is not asked without a pause.
    const bool stood = Clock::now() - begin >= shortestDelay;
    if (then == Then::atOnce && stood)
        m_delay = shortestDelay;
    return then == Then::atOnce && !stood ? Then::later : then;
}

bool Offerer::connect(Passage &passage) {
    const Target &target = m_tunnel.proxy.host.empty() ? m_multiplexer : m_tunnel.proxy;
    vintok::TCPAddress address;
    if (!address.resolve(target.host)) {
        m_refused = false;
        fails("cannot find the host '" + target.host + "'", Then::later);
        return false;
    }
    address.setHostByteOrderPort(target.port);
    passage.server = vintok::connectToBoundSocket(address);
    if (passage.server == -1) {
        m_refused = false;
        fails(withLastFailure("cannot reach " + target.text()), Then::later);
    }
    return passage.server != -1;
}

Then Offerer::ask(const std::shared_ptr<Passage> &passage, Server server,
                  const std::string &request, bool &granted) {
    granted = false;
    const bool last = server == Server::multiplexer;
    if (!m_offer->passages.await(passage, last ? offerTime : proxyTime))
        return Then::never;
    if (!passage->write(request))
        return fails(who(server) + " has closed the connection", Then::later);
    if (last)
        m_offer->report.asked(m_multiplexer.text(), m_tunnel.meetingID, m_refused);
    const std::string text = passage->readReply();
    if (last)
        m_offer->report.answered();
    if (passage->isWoken())
        return last ? Then::atOnce : fails(who(server) + " does not answer", Then::later);
    granted = vintok::isHTTPSuccess(readServerReply(text).status);
    return granted ? Then::atOnce : judge(server, text);
}

Then Offerer::judge(Server server, const std::string &text) {
    const ServerReply reply = readServerReply(text);
    m_refused = server == Server::multiplexer;
    if (text.empty() || reply.status == 0) {
        return fails(who(server) + (text.empty() ? " has closed the connection without an answer"
                                                 : " answers in something that is not HTTP"),
                     Then::later);
    }
    if (reply.isChallenge())
        return challenged(server, reply);
    if (reply.status == 302 && server == Server::multiplexer)
        return redirected(reply);
    if (reply.status == 504 && server == Server::multiplexer) {
        m_redirects = 0;
        m_refused = false;
        return Then::atOnce;
    }
    return fails(who(server) + " refuses the offer: " + reply.text(),
                 mayPass(reply.status) ? Then::later : Then::never);
}

Then Offerer::challenged(Server server, const ServerReply &reply) {
    const std::string asks = who(server) + " asks for a user name and a password";
    if (const std::string fault = reply.challengeFault(m_asked == server); !fault.empty())
        return fails(who(server) + fault, Then::never);
    if (m_tunnel.credentials.empty()) {
        return fails(asks + ": give them with --auth-file, --auth or VINTOK_PROXY_AUTH",
                     Then::never);
    }
    if (m_asked != Server::none)
        return fails(asks + ", and so does the other server on the way", Then::never);
    m_asked = server;
    return Then::differently;
}

Then Offerer::redirected(const ServerReply &reply) {
    vintok::HTTPAddress to;
    std::string name;
    if (!to.setURL(reply.location) || !(to.name(name) || to.ipString(name, false))) {
        return fails(who(Server::multiplexer) + " sends the offer on and does not say where",
                     Then::never);
    }
    if (++m_redirects > mostRedirects)
        return fails(who(Server::multiplexer) + " sends the offer on once too often", Then::never);
    m_multiplexer = Target{name, to.hostByteOrderPort()};
    m_offer->report.moved();
    if (m_asked == Server::multiplexer)
        m_asked = Server::none; // a redirect takes no credentials to another server
    return Then::differently;
}

// A caller is there. The multiplexer waits for the ready line, and the caller for the host.
Then Offerer::take(const std::shared_ptr<Passage> &passage) {
    m_delay = shortestDelay;
    m_redirects = 0;
    m_refused = false;
    passage->local = vintok::connectLocal(m_port);
    if (passage->local == -1)
        return fails(withLastFailure("cannot reach the own port"), Then::later);
    if (!passage->write(vintok::http_pLorMUX_Ready))
        return Then::atOnce; // the caller has gone
    if (!m_offer->passages.take(passage))
        return Then::never;
    return Passage::start(passage, [offer = m_offer] { offer->passages.left(); })
               ? Then::atOnce
               : fails("cannot start a thread", Then::later);
}

std::string Offerer::credentials(Server server) const {
    if (m_asked != server)
        return "";
    return (server == Server::proxy ? "Proxy-Authorization: Basic " : "Authorization: Basic ") +
           base64(m_tunnel.credentials) + "\r\n";
}

std::string Offerer::request() const {
    const std::string address = m_multiplexer.text();
    const std::string end = vintok::http_httpNewLine;
    return "CONNECT " + address + " HTTP/1.0" + end + vintok::http_pLorMUX_Version2_0 + end +
           vintok::http_pLorMUX_ResponseRequiredTrue + end + vintok::http_pLorMUX_RedirectTrue +
           end + offerHeader + ": true" + end + vintok::http_pLorMUX_MeetingID + ": " +
           m_tunnel.meetingID + end + vintok::http_pLorMUX_ConferenceAddress + ": " + address +
           end + credentials(Server::multiplexer) + end;
}

std::string Offerer::who(Server server) const {
    return server == Server::proxy ? "the proxy " + m_tunnel.proxy.text()
                                   : "the multiplexer " + m_multiplexer.text();
}

// The next try begins where the first one did.
Then Offerer::fails(const std::string &reason, Then then) {
    if (m_multiplexer.text() != m_tunnel.multiplexer.text()) {
        m_multiplexer = m_tunnel.multiplexer;
        m_asked = m_asked == Server::multiplexer ? Server::none : m_asked;
    }
    m_redirects = 0;
    m_offer->report.failed(reason, then != Then::never);
    return then;
}

} // namespace

std::shared_ptr<TunnelOffer> TunnelOffer::start(const TunnelOptions &tunnel, unsigned short port) {
    auto offer = std::make_shared<TunnelOffer>();
    try {
        std::thread([offerer = std::make_shared<Offerer>(offer, tunnel, port)] {
            offerer->run();
        }).detach();
    } catch (const std::system_error &) {
        return nullptr;
    }
    return offer;
}

} // namespace app
