// What is said to everybody: who gets it, what the result means, and how a write that fails becomes
// the search for the dead.
#include "support/LogFile.h"
#include "support/Party.h"
#include "support/WirePeer.h"
#include "vintok/TCPStream.h"

#include <gmock/gmock.h>

namespace vintok::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Broadcast : public testing::Test {
protected:
    // The kinds of messages that came since the peer last looked.
    std::vector<int> cameTo(WirePeer &peer) {
        std::vector<WireFrame> frames;
        EXPECT_TRUE(peer.fences(&frames));
        return kinds(frames);
    }

    Meeting meeting;
};

// A host with members of raw bytes.
class Host : public Broadcast {
protected:
    void SetUp() override {
        ASSERT_TRUE(ann.hosts("Plan"));
        for (WirePeer *member : {&bob, &cid, &dan}) {
            ASSERT_TRUE(member->joins(ann.port()));
        }
        for (WirePeer *member : {&bob, &cid, &dan}) {
            ASSERT_TRUE(member->fences());
        }
        ann.forgets();
    }

    Party ann{meeting, "Ann"};
    WirePeer bob{meeting, "Bob"}, cid{meeting, "Cid"}, dan{meeting, "Dan"};
};

Bytes bytes(const std::string &text) {
    return {text.begin(), text.end()};
}

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
        WireFrame frame;
        frame.id = id::broadcast;
        frame.body = bytes(word);
        const Bytes encoded = frame.encode();
        breath.insert(breath.end(), encoded.begin(), encoded.end());
    }
    ASSERT_TRUE(bob.sends(breath));
    ASSERT_TRUE(bob.fences());
    const auto said = [](WirePeer &peer) {
        std::vector<WireFrame> frames;
        EXPECT_TRUE(peer.fences(&frames));
        std::vector<std::string> words;
        for (const WireFrame &frame : frames)
            words.emplace_back(frame.body.begin(), frame.body.end());
        return words;
    };
    EXPECT_THAT(said(dan), ElementsAre("one", "aside", "two", "three"));
    EXPECT_THAT(said(cid), ElementsAre("one"));
}

// ---- Who gets it ----

TEST_F(Broadcast, AloneNobodyIsToldAndNobodyIsMissing) {
    Party ann(meeting, "Ann");
    EXPECT_FALSE(ann.says("hello"));
    EXPECT_TRUE(ann->sendAllKeepAlive());
}

TEST_F(Broadcast, WhoHasNotJoinedIsNotTold) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob");
    ASSERT_TRUE(bob.connects(ann.port()) && bob.saysHello() && bob.fences());
    EXPECT_FALSE(ann.says("hello"));
    EXPECT_FALSE(ann->sendAllKeepAlive());
    EXPECT_THAT(cameTo(bob), IsEmpty());
}

TEST_F(Broadcast, EverybodyHearsEverybodyOnce) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(gather(ann, {&bob, &cid}));
    const std::vector<Party *> all = {&ann, &bob, &cid};
    for (Party *speaker : all) {
        EXPECT_TRUE(speaker->says("from " + speaker->name()));
    }
    for (Party *listener : all) {
        for (Party *speaker : all) {
            if (listener != speaker) {
                EXPECT_TRUE(listener->hears("from " + speaker->name()));
            }
        }
    }
    for (Party *party : all) {
        party->says("the end");
    }
    for (Party *party : all) {
        EXPECT_TRUE(meeting.until([&] { return party->told("data the end") == 2; }, "the end"));
        EXPECT_EQ(0, party->told("data from " + party->name()));
        for (Party *speaker : all) {
            EXPECT_LE(party->told("data from " + speaker->name()), 1);
        }
    }
}

TEST_F(Host, SaysBytesOfAnyKindAndSize) {
    const std::string odd("\0\xff%s%n\r\n", 8);
    const std::string large(20000, 'x');
    for (const std::string &text : {odd, large, std::string("x")}) {
        EXPECT_TRUE(ann.says(text));
        WireFrame frame;
        ASSERT_TRUE(bob.receives(id::broadcast, &frame));
        EXPECT_EQ(4, frame.major);
        EXPECT_TRUE(bytes(text) == frame.body);
    }
}

TEST_F(Host, SaysNothingWithoutBytes) {
    const unsigned char byte = 'x';
    EXPECT_FALSE(ann->sendBroadcastData(nullptr, 1));
    EXPECT_FALSE(ann->sendBroadcastData(&byte, 0));
    EXPECT_THAT(cameTo(bob), IsEmpty());
}

TEST_F(Host, RelaysWhatItHearsUnchangedToTheOthers) {
    WireFrame frame;
    frame.id = id::broadcast;
    frame.time = 1234567;
    frame.minor = 7;
    frame.origin = WireAddress::ipv4(0x01020304, 99);
    frame.body = bytes("hello");
    ASSERT_TRUE(bob.sends(frame.encode()));
    for (WirePeer *member : {&cid, &dan}) {
        WireFrame relayed;
        ASSERT_TRUE(member->receives(id::broadcast, &relayed));
        EXPECT_EQ(frame.encode(), relayed.encode());
    }
    EXPECT_THAT(cameTo(bob), IsEmpty());
    EXPECT_EQ(1, ann.told("data hello"));
}

