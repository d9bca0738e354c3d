// Random meetings beside a model that says in a few lines what each step must come to; and one
// meeting of a thousand.
#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "support/Environment.h"
#include "support/Stage.h"
#include "support/TemporaryFolder.h"

#include <random>
#include <set>

namespace vintok::test {
namespace {

// Ann hosts; the others come, go and act as the seed says.
class Oracle : public testing::TestWithParam<unsigned> {
protected:
    static constexpr std::size_t host = 0, most = 13;

    Oracle() {
        for (std::size_t i = 0; i < most; ++i)
            arrives(i);
        EXPECT_TRUE(parties[host]->hosts("Plan") && parties[1]->meets(*parties[host]));
    }
    void arrives(std::size_t i) {
        parties[i] = std::make_unique<Party>(meeting, std::string(1, static_cast<char>('A' + i)));
        parties[i]->decidesOnLead();
    }
    std::size_t below(std::size_t limit) { return random() % limit; }
    std::size_t somebody() {
        return std::next(colors.begin(), std::ptrdiff_t(below(colors.size())))->first;
    }

    // ---- The steps, each with what it means to the model ----

    void joins() {
        const std::size_t who = below(most);
        if (colors.count(who) != 0)
            return;
        EXPECT_TRUE(parties[who]->calls(*parties[host]));
        colors[who] = ++lastColor;
    }
    void goes() {
        const std::size_t who = somebody();
        if (who == host || colors.size() == 2) // with the last member the meeting ends
            return;
        if (below(2) == 0)
            parties[who]->leaves();
        else
            arrives(who); // in its own place: it has died
        colors.erase(who);
        leader = leader == who ? host : leader;
    }
    void asksForTheLead() {
        const std::size_t who = somebody(), asked = leader;
        if (who == asked)
            return;
        const bool granted = below(2) != 0;
        Party &decides = *parties[asked];
        EXPECT_TRUE((*parties[who])->requestStartLeading() &&
                    decides.isTold("leadRequest " + parties[who]->name()));
        EXPECT_TRUE(granted ? decides->acceptLeadChange() : decides->rejectLeadChange());
        EXPECT_TRUE(granted || parties[who]->isTold("leadReply 0"));
        leader = granted ? who : asked;
    }
    void speaks() {
        for (std::size_t left = below(4); left != 0; --left) {
            const std::size_t who = somebody();
            const bool isFile = below(3) == 0;
            EXPECT_TRUE(isFile ? (*parties[who])->transferFile(file, "f")
                               : parties[who]->says("x"));
            for (const auto &[other, color] : colors)
                expected[other][isFile] += other != who ? 1 : 0;
        }
    }

    void acts() {
        switch (below(5)) {
        case 0:
            return goes();
        case 1:
            return asksForTheLead();
        case 2:
            return speaks();
        default:
            return joins();
        }
    }

    bool isAsTold() {
        Roster all;
        for (const auto &[who, color] : colors)
            all[parties[who]->name()] = color;
        for (const auto &[who, color] : colors) {
            Party &party = *parties[who];
            Roster others = all;
            others.erase(party.name());
            if (party.roster() != others || party->isLeader() != (who == leader) ||
                party.told("data x") != expected[who][0] ||
                party.told("file whole") != expected[who][1])
                return false;
        }
        return true;
    }

    Meeting meeting;
    const TemporaryFolder folder;
    const std::string file = folder.holding("f", std::string(5000, 'f'));
    const ScopedEnvironment root{"QOR_COLLAB_ROOT_LOCAL", folder.path("in")};
    std::mt19937 random{GetParam()};
    std::array<std::unique_ptr<Party>, most> parties;
    std::map<std::size_t, int> colors = {{host, 0}, {1, 1}}; // of who is in the meeting
    int lastColor = 1;
    std::size_t leader = host;
    std::map<std::size_t, std::array<int, 2>> expected; // broadcasts and files
};

TEST_P(Oracle, EverybodyKnowsAndHearsWhatTheModelSays) {
    for (int step = 0; step < 150 && !HasFailure(); ++step) {
        SCOPED_TRACE(step);
        for (const auto &party : parties)
            party->forgets();
        expected.clear();
        acts();
        EXPECT_TRUE(meeting.until([this] { return isAsTold(); }, "what the model says"));
    }
}

INSTANTIATE_TEST_SUITE_P(Seed, Oracle, testing::Values(1U, 2U, 3U));

// ---- A thousand ----

// Members that only count what they get; the last one keeps it.
struct Crowd {
    ~Crowd() {
        for (const int member : members)
            platform::closeSocket(member);
    }
    void reads() {
        counts.resize(members.size());
        for (std::size_t i = 0; i < members.size(); ++i) {
            const auto got = platform::receiveNow(members[i], buffer.data(), buffer.size());
            counts[i] += std::max<std::int64_t>(got, 0);
            if (i + 1 == size && got > 0)
                last.insert(last.end(), buffer.begin(), buffer.begin() + got);
        }
    }

    static constexpr std::size_t size = 1000;
    std::vector<int> members;
    std::vector<std::int64_t> counts; // of bytes
    Bytes last, buffer = Bytes(65536);
};

TEST(Thousand, MembersHaveDescriptorsAndColorsOfTheirOwnAndAllAreKnownAndTold) {
    const std::size_t limit = platform::descriptorLimit();
    if (limit < 2500 && !platform::setDescriptorLimit(2500))
        GTEST_SKIP() << "this process may not open so many descriptors";
    Meeting meeting;
    Party ann(meeting, "Ann");
    Crowd crowd;
    const auto until = [&](const auto &condition) {
        return meeting.until([&] { return crowd.reads(), condition(); }, "all");
    };
    ann->setRosterByDifferences(true);
    ASSERT_TRUE(ann.hosts("Plan"));
    std::set<std::string> everybody = {"Ann"};
    while (crowd.members.size() < Crowd::size) {
        WirePeer peer(meeting, "P" + std::to_string(everybody.size()));
        ASSERT_TRUE(peer.knocks(ann.port()));
        crowd.members.push_back(peer.handsOver());
        everybody.insert(peer.entry.firstName);
        meeting.turn();
        crowd.reads();
    }
    EXPECT_GT(crowd.members.back(), 1024);
    ASSERT_TRUE(until([&] { return ann.roster().size() == Crowd::size; }));
    std::set<int> colors;
    for (const auto &[name, color] : ann.roster())
        colors.insert(color);
    EXPECT_EQ(Crowd::size, colors.size());
    std::set<std::string> known;
    EXPECT_TRUE(until([&] {
        while (const auto frame = WireFrame::take(crowd.last))
            if (frame->id == id::rosterReply)
                known.insert(entryIn(*frame).firstName);
        return known == everybody;
    }));
    const auto before = crowd.counts;
    EXPECT_TRUE(ann.says("all"));
    EXPECT_TRUE(until([&] {
        return std::equal(before.begin(), before.end(), crowd.counts.begin(),
                          [](auto was, auto is) { return is == was + 63; });
    }));
    platform::setDescriptorLimit(limit);
}

} // namespace
} // namespace vintok::test
