// One file goes to several receivers, each in a process of its own with a folder of its own.
//
// A sender prints "PORT:<port>" and, when all are there, "start <wall nanoseconds>". Everybody, the
// sender too, prints "done <wall nanoseconds> <CPU nanoseconds>" at the end of its part. Then all
// wait to be ended.
#ifndef VINTOK_BENCH_FILECOPY_H
#define VINTOK_BENCH_FILECOPY_H

#include "Child.h"

#include <string>

namespace bench {

struct Copy {
    std::string source; // path of the file
    int receivers;
};

// One process's share of a copy. The CPU time counts from its construction.
class Share {
public:
    Share() : m_cpu(nanoseconds(CLOCK_PROCESS_CPUTIME_ID)) {}
    void start() const; // for the sender
    void done() const;

private:
    std::int64_t m_cpu;
};

// The least that sockets can do: blocks of 64 KiB, to one receiver after the other.
void sendPlain(const Copy &copy);
void receivePlain(const Copy &copy, unsigned short port, const std::string &folder);

} // namespace bench

#endif
