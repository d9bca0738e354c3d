#include "Talk.h"

#include <algorithm>
#include <bit>

namespace bench {
namespace {

constexpr double warmUp = 0.3; // seconds
constexpr std::int64_t second = 1'000'000'000;
constexpr std::size_t pacedWindow = 1024; // messages

std::int64_t now() {
    return nanoseconds(CLOCK_MONOTONIC);
}

} // namespace

double Outcome::quantile(double share) const {
    const auto place = static_cast<std::size_t>(share * static_cast<double>(times.size()));
    return times.empty() ? 0 : times[std::min(place, times.size() - 1)];
}

Talks::Talks(Members &members, const std::vector<Talk> &talks) : m_members(members) {
    const auto full = static_cast<std::size_t>(
        std::count_if(talks.begin(), talks.end(), [](const Talk &talk) { return !talk.interval; }));
    for (const Talk &talk : talks) {
        const std::size_t messages =
            talk.interval > 0 ? pacedWindow
                              : std::bit_floor(std::max<std::size_t>(window / full / talk.body, 2));
        State state(talk);
        state.missing.resize(messages);
        state.next.resize(members.count());
        m_talks.push_back(state);
    }
    members.heard = [this](std::size_t member, const Stamp &stamp) { heard(member, stamp); };
}

Outcome Talks::run(const std::vector<const Child *> &hosts, double seconds) {
    const auto cpuOfAll = [&hosts] {
        std::int64_t sum = 0;
        for (const Child *host : hosts)
            sum += host->cpu();
        return sum;
    };
    for (std::size_t i = 0; i < m_talks.size(); ++i) // those that are paced take turns
        m_talks[i].due = now() + m_talks[i].interval * static_cast<std::int64_t>(i) /
                                     static_cast<std::int64_t>(m_talks.size());
    talkFor(warmUp);
    m_times.clear();
    const std::uint64_t deliveries = m_deliveries;
    const std::int64_t wall = now(), cpu = cpuOfAll();
    talkFor(seconds);
    const auto delivered = static_cast<double>(m_deliveries - deliveries);
    Outcome outcome{delivered / static_cast<double>(now() - wall) * 1e9,
                    static_cast<double>(cpuOfAll() - cpu) / 1e3 / delivered,
                    0,
                    {}};
    for (const Child *host : hosts)
        outcome.peak += host->peakMemory();
    std::uint64_t seen = m_deliveries;
    for (std::int64_t since = now(); !allArrived(); m_members.turn(second / 10)) {
        if (seen != m_deliveries)
            since = now();
        else if (now() - since > 20 * second)
            fail("messages are missing");
        seen = m_deliveries;
    }
    outcome.times = m_times;
    std::sort(outcome.times.begin(), outcome.times.end());
    return outcome;
}

void Talks::talkFor(double seconds) {
    const std::int64_t end = now() + static_cast<std::int64_t>(seconds * 1e9);
    for (std::int64_t time = now(); time < end; time = now()) {
        std::int64_t wait = end - time;
        for (State &talk : m_talks) {
            speak(talk, time);
            if (talk.interval > 0)
                wait = std::min(wait, talk.due - time);
        }
        m_members.turn(std::max<std::int64_t>(wait, 0));
    }
}

void Talks::speak(State &talk, std::int64_t time) {
    const auto number = static_cast<std::uint64_t>(&talk - m_talks.data());
    const std::uint64_t before = talk.said;
    while (time >= talk.due && talk.said - talk.everywhere < talk.missing.size()) {
        talk.missing[talk.said & (talk.missing.size() - 1)] = m_members.listening() - 1;
        m_members.say(talk.speaker, talk.frame, {talk.said++, time, number});
        talk.due += talk.interval;
    }
    if (talk.said != before)
        m_members.flush(talk.speaker);
}

void Talks::heard(std::size_t member, const Stamp &stamp) {
    State &talk = m_talks.at(stamp.talk);
    if (member == talk.speaker || stamp.sequence != talk.next[member]++)
        fail("a message was lost, came out of order or to its speaker");
    ++m_deliveries;
    if (--talk.missing[stamp.sequence & (talk.missing.size() - 1)] > 0)
        return;
    ++talk.everywhere; // the oldest that is on its way: everybody gets them in order
    if (talk.interval > 0)
        m_times.push_back(static_cast<double>(now() - stamp.time) / 1e3);
}

bool Talks::allArrived() const {
    return std::all_of(
        m_talks.begin(), m_talks.end(),
        [](const State &talk) { return talk.everywhere == talk.said; });
}

} // namespace bench
