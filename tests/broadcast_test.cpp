// What is said to everybody: who gets it, what the result means, and how a write that fails becomes
// the search for the dead.
#include "support/LogFile.h"
#include "support/Stage.h"

namespace vintok::test {
namespace {

class Broadcast : public Stage {};

// A host with members of raw bytes.
class Host : public Stage {
protected:
    void SetUp() override {
        ASSERT_TRUE(annHosts({&bob, &cid, &dan}));
        ann.forgets();
    }
};

// What a member says in one breath is relayed in one run, and a run ends where a callback changes
// who is to get it, or says something itself.
TEST_F(Host, ARunOfMessagesEndsWhereACallbackDoesSomething) {
    ann.inside = [this](const std::string &event) {
        if (event == "data two") {
            ann->disableUser(addressOf(cid));
            EXPECT_TRUE(ann.says("aside"));
        }
    };
    Bytes breath;
    for (const char *word : {"one", "two", "three"}) {
        const Bytes encoded = WireFrame{.id = id::broadcast, .body = letters(word)}.encode();
        breath.insert(breath.end(), encoded.begin(), encoded.end());
    }
    ASSERT_TRUE(bob.sends(breath) && bob.fences());
    const auto said = [](WirePeer &peer) {
        std::vector<std::string> words;
        for (const WireFrame &frame : peer.gets())
            words.emplace_back(frame.body.begin(), frame.body.end());
        return words;
    };
    EXPECT_THAT(said(dan), ElementsAre("one", "aside", "two", "three"));
    EXPECT_THAT(said(cid), ElementsAre("one"));
}

// ---- Who gets it ----

TEST_F(Broadcast, WhoHasNotJoinedIsNotTold) {
    ASSERT_TRUE(bob.connects(ann.port()) && bob.saysHello() && bob.fences());
    EXPECT_FALSE(ann.says("hello"));
    EXPECT_FALSE(ann->sendAllKeepAlive());
    EXPECT_THAT(kinds(bob.gets()), IsEmpty());
}

TEST_F(Host, SaysBytesOfAnyKindAndSize) {
    const std::string odd("\0\xff%s%n\r\n", 8);
    for (const std::string &text : {odd, std::string(20000, 'x'), std::string("x")}) {
        EXPECT_TRUE(ann.says(text));
        const WireFrame frame = bob.next(id::broadcast);
        EXPECT_EQ(4, frame.major);
        EXPECT_TRUE(letters(text) == frame.body);
    }
}

TEST_F(Host, RelaysWhatItHearsUnchangedToTheOthers) {
    const WireFrame frame = {.time = 1234567,
                             .id = id::broadcast,
                             .minor = 7,
                             .origin = WireAddress::ipv4(0x01020304, 99),
                             .body = letters("hello")};
    ASSERT_TRUE(bob.sends(frame.encode()));
    for (WirePeer *member : {&cid, &dan})
        EXPECT_EQ(frame.encode(), member->next(id::broadcast).encode());
    EXPECT_THAT(kinds(bob.gets()), IsEmpty());
    EXPECT_EQ(1, ann.told("data hello"));
}

TEST_F(Broadcast, AMemberPassesNothingOn) {
    ASSERT_TRUE(annAttends() && host.sends(id::broadcast, letters("hello")));
    EXPECT_THAT(kinds(host.gets()), IsEmpty());
    EXPECT_EQ(1, ann.told("data hello"));
}

// ---- Disabled parties ----

TEST_F(Host, LeavesOutWhomItHasDisabled) {
    ann->disableUser(addressOf(bob));
    EXPECT_TRUE(ann.says("one"));
    ASSERT_TRUE(cid.sends(id::broadcast, letters("two")) && cid.fences());
    EXPECT_TRUE(ann->sendAllKeepAlive());
    EXPECT_THAT(kinds(bob.gets()), IsEmpty());
    EXPECT_THAT(kinds(dan.gets()), ElementsAre(id::broadcast, id::broadcast, id::keepAlive));

    ASSERT_TRUE(bob.sends(id::broadcast, letters("three")) && bob.fences());
    EXPECT_THAT(kinds(dan.gets()), ElementsAre(id::broadcast)) << "who is not heard may be heard";
    EXPECT_EQ(1, ann.told("data three"));

    ann->enableUser(addressOf(bob));
    EXPECT_TRUE(ann.says("four"));
    EXPECT_THAT(kinds(bob.gets()), ElementsAre(id::broadcast));
}

TEST_F(Host, HasFailedWhenItSaysNothingOrToNobody) {
    const unsigned char byte = 'x';
    EXPECT_FALSE(ann->sendBroadcastData(nullptr, 1) || ann->sendBroadcastData(&byte, 0));
    for (WirePeer *member : {&bob, &cid, &dan})
        ann->disableUser(addressOf(*member));
    EXPECT_FALSE(ann.says("hello") || ann->sendAllKeepAlive());
}

// ---- Keep-alives ----

TEST_F(Host, TestsItsConnectionsAndGetsNoAnswer) {
    EXPECT_TRUE(ann->sendAllKeepAlive());
    for (WirePeer *member : {&bob, &cid, &dan}) {
        const WireFrame frame = member->next(id::keepAlive);
        EXPECT_EQ(4, frame.major);
        EXPECT_EQ(Bytes{0}, frame.body);
        EXPECT_TRUE(member->sends(frame.encode()));
        EXPECT_THAT(kinds(member->gets()), IsEmpty()) << "a keep-alive is not answered";
    }
    EXPECT_EQ(3, ann.told("synch 16")) << "three echoes, and nothing about keep-alives";
    EXPECT_EQ(3u, ann.events.size());
}

// ---- The dead ----

TEST_F(Host, FindsTheOneThatRefusesAndTestsAllTheOthers) {
    ann->disableUser(addressOf(cid));
    dan.resets();
    LogFile log;
    EXPECT_FALSE(ann.says("hello"));
    EXPECT_THAT(ann.events, ElementsAre("leave Dan")) << "by the time the result is there";
    EXPECT_THAT(kinds(bob.gets()), ElementsAre(id::broadcast, id::keepAlive, id::leaveNotify));
    EXPECT_THAT(kinds(cid.gets()), ElementsAre(id::keepAlive))
        << "who is disabled is tested all the same";
    EXPECT_THAT(log.text(), HasSubstr("broadcastData write failed to Dan@example.org at "));
    // No class of characters: the simple expressions that GoogleTest has on Windows know none.
    EXPECT_THAT(log.text(), testing::ContainsRegex(" message was .+ seconds old\\."));
    EXPECT_TRUE(log.has("_bringOutYerDead CONNECTION_RESET"));
    EXPECT_EQ(ann.roster(), (Roster{{"Bob", 1}, {"Cid", 2}}));
    EXPECT_TRUE(ann.says("again"));
}

// The notice of the first that is found finds the next.
TEST_F(Host, HangsUpWhenAllAreDead) {
    ann->setHidingIPsRequired(true);
    ann.forgets();
    LogFile log;
    for (WirePeer *member : {&bob, &cid, &dan})
        member->resets();
    EXPECT_FALSE(ann.says("hello"));
    EXPECT_THAT(ann.events, testing::UnorderedElementsAre("leave Bob", "leave Cid", "leave Dan"));
    EXPECT_THAT(log.text(), HasSubstr("Cid@example.org at 0.0.0.0 message"));
    EXPECT_FALSE(ann->isMeeting() || ann->isHost());
    EXPECT_TRUE(ann->sendAllKeepAlive()) << "nobody is listed";
    EXPECT_TRUE(ann.hosts("Next") && bob.joins(ann.port()));
}

// A write can fail for other reasons than a lost connection; then nobody is dropped.
TEST_F(Broadcast, WhoCannotBeWrittenToForAnotherReasonStays) {
    static int descriptor;
    ann->setJoinCB([](ConferenceParticipant *, const ConferenceRosterEntry &party) {
        descriptor = party.descriptor();
    });
    ASSERT_TRUE(annHosts({&bob}));
    ann.forgets();
    LogFile log;
    ASSERT_TRUE(removeDescriptor(descriptor));
    EXPECT_FALSE(ann.says("hello"));
    EXPECT_TRUE(log.has("_bringOutYerDead sf_sendKeepAlive failed"));
    EXPECT_FALSE(log.has("_bringOutYerDead CONNECTION_RESET"));
    EXPECT_THAT(ann.events, IsEmpty());
    ASSERT_TRUE(addDescriptor(descriptor, false, false, false, false));
    EXPECT_TRUE(ann.says("again"));
    EXPECT_TRUE(bob.receives(id::broadcast));
}

} // namespace
} // namespace vintok::test