TEST_F(Broadcast, AMemberPassesNothingOn) {
    Party bob(meeting, "Bob");
    WirePeer host(meeting, "Host");
    host.entry.state = state::meeting | state::host;
    ASSERT_TRUE(host.joins(bob.port()) && host.fences());
    ASSERT_TRUE(host.sends(id::broadcast, bytes("hello")));
    EXPECT_THAT(cameTo(host), IsEmpty());
    EXPECT_EQ(1, bob.told("data hello"));
}

TEST_F(Broadcast, AServerRelaysWithoutHosting) {
    Party relay(meeting, "Relay");
    relay->setServerMode(true);
    WirePeer bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(bob.joins(relay.port()) && cid.joins(relay.port()) && cid.fences());
    ASSERT_FALSE(relay->isHost());
    ASSERT_TRUE(bob.sends(id::broadcast, bytes("hello")));
    EXPECT_TRUE(cid.receives(id::broadcast));
}

TEST_F(Broadcast, WithOneMemberThereIsNobodyToRelayTo) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()) && bob.fences());
    ASSERT_TRUE(bob.sends(id::broadcast, bytes("hello")));
    EXPECT_THAT(cameTo(bob), IsEmpty());
    EXPECT_EQ(1, ann.told("data hello"));
}

TEST_F(Broadcast, AnEmptyBodyIsHeardAsSuch) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()));
    ASSERT_TRUE(bob.sends(id::broadcast, {}) && bob.fences());
    EXPECT_EQ(1, ann.told("data "));
}

// ---- Disabled parties ----

TEST_F(Host, LeavesOutWhomItHasDisabled) {
    ann->disableUser(addressOf(bob));
    EXPECT_TRUE(ann.says("one"));
    ASSERT_TRUE(cid.sends(id::broadcast, bytes("two")) && cid.fences());
    EXPECT_TRUE(ann->sendAllKeepAlive());
    EXPECT_THAT(cameTo(bob), IsEmpty());
    EXPECT_THAT(cameTo(dan), ElementsAre(id::broadcast, id::broadcast, id::keepAlive));

    ASSERT_TRUE(bob.sends(id::broadcast, bytes("three")) && bob.fences());
    EXPECT_THAT(cameTo(dan), ElementsAre(id::broadcast)) << "who is not heard may be heard";
    EXPECT_EQ(1, ann.told("data three"));

    ann->enableUser(addressOf(bob));
    EXPECT_TRUE(ann.says("four"));
    EXPECT_THAT(cameTo(bob), ElementsAre(id::broadcast));
}

TEST_F(Host, HasFailedWhenEverybodyIsDisabled) {
    for (WirePeer *member : {&bob, &cid, &dan}) {
        ann->disableUser(addressOf(*member));
    }
    EXPECT_FALSE(ann.says("hello"));
    EXPECT_FALSE(ann->sendAllKeepAlive());
    TCPAddress unknown;
    unknown.setIPv4(0x01010101);
    ann->disableUser(unknown);
    ann->enableUser(unknown);
    EXPECT_FALSE(ann.says("hello"));
}

// ---- Keep-alives ----

TEST_F(Host, TestsItsConnectionsAndGetsNoAnswer) {
    EXPECT_TRUE(ann->sendAllKeepAlive());
    for (WirePeer *member : {&bob, &cid, &dan}) {
        WireFrame frame;
        ASSERT_TRUE(member->receives(id::keepAlive, &frame));
        EXPECT_EQ(4, frame.major);
        EXPECT_EQ(Bytes{0}, frame.body);
        EXPECT_TRUE(member->sends(frame.encode()));
        EXPECT_THAT(cameTo(*member), IsEmpty()) << "a keep-alive is not answered";
    }
    EXPECT_EQ(3, ann.told("synch 16")) << "three echoes, and nothing about keep-alives";
    EXPECT_EQ(3u, ann.events.size());
}

TEST_F(Host, ForgivesAReadThatFailsWhileTheConnectionTakesAKeepAlive) {
    LogFile log;
    ASSERT_TRUE(
        bob.sends(Bytes{0,  0,  0,  10, 1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14,
                        15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32}));
    EXPECT_TRUE(bob.receives(id::keepAlive));
    EXPECT_TRUE(bob.fences());
    EXPECT_THAT(log.text(), HasSubstr("Hangup on "));
    EXPECT_EQ(0, ann.told("leave Bob"));
    EXPECT_TRUE(ann.says("hello"));
    EXPECT_TRUE(bob.receives(id::broadcast));
}

// ---- The dead ----

