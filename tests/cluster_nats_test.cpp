// Hosts of one meeting, linked by a real server of NATS.
#include "support/NATSServer.h"
#include "support/Party.h"
#include "vintok-cluster/Cluster.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace vintok::test {
namespace {

class Clusters : public testing::Test {
protected:
    void SetUp() override {
        if (!NATSServer::isInstalled())
            GTEST_SKIP() << "there is no " << NATSServer::program;
        server = std::make_unique<NATSServer>(std::vector<std::string>{"-js"});
        options.servers = server->url();
        options.meeting = "a meeting";
    }
    void TearDown() override {
        clusters.clear();
        parties.clear();
    }

    // A host that is linked, with a member.
    Cluster &host(const std::string &name, const std::string &member) {
        options.name = name;
        parties.push_back(std::make_unique<Party>(meeting, name));
        Party &party = *parties.back();
        party->setSlowMemberLimits({}); // waits for nobody of this thread
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

    // What a party has heard, but for what these have said.
    std::vector<std::string> heard(const std::string &name, const std::string &without = "-") {
        std::vector<std::string> all = (*this)[name].events;
        std::erase_if(all, [&](const std::string &event) {
            return !event.starts_with("data ") || without.find(event[5]) != std::string::npos;
        });
        return all;
    }

    Meeting meeting;
    ClusterOptions options;
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
    EXPECT_EQ(heard("Bob"), wanted);
    EXPECT_EQ(clusters[1]->metrics().lost, 0U);
}

TEST_F(Clusters, AHostWithWhomTheServerIsDoneForAWhileComesBack) {
    host("H1", "Ann");
    host("H2", "Bob");
    EXPECT_TRUE(meeting.until([&] { return agree(parties, 4); }, "one roster"));
    server->stop();
    server->start({"--auth", "secret"}); // at which the client library gives up
    const auto isRefused = [&] {
        return clusters[0]->lastFailure().find("uthorization") != std::string::npos;
    };
    EXPECT_TRUE(meeting.until(isRefused, "a refusal"));
    EXPECT_TRUE((*this)["Ann"].says("still here"));
    server->stop();
    server->start();
    EXPECT_TRUE((*this)["Bob"].hears("still here"));
    EXPECT_TRUE(meeting.until([&] { return agree(parties, 4); }, "one roster again"));
}

TEST_F(Clusters, InOneOrderEverybodyHearsTheSameAndLatecomersTheLastOfIt) {
    options.ordered = true;
    options.history = 3;
    host("H1", "Ann");
    host("H2", "Bob");
    host("H3", "Cid");
    EXPECT_TRUE(meeting.until([&] { return agree(parties, 6); }, "one roster"));
    for (int i = 0; i < 300; ++i) {
        for (const char *name : {"Ann", "Bob", "Cid"})
            EXPECT_TRUE((*this)[name].says(name[0] + std::to_string(i)));
        if (i % 100 == 50) {
            server->stop();
            server->start();
        }
        meeting.turn();
    }
    EXPECT_TRUE((*this)["H1"].says("H" + std::string(700000, '.'))); // more than one packet
    EXPECT_TRUE((*this)["Cid"].says("C last words"));
    (*this)["Cid"].leaves();
    const auto isAll = [&] {
        return heard("H1").size() == 901 && heard("H2").size() == 902 &&
               heard("H3").size() == 902 && heard("Ann").size() == 602 &&
               heard("Bob").size() == 602;
    };
    EXPECT_TRUE(meeting.until(isAll, "everything")) << heard("H1").size();
    EXPECT_EQ(heard("H2"), heard("H3"));
    EXPECT_EQ(heard("H2", "H"), heard("H1"));
    EXPECT_EQ(heard("H2", "A"), heard("Ann"));
    EXPECT_EQ(heard("H2", "B"), heard("Bob"));
    EXPECT_TRUE((*this)["H1"].isTold("leave Cid"));

    std::vector<std::string> last = heard("H2");
    last.erase(last.begin(), last.end() - 3);
    parties.push_back(std::make_unique<Party>(meeting, "Dan"));
    EXPECT_TRUE((*this)["Dan"].meets((*this)["H1"]));
    host("H4", "Eve");
    for (const char *name : {"Dan", "Eve"}) {
        EXPECT_TRUE(meeting.until([&] { return heard(name).size() == 3; }, "the past"));
        EXPECT_EQ(heard(name), last);
    }
    EXPECT_TRUE((*this)["Bob"].says("B now"));
    for (const char *name : {"Dan", "Eve"})
        EXPECT_TRUE((*this)[name].hears("B now"));
}

TEST_F(Clusters, AHostThatStandsStillIsGoneUntilItGoesOn) {
    options.hostTimeout = 500;
    host("H1", "Ann");
    std::atomic<bool> stands = false, ends = false;
    ClusterOptions other = options;
    other.name = "H2";
    std::thread elsewhere([&] {
        Meeting there;
        Party hosting(there, "H2"), bob(there, "Bob");
        EXPECT_TRUE(hosting.hosts("Budget"));
        Cluster cluster(hosting.participant(), other);
        EXPECT_TRUE(cluster.start() && bob.meets(hosting));
        bob.inside = [&](const std::string &event) {
            EXPECT_TRUE(event != "data two" || (bob.told("data one") == 1 && bob.says("both")));
        };
        while (!ends) {
            there.turn();
            while (stands)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    EXPECT_TRUE((*this)["Ann"].isTold("join Bob"));
    EXPECT_TRUE((*this)["Ann"].says("one"));
    stands = true;
    EXPECT_TRUE((*this)["Ann"].isTold("leave Bob"));
    (*this)["Ann"].forgets();
    EXPECT_TRUE((*this)["Ann"].says("two"));
    EXPECT_TRUE(meeting.until([&] { return clusters[0]->hosts().size() == 1; }, "one host"));
    stands = false;
    EXPECT_TRUE((*this)["Ann"].isTold("join Bob"));
    EXPECT_TRUE((*this)["Ann"].hears("both"));
    ends = true;
    elsewhere.join();
}

TEST_F(Clusters, WhoLooksForAHostFindsThoseWithRoomFirst) {
    std::string failure;
    EXPECT_TRUE(Cluster::find(options, 300, failure).empty());
    EXPECT_FALSE(failure.empty());
    options.mostMembers = 1;
    host("full", "Ann");
    options.mostMembers = 3;
    options.advertised = "b.example";
    options.advertisedPort = 4711;
    host("busy", "Bob");
    options.mostMembers = 0;
    options.advertised.clear();
    options.advertisedPort = 0;
    parties.push_back(std::make_unique<Party>(meeting, "H3"));
    EXPECT_TRUE(parties.back()->hosts("Budget"));
    options.name = "idle";
    clusters.push_back(std::make_unique<Cluster>(parties.back()->participant(), options));
    EXPECT_TRUE(clusters.back()->start());
    EXPECT_TRUE(meeting.until([&] { return agree(parties, 5); }, "one roster"));
    std::vector<ClusterHost> found;
    std::atomic<bool> done = false;
    std::thread seeker([&] {
        found = Cluster::find(options, 5000, failure);
        done = true;
    });
    EXPECT_TRUE(meeting.until([&] { return done.load(); }, "an answer"));
    seeker.join();
    ASSERT_EQ(found.size(), 3U) << failure;
    EXPECT_EQ(found[0].name + ' ' + found[1].name + ' ' + found[2].name, "idle busy full");
    EXPECT_EQ(found[0].port, parties.back()->port());
    EXPECT_EQ(found[1].advertised + std::to_string(found[1].port), "b.example4711");
    EXPECT_TRUE(found[2].authority);
}

} // namespace
} // namespace vintok::test
