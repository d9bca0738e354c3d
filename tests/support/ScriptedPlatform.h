// System calls that answer what a test has written down, for errors that no system gives on demand
// and for waits that would take a test too long. A program that uses it is linked with the calls of
// the platform layer wrapped: see `vintok_scripted_test` in the tests' build file.
#ifndef VINTOK_TESTS_SUPPORT_SCRIPTEDPLATFORM_H
#define VINTOK_TESTS_SUPPORT_SCRIPTEDPLATFORM_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace vintok::test {

// What a call returns. Unless it is a positive count, `error` is what it leaves.
struct Answer {
    std::int64_t count;
    int error = 0;
};

inline Answer gives(std::int64_t count) {
    return {count};
}
inline Answer ends() {
    return {0};
}
inline Answer fails(int error = 0) {
    return {-1, error};
}

// `answer`, so many times, and then the rest.
std::deque<Answer> times(std::size_t count, Answer answer, std::deque<Answer> rest = {});

// One at a time. A call whose list is used up, or was never filled, goes to the system.
class ScriptedPlatform {
public:
    ScriptedPlatform();
    ~ScriptedPlatform();
    ScriptedPlatform(const ScriptedPlatform &) = delete;
    ScriptedPlatform &operator=(const ScriptedPlatform &) = delete;

    std::deque<Answer> receive; // the bytes themselves are 'x'
    std::deque<Answer> peek;
    std::deque<Answer> send;
    std::deque<Answer> waiting;
    std::deque<Answer> accept;   // failures only
    std::deque<Answer> listen;   // failures only
    std::deque<Answer> hostName; // failures only
    std::deque<Answer> acquire;  // of a recursive lock: the numbers of its results
    std::deque<Answer> close;    // of a recursive lock; failures only

    // Whether the socket layer starts; the first count that is not negative is the version given.
    std::deque<Answer> start;
    std::vector<std::uint16_t> startsWanted;
    unsigned stops = 0;

    // No sleep is slept meanwhile. Milliseconds.
    std::vector<std::uint32_t> sleeps;
    std::uint64_t slept() const;

    // A wait for another thread lasts a minute meanwhile, so that only a wake-up ends it in time.
    std::atomic<unsigned> waiters{0};     // at present
    std::atomic<unsigned> waitsInVain{0}; // that lasted the minute
};

} // namespace vintok::test

#endif
