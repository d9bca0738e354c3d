// Meetings begin and end with calls: what may be called, who becomes the host, and how each step of
// a call ends when the other side answers, refuses, leaves or dies.
#include "support/LogFile.h"
#include "support/Party.h"
#include "support/WirePeer.h"

#include <algorithm>
#include <functional>
#include <gmock/gmock.h>

namespace vintok::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Calls : public testing::Test {
protected:
    Meeting meeting;
};

// ---- Hosting ----

TEST_F(Calls, HostingAloneCanBeRepeatedAndOnlyRenames) {
    Party ann(meeting, "Ann");
    EXPECT_TRUE(ann.hosts("Plan"));
    EXPECT_TRUE(ann->isHost() && ann->isMeeting());
    EXPECT_EQ("Plan", ann->meetingName());
    EXPECT_EQ(0, ann->colorIndex());
    EXPECT_TRUE(ann.hosts("Review"));
    EXPECT_EQ("Review", ann->meetingName());
    EXPECT_THAT(ann.events, ElementsAre("user Ann", "user Ann"));
}

TEST_F(Calls, AServerHostsWithoutAWordAboutItself) {
    Party relay(meeting, "Relay");
    relay->setServerMode(true);
    EXPECT_TRUE(relay.hosts("Plan"));
    EXPECT_THAT(relay.events, IsEmpty());
}

TEST_F(Calls, WhoIsInAMeetingCannotHostAnother) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob");
    LogFile log;
    ASSERT_TRUE(ann.meets(bob));
    for (Party *party : {&ann, &bob}) {
        EXPECT_FALSE(party->hosts("Mine"));
        EXPECT_EQ("", (*party)->meetingName());
    }
    EXPECT_EQ(2, log.entries("hostMeeting already in meeting"));
    EXPECT_FALSE(bob->isHost());
}

TEST_F(Calls, WhoIsBeingCalledByAHostCannotHostMeanwhile) {
    Party ann(meeting, "Ann");
    WirePeer caller(meeting, "Cid");
    caller.entry.state = state::meeting | state::host;
    LogFile log;
    ASSERT_TRUE(caller.connects(ann.port()));
    ASSERT_TRUE(caller.saysHello() && caller.fences());
    EXPECT_FALSE(ann.hosts("Mine"));
    EXPECT_TRUE(log.has("hostMeeting cannot set meeting name not host"));
    EXPECT_FALSE(ann->isMeeting());
}

TEST_F(Calls, OnlyAHostNamesTheMeeting) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob");
    EXPECT_FALSE(ann->setMeetingName("Plan"));
    ASSERT_TRUE(ann.hosts("Plan") && ann.meets(bob));
    EXPECT_TRUE(ann->setMeetingName("Review"));
    EXPECT_FALSE(bob->setMeetingName("Mine"));
    EXPECT_EQ("Review", ann->meetingName());
    EXPECT_EQ("Plan", bob->meetingName());
}

// ---- Calls that are refused at once ----

TEST_F(Calls, ACallWithoutAnAddressIsRefused) {
    Party ann(meeting, "Ann");
    LogFile log;
    EXPECT_FALSE(ann->placeCall("", 7777, "", 0, "", "", 0));
    EXPECT_TRUE(log.has("placeCall Cannot resolve address"));
}

TEST_F(Calls, ACallToOneselfIsRefused) {
    Party ann(meeting, "Ann");
    LogFile log;
    EXPECT_FALSE(ann.calls(ann));
    EXPECT_TRUE(log.has("placeCall Attempt to call self"));
}

TEST_F(Calls, ACallToOneselfByAnotherOfOnesAddressesGetsNoAnswer) {
    Party ann(meeting, "Ann");
    if (ann.ip() == "127.0.0.1") {
        GTEST_SKIP() << "this machine has no second address";
    }
    ASSERT_TRUE(ann->placeCall("127.0.0.1", ann.port(), "", 0, "", "", 0));
    EXPECT_TRUE(ann.isTold("noAnswer 127.0.0.1"));
    EXPECT_EQ(0, ann.told("join Ann"));
    EXPECT_FALSE(ann->isMeeting());
}

