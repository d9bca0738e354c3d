// Measures how fast a host passes one member's messages on to the others, and what each delivery
// costs it in CPU time, against a bare loop around `poll` and `send` that forwards the same bytes.
// Both run in turns, and the table shows medians.
//
// usage: fanout [ROUNDS [MEMBERS BODY]]
#include "Fanout.h"
#include "Child.h"

#include "vintok/TCPStream.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

struct Cost {
    double cpu;  // nanoseconds of the host for each delivery
    double rate; // deliveries each second
};

using Host = void (*)(const Load &);

Cost readCost(Child &host, const Load &load) {
    double cpu = 0, wall = 0;
    if (std::fscanf(host.output(), "%lf %lf", &cpu, &wall) != 2)
        fail("reading the cost");
    double deliveries = static_cast<double>(load.messages * load.members);
    return {cpu / deliveries, deliveries / wall * 1e9};
}

Cost measure(Host host, const Load &load) {
    Child process([&] { host(load); });
    Members members(process.port(), load, host == runLibraryHost);
    members.talk();
    return readCost(process, load);
}

double median(std::vector<Cost> costs, double Cost::*value) {
    auto middle = costs.begin() + static_cast<long>(costs.size() / 2);
    std::nth_element(costs.begin(), middle, costs.end(),
                     [value](const Cost &a, const Cost &b) { return a.*value < b.*value; });
    return *middle.*value;
}

void compare(const Load &load, int rounds) {
    std::vector<Cost> library, bare;
    for (int i = 0; i < rounds; ++i) {
        library.push_back(measure(runLibraryHost, load));
        bare.push_back(measure(runBareHost, load));
    }
    double ours = median(library, &Cost::cpu), theirs = median(bare, &Cost::cpu);
    std::printf("%7zu %7zu %12.0f %12.0f %10.2f %10.2f %7.2f\n", load.members, load.body,
                median(library, &Cost::rate), median(bare, &Cost::rate), ours / 1000, theirs / 1000,
                ours / theirs);
    std::fflush(stdout);
}

} // namespace

void Meter::messageArrived() {
    ++m_arrived;
    if (m_arrived != warmUp && m_arrived != m_last)
        return;
    m_cpu = nanoseconds(CLOCK_THREAD_CPUTIME_ID) - m_cpu;
    m_wall = nanoseconds(CLOCK_MONOTONIC) - m_wall;
}

void Meter::report() const {
    std::printf("%lld %lld\n", static_cast<long long>(m_cpu), static_cast<long long>(m_wall));
    std::fflush(stdout);
}

} // namespace bench

int main(int argc, char **argv) {
    using namespace bench;
    int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    if (!vintok::init())
        fail("starting the library");
    std::printf("%7s %7s %12s %12s %10s %10s %7s\n", "members", "body", "deliveries/s", "(bare)",
                "CPU us", "(bare)", "ratio");
    const auto compareAt = [rounds](std::size_t members, std::size_t body) {
        compare({members, body, std::clamp<std::size_t>(100'000 / members, 1000, 20'000)}, rounds);
    };
    if (argc > 3) {
        compareAt(std::strtoul(argv[2], nullptr, 10), std::strtoul(argv[3], nullptr, 10));
    } else {
        for (std::size_t members : {2, 8, 32, 128})
            for (std::size_t body : {64, 1024, 16384})
                compareAt(members, body);
    }
    vintok::fini();
}
