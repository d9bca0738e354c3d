#include "Server.h"

#include "Endpoints.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <iterator>
#include <limits>
#include <platform/SocketErrors.h>
#include <thread>
#include <utility>
#include <vintok/TCPStream.h>

namespace mux {

namespace platform = vintok::platform;
namespace socketErrors = vintok::socketErrors;

namespace {

// No memory, no descriptors or no buffers.
constexpr int exhausted[] = {socketErrors::noMemory, socketErrors::tooManyDescriptors,
                             socketErrors::tooManySockets, socketErrors::noBuffers};

constexpr int accepts = 64; // at a time
constexpr std::chrono::milliseconds tickLength(100);
constexpr std::int32_t waitMs = 100;
constexpr std::int32_t waitForNamesMs = 5;

std::atomic<bool> s_interrupted = false;
std::atomic<bool> s_reloads = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

} // namespace

class Server::Listener final : public Watched {
public:
    Listener(Server &server, int descriptor, platform::Family family)
        : m_server(server), m_descriptor(descriptor), m_family(family) {}
    ~Listener() {
        watch(false);
        platform::closeSocket(m_descriptor);
    }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    void ready(bool, bool) override { m_server.accept(*this); }
    void watch(bool on) {
        m_server.m_poller.watch(m_descriptor, on, false, static_cast<Watched *>(this));
    }
    int accept(Endpoint &peer) { return platform::acceptSocket(m_descriptor, m_family, peer); }

private:
    Server &m_server;
    const int m_descriptor;
    const platform::Family m_family;
};

Server::Server(const Options &options) : m_options(options) {
    if (options.quiet)
        m_log.silence();
}

Server::~Server() = default;

bool Server::start(std::string &failure) {
    if (!m_options.logFile.empty() && !m_log.open(m_options.logFile)) {
        failure = "cannot write to " + m_options.logFile;
        return false;
    }
    if (!m_options.certificateFile.empty()) {
        m_security = makeSecureContext(m_options.certificateFile, m_options.keyFile, failure);
        if (!m_security)
            return false;
    }
    m_port = m_options.port;
    for (const std::string &address : m_options.listen) {
        Endpoint endpoint;
        if (!makeEndpoint(address, m_port, endpoint) || !listen(endpoint, failure)) {
            failure.insert(0, "cannot listen on " + address + " port " + std::to_string(m_port));
            return false;
        }
        std::printf("listening on %s port %u\n", address.c_str(), m_port);
    }
    std::fflush(stdout);
    return true;
}

bool Server::listen(const Endpoint &endpoint, std::string &failure) {
    const int descriptor = platform::openSocket(endpoint.family);
    bool good = descriptor != -1;
    if (good) {
        platform::setExclusiveAddress(descriptor);
        if (endpoint.family == platform::FAMILY_IPV6)
            platform::setIPv6Only(descriptor);
        good = platform::bindSocket(descriptor, endpoint) &&
               platform::listenSocket(descriptor, std::numeric_limits<int>::max()) &&
               platform::setBlockingMode(descriptor, false);
    }
    Endpoint bound;
    if (good && platform::boundEndpoint(descriptor, endpoint.family, bound)) {
        m_port = portOf(bound); // which all the others take, too
        m_listeners.push_back(std::make_unique<Listener>(*this, descriptor, endpoint.family));
        m_listeners.back()->watch(true);
        return true;
    }
    std::string reason = vintok::sysErrorString(platform::socketError());
    failure = ": " + reason.substr(0, reason.find('\n'));
    if (descriptor != -1)
        platform::closeSocket(descriptor);
    return false;
}

void Server::interrupt() {
    s_interrupted = true;
}

void Server::reload() {
    s_reloads = true;
}

void Server::readAnew() {
    std::string failure;
    m_log.reopen();
    const bool read = readFiles(m_options, failure);
    m_log.line("reload", 0, read ? "the files have been read" : quoted(failure));
}

void Server::guard(const Connection &connection) const {
    if (m_options.silenceTime.count() != 0)
        connection.setPeerTimeout(m_options.silenceTime);
}

void Server::run() {
    while (!s_interrupted)
        round();
    m_listeners.clear();
    for (const auto &[id, session] : m_sessions)
        session->end("the server ends");
    sweep();
}

void Server::round() {
    const std::int32_t limit = m_resolver.open() != 0 ? waitForNamesMs : waitMs;
    if (!m_poller.wait(m_events, limit))
        std::this_thread::sleep_for(tickLength); // should it last, the loop must not spin
    m_now = Clock::now();
    for (const platform::Poller::Event &event : m_events)
        static_cast<Watched *>(event.owner)->ready(event.readable, event.writable);
    for (const Resolver::Answer &answer : m_resolver.take()) {
        const auto found = m_sessions.find(answer.first);
        if (found != m_sessions.end())
            found->second->resolved(answer.second);
    }
    if (m_now - m_lastTick >= tickLength) {
        m_lastTick = m_now;
        tick();
    }
    sweep();
}

void Server::tick() {
    for (const auto &[id, session] : m_sessions)
        session->tick();
    watchListeners(true);
    if (s_reloads.exchange(false))
        readAnew();
}

void Server::sweep() {
    for (const std::uint64_t id : m_finished)
        m_sessions.erase(id);
    m_finished.clear();
    m_buried.clear();
}

void Server::watchListeners(bool on) {
    if (on != m_accepting) {
        m_accepting = on;
        for (const auto &listener : m_listeners)
            listener->watch(on);
    }
}

void Server::accept(Listener &listener) {
    for (int i = 0; i < accepts; ++i) {
        Endpoint peer;
        const int descriptor = listener.accept(peer);
        if (descriptor == -1) {
            const int error = platform::socketError();
            if (error == socketErrors::wouldBlock)
                return;
            if (std::find(std::begin(exhausted), std::end(exhausted), error) != std::end(exhausted))
                return watchListeners(false); // or it would stay readable for nothing
            continue;                         // that client has gone already
        }
        ++m_statistics.accepted;
        if (m_unsettled.size() >= m_options.maxRequests)
            m_sessions.at(*m_unsettled.begin())->end("too many requests");
        const std::uint64_t id = ++m_lastId;
        auto connection = std::make_unique<Connection>(m_poller, descriptor, plain(peer));
        guard(*connection);
        m_sessions.emplace(id, std::make_unique<Session>(*this, id, std::move(connection)));
        m_unsettled.insert(id);
    }
}

void Server::changed(const Session &session, Session::State before) {
    const auto isTunnel = [](Session::State state) {
        return state == Session::State::resolving || state == Session::State::connecting ||
               state == Session::State::passing;
    };
    m_tunnels += isTunnel(session.state()) ? 1u : 0u;
    m_tunnels -= isTunnel(before) ? 1u : 0u;
    if (session.state() == Session::State::request || session.state() == Session::State::closing)
        m_unsettled.insert(session.id());
    else
        m_unsettled.erase(session.id());
    if (session.state() == Session::State::finished)
        m_finished.push_back(session.id());
}

void Server::bury(std::unique_ptr<Connection> connection) {
    connection->close();
    m_buried.push_back(std::move(connection));
}

std::string Server::statusPage() const {
    std::uint64_t held = 0;
    for (const auto &[id, session] : m_sessions)
        held += session->held();
    const auto uptime = std::chrono::duration_cast<std::chrono::seconds>(m_now - m_started);
    const std::pair<const char *, std::uint64_t> rows[] = {
        {"uptime-seconds", static_cast<std::uint64_t>(uptime.count())},
        {"tunnels", m_tunnels},
        {"waiting", m_meetings.waiting()},
        {"requests", m_unsettled.size()},
        {"connections-accepted", m_statistics.accepted},
        {"tunnels-opened", m_statistics.opened},
        {"refused", m_statistics.refused},
        {"bytes-to-called", m_statistics.toCalled},
        {"bytes-to-caller", m_statistics.toCaller},
        {"bytes-held", held},
    };
    std::string page;
    for (const auto &[name, value] : rows)
        page += std::string(name) + ' ' + std::to_string(value) + '\n';
    return page;
}

} // namespace mux