TEST_F(Calls, ACallToWhoIsCalledOrListedAlreadyIsRefused) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob");
    LogFile log;
    ASSERT_TRUE(bob.listens() && ann.calls(bob));
    EXPECT_FALSE(ann.calls(bob)) << "while the first call is under way";
    ASSERT_TRUE(bob.isJoined() && ann.isTold("join Bob"));
    EXPECT_FALSE(ann.calls(bob)) << "while Bob is a member";
    EXPECT_EQ(2, log.entries("placeCall Attempt to place same call again"));
}

TEST_F(Calls, ACallThatNobodyTakesIsRefused) {
    Party ann(meeting, "Ann");
    unsigned short port = 0;
    {
        WirePeer gone(meeting, "Gone");
        ASSERT_TRUE(gone.listens());
        port = gone.port();
    }
    LogFile log;
    EXPECT_FALSE(ann->placeCall("127.0.0.1", port, "", 0, "", "", 0));
    EXPECT_TRUE(log.has("placeCall cannot connect socket to place call"));
    EXPECT_THAT(ann.events, IsEmpty()) << "the result tells, not a callback";
}

TEST_F(Calls, AMemberCannotPlaceACall) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob"), cid(meeting, "Cid");
    LogFile log;
    ASSERT_TRUE(ann.meets(bob));
    EXPECT_FALSE(bob.calls(cid));
    EXPECT_TRUE(log.has("Cannot place call in meeting and not host"));
}

TEST_F(Calls, AnAnswerToNobodyIsRefused) {
    Party ann(meeting, "Ann");
    WirePeer stranger(meeting, "Stranger");
    LogFile log;
    EXPECT_FALSE(ann.accepts(stranger));
    EXPECT_FALSE(ann.rejects(stranger));
    EXPECT_TRUE(log.has("acceptCall Port ip combination not found"));
    EXPECT_TRUE(log.has("rejectCall Port ip combination not found"));
}

// ---- Through a proxy ----

TEST_F(Calls, AProxyWithoutAMeetingIdentifierIsConnectedToAndToldNothing) {
    Party ann(meeting, "Ann");
    WirePeer proxy(meeting, "Proxy");
    ASSERT_TRUE(proxy.listens());
    ASSERT_TRUE(ann->placeCall("far.example.org", 7777, "127.0.0.1", proxy.port(), "", "", 0));
    ASSERT_TRUE(proxy.picksUp());
    std::vector<WireFrame> frames;
    ASSERT_TRUE(proxy.fences(&frames));
    EXPECT_THAT(kinds(frames), IsEmpty());
    EXPECT_THAT(proxy.rest(), IsEmpty());
}

TEST_F(Calls, APortThatIsLeftToTheDefaultIsNotTheProxysOwn) {
    Party ann(meeting, "Ann");
    WirePeer proxy(meeting, "Proxy");
    ASSERT_TRUE(proxy.listens());
    proxy.readsText(true);
    ASSERT_TRUE(ann->placeCall("127.0.0.1", 0, "127.0.0.1", proxy.port(), "room", "", 0));
    ASSERT_TRUE(proxy.picksUp());
    const auto text = [&] { return std::string(proxy.rest().begin(), proxy.rest().end()); };
    ASSERT_TRUE(meeting.until([&] { return text().find("\r\n\r\n") != std::string::npos; },
                              "the proxy is asked to connect"));
    EXPECT_THAT(text(), testing::StartsWith("CONNECT 127.0.0.1:"));
    EXPECT_THAT(text(), testing::HasSubstr("pLorMUX_ProxyJump: true\r\n"));
}

// ---- Who becomes the host ----

enum class Self { idle, hosting, attending };

struct HostCase {
    const char *name;
    Self self;
    std::uint32_t peer; // the called party's state word
    bool joins;         // whether a join request follows
    const char *says;
};

constexpr std::uint32_t attending = state::meeting, hosting = state::meeting | state::host;

