// System calls that answer what a test has written down, for errors that no system gives on demand
// and for waits that would take a test too long. A program that uses it is linked with the calls of
// the platform layer wrapped: see `vintok_scripted_test` in the tests' build file.
#ifndef VINTOK_TESTS_SUPPORT_SCRIPTEDPLATFORM_H
#define VINTOK_TESTS_SUPPORT_SCRIPTEDPLATFORM_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace vintok::test {

// What a call returns. Unless it is a positive count, `error` is what it leaves.
struct Answer {
    std::int64_t count = 0;
    int error = 0;
};

// What the calls of a function answer, one after the other: what they give, or the error after a
// "!", and "31*" before what 31 of them answer. "0" is an end, "0!10035" one with an error.
struct Answers : std::deque<Answer> {
    Answers(const std::string &text = "");
    Answers(const char *text) : Answers(std::string(text)) {}
};

// One at a time. A call whose list is used up, or was never filled, goes to the system.
class ScriptedPlatform {
public:
    ScriptedPlatform();
    ~ScriptedPlatform();
    ScriptedPlatform(const ScriptedPlatform &) = delete;
    ScriptedPlatform &operator=(const ScriptedPlatform &) = delete;

    Answers receive; // the bytes themselves are 'x'
    Answers peek;
    Answers send;
    Answers waiting;
    Answers accept;   // failures only
    Answers listen;   // failures only
    Answers hostName; // failures only
    Answers acquire;  // of a recursive lock: the numbers of its results

    // Whether the socket layer starts; the first count that is not negative is the version given.
    Answers start;
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
