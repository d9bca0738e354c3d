// Parties that all send at once, each in a process of its own: nobody waits for somebody who waits
// for him, and everything that was sent arrives once, whole and in order. The parties check that
// themselves: see support/party_child.cpp.
#include "support/ChildProcess.h"
#include "support/Meeting.h"
#include "support/TemporaryFolder.h"

#include <cstdlib>
#include <deque>
#include <gtest/gtest.h>

namespace vintok::test {
namespace {

constexpr std::size_t KB = 1000, MB = 1000 * KB;

struct Crossing {
    const char *name;
    std::size_t members;
    bool hostSpeaks;
    const char *how; // "says" or "files"
    std::size_t count;
    std::size_t size;

    // How often to wait for as long as a child is waited for, by all that everybody hears: for
    // every 40 MB, and for every 10,000 messages, which cost more than their bytes do.
    std::size_t patience() const {
        const std::size_t messages = (members + (hostSpeaks ? 1 : 0)) * members * count;
        return 1 + messages * (size + 60) / (40 * MB) + messages / 10000;
    }
};

// For runs by hand with more than a test has time for.
std::size_t sizeOfManyFiles() {
    const char *megabytes = std::getenv("VINTOK_TEST_FILE_MB");
    return (megabytes != nullptr ? std::strtoul(megabytes, nullptr, 10) : 10) * MB;
}

const Crossing crossings[] = {
    {"two members", 2, false, "says", 1, 200 * KB},
    {"the host and a member", 1, true, "says", 1, 300 * KB},
    {"two files", 2, false, "files", 1, MB},
    {"tiny messages at full speed", 2, false, "says", 10000, 12},
    {"small messages at full speed", 3, false, "says", 2000, KB},
    {"large messages at full speed", 3, false, "says", 20, 100 * KB},
    {"eight members", 8, false, "says", 1, MB},
    {"many files", 4, false, "files", 1, sizeOfManyFiles()},
};

class AllAtOnce : public testing::TestWithParam<Crossing> {
protected:
    ChildProcess &starts(const std::string &name, const std::string &whom) {
        const Crossing &row = GetParam();
        const std::vector<std::string> command = {VINTOK_TEST_PARTY,
                                                  name,
                                                  whom,
                                                  std::to_string(row.members),
                                                  row.hostSpeaks ? "1" : "0",
                                                  row.how,
                                                  std::to_string(row.count),
                                                  std::to_string(row.size),
                                                  folder.path("")};
        return parties.emplace_back(command);
    }

    bool tells(ChildProcess &party, const std::string &what) const {
        for (std::size_t left = GetParam().patience(); left != 0; --left)
            if (party.printed(what))
                return true;
        return false;
    }

    std::string stories() const {
        std::string all;
        for (const ChildProcess &party : parties)
            all += party.story() + "\n\n";
        return all;
    }

    TemporaryFolder folder;
    std::deque<ChildProcess> parties;
};

TEST_P(AllAtOnce, EverybodyHearsEverything) {
    std::string line;
    ASSERT_TRUE(starts("Host", "host").printed("PORT:", &line));
    for (std::size_t number = 1; number <= GetParam().members; ++number)
        starts("Member" + std::to_string(number), line.substr(5));
    for (ChildProcess &party : parties)
        ASSERT_TRUE(tells(party, "has heard all")) << stories();
}

INSTANTIATE_TEST_SUITE_P(Table, AllAtOnce, testing::ValuesIn(crossings), caseName<Crossing>);

} // namespace
} // namespace vintok::test