const HostCase hostCases[] = {
    {"idle calls idle", Self::idle, 0, true, "_ensureHost no host so starting meeting OK"},
    {"idle calls host", Self::idle, hosting, true, "_ensureHost peer hosting meeting OK"},
    {"idle calls attendee", Self::idle, attending, false,
     "_ensureHost peer is in meeting and not host"},
    {"idle calls a host of nothing", Self::idle, state::host, false,
     "hostMeeting cannot set meeting name not host"},
    {"host calls idle", Self::hosting, 0, true, "_ensureHost me hosting meeting OK"},
    {"host calls host", Self::hosting, hosting, false, "_ensureHost peer host and me in meeting"},
    {"host calls attendee", Self::hosting, attending, false,
     "_ensureHost peer is in meeting and not host"},
    {"attendee called idle", Self::attending, 0, false,
     "_ensureHost in meeting not host placing call"},
    {"attendee called host", Self::attending, hosting, false,
     "_ensureHost peer host and me in meeting"},
    {"attendee called attendee", Self::attending, attending, false,
     "_ensureHost peer is in meeting and not host"},
};

class Hosting : public Calls, public testing::WithParamInterface<HostCase> {};

TEST_P(Hosting, IsDecidedByTheCallerWhenTheHelloComes) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob"), host(meeting, "Host");
    ASSERT_TRUE(bob.listens());
    ASSERT_TRUE(GetParam().self != Self::hosting || ann.hosts("Plan"));
    ASSERT_TRUE(ann.calls(bob) && bob.picksUp());
    if (GetParam().self == Self::attending) {
        host.entry.state = hosting;
        ASSERT_TRUE(host.joins(ann.port()) && host.fences());
        ASSERT_TRUE(ann->isMeeting() && !ann->isHost());
    }
    ann.forgets();

    bob.entry.state = GetParam().peer;
    LogFile log(LOG_TRACE);
    ASSERT_TRUE(bob.saysHello());
    EXPECT_TRUE(bob.receives(id::rosterEntry)) << "the caller introduces itself in any case";
    WireFrame next;
    ASSERT_TRUE(bob.receives(GetParam().joins ? id::joinRequest : id::hangup, &next));
    EXPECT_THAT(log.text(), testing::HasSubstr(GetParam().says));
    EXPECT_EQ(GetParam().joins ? 1 : 0, ann.told("ringing Bob"));
    EXPECT_EQ(GetParam().joins ? 0 : 1, ann.told("busy Bob"));
    EXPECT_EQ(0, ann.told("noAnswer 127.0.0.1"));
    if (GetParam().joins) {
        const bool becomesHost = GetParam().self == Self::hosting || GetParam().peer == 0;
        EXPECT_EQ(becomesHost, ann->isHost());
        EXPECT_EQ(becomesHost, (WireEntry::decode(next.body)->state & state::host) != 0);
    } else {
        EXPECT_TRUE(bob.seesTheEnd());
        EXPECT_EQ(GetParam().self == Self::attending, ann->isMeeting() && !ann->isHost());
    }
}

INSTANTIATE_TEST_SUITE_P(Table, Hosting, testing::ValuesIn(hostCases), caseName<HostCase>);

// ---- How a call ends, on the calling side ----

struct EndCase {
    const char *name;
    bool asked; // the hello has come and the join request has gone out
    std::function<void(Party &, WirePeer &)> happens;
    std::vector<std::string> told;
    bool hungUp = false;        // the other side is told TCP_hangup
    bool staysReserved = false; // a further call to the same address is refused
};

const std::vector<std::string> noAnswer = {"noAnswer 127.0.0.1"};

