// Measures what the way through the multiplexer costs against a direct connection: how fast a
// stream goes, and how long a byte takes there and back, with few and with many silent tunnels
// beside it. Both ways are measured in turns, and the table shows medians.
//
// usage: multiplex [ROUNDS]
#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <netinet/tcp.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t stream = 512u << 20; // bytes
constexpr std::size_t pieceSize = 256u << 10;
constexpr int echoes = 5000;

[[noreturn]] void fail(const char *what) {
    std::perror(what);
    std::exit(1);
}

sockaddr_in loopback(unsigned short port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

int prepared(int fd, const char *what) {
    if (fd < 0)
        fail(what);
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
}

int connectTo(unsigned short port) {
    const int fd = prepared(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    const sockaddr_in address = loopback(port);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        fail("connect");
    return fd;
}

void sendAll(int fd, const char *bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t sent = send(fd, bytes, count, MSG_NOSIGNAL);
        if (sent <= 0)
            fail("send");
        bytes += sent;
        count -= static_cast<std::size_t>(sent);
    }
}

class Listener {
public:
    Listener() : m_fd(prepared(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket")) {
        sockaddr_in address = loopback(0);
        socklen_t length = sizeof address;
        if (bind(m_fd, reinterpret_cast<sockaddr *>(&address), length) != 0 ||
            listen(m_fd, 128) != 0 ||
            getsockname(m_fd, reinterpret_cast<sockaddr *>(&address), &length) != 0)
            fail("listen");
        m_port = ntohs(address.sin_port);
    }
    unsigned short port() const { return m_port; }
    int accept() const { return prepared(::accept(m_fd, nullptr, nullptr), "accept"); }

private:
    int m_fd;
    unsigned short m_port = 0;
};

// The two ends of a connection, direct or through the multiplexer.
struct Ends {
    int near;
    int far;

    void close() const {
        ::close(near);
        ::close(far);
    }
};

class Multiplexer {
public:
    explicit Multiplexer(const Listener &party) : m_party(party) {
        int ends[2];
        if (pipe(ends) != 0 || (m_process = fork()) < 0)
            fail("starting the multiplexer");
        if (m_process == 0) {
            dup2(ends[1], STDOUT_FILENO);
            const std::string meeting = "m=127.0.0.1:" + std::to_string(party.port());
            execl(MULTIPLEXER, MULTIPLEXER, "--listen", "127.0.0.1", "--port", "0", "--quiet",
                  "--meeting", meeting.c_str(), nullptr);
            fail(MULTIPLEXER);
        }
        close(ends[1]);
        std::FILE *output = fdopen(ends[0], "r");
        if (std::fscanf(output, "listening on 127.0.0.1 port %hu", &m_port) != 1)
            fail("reading the port");
        std::fclose(output);
    }
    ~Multiplexer() {
        kill(m_process, SIGTERM);
        waitpid(m_process, nullptr, 0);
    }
    Multiplexer(const Multiplexer &) = delete;
    Multiplexer &operator=(const Multiplexer &) = delete;

    Ends open() const {
        const int near = connectTo(m_port);
        const std::string request = "CONNECT 127.0.0.1:1 HTTP/1.0\r\npLorMUX_MeetingID: m\r\n\r\n";
        sendAll(near, request.data(), request.size());
        const int far = m_party.accept();
        std::string reply;
        for (char byte; reply.find("\r\n\r\n") == std::string::npos; reply += byte)
            if (recv(near, &byte, 1, 0) != 1)
                fail("the reply");
        return {near, far};
    }

private:
    const Listener &m_party;
    pid_t m_process;
    unsigned short m_port = 0;
};

double secondsSince(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// Megabytes each second.
double streamRate(const Ends &ends) {
    const std::string piece(pieceSize, 's');
    const auto begin = std::chrono::steady_clock::now();
    std::thread writer([&] {
        for (std::size_t sent = 0; sent < stream; sent += pieceSize)
            sendAll(ends.near, piece.data(), pieceSize);
    });
    std::string buffer(pieceSize, '\0');
    for (std::size_t got = 0; got < stream;) {
        const ssize_t count = recv(ends.far, buffer.data(), buffer.size(), 0);
        if (count <= 0)
            fail("recv");
        got += static_cast<std::size_t>(count);
    }
    writer.join();
    return static_cast<double>(stream) / 1e6 / secondsSince(begin);
}

// Microseconds there and back.
double echoTime(const Ends &ends) {
    std::thread echo([&] {
        for (char byte; recv(ends.far, &byte, 1, 0) == 1 && byte != 'q';)
            sendAll(ends.far, &byte, 1);
    });
    const auto begin = std::chrono::steady_clock::now();
    char byte = 'e';
    for (int i = 0; i < echoes; ++i) {
        sendAll(ends.near, &byte, 1);
        if (recv(ends.near, &byte, 1, 0) != 1)
            fail("recv");
    }
    const double time = secondsSince(begin) * 1e6 / echoes;
    sendAll(ends.near, "q", 1);
    echo.join();
    return time;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void raiseLimit() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

void compare(std::size_t silent, int rounds) {
    const Listener party;
    const Multiplexer multiplexer(party);
    std::vector<Ends> others;
    for (std::size_t i = 0; i < silent; ++i)
        others.push_back(multiplexer.open());
    std::vector<double> rate[2], time[2]; // direct, through
    for (int round = 0; round < rounds; ++round)
        for (const int through : {0, 1}) {
            Ends ends = {};
            if (through != 0) {
                ends = multiplexer.open();
            } else {
                ends.near = connectTo(party.port());
                ends.far = party.accept();
            }
            rate[through].push_back(streamRate(ends));
            time[through].push_back(echoTime(ends));
            ends.close();
        }
    const double direct = median(rate[0]), through = median(rate[1]);
    const double near = median(time[0]), far = median(time[1]);
    std::printf("%8zu %10.0f %10.0f %7.2f %12.1f %10.1f %7.2f\n", silent, direct, through,
                through / direct, near, far, far / near);
    std::fflush(stdout);
    for (const Ends &each : others)
        each.close();
}

} // namespace

int main(int count, char **arguments) {
    const int rounds = count > 1 ? std::max(1, std::atoi(arguments[1])) : 5;
    raiseLimit();
    std::printf("         stream, MB/s                   there and back, microseconds\n"
                "  silent     direct    through   ratio       direct    through   ratio\n");
    for (const std::size_t silent : {0u, 1000u, 4000u})
        compare(silent, rounds);
}
