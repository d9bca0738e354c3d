// A part of a measurement that runs in a process of its own; the lines that it prints are read by
// the process that measures.
#ifndef VINTOK_BENCH_CHILD_H
#define VINTOK_BENCH_CHILD_H

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <sys/types.h>

namespace bench {

class Child {
public:
    explicit Child(const std::function<void()> &work);
    ~Child(); // ends it
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    // Reads the port that a party or a listening socket announces.
    unsigned short port();
    std::FILE *output() { return m_output; }

    std::int64_t cpu() const;  // nanoseconds that it has used
    double peakMemory() const; // megabytes (of 10^6 bytes) that were resident at once

private:
    pid_t m_process;
    std::FILE *m_output;
};

// A listening socket on loopback; its port is printed as a party prints its own.
int listenOnLoopback();

// Lets this process run on one of the CPUs alone, or with -1 on all of them.
void pin(int cpu);

std::int64_t nanoseconds(clockid_t clock);

[[noreturn]] void fail(const char *what);

} // namespace bench

#endif
