// The loop: listening sockets, clients, time. One thread does it all and never waits for a single
// client; names are looked up, and the log is written, on others (Resolver.h, Log.h).
#ifndef MULTIPLEXER_SERVER_H
#define MULTIPLEXER_SERVER_H

#include "Log.h"
#include "Meetings.h"
#include "Options.h"
#include "Resolver.h"
#include "SecureStream.h"
#include "Session.h"

#include <array>
#include <map>
#include <memory>
#include <platform/Poller.h>
#include <set>
#include <string>
#include <vector>

namespace mux {

struct Statistics {
    std::uint64_t accepted = 0; // connections
    std::uint64_t opened = 0;   // tunnels
    std::uint64_t refused = 0;  // requests
    std::uint64_t toCalled = 0; // bytes from those who called, and
    std::uint64_t toCaller = 0; // to them
};

class Server {
public:
    explicit Server(const Options &options);
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    // Listens, and tells where on the standard output. False, with the reason in one line, when it
    // cannot.
    bool start(std::string &failure);
    // Until `interrupt`; ends all clients.
    void run();
    // From a signal handler.
    static void interrupt();
    // Likewise: opens the log file anew and reads the files of the options again.
    static void reload();

    // ---- For sessions ----
    const Options &options() const { return m_options; }
    vintok::platform::Poller &poller() { return m_poller; }
    Resolver &resolver() { return m_resolver; }
    Meetings &meetings() { return m_meetings; }
    Log &log() { return m_log; }
    // Null when there is no TLS.
    const SecureContext *security() const { return m_security.get(); }
    Statistics &statistics() { return m_statistics; }
    // The time at which the present round began.
    Clock::time_point now() const { return m_now; }
    // Room for one piece of bytes, for whoever is at work.
    std::array<char, 65536> &scratch() { return m_scratch; }
    // Its other side must show a sign of life now and then.
    void guard(const Connection &connection) const;
    bool isFull() const { return m_tunnels >= m_options.maxTunnels; }
    std::uint16_t port() const { return m_port; }
    // Every change of a session's state is told. One that is finished goes with the round.
    void changed(const Session &session, Session::State before);
    // Destroys it with the end of the round: events of it may be under way.
    void bury(std::unique_ptr<Connection> connection);
    std::string statusPage() const;

private:
    class Listener;

    bool listen(const Endpoint &endpoint, std::string &failure);
    void accept(Listener &listener);
    void round();
    // Off while there are no descriptors to be had.
    void watchListeners(bool on);
    void tick();
    void readAnew();
    void sweep();

    Options m_options;
    Log m_log;
    vintok::platform::Poller m_poller;
    std::unique_ptr<SecureContext> m_security;
    Resolver m_resolver;
    Meetings m_meetings;
    Statistics m_statistics;
    std::array<char, 65536> m_scratch;
    std::vector<std::unique_ptr<Listener>> m_listeners;
    std::map<std::uint64_t, std::unique_ptr<Session>> m_sessions;
    std::set<std::uint64_t> m_unsettled;
    std::vector<std::uint64_t> m_finished;
    std::vector<std::unique_ptr<Connection>> m_buried;
    std::vector<vintok::platform::Poller::Event> m_events;
    std::size_t m_tunnels = 0;
    std::uint64_t m_lastId = 0;
    std::uint16_t m_port = 0;
    bool m_accepting = true;
    Clock::time_point m_started = Clock::now();
    Clock::time_point m_now = Clock::now();
    Clock::time_point m_lastTick = Clock::now();
};

} // namespace mux

#endif