const EndCase endCases[] = {
    {"closed before the hello", false, [](Party &, WirePeer &bob) { bob.closes(); }, noAnswer},
    {"reset before the hello", false, [](Party &, WirePeer &bob) { bob.resets(); }, noAnswer},
    {"half-closed before the hello", false, [](Party &, WirePeer &bob) { bob.halfCloses(); },
     noAnswer},
    {"hung up before the hello", false, [](Party &, WirePeer &bob) { bob.sends(id::hangup); },
     noAnswer},
    {"given up before the hello", false, [](Party &ann, WirePeer &) { ann.leaves(); }, noAnswer,
     true},
    {"closed before the reply", true, [](Party &, WirePeer &bob) { bob.closes(); }, noAnswer},
    {"reset before the reply", true, [](Party &, WirePeer &bob) { bob.resets(); }, noAnswer},
    {"half-closed before the reply", true, [](Party &, WirePeer &bob) { bob.halfCloses(); },
     noAnswer},
    {"hung up before the reply", true, [](Party &, WirePeer &bob) { bob.sends(id::hangup); },
     noAnswer},
    {"given up before the reply", true, [](Party &ann, WirePeer &) { ann.leaves(); }, noAnswer,
     true},
    {"refused",
     true,
     [](Party &, WirePeer &bob) { bob.sends(id::joinReply, {0}); },
     {"rejected Bob", "leader Ann"},
     true},
    {"answered in two bytes",
     true,
     [](Party &, WirePeer &bob) {
         bob.sends(id::joinReply, {1, 1});
     },
     {"leader Ann"},
     false,
     true},
    {"answered in no byte",
     true,
     [](Party &, WirePeer &bob) { bob.sends(id::joinReply, {}); },
     {"leader Ann"},
     false,
     true},
};

class CallEnds : public Calls, public testing::WithParamInterface<EndCase> {};

TEST_P(CallEnds, AndTheApplicationIsToldOnce) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob");
    ASSERT_TRUE(bob.listens() && ann.calls(bob) && bob.picksUp());
    if (GetParam().asked) {
        ASSERT_TRUE(bob.saysHello() && bob.receives(id::joinRequest));
    }
    ann.forgets();
    GetParam().happens(ann, bob);
    if (GetParam().hungUp) {
        EXPECT_TRUE(bob.receives(id::hangup));
    }
    if (GetParam().staysReserved) {
        EXPECT_TRUE(bob.fences()) << "the connection stands";
        std::erase(ann.events, "synch 16");
    } else {
        EXPECT_TRUE(!bob.connected() || bob.seesTheEnd());
    }
    const auto ended = [&] { return ann.events.size() >= GetParam().told.size(); };
    EXPECT_TRUE(meeting.until(ended, "the call ends"));
    EXPECT_THAT(ann.events, testing::ElementsAreArray(GetParam().told));
    EXPECT_THAT(ann.roster(), IsEmpty());
    EXPECT_EQ(!GetParam().staysReserved, ann.calls(bob));
}

INSTANTIATE_TEST_SUITE_P(Table, CallEnds, testing::ValuesIn(endCases), caseName<EndCase>);

// A call that dies while others are connected is told late: its place stays taken until the
// hang-up.
TEST_F(Calls, InCompanyACallWhoseConnectionDiesKeepsItsPlaceUntilTheHangUp) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(ann.hosts("Plan") && cid.joins(ann.port()) && bob.listens());
    for (const bool asked : {false, true}) {
        ASSERT_TRUE(ann.calls(bob) && bob.picksUp());
        ASSERT_TRUE(!asked || (bob.saysHello() && bob.receives(id::joinRequest)));
        ann.forgets();
        bob.closes();
        WireFrame leave;
        ASSERT_TRUE(cid.receives(id::leaveNotify, &leave)) << "the host tells of nobody in name";
        EXPECT_EQ(WireEntry::decode(leave.body)->firstName, "");
        EXPECT_THAT(ann.events, IsEmpty());
        EXPECT_FALSE(ann.calls(bob));
        ann.leaves();
        EXPECT_THAT(ann.events, ElementsAre("noAnswer 127.0.0.1"));
        ASSERT_TRUE(ann.hosts("Plan") && cid.joins(ann.port()));
    }
}

// The next call gets the number of the dead one's descriptor, and was taken for it.
TEST_F(Calls, ADeadCallIsNotAnsweredByTheNextOneInItsPlace) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob"), cid(meeting, "Cid"), dan(meeting, "Dan");
    ASSERT_TRUE(ann.hosts("Plan") && cid.joins(ann.port()) && bob.listens() && dan.listens());
    ASSERT_TRUE(ann.calls(bob) && bob.picksUp());
    bob.closes();
    ASSERT_TRUE(cid.receives(id::leaveNotify));
    ASSERT_TRUE(ann.calls(dan) && dan.isJoined() && ann.isTold("join Dan"));
    EXPECT_FALSE(ann.calls(bob)) << "the dead call has kept its place";
    ann.forgets();
    ann.leaves();
    EXPECT_EQ(1, ann.told("noAnswer 127.0.0.1"));
}

