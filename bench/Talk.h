// What members say in a measurement, and what comes of it.
//
// Each talk numbers its messages. Every other member must get all of them, in order, and the
// speaker none.
#ifndef VINTOK_BENCH_TALK_H
#define VINTOK_BENCH_TALK_H

#include "Child.h"
#include "Members.h"

namespace bench {

// What may be on its way to a member, of all talks that are not paced together.
constexpr std::size_t window = 256 * 1024;

struct Talk {
    std::size_t speaker;
    const vintok::TCPGUID *kind;
    std::size_t body;          // bytes
    std::int64_t interval = 0; // nanoseconds between two messages; 0 keeps the window full
};

struct Outcome {
    double rate;               // deliveries each second
    double cpu;                // microseconds of the host for each delivery
    double peak;               // megabytes of the host
    std::vector<double> times; // microseconds from each paced message to its last delivery; sorted
    double quantile(double share) const;
};

class Talks {
public:
    Talks(Members &members, const std::vector<Talk> &talks);

    // Lets all talk for as long, measures once they have been at it for a while, and returns when
    // everything has arrived.
    Outcome run(const Child &host, double seconds) { return run(std::vector{&host}, seconds); }
    // The same of all processes that take part.
    Outcome run(const std::vector<const Child *> &hosts, double seconds);

private:
    struct State : Talk {
        explicit State(const Talk &talk) : Talk(talk), frame(makeFrame(*talk.kind, talk.body)) {}

        Bytes frame;
        std::uint64_t said = 0, everywhere = 0; // messages; the second has reached everybody
        std::int64_t due = 0;
        std::vector<std::size_t> missing; // members without a message, by its number in the window
        std::vector<std::uint64_t> next;  // number for each member
    };

    void talkFor(double seconds);
    void speak(State &talk, std::int64_t now);
    void heard(std::size_t member, const Stamp &stamp);
    bool allArrived() const;

    Members &m_members;
    std::vector<State> m_talks;
    std::uint64_t m_deliveries = 0;
    std::vector<double> m_times;
};

} // namespace bench

#endif
