// Compares three hosts that pass messages on to the members of a meeting: the library's, the
// ideal relay (IdealHost.cpp) and one that sends each message to one member after the other
// (BareHost.cpp). They run in turns; the tables show medians, in brackets as a multiple of the
// ideal relay's, and `--csv` adds the medians to a file for tools/charts.
//
// usage: fanout [MODE...] [--members N,...] [--body BYTES,...] [--rounds N] [--seconds N] [--csv
// FILE]
//
//   throughput   one talks as fast as a window of 256 KiB a member lets him (the default)
//   latency      one says something each 2 ms; the time until the last member has it
//   all-talk     eight talk as fast as they share that window
//   crowd        1,000 members: what the first 300 joins cost, how long the last one takes until
//                it has the whole roster, and how long all of them; then throughput
//   stopped      one of eleven members stops reading; the time until the last of the others has
//                what is said each 2 ms, before and after, with the guards of the programs
//   strangers    the same while others connect, say hello, or join under ever new addresses
//   fairness     one talks as throughput, one sends a file as fast, all others say five lines a
//                second; the time until the last member has a line
#include "Hosts.h"
#include "Strangers.h"
#include "Talk.h"

#include "vintok/TCPStream.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <string>

namespace bench {
namespace {

constexpr Host hosts[] = {{"libvintok", runLibraryHost, true},
                          {"ideal relay", runIdealHost, false},
                          {"one send a message", runBareHost, false},
                          {"libvintok, guarded", runGuardedHost, true}};
constexpr std::size_t ideal = 1;

struct Figure {
    const char *name;
    double value;
};
using Figures = std::vector<Figure>;

struct Case {
    std::size_t members, body;
    double seconds;
};

// Each with a CPU of its own, unless either is mostly asleep.
struct Meeting {
    Meeting(const Host &host, bool pinned)
        : process([&] {
              pin(pinned ? 1 : -1);
              host.run();
          }),
          members(process.port(), host.joins) {
        pin(pinned ? 0 : -1);
    }
    void join(std::size_t count) {
        while (members.count() < count)
            members.join();
    }
    Outcome talk(const std::vector<Talk> &talks, double seconds) {
        members.passFence();
        return Talks(members, talks).run(process, seconds);
    }

