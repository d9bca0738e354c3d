// Measures how long a file takes from one party of a meeting to all others, and what CPU time it
// costs everybody together, against a plain copy of the same file over sockets in the same run.
// What every receiver has stored is compared with the source. `cp` is there for orientation.
//
// The last of the receivers says a line each 20 ms meanwhile. Shown is the 99th percentile of the
// time that a line took, at the member with the worst.
//
// usage: file_bench [MEGABYTES [RECEIVERS [ROUNDS [FOLDER]]]]
#include "FileCopy.h"

#include "vintok/ConferenceParticipant.h"
#include "vintok/TCPSelect.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <unistd.h>
#include <vector>

namespace bench {
namespace {

namespace fs = std::filesystem;

// ---- A party, in a process of its own ----

struct Role {
    unsigned short port; // of the host; 0 hosts
    int others;          // whose joining is waited for before the share begins
    bool sends;
    bool talks;
    std::string folder; // for files
};

using Party = vintok::ConferenceParticipant;

int joined;
bool received;

// The lines that are said while a file arrives, as one of its receivers hears them.
struct Lines {
    std::int64_t begin = 0, end = 0; // of the file, nanoseconds
    bool over = false;               // one has come that was said behind the end
    std::vector<double> times;       // milliseconds
} lines;

void lineArrived(Party *, unsigned char *line, std::uint64_t) {
    std::int64_t said = 0;
    std::memcpy(&said, line, sizeof said);
    if (lines.end != 0 && said > lines.end)
        lines.over = true;
    else if (lines.begin != 0 && said >= lines.begin)
        lines.times.push_back(static_cast<double>(nanoseconds(CLOCK_MONOTONIC) - said) / 1e6);
}

void chunkArrived(Party *, const vintok::TCPAddress &, std::uint64_t, std::uint64_t,
                  const std::string &) {
    if (lines.begin == 0)
        lines.begin = nanoseconds(CLOCK_MONOTONIC);
}

void tellLines() {
    std::sort(lines.times.begin(), lines.times.end());
    const std::size_t count = lines.times.size();
    std::printf("lines %f\n", count == 0 ? 0 : lines.times[count * 99 / 100]);
    std::fflush(stdout);
}

// Says a line each 20 ms, and does what a party does, until then.
void talk(Party &party, vintok::TCPSelect &loop, const bool &until) {
    constexpr std::int64_t interval = 20'000'000;
    static std::int64_t due = nanoseconds(CLOCK_MONOTONIC);
    while (!until) {
        unsigned char line[80] = {};
        const std::int64_t now = nanoseconds(CLOCK_MONOTONIC);
        if (now >= due) {
            std::memcpy(line, &now, sizeof now);
            party.sendBroadcastData(line, sizeof line);
            due = std::max(due + interval, now);
        }
        if (loop.pollDescriptors(true) == 0)
            usleep(500);
    }
}

void runParty(const Copy &copy, const Role &role) {
    Party::setFileRoot(role.folder);
    Party party(true); // prints its port
    party.setJoinCB([](Party *, const vintok::ConferenceRosterEntry &) { ++joined; });
    party.setFileTransferCB([](Party *, const vintok::TCPAddress &, bool whole,
                               const std::string &) { received = whole; });
    party.setBroadcastDataCB(lineArrived);
    party.setFileProgressCB(chunkArrived);
    if (role.port == 0 ? !party.hostMeeting("files")
                       : !party.placeCall("127.0.0.1", role.port, "", 0, "", "", 0))
        fail("meeting");
    vintok::TCPSelect loop;
    while (joined < role.others)
        loop.pollDescriptors(false);
    if (role.port != 0) {
        std::printf("joined\n");
        std::fflush(stdout);
    }
    const Share share;
    if (role.sends) {
        share.start();
        if (!party.transferFile(copy.source, fs::path(copy.source).filename().string()))
            fail("transferring");
    }
    if (role.talks)
        talk(party, loop, received);
    while (!role.sends && !received)
        loop.pollDescriptors(false);
    share.done();
    if (role.talks)
        talk(party, loop, false);
    lines.end = nanoseconds(CLOCK_MONOTONIC);
    while (!role.sends && !lines.over)
        loop.pollDescriptors(false);
    if (!role.sends)
        tellLines();
    loop.run();
}

// ---- The measurement ----

struct Cost {
    double wall = 0, cpu = 0; // seconds
    double lines = 0;         // milliseconds
};

// The first line that starts with this word; what follows the word.
std::string line(Child &child, const char *word) {
    char text[256];
    while (std::fgets(text, sizeof text, child.output()) != nullptr)
        if (std::strncmp(text, word, std::strlen(word)) == 0)
            return text + std::strlen(word);
    fail(word);
}

using Children = std::vector<std::unique_ptr<Child>>;

// With `talk` the last of the others talks.
Cost collect(Child &sender, const Children &others, bool talk) {
    const double start = std::stod(line(sender, "start"));
    Cost cost;
    const auto add = [&](Child &child) {
        double wall = 0, cpu = 0;
        if (std::sscanf(line(child, "done").c_str(), "%lf %lf", &wall, &cpu) != 2)
            fail("reading the cost");
        cost.wall = std::max(cost.wall, (wall - start) / 1e9);
        cost.cpu += cpu / 1e9;
    };
    add(sender);
    for (const auto &other : others)
        add(*other);
    for (std::size_t i = 0; talk && i + 1 < others.size(); ++i)
        cost.lines = std::max(cost.lines, std::stod(line(*others[i], "lines")));
    return cost;
}

class Bench {
public:
    Bench(std::size_t megabytes, int receivers, const fs::path &parent)
        : m_folder(parent / ("vintok-bench-" + std::to_string(getpid()))),
          m_copy{m_folder / "source.bin", receivers} {
        fs::create_directories(m_folder);
        std::mt19937_64 random(1);
        std::vector<std::uint64_t> block((1 << 20) / sizeof(std::uint64_t));
        std::ofstream file(m_copy.source, std::ios::binary);
        for (std::size_t i = 0; i < megabytes; ++i) {
            std::generate(block.begin(), block.end(), std::ref(random));
            file.write(reinterpret_cast<const char *>(block.data()), 1 << 20);
        }
    }
    ~Bench() { fs::remove_all(m_folder); }
    Bench(const Bench &) = delete;
    Bench &operator=(const Bench &) = delete;

