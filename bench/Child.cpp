#include "Child.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
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