TEST_F(Calls, ARefusedCallIsNotToldWithoutACallback) {
    Party ann(meeting, "Ann");
    ann->setRejectedCB(nullptr);
    WirePeer bob(meeting, "Bob");
    ASSERT_TRUE(bob.listens() && ann.calls(bob) && bob.picksUp());
    ASSERT_TRUE(bob.saysHello() && bob.receives(id::joinRequest));
    ann.forgets();
    ASSERT_TRUE(bob.sends(id::joinReply, {0}) && bob.seesTheEnd());
    EXPECT_EQ(0, ann.told("noAnswer 127.0.0.1"));
}

// ---- Two real parties ----

TEST_F(Calls, ACallBetweenIdlePartiesMakesTheCallerTheHost) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob");
    ASSERT_TRUE(ann.meets(bob));
    ASSERT_TRUE(ann.sees({{"Bob", 1}}) && bob.sees({{"Ann", 0}}));
    ASSERT_TRUE(bob.isTold("leader Ann"));
    EXPECT_TRUE(ann->isHost() && ann->isLeader() && ann->isMeeting());
    EXPECT_TRUE(bob->isMeeting() && !bob->isHost() && !bob->isLeader());
    EXPECT_EQ(1, bob->colorIndex());
    const std::vector<std::string> begin(ann.events.begin(), ann.events.begin() + 4);
    EXPECT_THAT(begin, ElementsAre("user Ann", "ringing Bob", "accepted Bob", "join Bob"));
    EXPECT_EQ("user Bob", bob.events[0]);
    EXPECT_EQ("join Ann", bob.events[1]);
}

TEST_F(Calls, WhoCallsAHostJoinsItsMeeting) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob");
    ASSERT_TRUE(ann.hosts("Plan") && bob.meets(ann));
    EXPECT_TRUE(ann.sees({{"Bob", 1}}) && bob.sees({{"Ann", 0}}));
    EXPECT_TRUE(ann->isHost() && !bob->isHost());
    EXPECT_EQ("Plan", bob->meetingName());
    EXPECT_TRUE(meeting.until([&] { return bob->colorIndex() == 1; }, "Bob has his colour"));
}

TEST_F(Calls, WhoCallsAnAttendeeIsToldBusy) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(ann.meets(bob));
    ASSERT_TRUE(cid.calls(bob));
    EXPECT_TRUE(cid.isTold("busy Bob"));
    EXPECT_THAT(cid.events, ElementsAre("busy Bob"));
    EXPECT_FALSE(cid->isMeeting());
    EXPECT_TRUE(bob.sees({{"Ann", 0}})) << "the attendee's own meeting goes on";
}

TEST_F(Calls, ACallThatIsScreenedWaitsForTheAnswer) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob");
    bob.screensCalls();
    ASSERT_TRUE(ann.calls(bob) && bob.isTold("pending Ann") && ann.isTold("ringing Bob"));
    EXPECT_EQ(0, ann.told("accepted Bob"));
    EXPECT_TRUE(bob->acceptCall(ann->address()));
    EXPECT_TRUE(ann.isTold("join Bob"));
    EXPECT_FALSE(bob->acceptCall(ann->address())) << "there is nothing left to accept";
    EXPECT_FALSE(bob->rejectCall(ann->address()));
}

TEST_F(Calls, ACallThatIsScreenedCanBeRefused) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob");
    bob.screensCalls();
    ASSERT_TRUE(ann.calls(bob) && bob.isTold("pending Ann"));
    EXPECT_TRUE(bob->rejectCall(ann->address()));
    EXPECT_TRUE(ann.isTold("rejected Bob"));
    EXPECT_EQ(0, ann.told("noAnswer " + bob.ip()));
    EXPECT_TRUE(ann->isHost()) << "of the meeting that the call had begun";
    EXPECT_EQ(0, bob.told("leave Ann"));
    EXPECT_FALSE(bob->isMeeting());
    EXPECT_FALSE(bob->acceptCall(ann->address())) << "the caller is gone";
}

