// One member speaks, the host passes it on to all others: who does what in the measurement.
//
// The host runs in a process of its own and tells its standard output first "PORT:<port>" and, when
// it has passed everything on, one line "<CPU nanoseconds> <wall nanoseconds>". The members run in
// the process that measures.
#ifndef VINTOK_BENCH_FANOUT_H
#define VINTOK_BENCH_FANOUT_H

#include "vintok/TCPGUID.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

struct Load {
    std::size_t members;  // that listen; one more speaks
    std::size_t body;     // bytes of each message
    std::size_t messages; // that count; some more warm up
};

inline constexpr std::size_t warmUp = 50;
inline constexpr std::size_t frameHeader = 60;

// Counts messages as they arrive at a host. The time from the arrival of the first one behind the
// warm-up to that of the last one is the time of passing on all that count.
class Meter {
public:
    explicit Meter(std::size_t messages) : m_last(warmUp + messages) {}
    void messageArrived();
    bool done() const { return m_arrived == m_last; }
    void report() const;

private:
    std::size_t m_arrived = 0, m_last;
    std::int64_t m_cpu = 0, m_wall = 0;
};

// Both return when every message has been passed on.
void runLibraryHost(const Load &load);
void runBareHost(const Load &load);

// The members of one meeting. With `join` they go through the whole road of a join; without it they
// only connect, the speaker first.
class Members {
public:
    Members(unsigned short port, const Load &load, bool join);
    ~Members();
    Members(const Members &) = delete;
    Members &operator=(const Members &) = delete;

    // Lets the speaker send everything and the others take everything.
    void talk();

private:
    void join(int descriptor, std::size_t number);
    void await(int descriptor, const vintok::TCPGUID &identifier);
    std::vector<unsigned char> frame(unsigned char filling) const;
    void passFence();
    void send();
    void drain(int timeout);

    Load m_load;
    int m_speaker = -1, m_epoll = -1;
    std::vector<int> m_listeners;
    std::vector<unsigned char> m_frame, m_scratch;
    std::size_t m_sent = 0, m_drained = 0; // bytes; of all listeners together
};

} // namespace bench

#endif
