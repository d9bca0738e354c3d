// One thread offers: it connects, through the proxy if there is one, asks, and waits for the
// answer, which comes with a caller. The connection then becomes a passage to the host's own port,
// with threads of its own, and the next offer is made. What the thread has to tell is kept for the
// loop of the host, which alone speaks to the report.
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
#include "Offer.h"

#include "Base64.h"
#include "Failure.h"
#include "HTTPHead.h"
#include "Passage.h"
#include "ServerReply.h"

#include <vintok/HTTPAddress.h>
#include <vintok/HTTPText.h>
#include <vintok/TCPAddress.h>
#include <vintok/TCPStream.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace app {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr std::size_t MOST_PASSAGES = 100; // guests by this way; each takes five descriptors
constexpr int MOST_REDIRECTS = 5;          // in a row
constexpr seconds SHORTEST_DELAY(1);
constexpr seconds LONGEST_DELAY(60);
constexpr seconds PROXY_TIME(60);
// An offer is renewed after that time: a firewall on the way may have forgotten the connection.
constexpr seconds OFFER_TIME(900);
constexpr seconds FLUSH_TIME(2);
constexpr seconds END_TIME(1);

bool mayPass(int status) {
    return status == 0 || status == 408 || status == 429 || (status >= 500 && status <= 599);
}

} // namespace

struct Offer::State {
    // Keeps the library open for the threads that are still at work when the program closes it.
    State() { vintok::init(); }
    ~State() { vintok::fini(); }
    State(const State &) = delete;
    State &operator=(const State &) = delete;

    std::mutex mutex;
    std::condition_variable changed;
    bool ending = false;
    std::deque<Notice> news;
    std::weak_ptr<Passage> offering; // it waits for an answer until the deadline
    Clock::time_point deadline;
    std::optional<Notice> held; // told once the offer has stood until then
    Clock::time_point heldUntil;
    std::vector<std::weak_ptr<Passage>> passages;

    void tell(Notice notice) {
        const std::lock_guard<std::mutex> lock(mutex);
        news.push_back(std::move(notice));
    }
    void tellEnd() {
        const std::lock_guard<std::mutex> lock(mutex);
        changed.notify_all();
    }
    // Under the lock.
    std::size_t countPassages() {
        passages.erase(std::remove_if(passages.begin(), passages.end(),
                                      [](const auto &each) { return each.expired(); }),
                       passages.end());
        return passages.size();
    }
    bool waitForPassages(std::unique_lock<std::mutex> &lock, seconds time) {
        return changed.wait_for(lock, time, [this] { return countPassages() == 0; });
    }
    static void wake(const std::weak_ptr<Passage> &passage) {
        if (const std::shared_ptr<Passage> alive = passage.lock()) {
            alive->wake();
        }
    }
};

// What runs on the thread.
class Offer::Offerer {
public:
    Offerer(std::shared_ptr<State> state, const Way &way, unsigned short port)
        : m_state(std::move(state)), m_way(way), m_port(port), m_multiplexer(way.multiplexer) {}

    void run();

private:
    enum class Then { atOnce, differently, later, never };
    enum class Server { none, proxy, multiplexer };

    bool mayOffer();
    bool pause();
    Then offer();
    bool connect(Passage &passage);
    bool watchUntil(const std::shared_ptr<Passage> &passage, seconds time);
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
    void tellOffering();
    void dropHeld();

    const std::shared_ptr<State> m_state;
    const Way m_way;
    const unsigned short m_port;
    Target m_multiplexer;
    Server m_asked = Server::none; // who has asked for the credentials and gets them
    int m_redirects = 0;
    seconds m_delay = SHORTEST_DELAY;
    bool m_told = false;     // the last thing told is that the offer stands
    bool m_troubled = false; // a failure has been told since
    bool m_refused = false;  // the last failure came behind the request
};

void Offer::Offerer::run() {
    while (mayOffer()) {
        const Then then = offer();
        if (then == Then::never || (then == Then::later && !pause())) {
            return;
        }
    }
}

// Waits while there are as many guests as there may be.
bool Offer::Offerer::mayOffer() {
    std::unique_lock<std::mutex> lock(m_state->mutex);
    m_state->changed.wait(
        lock, [this] { return m_state->ending || m_state->countPassages() < MOST_PASSAGES; });
    return !m_state->ending;
}

bool Offer::Offerer::pause() {
    std::unique_lock<std::mutex> lock(m_state->mutex);
    const bool ending =
        m_state->changed.wait_for(lock, m_delay, [this] { return m_state->ending; });
    m_delay = std::min(2 * m_delay, LONGEST_DELAY);
    return !ending;
}

