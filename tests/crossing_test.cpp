// Parties that all send at once, each in a process of its own: nobody waits for somebody who waits
// for him, and everything that was sent arrives once, whole and in order. The parties check that
// themselves: see support/party_child.cpp. And parties that call each other at once: those that
// meet have one host, and those that do not are told.
#include "support/ChildProcess.h"
#include "support/Meeting.h"
#include "support/TemporaryFolder.h"
#include "support/Words.h"

#include <chrono>
#include <cstdlib>
#include <deque>
#include <map>
#include <set>
#include <thread>

namespace vintok::test {
namespace {

constexpr std::size_t KB = 1000, MB = 1000 * KB;

struct Crossing {
    const char *name;
    std::size_t members;
    bool hostSpeaks;
    const char *how; // "says" or "files"
    std::size_t count, size;

    // How often to wait for as long as a child is waited for, by all that everybody hears: for
    // every 40 MB, and for every 10,000 messages, which cost more than their bytes do.
    std::size_t patience() const {
        const std::size_t messages = (members + (hostSpeaks ? 1 : 0)) * members * count;
        return 1 + messages * (size + 60) / (40 * MB) + messages / 10000;
    }
};

const Crossing crossings[] = {
    {"the host and a member", 1, true, "says", 1, 300 * KB},
    {"many files", 4, false, "files", 1, MB},
    {"tiny messages at full speed", 2, false, "says", 10000, 12},
    {"small messages at full speed", 3, false, "says", 2000, KB},
    {"eight members", 8, false, "says", 1, MB},
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

// ---- Calls at once ----

struct Calls {
    const char *name;
    const char *calls; // who calls whom
    bool byOwnAddress; // not by 127.0.0.1
};

const Calls callCases[] = {
    {"a pair", "AB BA", false},    {"a pair by the own address", "AB BA", true},
    {"a chain", "AB BC", false},   {"a chain by the own address", "AB BC", true},
    {"a ring", "AB BC CA", false}, {"a ring by the own address", "AB BC CA", true},
};

// For runs by hand with more than a test has time for.
int rounds() {
    const char *count = std::getenv("VINTOK_TEST_ROUNDS");
    return count != nullptr ? std::atoi(count) : 3;
}

class CallsAtOnce : public testing::TestWithParam<Calls> {
protected:
    using Words = std::vector<std::string>;

    void starts(const std::string &name) {
        ChildProcess &party =
            parties.try_emplace(name, Words{VINTOK_TEST_PARTY, name, "idle"}).first->second;
        std::string line;
        ASSERT_TRUE(party.printed(" at ", &line)) << party.story();
        places[name] = wordsOf(line);
    }

    static bool calls(const std::string &name) {
        return (' ' + std::string(GetParam().calls)).find(' ' + name) != std::string::npos;
    }

    void call(const std::string &caller, const std::string &called) {
        const Words &place = places.at(called);
        const std::string address = GetParam().byOwnAddress ? place[2] : "127.0.0.1";
        ASSERT_TRUE(parties.at(caller).type(address + ' ' + place[3]));
    }

    // What the parties say: who hosts or attends, with whom, and who is alone, told or not.
    std::map<std::string, Words> ask() {
        std::map<std::string, Words> said;
        for (auto &[name, party] : parties) {
            std::string line;
            EXPECT_TRUE(party.type("?") && party.printed(name + ' ', &line)) << name;
            said[name] = wordsOf(line + " .");
        }
        return said;
    }

    // Whether those that meet agree on it and have one host, and the others know that they do not.
    bool isSettled(bool met) {
        std::set<std::string> meeting, stories;
        int hosts = 0;
        for (auto &[name, words] : ask()) {
            if (words[1] == "alone") {
                if (met && calls(name) && words[2] != "told")
                    return false;
                continue;
            }
            hosts += words[1] == "hosts" ? 1 : 0;
            std::set<std::string> all(words.begin() + 2, words.end());
            all.erase("told");
            all.erase(".");
            all.insert(name);
            meeting.insert(name);
            std::string story;
            for (const std::string &one : all)
                story += one;
            stories.insert(story);
        }
        outcome = stories.empty() ? "nobody" : *stories.begin();
        return met ? hosts == 1 && stories.size() == 1 && outcome.size() == meeting.size()
                   : stories.empty();
    }

    // Stays so for a while: two answers in a row could be one of many on the way.
    bool settles(bool met) {
        std::string before;
        for (int left = 1000, same = 0; left != 0 && !HasFailure(); --left) {
            same = isSettled(met) && (same == 0 || outcome == before) ? same + 1 : 0;
            before = outcome;
            if (same == 4)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    std::map<std::string, ChildProcess> parties;
    std::map<std::string, Words> places;
    std::string outcome;
};

TEST_P(CallsAtOnce, EndInOneMeetingWithOneHost) {
    const std::string all = GetParam().calls;
    for (const char *name : {"A", "B", "C"})
        if (all.find(name) != std::string::npos)
            starts(name);
    for (int round = 0; round < rounds(); ++round) {
        for (const std::string &one : wordsOf(all))
            call(one.substr(0, 1), one.substr(1));
        ASSERT_TRUE(settles(true)) << round << testing::PrintToString(ask());
        EXPECT_TRUE(parties.size() == 3 || outcome == "AB");
        for (auto &[name, party] : parties)
            party.type("leave");
        ASSERT_TRUE(settles(false)) << round << testing::PrintToString(ask());
    }
}

INSTANTIATE_TEST_SUITE_P(Table, CallsAtOnce, testing::ValuesIn(callCases), caseName<Calls>);

} // namespace
} // namespace vintok::test