TEST_F(Calls, AMeetingIsToldInTheLog) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob"), cid(meeting, "Cid");
    LogFile log(LOG_TRACE);
    ASSERT_TRUE(gather(ann, {&bob, &cid}));
    EXPECT_TRUE(ann->sendAllKeepAlive());
    cid.leaves();
    ASSERT_TRUE(bob.isTold("leave Cid"));
    const std::string text = log.text();
    for (const char *line :
         {"Connection accepted fd = ", "mf_sendMe succeeded", "Entry is Unique ",
          "_ensureHost no host so starting meeting OK", "_ensureHost me hosting meeting OK",
          "ConferenceParticipant::hostMeeting index = 0", "_completeCall send join OK",
          "Accepted Call fd = ", " ssl = false hangup = false",
          "Handle fd = ", " ssl = false  hangup = false", "Begin Sending Roster to ",
          "Sent Entry\nIP:  ", "Done Sending Roster to ", "Receive Roster entry from ",
          "Keep Alive", "Receive leave Notify from ",
          "Receive==========\nIP:  ", "\n=============="}) {
        EXPECT_THAT(text, testing::HasSubstr(line));
    }
}

// ---- Parting ----

TEST_F(Calls, WhenTheHostLeavesTheMeetingIsOver) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(gather(ann, {&bob, &cid}));
    ann.leaves();
    EXPECT_FALSE(ann->isMeeting() || ann->isHost() || ann->isLeader());
    EXPECT_EQ(0, ann.told("leave Bob")) << "who leaves knows";
    for (Party *member : {&bob, &cid}) {
        EXPECT_TRUE(member->isTold("leave Ann"));
        EXPECT_EQ("leave Ann", member->events.back());
        EXPECT_FALSE((*member)->isMeeting());
        EXPECT_EQ("", (*member)->meetingName());
    }
    EXPECT_TRUE(bob.meets(cid)) << "and another may begin";
    EXPECT_TRUE(bob->isHost());
}

TEST_F(Calls, TheServerBitStaysOffAfterAHangUpUntilTheModeIsSetAgain) {
    Party relay(meeting, "Relay");
    relay->setServerMode(true);
    relay.leaves();
    EXPECT_TRUE(relay->serverMode());
    EXPECT_FALSE(relay->isServer());
    relay->setServerMode(true);
    EXPECT_TRUE(relay->isServer());
}

// Without a leave callback nothing tells a member that the connection that went was its host's, so
// it goes by its list: the shadows of the others keep it in the meeting.
TEST_F(Calls, AMemberThatDoesNotWatchLeavesMissesTheLossOfItsHostWhileItKnowsOfOthers) {
    for (const bool others : {false, true}) {
        Party bob(meeting, "Bob");
        bob->setLeaveCB(nullptr);
        WirePeer host(meeting, "Host");
        host.entry.state = hosting;
        ASSERT_TRUE(host.joins(bob.port()));
        if (others) {
            ASSERT_TRUE(host.sends(id::rosterReply, WireEntry::party("Cid", 60001).encode()));
        }
        ASSERT_TRUE(host.fences());
        EXPECT_EQ(others ? 1 : 0, bob.told("join Cid"));
        TCPSelect loop;
        const int registered = loop.numDescriptors();
        host.closes();
        ASSERT_TRUE(meeting.until([&] { return loop.numDescriptors() < registered; },
                                  "the connection is dropped"));
        EXPECT_EQ(others, bob->isMeeting());
    }
}

TEST_F(Calls, AMemberWithTwoConnectionsThatLosesOneGivesUpBoth) {
    Party bob(meeting, "Bob");
    WirePeer host(meeting, "Host"), intruder(meeting, "Intruder");
    host.entry.state = hosting;
    ASSERT_TRUE(host.joins(bob.port()) && intruder.joins(bob.port()));
    intruder.closes();
    EXPECT_TRUE(host.receives(id::hangup));
    EXPECT_TRUE(host.seesTheEnd());
    EXPECT_FALSE(bob->isMeeting());
}

} // namespace
} // namespace vintok::test
