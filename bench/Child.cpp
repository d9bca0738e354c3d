#include "Child.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sched.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

Child::Child(const std::function<void()> &work) {
    int ends[2];
    std::fflush(stdout); // or the child would print it again
    if (pipe(ends) != 0 || (m_process = fork()) < 0)
        fail("starting a process");
    if (m_process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // a measurement that fails leaves nobody behind
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        work();
        std::fflush(stdout);
        _exit(0);
    }
    close(ends[1]);
    m_output = fdopen(ends[0], "r");
}

Child::~Child() {
    std::fclose(m_output);
    kill(m_process, SIGKILL); // it may be waiting in a loop
    waitpid(m_process, nullptr, 0);
}

unsigned short Child::port() {
    unsigned short port = 0;
    if (std::fscanf(m_output, " PORT:%hu", &port) != 1)
        fail("reading the port");
    return port;
}

std::int64_t Child::cpu() const {
    clockid_t clock;
    if (clock_getcpuclockid(m_process, &clock) != 0)
        fail("reading the CPU time");
    return nanoseconds(clock);
}

double Child::peakMemory() const {
    std::ifstream status("/proc/" + std::to_string(m_process) + "/status");
    double kibibytes = 0;
    for (std::string word; kibibytes == 0 && status >> word;)
        if (word == "VmHWM:")
            status >> kibibytes;
    return kibibytes * 1024 / 1e6;
}

int listenOnLoopback() {
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto *plain = reinterpret_cast<sockaddr *>(&address);
    if (bind(listener, plain, length) != 0 || listen(listener, SOMAXCONN) != 0 ||
        getsockname(listener, plain, &length) != 0)
        fail("listening");
    std::printf("PORT:%hu\n", ntohs(address.sin_port));
    std::fflush(stdout);
    return listener;
}

void pin(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int i = 0; i < CPU_SETSIZE; ++i)
        if (cpu < 0 || i == cpu)
            CPU_SET(i, &set);
    sched_setaffinity(0, sizeof set, &set); // where there is no such CPU all stays as it is
}

std::int64_t nanoseconds(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return time.tv_sec * 1'000'000'000LL + time.tv_nsec;
}

void fail(const char *what) {
    std::perror(what);
    std::exit(1);
}

} // namespace bench