TEST_F(Host, FindsTheOneThatRefusesAndTestsAllTheOthers) {
    ann->disableUser(addressOf(cid));
    dan.resets();
    LogFile log;
    EXPECT_FALSE(ann.says("hello"));
    EXPECT_THAT(ann.events, ElementsAre("leave Dan")) << "by the time the result is there";
    EXPECT_THAT(cameTo(bob), ElementsAre(id::broadcast, id::keepAlive, id::leaveNotify));
    EXPECT_THAT(cameTo(cid), ElementsAre(id::keepAlive))
        << "who is disabled is tested all the same";
    EXPECT_THAT(log.text(), HasSubstr("broadcastData write failed to Dan@example.org at "));
    // No class of characters: the simple expressions that GoogleTest has on Windows know none.
    EXPECT_THAT(log.text(), testing::ContainsRegex(" message was .+ seconds old\\."));
    EXPECT_TRUE(log.has("_bringOutYerDead CONNECTION_RESET"));
    EXPECT_EQ(ann.roster(), (Roster{{"Bob", 1}, {"Cid", 2}}));
    EXPECT_TRUE(ann.says("again"));
}

TEST_F(Host, FindsTwoThatDiedAtOnce) {
    cid.resets();
    dan.resets();
    EXPECT_FALSE(ann.says("hello"));
    EXPECT_THAT(ann.events, ElementsAre("leave Dan", "leave Cid"))
        << "the notice of the first finds the second";
    EXPECT_EQ(ann.roster(), (Roster{{"Bob", 1}}));
    std::vector<WireFrame> frames;
    ASSERT_TRUE(bob.fences(&frames));
    std::vector<std::string> gone;
    for (const WireEntry &party : entries(frames, id::leaveNotify)) {
        gone.push_back(party.firstName);
    }
    EXPECT_THAT(gone, testing::UnorderedElementsAre("Cid", "Dan"));
}

TEST_F(Host, HangsUpWhenAllAreDead) {
    for (WirePeer *member : {&bob, &cid, &dan}) {
        member->resets();
    }
    EXPECT_FALSE(ann.says("hello"));
    EXPECT_THAT(ann.events, testing::UnorderedElementsAre("leave Bob", "leave Cid", "leave Dan"));
    EXPECT_FALSE(ann->isMeeting() || ann->isHost());
    EXPECT_TRUE(ann->sendAllKeepAlive()) << "nobody is listed";
    EXPECT_TRUE(ann.hosts("Next") && bob.joins(ann.port()));
}

TEST_F(Host, FindsTheDeadWithAKeepAliveToo) {
    bob.resets();
    EXPECT_FALSE(ann->sendAllKeepAlive());
    EXPECT_THAT(ann.events, ElementsAre("leave Bob"));
}

TEST_F(Host, NamesNoAddressInItsLogWhenItHides) {
    for (const bool hides : {false, true}) {
        ann->setHidingIPsRequired(hides);
        WirePeer eve(meeting, "Eve");
        ASSERT_TRUE(eve.joins(ann.port()));
        eve.resets();
        LogFile log;
        EXPECT_FALSE(ann.says("hello"));
        EXPECT_THAT(log.text(), HasSubstr(hides ? "Eve@example.org at 0.0.0.0 message"
                                                : "Eve@example.org at 10.77."));
    }
}

// A write can fail for other reasons than a lost connection; then nobody is dropped.
TEST_F(Broadcast, WhoCannotBeWrittenToForAnotherReasonStays) {
    static int descriptor;
    Party ann(meeting, "Ann");
    ann->setJoinCB([](ConferenceParticipant *, const ConferenceRosterEntry &party) {
        descriptor = party.descriptor();
    });
    WirePeer bob(meeting, "Bob");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()) && bob.fences());
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

TEST_F(Broadcast, AMemberWhoseHostIsDeadFindsOutWhenItSpeaks) {
    Party bob(meeting, "Bob");
    WirePeer host(meeting, "Host");
    host.entry.state = state::meeting | state::host;
    ASSERT_TRUE(host.joins(bob.port()) && host.fences());
    bob.forgets();
    host.resets();
    EXPECT_FALSE(bob.says("hello"));
    EXPECT_THAT(bob.events, ElementsAre("leave Host"));
    EXPECT_FALSE(bob->isMeeting());
}

TEST_F(Host, NoticesAnEndWithoutSayingAnything) {
    bob.closes();
    EXPECT_TRUE(ann.isTold("leave Bob"));
    EXPECT_TRUE(cid.receives(id::leaveNotify));
    cid.halfCloses();
    EXPECT_TRUE(cid.seesTheEnd());
    EXPECT_EQ(1, ann.told("leave Cid"));
    EXPECT_THAT(cameTo(dan), Not(Contains(id::keepAlive)));
    EXPECT_EQ(ann.roster(), (Roster{{"Dan", 3}}));
}

} // namespace
} // namespace vintok::test
