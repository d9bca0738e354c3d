// A meeting with several hosts, each a real run of the program, linked by a real server of NATS.
#include "support/NATSServer.h"
#include "support/Program.h"
#include "support/TemporaryFolder.h"
#include "vintok/TCPStream.h"

#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <vector>

namespace vintok::test {
namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

class ProgramCluster : public testing::Test {
protected:
    void SetUp() override {
        init();
        if (!NATSServer::isInstalled())
            GTEST_SKIP() << "there is no " << NATSServer::program;
        server = std::make_unique<NATSServer>();
        url = server->url();
    }
    void TearDown() override { fini(); }

    std::unique_ptr<Program> run(Words words, const std::string &name, const Words &more) {
        words.insert(words.end(), {"--name", name, "--cluster", url, "--meeting-id", "talk"});
        words.insert(words.end(), more.begin(), more.end());
        return std::make_unique<Program>(words);
    }
    // Where it takes calls.
    static std::string place(Program &host) {
        std::string line;
        EXPECT_TRUE(host.tells("port", {}, &line));
        const std::size_t at = line.find(R"("address":")") + 11;
        const std::string address = line.substr(at, line.find('"', at) - at);
        const std::string port = line.substr(line.rfind(':'), line.find('}') - line.rfind(':'));
        return (address.find(':') == std::string::npos ? address : '[' + address + ']') + port;
    }
    std::unique_ptr<Program> host(const std::string &name, const Words &more = {}) {
        return run({"host", "--cluster-name", name}, name, more);
    }
    // At that host, or where it finds one.
    std::unique_ptr<Program> guest(const std::string &name, const std::string &place = "",
                                   const Words &more = {}) {
        Words words = {"join"};
        if (!place.empty())
            words.push_back(place);
        return run(words, name, more);
    }
    // Two hosts that know each other.
    void meet() {
        ann = host("Ann");
        annsPlace = place(*ann);
        ben = host("Ben");
        bensPlace = place(*ben);
        ASSERT_TRUE(ann->tells("host-came", {named("Ben")}));
        ASSERT_TRUE(ben->tells("host-came", {named("Ann")}));
    }
    static void expectAllHear(Program &speaker, const std::string &line,
                              const std::vector<Program *> &others) {
        speaker.type(line);
        for (Program *other : others)
            EXPECT_TRUE(other->tells("said", {text("text", line)})) << other->story();
    }
    // The others of its meeting, with their hosts; as long as it takes to hear of them.
    static testing::AssertionResult knows(Program &party, const Words &wanted) {
        std::string line;
        for (int attempt = 0; attempt < 100; ++attempt) {
            if (const auto told = party.answers("/who", "roster", {}, &line); !told)
                return told;
            if (std::all_of(wanted.begin(), wanted.end(), [&](const std::string &part) {
                    return line.find(part) != std::string::npos;
                }))
                return testing::AssertionSuccess();
            party.exitCode(100); // a wait
        }
        return testing::AssertionFailure() << line;
    }

    std::unique_ptr<NATSServer> server;
    std::string url;
    std::unique_ptr<Program> ann, ben;
    std::string annsPlace, bensPlace;
};

std::string at(const std::string &phone, const std::string &host) {
    return R"("phone":")" + phone + R"(","at":")" + host + '"';
}

TEST_F(ProgramCluster, ThreeHostsAreOneMeetingAndOneOfThemMayDie) {
    meet();
    auto cyd = host("Cyd");
    const std::string cydsPlace = place(*cyd);
    ASSERT_TRUE(ann->tells("host-came", {named("Cyd")}));
    const TemporaryFolder folder;
    auto al = guest("Al", annsPlace, {"--phone", "1", "--files", folder.path("al")});
    auto bob = guest("Bob", bensPlace, {"--phone", "2", "--files", folder.path("bob")});
    auto cid = guest("Cid", cydsPlace, {"--phone", "3", "--files", folder.path("cid")});
    for (Program *party : {al.get(), bob.get(), cid.get()})
        ASSERT_TRUE(party->tells("accepted"));
    for (Program *party : {al.get(), ann.get(), cid.get()})
        EXPECT_TRUE(knows(*party, {at("1", "Ann"), at("2", "Ben"), at("3", "Cyd")}));
    expectAllHear(*al, "here is Al", {ann.get(), ben.get(), cyd.get(), bob.get(), cid.get()});
    expectAllHear(*cid, "and Cid", {ann.get(), ben.get(), cyd.get(), bob.get(), al.get()});

    bob->type("/lead");
    ASSERT_TRUE(ann->tells("lead-asked", {named("Bob")}));
    ann->type("/give");
    for (Program *party : {al.get(), bob.get(), cid.get(), cyd.get()})
        EXPECT_TRUE(party->tells("leader", {named("Bob")}));

    const std::string content(100001, 'f');
    cid->type("/send " + folder.holding("plan", content));
    EXPECT_TRUE(cid->tells("file-end", {text("result", "sent")}));
    for (Program *party : {al.get(), bob.get()})
        EXPECT_TRUE(party->tells("file-end", {named("Cid"), text("result", "received")}));
    EXPECT_EQ(content, folder.content("al/plan"));

    ben->kill();
    EXPECT_TRUE(bob->tells("reconnecting"));
    EXPECT_TRUE(bob->tells("back")) << bob->story();
    for (Program *party : {ann.get(), cyd.get()})
        EXPECT_TRUE(party->tells("host-went", {named("Ben")}));
    EXPECT_TRUE(al->tells("left", {named("Ben")}));
    EXPECT_TRUE(knows(*bob, {at("1", "Ann"), at("3", "Cyd")}));
    expectAllHear(*bob, "back again", {al.get(), cid.get(), ann.get(), cyd.get()});

    cyd->type("/leave");
    EXPECT_TRUE(cid->tells("ended", {text("reason", "The host has left: the meeting is over.")}))
        << "it was not lost";
    EXPECT_TRUE(cid->ends(0));
    EXPECT_TRUE(al->tells("left", {named("Cid")}));
}

