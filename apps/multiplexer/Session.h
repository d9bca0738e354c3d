// What becomes of one client, from its connection to its end: a request is read, a way for it is
// found (SessionRoute.cpp), bytes are passed (SessionPassing.cpp). Every refusal ends the same way:
// the reply goes out, this side of the stream ends, and what the client still sends is thrown away
// for a moment, since closing at once could destroy the reply on its way.
//
//     request --> resolving --> connecting --> passing
//        |            |             |             ^
//        |            +---> waiting +-------------+
//        +---> closing
//
// A client that waits belongs to its meeting (Meetings.h). When the other party comes, that one's
// session takes the waiting connection over, and the waiting session is finished.
#ifndef MULTIPLEXER_SESSION_H
#define MULTIPLEXER_SESSION_H

#include "Connection.h"
#include "Request.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace mux {

class Server;

using Clock = std::chrono::steady_clock;

// One end of a tunnel.
struct Leg {
    std::unique_ptr<Connection> connection;
    std::size_t readyMissing = 0; // bytes of the ready line that are still to come
    bool isClient = true;         // it came to us, and is told when the tunnel stands
    bool ended = false;           // it has sent all that it will
    std::uint64_t received = 0;   // bytes of its own, the ready line left out
};

class Session {
public:
    enum class State { request, resolving, connecting, waiting, passing, closing, finished };

    Session(Server &server, std::uint64_t id, std::unique_ptr<Connection> connection);

    std::uint64_t id() const { return m_id; }
    State state() const { return m_state; }
    void ready(Connection &connection, bool readable, bool writable);
    // Looks whether its time is over.
    void tick();
    void resolved(const std::vector<Endpoint> &found);
    // The server ends, or wants this place for somebody else.
    void end(const std::string &reason);

    // Bytes that could not be passed yet.
    std::size_t held() const;

    // Of a client that waits.
    const std::string &meeting() const { return m_meeting; }
    bool offers() const { return m_offers; }
    // Its end of a tunnel stays encrypted.
    bool encrypts() const;

private:
    // ---- Session.cpp ----
    void enter(State state);
    void readRequest();
    bool receiveRequest();
    void beginSecure();
    void take(const Request &request);
    void takeStatus(const Request &request);
    void refuse(int status, const std::string &reason, const std::string &more = "");
    void answer(const std::string &reply);
    void discard();
    void finish();
    void readAhead();
    void leave();
    const char *whyNobodyCame() const;
    std::string description() const;

    // ---- SessionRoute.cpp ----
    void takeConnect(const Request &request);
    void takeJump(const Request &request);
    bool isAuthorized(const Request &request) const;
    void challenge(int status);
    void route(const Authority &named);
    bool isSelf(const Authority &named) const;
    bool isSelf(const Endpoint &endpoint) const;
    void call(const Authority &party);
    void called(const std::vector<Endpoint> &found);
    void callNext();
    void connectEnded();
    void waitForPartner();
    void wait();
    void join(Session &other);

    // ---- SessionPassing.cpp ----
    void open(const std::string &how);
    bool sendOpened(Connection &connection) const;
    void pass();
    bool passFrom(Leg &from, Leg &to);
    bool passBytes(Leg &from, Leg &to, std::string_view bytes);
    static bool mayReceive(const Leg &from, const Leg &to);
    void closeTunnel(const std::string &reason);

    Server &m_server;
    const std::uint64_t m_id;
    State m_state = State::request;
    Clock::time_point m_since;  // it entered this state, or passed its last byte
    Clock::time_point m_opened; // the tunnel
    Leg m_near;                 // the client; in a tunnel, whoever called
    Leg m_far;                  // in a tunnel, whoever was called

    RequestReader m_reader;
    std::string m_bytes; // of the request
    std::size_t m_discarded = 0;
    bool m_authorized = false; // by the request to go on, which came first
    std::string m_meeting;
    bool m_offers = false;   // this client answers for its meeting
    bool m_answered = false; // the tunnel leads to one that does

    bool m_listed = false;           // the party to call is the operator's choice
    bool m_allowed = false;          // it may be called by its name, wherever that leads
    bool m_called = false;           // a party was called, in vain so far
    std::vector<Endpoint> m_untried; // its addresses, the next one last
};

} // namespace mux

#endif
