// Hosts of one meeting, linked by a real server of NATS.
#include "support/NATSServer.h"
#include "support/Party.h"
#include "vintok-cluster/Cluster.h"

#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace vintok::test {
namespace {

class Clusters : public testing::Test {
protected:
    void SetUp() override {
        if (!NATSServer::isInstalled())
            GTEST_SKIP() << "there is no " << NATSServer::program;
        server = std::make_unique<NATSServer>();
    }
    void TearDown() override {
        clusters.clear();
        parties.clear();
    }

    // A host that is linked, with a member.
    Cluster &host(const std::string &name, const std::string &member) {
        ClusterOptions options;
        options.servers = server->url();
        options.meeting = "a meeting";
        options.name = name;
        parties.push_back(std::make_unique<Party>(meeting, name));
        Party &party = *parties.back();
        EXPECT_TRUE(party.hosts("Budget"));
        clusters.push_back(std::make_unique<Cluster>(party.participant(), options));
        EXPECT_TRUE(clusters.back()->start()) << clusters.back()->lastFailure();
        parties.push_back(std::make_unique<Party>(meeting, member));
        EXPECT_TRUE(parties.back()->meets(party));
        return *clusters.back();
    }
    Party &operator[](const std::string &name) {
        for (const auto &party : parties)
            if (party->name() == name)
                return *party;
        throw std::out_of_range(name);
    }

    Meeting meeting;
    std::unique_ptr<NATSServer> server;
    std::vector<std::unique_ptr<Party>> parties;
    std::vector<std::unique_ptr<Cluster>> clusters;
};

// Whether everybody sees all others, each by one colour that nobody else has.
bool agree(const std::vector<std::unique_ptr<Party>> &parties, std::size_t count) {
    Roster all;
    std::set<int> colors;
    for (const auto &party : parties) {
        if (!party->participant().isMeeting())
            continue;
        Roster roster{{party->name(), party->participant().colorIndex()}};
        for (const ConferenceRosterEntry &entry : party->participant().roster())
            roster[entry.firstName()] = entry.colorIndex();
        if (roster.size() != count || (!all.empty() && roster != all))
            return false;
        all = roster;
    }
    for (const auto &[name, color] : all)
        colors.insert(color);
    return colors.size() == count && !colors.contains(65535);
}

TEST_F(Clusters, MembersOfThreeHostsAreInOneMeeting) {
    host("H1", "Ann");
    host("H2", "Bob");
    host("H3", "Cid");
    EXPECT_TRUE(meeting.until([&] { return agree(parties, 6); }, "one roster"));
    EXPECT_TRUE((*this)["Ann"].says("hello"));
    for (const char *name : {"Bob", "Cid", "H1", "H2", "H3"})
        EXPECT_TRUE((*this)[name].hears("hello")) << name;
    EXPECT_TRUE((*this)["Bob"]->requestStartLeading());
    for (const char *name : {"Ann", "Bob", "Cid", "H1", "H2", "H3"})
        EXPECT_TRUE((*this)[name].isTold("leader Bob")) << name;
    EXPECT_EQ(clusters[0]->hostOf((*this)["Cid"]->address()), "H3");

    clusters[0]->stop();
    for (const char *name : {"Bob", "Cid", "H2", "H3"}) {
        EXPECT_TRUE((*this)[name].isTold("leave Ann")) << name;
        EXPECT_TRUE((*this)[name].isTold("leave H1")) << name;
    }
    EXPECT_TRUE(meeting.until([&] { return clusters[1]->hosts()[0].authority; }, "authority"));
}

TEST_F(Clusters, NothingIsLostWhileTheServerIsStartedAgain) {
    host("H1", "Ann");
    host("H2", "Bob");
    EXPECT_TRUE(meeting.until([&] { return agree(parties, 4); }, "one roster"));
    server->stop();
    EXPECT_TRUE(meeting.until([&] { return !clusters[0]->metrics().connected; }, "no server"));
    for (int i = 0; i < 1000; ++i)
        EXPECT_TRUE((*this)["Ann"].says(std::to_string(i)));
    server->start();
    EXPECT_TRUE((*this)["Bob"].hears("999"));
    std::vector<std::string> wanted;
    for (int i = 0; i < 1000; ++i)
        wanted.push_back("data " + std::to_string(i));
    std::vector<std::string> heard = (*this)["Bob"].events;
    std::erase_if(heard, [](const std::string &event) { return !event.starts_with("data "); });
    EXPECT_EQ(heard, wanted);
}

} // namespace
} // namespace vintok::test