TEST_F(ProgramCluster, AFullHostSendsItsCallersToOneThatHasRoom) {
    ann = host("Ann", {"--most-members", "1"});
    annsPlace = place(*ann);
    auto al = guest("Al");
    ASSERT_TRUE(al->tells("accepted", {text("whom", annsPlace)}));
    Program dan({"join", annsPlace, "--name", "Dan"});
    EXPECT_TRUE(dan.tells("rejected")) << "there is no other host";
    ben = host("Ben", {"--most-members", "1"});
    bensPlace = place(*ben);
    ASSERT_TRUE(ann->tells("host-came"));
    Program bob({"join", annsPlace, "--name", "Bob"});
    EXPECT_TRUE(bob.tells("redirected", {text("from", "host"), text("to", bensPlace)}));
    EXPECT_TRUE(bob.tells("accepted", {text("whom", bensPlace)}));
    ASSERT_TRUE(al->tells("joined", {named("Bob")}));
    expectAllHear(bob, "hello", {al.get(), ann.get(), ben.get()});
    EXPECT_TRUE(ann->answers("/cluster", "cluster", {{"messages-in", "1"}, {"connected", "true"}}));
    Program eve({"join", annsPlace, "--name", "Eve"});
    EXPECT_TRUE(eve.ends(1, "has rejected the call")) << "both are full";
}

TEST_F(ProgramCluster, AHostCanBeEmptied) {
    meet();
    auto al = guest("Al", annsPlace);
    ASSERT_TRUE(ann->tells("joined", {named("Al")}));
    EXPECT_TRUE(ann->answers("/drain", "draining"));
    EXPECT_TRUE(al->tells("back", {text("whom", bensPlace)})) << al->story();
    Program bob({"join", annsPlace, "--name", "Bob"});
    EXPECT_TRUE(bob.tells("accepted", {text("whom", bensPlace)}));
    ann->type("/leave");
    EXPECT_TRUE(ann->ends(0));
    EXPECT_TRUE(ben->tells("authority", {{"self", "true"}}));
    expectAllHear(*al, "still here", {&bob, ben.get()});
    EXPECT_TRUE(ben->refuses("/drain", "no other host has room"));
}

TEST_F(ProgramCluster, WhatCannotBeFoundOrLinkedIsToldInOneLine) {
    auto lost = guest("Al");
    EXPECT_TRUE(lost->ends(1, "cannot find a host of the meeting talk: "));
    server->stop();
    auto nowhere = guest("Bob");
    EXPECT_TRUE(nowhere->ends(1, "cannot find a host of the meeting talk: "));
    auto alone = host("Ann");
    EXPECT_TRUE(alone->ends(1, "cannot link this host to the others: "));
}

TEST_F(ProgramCluster, NothingIsLostWhileNATSIsStartedAgain) {
    meet();
    auto al = guest("Al", annsPlace);
    auto bob = guest("Bob", bensPlace);
    ASSERT_TRUE(al->tells("joined", {named("Bob")}) && bob->tells("joined", {named("Al")}));
    server->stop();
    ASSERT_TRUE(ann->tells("cluster-lost"));
    al->type("one");
    ASSERT_TRUE(ann->tells("said", {text("text", "one")}));
    server->start();
    EXPECT_TRUE(ann->tells("cluster-back"));
    al->type("two");
    for (const char *line : {"one", "two"})
        EXPECT_TRUE(bob->tells("said", {text("text", line)})) << ben->story();
}

TEST_F(ProgramCluster, OneOfThreeServersOfNATSMayDie) {
    const auto servers = startNATSCluster(3); // each host begins with one of its own
    url = servers[0]->url();
    ann = host("Ann");
    annsPlace = place(*ann);
    url = servers[1]->url();
    ben = host("Ben");
    auto bob = guest("Bob", place(*ben));
    url = servers[2]->url();
    auto al = guest("Al", annsPlace);
    ASSERT_TRUE(al->tells("joined", {named("Bob")}) && bob->tells("joined", {named("Al")}));
    for (int line = 0; line < 60; ++line) {
        al->type(std::to_string(line));
        if (line == 20)
            servers[0]->stop();
    }
    EXPECT_TRUE(ann->tells("cluster-lost") && ann->tells("cluster-back"));
    for (int line = 0; line < 60; ++line) {
        std::string event;
        ASSERT_TRUE(bob->tells("said", {}, &event));
        EXPECT_THAT(event, HasSubstr(R"("text":")" + std::to_string(line) + "\"}"));
    }
}

TEST_F(ProgramCluster, AControlProcessIsAHostLikeAnyOther) {
    ann = host("Ann");
    annsPlace = place(*ann);
    ChildProcess control({CONFERENCE_CONTROL, "-local", "-cluster", url, "-clusterName", "Box",
                          "-mid", "talk", "-verbose"});
    ASSERT_TRUE(ann->tells("host-came", {named("Box")})) << control.story();
    auto al = guest("Al", annsPlace);
    ASSERT_TRUE(al->tells("accepted"));
    ann->kill();
    EXPECT_TRUE(al->tells("back")) << al->story();
    EXPECT_TRUE(knows(*al, {R"("at":"Box")"}));
    ASSERT_TRUE(control.interrupt());
    EXPECT_TRUE(al->ends(0)) << "the control process ends its meeting in order";
}

} // namespace
} // namespace vintok::test