    Cost plain() {
        Child sender([this] { sendPlain(m_copy); });
        const unsigned short port = sender.port();
        Children receivers;
        for (int i = 0; i < m_copy.receivers; ++i)
            start(receivers,
                  [this, port](const std::string &folder) { receivePlain(m_copy, port, folder); });
        const Cost cost = collect(sender, receivers, false);
        verify();
        return cost;
    }

    // The host sends to all others.
    Cost meeting() {
        Child host([this] { runParty(m_copy, {0, m_copy.receivers, true, false, ""}); });
        const unsigned short port = host.port();
        Children members;
        for (int i = 0; i < m_copy.receivers; ++i)
            startMember(members, port);
        const Cost cost = collect(host, members, true);
        verify();
        return cost;
    }

    // A member sends: the host stores the file and relays it to all others.
    Cost relayed() {
        Children receivers;
        start(receivers, [this](const std::string &folder) {
            runParty(m_copy, {0, 0, false, false, folder});
        });
        const unsigned short port = receivers[0]->port();
        for (int i = 1; i < m_copy.receivers; ++i)
            startMember(receivers, port);
        Child sender([this, port] { runParty(m_copy, {port, 1, true, false, ""}); });
        const Cost cost = collect(sender, receivers, true);
        verify();
        return cost;
    }

    // One copy of the system's own for each receiver.
    Cost system() {
        const double start = static_cast<double>(nanoseconds(CLOCK_MONOTONIC));
        std::string command;
        for (int i = 0; i < m_copy.receivers; ++i) {
            const fs::path folder = receiver(static_cast<std::size_t>(i));
            fs::create_directories(folder);
            command += "cp '" + m_copy.source + "' '" + folder.string() + "';";
        }
        if (std::system(command.c_str()) != 0)
            fail("cp");
        const double end = static_cast<double>(nanoseconds(CLOCK_MONOTONIC));
        verify();
        return {(end - start) / 1e9};
    }

private:
    fs::path receiver(std::size_t number) const { return m_folder / std::to_string(number); }

    void start(Children &children, const std::function<void(const std::string &)> &work) {
        const std::string folder = receiver(children.size());
        fs::create_directories(folder);
        children.push_back(std::make_unique<Child>([&] { work(folder); }));
    }

    void startMember(Children &members, unsigned short port) {
        const bool last = members.size() + 1 == static_cast<std::size_t>(m_copy.receivers);
        start(members, [this, port, last](const std::string &folder) {
            runParty(m_copy, {port, 1, false, last, folder});
        });
        line(*members.back(), "joined");
    }

    // Every receiver has the whole file; none has it afterwards.
    void verify() {
        for (int i = 0; i < m_copy.receivers; ++i) {
            const fs::path folder = receiver(static_cast<std::size_t>(i));
            const std::string command =
                "cmp '" + m_copy.source + "' '" + (folder / "source.bin").string() + "'";
            if (std::system(command.c_str()) != 0)
                fail("a receiver has another file");
            fs::remove_all(folder);
        }
    }

    fs::path m_folder;
    Copy m_copy;
};

Cost median(std::vector<Cost> costs) {
    Cost result;
    for (double Cost::*value : {&Cost::wall, &Cost::cpu, &Cost::lines}) {
        std::sort(costs.begin(), costs.end(),
                  [value](const Cost &a, const Cost &b) { return a.*value < b.*value; });
        result.*value = costs[costs.size() / 2].*value;
    }
    return result;
}

void compare(Bench &bench, int rounds) {
    struct Way {
        const char *name;
        Cost (Bench::*copy)();
        std::vector<Cost> costs = {};
    };
    Way ways[] = {{"plain sockets", &Bench::plain},
                  {"host sends", &Bench::meeting},
                  {"member sends", &Bench::relayed},
                  {"cp", &Bench::system}};
    for (int i = 0; i < rounds; ++i)
        for (Way &way : ways)
            way.costs.push_back((bench.*way.copy)());
    const Cost plain = median(ways[0].costs);
    std::printf("%-14s %8s %8s %8s %8s %12s\n", "", "wall s", "ratio", "CPU s", "ratio",
                "line p99 ms");
    for (const Way &way : ways) {
        const Cost cost = median(way.costs);
        std::printf("%-14s %8.2f %8.2f %8.2f %8.2f %12.1f\n", way.name, cost.wall,
                    cost.wall / plain.wall, cost.cpu, cost.cpu / plain.cpu, cost.lines);
    }
}

} // namespace
} // namespace bench

int main(int argc, char **argv) {
    const auto number = [&](int at, int otherwise) {
        return argc > at ? std::max(1, std::atoi(argv[at])) : otherwise;
    };
    bench::Bench bench(static_cast<std::size_t>(number(1, 200)), number(2, 8),
                       argc > 4 ? argv[4] : std::filesystem::temp_directory_path().string());
    bench::compare(bench, number(3, 3));
}
