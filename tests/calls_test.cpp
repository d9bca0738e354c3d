// Meetings begin and end with calls: what may be called, who becomes the host, and how each step of
// a call ends when the other side answers, refuses, leaves or dies.
#include "support/LogFile.h"
#include "support/Stage.h"

namespace vintok::test {
namespace {

class Calls : public Stage {};
class RealCalls : public RealStage {};

// ---- Hosting ----

TEST_F(Calls, WhoIsBeingCalledByAHostCannotHostMeanwhile) {
    LogFile log;
    ASSERT_TRUE(host.connects(ann.port()) && host.saysHello() && host.fences());
    EXPECT_FALSE(ann.hosts("Mine"));
    EXPECT_TRUE(log.has("hostMeeting cannot set meeting name not host"));
    EXPECT_FALSE(ann->isMeeting());
}

TEST_F(RealCalls, OnlyAHostNamesTheMeeting) {
    EXPECT_FALSE(ann->setMeetingName("Plan"));
    ASSERT_TRUE(ann.hosts("Plan") && ann.meets(bob));
    EXPECT_TRUE(ann->setMeetingName("Review"));
    EXPECT_FALSE(bob->setMeetingName("Mine"));
    EXPECT_EQ("Review", ann->meetingName());
    EXPECT_EQ("Plan", bob->meetingName());
}

// ---- Calls that are refused at once ----

TEST_F(Calls, ToNobodyAndToOneselfAreRefused) {
    LogFile log;
    EXPECT_FALSE(ann->placeCall("", 7777, "", 0, "", "", 0));
    EXPECT_TRUE(log.has("placeCall Cannot resolve address"));
    EXPECT_FALSE(ann.calls(ann));
    EXPECT_TRUE(log.has("placeCall Attempt to call self"));
}

TEST_F(Calls, ToWhoIsCalledOrListedAlreadyAreRefused) {
    LogFile log;
    ASSERT_TRUE(bob.listens() && ann.calls(bob));
    EXPECT_FALSE(ann.calls(bob)) << "while the first call is under way";
    ASSERT_TRUE(bob.picksUp() && bob.saysHello() && bob.receives(id::joinRequest));
    ASSERT_TRUE(bob.sends(id::joinReply, {1}) && ann.isTold("join Bob"));
    EXPECT_FALSE(ann.calls(bob)) << "while Bob is a member";
    EXPECT_EQ(2, log.entries("placeCall Attempt to place same call again"));
}

TEST_F(RealCalls, OfAMemberAreRefused) {
    LogFile log;
    ASSERT_TRUE(ann.meets(bob));
    EXPECT_FALSE(bob.calls(cid));
    EXPECT_TRUE(log.has("Cannot place call in meeting and not host"));
}

// ---- Through a proxy ----

TEST_F(Calls, APortThatIsLeftToTheDefaultIsNotTheProxysOwn) {
    ASSERT_TRUE(bob.listens());
    bob.readsText(true);
    ASSERT_TRUE(ann->placeCall("127.0.0.1", 0, "127.0.0.1", bob.port(), "room", "", 0));
    ASSERT_TRUE(bob.picksUp());
    const auto text = [&] { return std::string(bob.rest().begin(), bob.rest().end()); };
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

constexpr std::uint32_t attending = state::meeting;

const HostCase hostCases[] = {
    {"idle calls idle", Self::idle, 0, true, "_ensureHost no host so starting meeting OK"},
    {"idle calls host", Self::idle, hosting, true, "_ensureHost peer hosting meeting OK"},
    {"idle calls attendee", Self::idle, attending, false,
     "_ensureHost peer is in meeting and not host"},
    {"idle calls a host of nothing", Self::idle, state::host, false,
     "hostMeeting cannot set meeting name not host"},
    {"host calls idle", Self::hosting, 0, true, "_ensureHost me hosting meeting OK"},
    {"host calls host", Self::hosting, hosting, false, "_ensureHost peer host and me in meeting"},
    {"attendee called idle", Self::attending, 0, false,
     "_ensureHost in meeting not host placing call"},
};

class Hosting : public Calls, public testing::WithParamInterface<HostCase> {};

TEST_P(Hosting, IsDecidedByTheCallerWhenTheHelloComes) {
    const HostCase &row = GetParam();
    const bool attends = row.self == Self::attending;
    ASSERT_TRUE(row.self != Self::hosting || ann.hosts("Plan"));
    ASSERT_TRUE(ann.reaches(bob));
    ASSERT_TRUE(!attends || (annAttends() && ann->isMeeting() && !ann->isHost()));
    ann.forgets();

    bob.entry.state = row.peer;
    LogFile log(LOG_TRACE);
    ASSERT_TRUE(bob.saysHello());
    EXPECT_TRUE(bob.receives(id::rosterEntry)) << "the caller introduces itself in any case";
    WireFrame next;
    ASSERT_TRUE(bob.receives(row.joins ? id::joinRequest : id::hangup, &next));
    EXPECT_THAT(log.text(), testing::HasSubstr(row.says));
    EXPECT_EQ(row.joins ? 1 : 0, ann.told("ringing Bob"));
    EXPECT_EQ(row.joins ? 0 : 1, ann.told("busy Bob"));
    EXPECT_EQ(0, ann.told("noAnswer 127.0.0.1"));
    if (row.joins) {
        const bool becomesHost = row.self == Self::hosting || row.peer == 0;
        EXPECT_EQ(becomesHost, ann->isHost());
        EXPECT_EQ(becomesHost, (entryIn(next).state & state::host) != 0);
    } else {
        EXPECT_TRUE(bob.seesTheEnd());
        EXPECT_EQ(attends, ann->isMeeting() && !ann->isHost());
    }
}

INSTANTIATE_TEST_SUITE_P(Table, Hosting, testing::ValuesIn(hostCases), caseName<HostCase>);

// ---- How a call ends, on the calling side ----

struct EndCase {
    const char *name;
    bool asked; // the hello has come and the join request has gone out
    void (*happens)(Party &, WirePeer &);
    std::vector<std::string> told;
    bool hungUp = false;        // the other side is told TCP_hangup
    bool staysReserved = false; // a further call to the same address is refused
};

const std::vector<std::string> noAnswer = {"noAnswer 127.0.0.1"};

const auto closes = [](Party &, WirePeer &bob) { bob.closes(); };
const auto resets = [](Party &, WirePeer &bob) { bob.resets(); };
const auto halfCloses = [](Party &, WirePeer &bob) { bob.halfCloses(); };
const auto hangsUp = [](Party &, WirePeer &bob) { bob.hangsUp(); };
const auto givesUp = [](Party &ann, WirePeer &) { ann.leaves(); };
template <unsigned char... body>
void replies(Party &, WirePeer &bob) {
    bob.sends(id::joinReply, {body...});
}

const EndCase endCases[] = {
    {"closed before the hello", false, closes, noAnswer},
    {"hung up before the hello", false, hangsUp, noAnswer},
    {"given up before the hello", false, givesUp, noAnswer, true},
    {"reset before the reply", true, resets, noAnswer},
    {"half-closed before the reply", true, halfCloses, noAnswer},
    {"refused", true, replies<0>, {"rejected Bob", "leader Ann"}, true},
    {"answered in two bytes", true, replies<1, 1>, {"leader Ann"}, false, true},
};

class CallEnds : public Calls, public testing::WithParamInterface<EndCase> {};

TEST_P(CallEnds, AndTheApplicationIsToldOnce) {
    const EndCase &row = GetParam();
    ASSERT_TRUE(row.asked ? ann.asks(bob) : ann.reaches(bob));
    ann.forgets();
    row.happens(ann, bob);
    EXPECT_TRUE(!row.hungUp || bob.receives(id::hangup));
    if (row.staysReserved) {
        EXPECT_TRUE(bob.fences()) << "the connection stands";
        std::erase(ann.events, "synch 16");
    } else {
        EXPECT_TRUE(!bob.connected() || bob.seesTheEnd());
    }
    EXPECT_TRUE(meeting.until([&] { return ann.events.size() >= row.told.size(); }, "the end"));
    EXPECT_THAT(ann.events, testing::ElementsAreArray(row.told));
    EXPECT_THAT(ann.roster(), IsEmpty());
    EXPECT_EQ(!row.staysReserved, ann.calls(bob));
}

INSTANTIATE_TEST_SUITE_P(Table, CallEnds, testing::ValuesIn(endCases), caseName<EndCase>);

// A call that dies while others are connected is told late: its place stays taken until the
// hang-up.
TEST_F(Calls, InCompanyACallWhoseConnectionDiesKeepsItsPlaceUntilTheHangUp) {
    for (const bool asked : {false, true}) {
        ASSERT_TRUE(annHosts({&cid}));
        ASSERT_TRUE(asked ? ann.asks(bob) : ann.reaches(bob));
        ann.forgets();
        bob.closes();
        EXPECT_EQ("", entryIn(cid.next(id::leaveNotify)).firstName) << "of nobody in name";
        EXPECT_THAT(ann.events, IsEmpty());
        EXPECT_FALSE(ann.calls(bob));
        ann.leaves();
        EXPECT_THAT(ann.events, ElementsAre("noAnswer 127.0.0.1"));
    }
}

// The next call gets the number of the dead one's descriptor, and was taken for it.
TEST_F(Calls, ADeadCallIsNotAnsweredByTheNextOneInItsPlace) {
    ASSERT_TRUE(annHosts({&cid}) && ann.reaches(bob));
    bob.closes();
    ASSERT_TRUE(cid.receives(id::leaveNotify) && ann.meets(dan));
    EXPECT_FALSE(ann.calls(bob)) << "the dead call has kept its place";
    ann.forgets();
    ann.leaves();
    EXPECT_EQ(1, ann.told("noAnswer 127.0.0.1"));
}

// Where nobody is left, somebody else hosts, or the called party had called as well and has gone.
TEST_F(Calls, ADeadCallOfWhichNothingCanComeIsTold) {
    ASSERT_TRUE(ann.reaches(bob) && ann.asks(cid));
    bob.closes();
    EXPECT_TRUE(cid.fences() && ann.told("noAnswer 127.0.0.1") == 0);
    EXPECT_TRUE(cid.sends(id::joinReply, {0}) && ann.isTold("noAnswer 127.0.0.1"));
    ann.leaves();
    ann.forgets();
    ASSERT_TRUE(host.connects(ann.port()) && host.saysHello() && ann.reaches(bob));
    bob.closes();
    EXPECT_TRUE(host.fences() && ann.told("noAnswer 127.0.0.1") == 0);
    EXPECT_TRUE(host.asksToJoin() && ann.isTold("noAnswer 127.0.0.1") && !ann->isHost());
    ann.leaves();
    ASSERT_TRUE(annHosts({&cid}) && ann.reaches(bob));
    ann.forgets();
    dan.entry.address = bob.entry.address;
    ASSERT_TRUE(dan.connects(ann.port()) && dan.saysHello() && (dan.fences() || dan.ended()));
    bob.closes();
    dan.closes();
    EXPECT_TRUE(ann.isTold("noAnswer 127.0.0.1") && ann.calls(bob));
}

// ---- Parting ----

TEST_F(RealCalls, WhenTheHostLeavesTheMeetingIsOver) {
    ASSERT_TRUE(gather(ann, {&bob, &cid}));
    ann.leaves();
    EXPECT_EQ(0, ann.told("leave Bob")) << "who leaves knows";
    for (Party *member : {&bob, &cid})
        EXPECT_TRUE(member->isTold("leave Ann") && !(*member)->isMeeting());
}

TEST_F(Calls, TheServerBitStaysOffAfterAHangUpUntilTheModeIsSetAgain) {
    ann->setServerMode(true);
    ann.leaves();
    EXPECT_TRUE(ann->serverMode());
    EXPECT_FALSE(ann->isServer());
    ann->setServerMode(true);
    EXPECT_TRUE(ann->isServer());
}

// Without a leave callback nothing tells a member that the connection that went was its host's, so
// it goes by its list: the shadows of the others keep it in the meeting.
TEST_F(Calls, AMemberThatDoesNotWatchLeavesMissesTheLossOfItsHostWhileItKnowsOfOthers) {
    ann->setLeaveCB(nullptr);
    for (const bool others : {false, true}) {
        ASSERT_TRUE(annAttends());
        ASSERT_TRUE(!others || host.sends(id::rosterReply, cid.entry.encode()));
        ASSERT_TRUE(host.fences());
        EXPECT_EQ(others ? 1 : 0, ann.told("join Cid"));
        const int registered = meeting.watched();
        host.closes();
        ASSERT_TRUE(meeting.until([&] { return meeting.watched() < registered; },
                                  "the connection is dropped"));
        EXPECT_EQ(others, ann->isMeeting());
    }
}

TEST_F(Calls, AMemberWithTwoConnectionsThatLosesOneGivesUpBoth) {
    ASSERT_TRUE(annAttends() && bob.joins(ann.port()));
    bob.closes();
    EXPECT_TRUE(host.receives(id::hangup));
    EXPECT_TRUE(host.seesTheEnd());
    EXPECT_FALSE(ann->isMeeting());
}

} // namespace
} // namespace vintok::test
