// Measures one meeting over several hosts that a NATS server links (libvintok-cluster), beside one
// host alone, and beside members that are clients of the same server themselves. They run in turns;
// the tables show medians, in brackets as a multiple of the host alone.
//
// usage: cluster [MODE...] [--members N] [--hosts N] [--rounds N] [--seconds N] [--csv FILE]
//                [--way NAME]   only this one of the rows
//
//   throughput   one member talks as fast as a window of 256 KiB a member lets him
//   all-talk     eight talk as fast as they share that window
//   latency      one says something each 2 ms; the time until the last member has it
//   crowd        5,000 members at eight hosts: how long the joins take, and a line each 50 ms
//
// Every member and host is on this machine, so what the hosts share here is its CPU.
#include "Child.h"
#include "Talk.h"

#include "vintok-cluster/Cluster.h"
#include "vintok/ConferenceParticipant.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {
namespace {

struct Figure {
    const char *name;
    double value;
};
using Figures = std::vector<Figure>;

// ---- Who holds the meeting ----

void runServer(unsigned short port) {
    const std::string number = std::to_string(port);
    execlp("nats-server", "nats-server", "-a", "127.0.0.1", "-p", number.c_str(), "-l", "/dev/null",
           static_cast<char *>(nullptr));
    fail("starting nats-server");
}

void ignore(vintok::ConferenceParticipant *, unsigned char *, std::uint64_t) {}

void runHost(unsigned short server) {
    vintok::ConferenceParticipant host(true); // prints its port
    std::fflush(stdout);
    host.setBroadcastDataCB(ignore);
    host.setRosterByDifferences(true);
    if (!host.hostMeeting("bench"))
        fail("hosting");
    std::unique_ptr<vintok::Cluster> cluster;
    if (server != 0) {
        vintok::ClusterOptions options;
        options.servers = "nats://127.0.0.1:" + std::to_string(server);
        options.meeting = "bench";
        cluster = std::make_unique<vintok::Cluster>(host, options);
        if (!cluster->start())
            fail(cluster->lastFailure().c_str());
    }
    vintok::TCPSelect().run();
}

// A port that is free now.
unsigned short freePort() {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    auto *plain = reinterpret_cast<sockaddr *>(&address);
    if (bind(descriptor, plain, length) != 0 || getsockname(descriptor, plain, &length) != 0)
        fail("looking for a port");
    close(descriptor);
    return ntohs(address.sin_port);
}

struct Way {
    std::string name;
    std::size_t hosts; // 0: the members are clients of the server
    bool linked;
};

class Meeting {
public:
    explicit Meeting(const Way &way) {
        std::vector<unsigned short> ports;
        if (way.linked) {
            const unsigned short port = freePort();
            m_processes.push_back(std::make_unique<Child>([=] { runServer(port); }));
            ports.push_back(port);
            usleep(300'000); // until it listens
        }
        const unsigned short server = ports.empty() ? 0 : ports.front();
        for (std::size_t i = 0; i < way.hosts; ++i)
            m_processes.push_back(std::make_unique<Child>([=] { runHost(server); }));
        if (way.hosts != 0)
            ports.clear();
        for (std::size_t i = way.linked ? 1 : 0; i < m_processes.size(); ++i)
            ports.push_back(m_processes[i]->port());
        if (way.hosts > 1)
            usleep(1'500'000); // until they know each other
        m_members = std::make_unique<Members>(
            ports, true, way.hosts == 0 ? Members::Speaks::natively : Members::Speaks::frames);
    }
    Members &members() { return *m_members; }
    void join(std::size_t count) {
        while (members().count() < count)
            members().join();
        members().heard = [](std::size_t, const Stamp &) {};
        usleep(300'000); // a server tells nobody when it knows who listens
        members().passFence();
    }
    Outcome talk(const std::vector<Talk> &talks, double seconds) {
        std::vector<const Child *> all;
        for (const auto &process : m_processes)
            all.push_back(process.get());
        return Talks(members(), talks).run(all, seconds);
    }

private:
    std::vector<std::unique_ptr<Child>> m_processes;
    std::unique_ptr<Members> m_members;
};

// ---- The modes ----

struct Load {
    std::size_t members, body;
    double seconds;
};

Talk broadcast(std::size_t speaker, std::size_t body, std::int64_t interval = 0) {
    return {speaker, &vintok::TCP_broadcastMessage, body, interval};
}

Figures throughput(const Way &way, const Load &load, std::size_t speakers) {
    Meeting meeting(way);
    meeting.join(load.members);
    std::vector<Talk> talks;
    for (std::size_t i = 0; i < speakers; ++i)
        talks.push_back(broadcast(i, load.body));
    const Outcome outcome = meeting.talk(talks, load.seconds);
    return {{"deliveries_per_s", outcome.rate}, {"cpu_us", outcome.cpu}, {"peak_mb", outcome.peak}};
}

Figures one(const Way &way, const Load &load) {
    return throughput(way, load, 1);
}

Figures many(const Way &way, const Load &load) {
    return throughput(way, load, 8);
}

Figures latency(const Way &way, const Load &load) {
    Meeting meeting(way);
    meeting.join(load.members);
    const Outcome outcome =
        meeting.talk({broadcast(0, load.body, 2'000'000)}, std::max(load.seconds, 2.0));
    return {{"p50_us", outcome.quantile(0.5)},
            {"p99_us", outcome.quantile(0.99)},
            {"cpu_us", outcome.cpu}};
}

Figures crowd(const Way &way, const Load &load) {
    Meeting meeting(way);
    const std::int64_t began = nanoseconds(CLOCK_MONOTONIC);
    meeting.join(load.members);
    const auto joined = static_cast<double>(nanoseconds(CLOCK_MONOTONIC) - began) / 1e9;
    const Outcome outcome =
        meeting.talk({broadcast(0, load.body, 50'000'000)}, std::max(load.seconds, 10.0));
    return {{"all_joins_s", joined},
            {"p50_ms", outcome.quantile(0.5) / 1e3},
            {"p99_ms", outcome.quantile(0.99) / 1e3},
            {"peak_mb", outcome.peak}};
}

struct Mode {
    const char *name;
    Figures (*run)(const Way &, const Load &);
    std::vector<std::size_t> bodies;
};

const Mode modes[] = {{"throughput", one, {64, 1024}},
                      {"all-talk", many, {64, 1024}},
                      {"latency", latency, {256}},
                      {"crowd", crowd, {80}}};

// ---- What is shown ----

struct Options {
    std::vector<const Mode *> chosen;
    std::size_t members = 0, hosts = 8; // 0: the mode's own
    int rounds = 3;
    double seconds = 2;
    std::string csv, way;
};

std::vector<Way> ways(const Mode &mode, const Options &options) {
    if (mode.run == crowd)
        return {{std::to_string(options.hosts) + " hosts", options.hosts, true}};
    std::vector<Way> all = {{"one host", 1, false},
                            {"1 linked host", 1, true},
                            {"2 hosts", 2, true},
                            {"4 hosts", 4, true},
                            {"NATS", 0, true}};
    std::erase_if(all,
                  [&](const Way &way) { return !options.way.empty() && options.way != way.name; });
    return all;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void compare(const Mode &mode, const Load &load, const Options &options) {
    const std::vector<Way> all = ways(mode, options);
    std::vector<std::vector<Figures>> rounds(all.size());
    for (int round = 0; round < options.rounds; ++round)
        for (std::size_t i = 0; i < all.size(); ++i)
            rounds[i].push_back(mode.run(all[i], load));
    std::printf("%s, %zu members, %zu bytes\n", mode.name, load.members, load.body);
    std::ofstream csv;
    if (!options.csv.empty())
        csv.open(options.csv, std::ios::app);
    if (csv.is_open() && csv.tellp() == 0)
        csv << "kind,relay,members,body,name,value\n";
    std::vector<double> alone;
    for (std::size_t i = 0; i < all.size(); ++i) {
        std::printf("  %-15s", all[i].name.c_str());
        for (std::size_t j = 0; j < rounds[i].front().size(); ++j) {
            std::vector<double> values;
            for (const Figures &figures : rounds[i])
                values.push_back(figures[j].value);
            const double value = median(values);
            if (i == 0)
                alone.push_back(value);
            const char *name = rounds[i].front()[j].name;
            std::printf(" %s %.2f (%.3g)", name, value, value / alone[j]);
            csv << std::fixed << std::setprecision(4) << mode.name << ',' << all[i].name << ','
                << load.members << ',' << load.body << ',' << name << ',' << value << '\n';
        }
        std::printf("\n");
    }
    std::fflush(stdout);
}

bool read(const std::vector<std::string> &words, Options &options) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto *mode = std::find_if(std::begin(modes), std::end(modes),
                                        [&](const Mode &each) { return words[i] == each.name; });
        if (mode != std::end(modes)) {
            options.chosen.push_back(mode);
            continue;
        }
        if (i + 1 == words.size())
            return false;
        const std::string &value = words[i + 1];
        if (words[i] == "--members")
            options.members = std::strtoul(value.c_str(), nullptr, 10);
        else if (words[i] == "--hosts")
            options.hosts = std::strtoul(value.c_str(), nullptr, 10);
        else if (words[i] == "--rounds")
            options.rounds = std::max(1, std::atoi(value.c_str()));
        else if (words[i] == "--seconds")
            options.seconds = std::max(0.1, std::atof(value.c_str()));
        else if (words[i] == "--csv")
            options.csv = value;
        else if (words[i] == "--way")
            options.way = value;
        else
            return false;
        ++i;
    }
    if (options.chosen.empty())
        for (const Mode &mode : modes)
            options.chosen.push_back(&mode);
    return true;
}

} // namespace
} // namespace bench

int main(int argc, char **argv) {
    bench::Options options;
    if (!bench::read({argv + 1, argv + argc}, options)) {
        std::fprintf(
            stderr,
            "usage: cluster [throughput|all-talk|latency|crowd]... [--members N] [--hosts N] "
            "[--rounds N]\n               [--seconds N] [--csv FILE] [--way NAME]\n");
        return 2;
    }
    rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
    if (!vintok::init())
        bench::fail("starting the library");
    for (const bench::Mode *mode : options.chosen) {
        const std::size_t usual = mode->run == bench::crowd ? 5000 : 64;
        for (const std::size_t body : mode->bodies)
            bench::compare(*mode,
                           {options.members != 0 ? options.members : usual, body, options.seconds},
                           options);
    }
    vintok::fini();
}