Offer::Offerer::Then Offer::Offerer::offer() {
    const auto passage = std::make_shared<Passage>();
    if (!passage->open()) {
        return fails(withLastFailure("cannot make sockets on the loopback address"), Then::later);
    }
    if (!connect(*passage)) {
        return Then::later;
    }
    bool granted = true;
    if (!m_way.proxy.host.empty()) {
        const std::string jump = "CONNECT " + m_multiplexer.text() + " HTTP/1.0\r\n" +
                                 credentials(Server::proxy) + "\r\n";
        const Then then = ask(passage, Server::proxy, jump, granted);
        if (!granted) {
            return then;
        }
    }
    const Clock::time_point begin = Clock::now();
    const Then then = ask(passage, Server::multiplexer, request(), granted);
    if (granted) {
        return take(passage);
    }
    // A server that ends every offer at once is not asked without a pause.
    const bool stood = Clock::now() - begin >= SHORTEST_DELAY;
    if (then == Then::atOnce && stood) {
        m_delay = SHORTEST_DELAY;
    }
    return then == Then::atOnce && !stood ? Then::later : then;
}

bool Offer::Offerer::connect(Passage &passage) {
    const Target &target = m_way.proxy.host.empty() ? m_multiplexer : m_way.proxy;
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

// False when the host leaves.
bool Offer::Offerer::watchUntil(const std::shared_ptr<Passage> &passage, seconds time) {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->offering = passage;
    m_state->deadline = Clock::now() + time;
    return !m_state->ending;
}

Offer::Offerer::Then Offer::Offerer::ask(const std::shared_ptr<Passage> &passage, Server server,
                                         const std::string &request, bool &granted) {
    granted = false;
    const bool last = server == Server::multiplexer;
    if (!watchUntil(passage, last ? OFFER_TIME : PROXY_TIME)) {
        return Then::never;
    }
    if (!passage->write(request)) {
        return fails(who(server) + " has closed the connection", Then::later);
    }
    if (last) {
        tellOffering();
    }
    const std::string text = passage->readReply();
    if (last) {
        dropHeld();
    }
    if (passage->isWoken()) {
        return last ? Then::atOnce : fails(who(server) + " does not answer", Then::later);
    }
    granted = vintok::isHTTPSuccess(readServerReply(text).status);
    return granted ? Then::atOnce : judge(server, text);
}

Offer::Offerer::Then Offer::Offerer::judge(Server server, const std::string &text) {
    const ServerReply reply = readServerReply(text);
    m_refused = server == Server::multiplexer;
    if (text.empty() || reply.status == 0) {
        return fails(who(server) + (text.empty() ? " has closed the connection without an answer"
                                                 : " answers in something that is not HTTP"),
                     Then::later);
    }
    if (reply.isChallenge()) {
        return challenged(server, reply);
    }
    if (reply.status == 302 && server == Server::multiplexer) {
        return redirected(reply);
    }
    if (reply.status == 504 && server == Server::multiplexer) {
        m_redirects = 0;
        m_refused = false;
        return Then::atOnce;
    }
    return fails(who(server) + " refuses the offer: " + reply.text(),
                 mayPass(reply.status) ? Then::later : Then::never);
}

Offer::Offerer::Then Offer::Offerer::challenged(Server server, const ServerReply &reply) {
    const std::string asks = who(server) + " asks for ";
    if (m_asked == server) {
        return fails(who(server) + " does not accept the user name or the password", Then::never);
    }
    if (!reply.takesBasic) {
        return fails(asks + "credentials by the scheme '" + reply.scheme +
                         "'; only 'basic' is known here",
                     Then::never);
    }
    if (m_way.credentials.empty()) {
        return fails(asks + "a user name and a password: give them with --auth-file, --auth or "
                            "VINTOK_PROXY_AUTH",
                     Then::never);
    }
    if (m_asked != Server::none) {
        return fails(asks + "a user name and a password, and so does the other server on the way",
                     Then::never);
    }
    m_asked = server;
    return Then::differently;
}

Offer::Offerer::Then Offer::Offerer::redirected(const ServerReply &reply) {
    vintok::HTTPAddress to;
    std::string name;
    if (!to.setURL(reply.location) || !(to.name(name) || to.ipString(name, false))) {
        return fails(who(Server::multiplexer) + " sends the offer on and does not say where",
                     Then::never);
    }
    if (++m_redirects > MOST_REDIRECTS) {
        return fails(who(Server::multiplexer) + " sends the offer on once too often", Then::never);
    }
    m_multiplexer = Target{name, to.hostByteOrderPort()};
    m_told = false;
    if (m_asked == Server::multiplexer) {
        m_asked = Server::none; // a redirect takes no credentials to another server
    }
    return Then::differently;
}

// A caller is there. The multiplexer waits for the ready line, and the caller for the host.
Offer::Offerer::Then Offer::Offerer::take(const std::shared_ptr<Passage> &passage) {
    m_delay = SHORTEST_DELAY;
    m_redirects = 0;
    m_refused = false;
    passage->local = vintok::connectLocal(m_port);
    if (passage->local == -1) {
        return fails(withLastFailure("cannot reach the own port"), Then::later);
    }
    if (!passage->write(vintok::http_pLorMUX_Ready)) {
        return Then::atOnce; // the caller has gone
    }
    {
        const std::lock_guard<std::mutex> lock(m_state->mutex);
        if (m_state->ending) {
            return Then::never;
        }
        m_state->offering.reset();
        m_state->passages.push_back(passage);
    }
    return Passage::start(passage, [state = m_state] { state->tellEnd(); })
               ? Then::atOnce
               : fails("cannot start a thread", Then::later);
}

std::string Offer::Offerer::credentials(Server server) const {
    if (m_asked != server) {
        return "";
    }
    return (server == Server::proxy ? "Proxy-Authorization: Basic " : "Authorization: Basic ") +
           base64(m_way.credentials) + "\r\n";
}

std::string Offer::Offerer::request() const {
    const std::string address = m_multiplexer.text();
    const std::string end = vintok::http_httpNewLine;
    return "CONNECT " + address + " HTTP/1.0" + end + vintok::http_pLorMUX_Version2_0 + end +
           vintok::http_pLorMUX_ResponseRequiredTrue + end + vintok::http_pLorMUX_RedirectTrue +
           end + offerHeader + ": true" + end + vintok::http_pLorMUX_MeetingID + ": " +
           m_way.meetingID + end + vintok::http_pLorMUX_ConferenceAddress + ": " + address + end +
           credentials(Server::multiplexer) + end;
}

std::string Offer::Offerer::who(Server server) const {
    return server == Server::proxy ? "the proxy " + m_way.proxy.text()
                                   : "the multiplexer " + m_multiplexer.text();
}

// Told once for all failures in a row. The next try begins where the first one did.
Offer::Offerer::Then Offer::Offerer::fails(const std::string &reason, Then then) {
    if (m_multiplexer.text() != m_way.multiplexer.text()) {
        m_multiplexer = m_way.multiplexer;
        m_asked = m_asked == Server::multiplexer ? Server::none : m_asked;
    }
    m_redirects = 0;
    m_told = false;
    if (m_troubled && then != Then::never) {
        return then;
    }
    m_troubled = true;
    Notice notice;
    notice.event = "offer-failed";
    notice.sentence =
        "Nobody can come by way of the multiplexer: " + reason +
        (then == Then::never ? ". It is not tried again." : ". Trying again from time to time.");
    notice.fields.text("reason", reason).flag("again", then != Then::never);
    m_state->tell(notice);
    return then;
}

// Not again for each offer, nor at once where the multiplexer has refused the last one.
void Offer::Offerer::tellOffering() {
    if (m_told) {
        return;
    }
    Notice notice;
    notice.event = "offering";
    notice.sentence = "Asking " + who(Server::multiplexer) + " for callers of the meeting " +
                      m_way.meetingID + '.';
    notice.fields.text("whom", m_multiplexer.text()).text("id", m_way.meetingID);
    if (m_troubled && m_refused) {
        const std::lock_guard<std::mutex> lock(m_state->mutex);
        m_state->held = notice;
        m_state->heldUntil = Clock::now() + SHORTEST_DELAY;
        return;
    }
    m_told = true;
    m_troubled = false;
    m_state->tell(notice);
}

// The answer has come. If the notice has not been told by now, it was not true for long enough.
void Offer::Offerer::dropHeld() {
    if (m_told) {
        return;
    }
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    m_told = !m_state->held;
    m_troubled = m_troubled && !m_told;
    m_state->held.reset();
}

Offer::Offer(const Way &way, unsigned short port) : m_state(std::make_shared<State>()) {
    m_offerer = std::make_shared<Offerer>(m_state, way, port);
}

Offer::~Offer() {
    end();
}

bool Offer::start() {
    try {
        std::thread([offerer = m_offerer] { offerer->run(); }).detach();
    } catch (const std::system_error &) {
        return false;
    }
    return true;
}

void Offer::tick() {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    if (Clock::now() >= m_state->deadline) {
        State::wake(m_state->offering);
    }
    if (m_state->held && Clock::now() >= m_state->heldUntil) {
        m_state->news.push_back(*std::exchange(m_state->held, std::nullopt));
    }
}

void Offer::tell(Report &report) {
    std::deque<Notice> news;
    {
        const std::lock_guard<std::mutex> lock(m_state->mutex);
        news.swap(m_state->news);
    }
    for (const Notice &notice : news) {
        report.notice(notice);
    }
}

void Offer::end() {
    std::unique_lock<std::mutex> lock(m_state->mutex);
    if (m_state->ending) {
        return;
    }
    m_state->ending = true;
    State::wake(m_state->offering);
    m_state->changed.notify_all();
    if (!m_state->waitForPassages(lock, FLUSH_TIME)) {
        for (const auto &each : m_state->passages) {
            State::wake(each);
        }
        m_state->waitForPassages(lock, END_TIME);
    }
}

} // namespace app
