// The members of one meeting, in the process that measures: they join, speak and listen over plain
// nonblocking sockets on one thread. Where several hosts hold the meeting they take turns.
#ifndef VINTOK_BENCH_MEMBERS_H
#define VINTOK_BENCH_MEMBERS_H

#include "vintok/TCPGUID.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

namespace bench {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t frameHeader = 60;

// How the body of each message begins that is counted.
struct Stamp {
    std::uint64_t sequence;
    std::int64_t time;
    std::uint64_t talk;
};

Bytes makeFrame(const vintok::TCPGUID &kind, std::size_t body);

int connectTo(unsigned short port);
// Says hello as the member of that number, and asks to join.
void sayWho(int descriptor, std::size_t number, bool joins);

class Members {
public:
    // `natively`: without a host, each as a client of a NATS server at that port.
    enum class Speaks { frames, natively };
    Members(std::vector<unsigned short> ports, bool joins, Speaks speaks = Speaks::frames);
    Members(unsigned short port, bool joins) : Members(std::vector{port}, joins) {}
    ~Members();
    Members(const Members &) = delete;
    Members &operator=(const Members &) = delete;

    // Adds one. `join` returns when the host has let it in.
    void join();
    // Returns when the last one has heard of everybody who has joined.
    void takeRoster();
    // Sends a message of the last one to all others, behind everything that the joins have made
    // the host send.
    void passFence();
    std::size_t count() const { return m_members.size(); }
    unsigned short port() const { return m_ports.front(); } // the host's

    // From now on the last one takes nothing that is sent to it, as a process that is stopped.
    void stopLast();
    std::size_t listening() const { return count() - m_stopped; }

    // Called for each message that a member gets.
    std::function<void(std::size_t member, const Stamp &stamp)> heard;

    void say(std::size_t member, Bytes &frame, const Stamp &stamp);
    void flush(std::size_t member);
    // Takes what has arrived and sends what waits, within as many nanoseconds.
    void turn(std::int64_t time);

private:
    struct Member {
        explicit Member(int connected) : descriptor(connected) {}

        int descriptor;
        bool joined = false;
        std::size_t roster = 0;  // entries
        Bytes start;             // of a frame that has not arrived far enough
        std::size_t skipped = 0; // bytes to come of a frame that has been looked at
        Bytes out;
        std::size_t sent = 0; // of that
        bool full = false;    // its socket takes no more
    };

    void turnUntil(const std::function<bool()> &condition);
    void receive(std::size_t number);
    void take(std::size_t number, const unsigned char *bytes, std::size_t length);
    bool takeLine(std::size_t number, const unsigned char *&bytes, std::size_t &length);
    void handle(std::size_t number, const unsigned char *frame);
    void handleStamp(std::size_t number, const unsigned char *body);
    void handleJoin(std::size_t number, unsigned char kind);
    void watch(int operation, std::size_t number) const;

    std::vector<unsigned short> m_ports;
    bool m_joins;
    Speaks m_speaks;
    int m_epoll;
    std::size_t m_fenced = 0;
    std::size_t m_stopped = 0;
    std::deque<Member> m_members;
    Bytes m_scratch;
};

} // namespace bench

#endif