    Child process;
    Members members;
};

// ---- The modes ----

Talk broadcast(std::size_t speaker, std::size_t body, std::int64_t interval = 0) {
    return {speaker, &vintok::TCP_broadcastMessage, body, interval};
}

Figures flow(const Outcome &outcome) {
    return {{"deliveries_per_s", outcome.rate}, {"cpu_us", outcome.cpu}, {"peak_mb", outcome.peak}};
}

Figures talkAtOnce(const Host &host, const Case &load, std::size_t speakers) {
    Meeting meeting(host, true);
    meeting.join(load.members);
    std::vector<Talk> talks;
    for (std::size_t i = 0; i < std::min(load.members, speakers); ++i)
        talks.push_back(broadcast(i, load.body));
    return flow(meeting.talk(talks, load.seconds));
}

Figures throughput(const Host &host, const Case &load) {
    return talkAtOnce(host, load, 1);
}

Figures allTalk(const Host &host, const Case &load) {
    return talkAtOnce(host, load, 8);
}

Figures latency(const Host &host, const Case &load) {
    Meeting meeting(host, false);
    meeting.join(load.members);
    const Outcome outcome =
        meeting.talk({broadcast(0, load.body, 2'000'000)}, std::max(load.seconds, 2.0));
    return {{"p50_us", outcome.quantile(0.5)},
            {"p99_us", outcome.quantile(0.99)},
            {"cpu_us", outcome.cpu}};
}

Figures crowd(const Host &host, const Case &load) {
    constexpr std::size_t first = 300;
    Meeting meeting(host, true);
    const std::int64_t before = meeting.process.cpu(), began = nanoseconds(CLOCK_MONOTONIC);
    meeting.join(std::min(first, load.members - 1));
    meeting.members.passFence();
    const double joins = static_cast<double>(meeting.process.cpu() - before) / 1e9;
    meeting.join(load.members - 1);
    meeting.members.passFence();
    const std::int64_t start = nanoseconds(CLOCK_MONOTONIC);
    meeting.join(load.members);
    if (host.joins)
        meeting.members.takeRoster();
    const std::int64_t end = nanoseconds(CLOCK_MONOTONIC);
    const double last = static_cast<double>(end - start) / 1e6;
    Figures figures = flow(meeting.talk({broadcast(0, load.body)}, load.seconds));
    if (host.joins)
        figures.insert(figures.end(), {{"joins_cpu_s", joins},
                                       {"last_join_ms", last},
                                       {"all_joins_s", static_cast<double>(end - began) / 1e9}});
    return figures;
}

Figures fairness(const Host &host, const Case &load) {
    constexpr std::size_t line = 80, chunk = 1024;
    Meeting meeting(host, true);
    meeting.join(load.members);
    std::vector<Talk> talks{broadcast(0, load.body), {1, &vintok::TCP_fileTransferData, chunk}};
    for (std::size_t i = 2; i < load.members; ++i)
        talks.push_back(broadcast(i, line, 200'000'000));
    const Outcome outcome = meeting.talk(talks, std::max(load.seconds, 4.0));
    return {{"lines_p50_us", outcome.quantile(0.5)},
            {"lines_p99_us", outcome.quantile(0.99)},
            {"deliveries_per_s", outcome.rate}};
}

// What ten others notice of one who is stopped: the quantiles without and with him.
Figures stopped(const Host &host, const Case &load) {
    Meeting meeting(host, false);
    meeting.join(load.members + 1);
    const std::vector<Talk> talks{broadcast(0, load.body, 2'000'000)};
    const Outcome before = meeting.talk(talks, std::max(load.seconds, 4.0));
    meeting.members.stopLast();
    const Outcome with = Talks(meeting.members, talks).run(meeting.process, 16);
    return {{"p50_us", before.quantile(0.5)},
            {"p99_us", before.quantile(0.99)},
            {"p50_stopped_us", with.quantile(0.5)},
            {"p99_stopped_us", with.quantile(0.99)},
            {"peak_mb", with.peak}};
}

// What members notice of strangers who come in a flood, and how many came each second.
Figures strangers(const Host &host, const Case &load) {
    Meeting meeting(host, false);
    meeting.join(load.members);
    const std::vector<Talk> talks{broadcast(0, load.body, 2'000'000)};
    const double seconds = std::max(load.seconds, 4.0);
    const Outcome before = meeting.talk(talks, seconds);
    Figures figures{{"p50_us", before.quantile(0.5)}, {"p99_us", before.quantile(0.99)}};
    const struct {
        Strangers::Manner manner;
        const char *rate, *p99;
    } floods[] = {{Strangers::Manner::silent, "silent_per_s", "p99_silent_us"},
                  {Strangers::Manner::hello, "hellos_per_s", "p99_hellos_us"},
                  {Strangers::Manner::join, "joins_per_s", "p99_joins_us"}};
    for (const auto &flood : floods) {
        Strangers crowd(meeting.members.port(), flood.manner);
        const Outcome with = Talks(meeting.members, talks).run(meeting.process, seconds);
        figures.push_back({flood.rate, crowd.perSecond()});
        figures.push_back({flood.p99, with.quantile(0.99)});
    }
    return figures;
}

struct Mode {
    const char *name;
    Figures (*run)(const Host &, const Case &);
    std::vector<std::size_t> members, bodies;
    std::vector<std::size_t> hosts = {0, 1, 2};
};

const Mode modes[] = {{"throughput", throughput, {2, 8, 32, 128}, {64, 1024, 16384}},
                      {"latency", latency, {8}, {256}},
                      {"all-talk", allTalk, {8}, {64, 1024}},
                      {"crowd", crowd, {1000}, {64}, {0, 1, 2, 3}},
                      {"fairness", fairness, {32}, {64}},
                      {"stopped", stopped, {10}, {16384}, {3}},
                      {"strangers", strangers, {10}, {64}, {3}}};

// ---- What is shown ----

struct Options {
    std::vector<const Mode *> chosen;
    std::vector<std::size_t> members, bodies; // in place of the mode's own
    int rounds = 3;
    double seconds = 1;
    std::string csv;
};

Figures medians(const std::vector<Figures> &rounds) {
    Figures result = rounds.front();
    for (std::size_t i = 0; i < result.size(); ++i) {
        std::vector<double> values;
        for (const Figures &round : rounds)
            values.push_back(round[i].value);
        std::sort(values.begin(), values.end());
        result[i].value = values[values.size() / 2];
    }
    return result;
}

// The ideal relay has the first of the figures that the library has.
void print(const Figures &figures, const char *name, const Figures &limit) {
    std::printf("  %-18s", name);
    for (std::size_t i = 0; i < figures.size(); ++i) {
        std::printf(" %12.2f", figures[i].value);
        if (i < limit.size())
            std::printf(" (%5.3g)", figures[i].value / limit[i].value);
    }
    std::printf("\n");
}

void append(const std::string &path, const std::string &key, const Figures &figures) {
    std::ofstream file(path, std::ios::app);
    file << std::fixed << std::setprecision(4);
    if (file.tellp() == 0)
        file << "kind,relay,members,body,name,value\n";
    for (const Figure &figure : figures)
        file << key << ',' << figure.name << ',' << figure.value << '\n';
}

void compare(const Mode &mode, const Case &load, const Options &options) {
    std::vector<Figures> rounds[std::size(hosts)];
    for (int round = 0; round < options.rounds; ++round)
        for (const std::size_t i : mode.hosts)
            rounds[i].push_back(mode.run(hosts[i], load));
    std::printf("%s, %zu members, %zu bytes\n  %-18s", mode.name, load.members, load.body, "");
    for (const Figure &figure : rounds[mode.hosts.front()].front())
        std::printf("%13s        ", figure.name);
    std::printf("\n");
    const Figures limit = rounds[ideal].empty() ? Figures() : medians(rounds[ideal]);
    for (const std::size_t i : mode.hosts) {
        const Figures result = medians(rounds[i]);
        print(result, hosts[i].name, limit);
        if (!options.csv.empty())
            append(options.csv,
                   std::string(mode.name) + ',' + hosts[i].name + ',' +
                       std::to_string(load.members) + ',' + std::to_string(load.body),
                   result);
    }
    std::fflush(stdout);
}

void run(const Options &options) {
    for (const Mode *mode : options.chosen)
        for (std::size_t members : options.members.empty() ? mode->members : options.members)
            for (std::size_t body : options.bodies.empty() ? mode->bodies : options.bodies)
                compare(*mode,
                        {std::max<std::size_t>(members, 2), std::max(body, sizeof(Stamp)),
                         options.seconds},
                        options);
}

std::vector<std::size_t> numbers(const std::string &text) {
    std::vector<std::size_t> result;
    std::istringstream list(text);
    for (std::string number; std::getline(list, number, ',');)
        result.push_back(std::strtoul(number.c_str(), nullptr, 10));
    return result;
}

// False for what is no option or mode.
bool read(const std::vector<std::string> &words, Options &options) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto *mode = std::find_if(std::begin(modes), std::end(modes),
                                        [&](const Mode &each) { return words[i] == each.name; });
        const std::string value = i + 1 < words.size() ? words[i + 1] : "";
        if (mode != std::end(modes)) {
            options.chosen.push_back(mode);
            continue;
        }
        if (value.empty())
            return false;
        if (words[i] == "--members")
            options.members = numbers(value);
        else if (words[i] == "--body")
            options.bodies = numbers(value);
        else if (words[i] == "--rounds")
            options.rounds = std::max(1, std::atoi(value.c_str()));
        else if (words[i] == "--seconds")
            options.seconds = std::max(0.1, std::atof(value.c_str()));
        else if (words[i] == "--csv")
            options.csv = value;
        else
            return false;
        ++i;
    }
    if (options.chosen.empty())
        options.chosen.push_back(&modes[0]);
    return true;
}

} // namespace
} // namespace bench

int main(int argc, char **argv) {
    bench::Options options;
    if (!bench::read({argv + 1, argv + argc}, options)) {
        std::fprintf(
            stderr,
            "usage: fanout [throughput|latency|all-talk|crowd|fairness|stopped|strangers]... "
            "[--members N,...] [--body BYTES,...]\n"
            "              [--rounds N] [--seconds N] [--csv FILE]\n");
        return 2;
    }
    if (!vintok::init())
        bench::fail("starting the library");
    bench::run(options);
    vintok::fini();
}
