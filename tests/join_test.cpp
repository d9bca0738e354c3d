// Joining as it goes over the wire: what is said in which order and form on each side, what the
// called side does with each message in each state, and the rule that guards hidden addresses.
#include "support/LogFile.h"
#include "support/Party.h"
#include "support/WirePeer.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>

namespace vintok::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t hosting = state::meeting | state::host;

class Joins : public testing::Test {
protected:
    Meeting meeting;
};

std::vector<std::string> names(const std::vector<WireEntry> &entries) {
    std::vector<std::string> result;
    for (const WireEntry &entry : entries) {
        result.push_back(entry.firstName);
    }
    return result;
}

WireAddress wireAddress(const Party &party) {
    TCPAddress::Storage storage = {};
    party->address().storage(storage);
    WireAddress address;
    std::memcpy(address.ip.data(), &storage.ip, address.ip.size());
    address.type = static_cast<std::uint32_t>(storage.type);
    address.port = party.port();
    return address;
}

// ---- The conversation, seen from the other end ----

TEST_F(Joins, TheCalledPartySpeaksFirstAndInTheOldestForm) {
    Party ann(meeting, "Ann");
    ann->setTitle("Dr");
    ann->setPhone("555");
    WirePeer cid(meeting, "Cid");
    ASSERT_TRUE(cid.connects(ann.port()));
    WireFrame hello;
    ASSERT_TRUE(cid.receives(id::rosterEntry, &hello));
    EXPECT_EQ(1, hello.format);
    EXPECT_EQ(3, hello.formatMinor);
    EXPECT_EQ(4, hello.major);
    EXPECT_EQ(0, hello.minor);

    WireEntry expected;
    expected.address = wireAddress(ann);
    expected.firstName = "Ann";
    expected.title = "Dr";
    expected.email = "Ann@example.org";
    expected.phone = "555";
    EXPECT_EQ(expected, WireEntry::decode(hello.body));

    std::vector<WireFrame> more;
    ASSERT_TRUE(cid.fences(&more));
    EXPECT_THAT(kinds(more), IsEmpty()) << "then it waits for the caller";
}

TEST_F(Joins, AnIdlePartyThatAcceptsSetsItsClockAndAsksForTheRoster) {
    Party ann(meeting, "Ann");
    WirePeer cid(meeting, "Cid");
    cid.entry.state = hosting;
    cid.entry.meetingName = "Plan";
    ASSERT_TRUE(cid.connects(ann.port()) && cid.receives(id::rosterEntry));
    ASSERT_TRUE(cid.saysHello() && cid.asksToJoin());
    std::vector<WireFrame> frames;
    ASSERT_TRUE(cid.fences(&frames));
    ASSERT_THAT(kinds(frames), ElementsAre(id::joinReply, id::echoRequest32, id::rosterRequest));
    EXPECT_EQ(Bytes{1}, frames[0].body);
    EXPECT_EQ(4u, frames[1].body.size());
    EXPECT_EQ(Bytes{0}, frames[2].body);
    for (const WireFrame &frame : frames) {
        EXPECT_EQ(2, frame.format);
        EXPECT_EQ(4, frame.major);
        EXPECT_EQ(0, frame.minor);
    }
    EXPECT_EQ("Plan", ann->meetingName());
    EXPECT_TRUE(ann->isMeeting() && !ann->isHost());
    EXPECT_THAT(ann.events, testing::IsSupersetOf({"user Ann", "join Cid"}));
}

TEST_F(Joins, ACallerThatFindsNoHostBecomesOneAndSpreadsTheRoster) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob");
    ASSERT_TRUE(bob.listens() && ann.calls(bob) && bob.picksUp());
    std::vector<WireFrame> frames;
    ASSERT_TRUE(bob.fences(&frames));
    EXPECT_THAT(kinds(frames), IsEmpty()) << "a caller waits for the hello";

    ASSERT_TRUE(bob.saysHello() && bob.fences(&frames));
    ASSERT_THAT(kinds(frames), ElementsAre(id::rosterEntry, id::joinRequest));
    EXPECT_EQ(2, frames[0].format);
    const auto hello = WireEntry::decode(frames[0].body);
    const auto request = WireEntry::decode(frames[1].body);
    ASSERT_TRUE(hello && request);
    EXPECT_EQ(0u, hello->state) << "the hello goes out before it is known who hosts";
    EXPECT_EQ(65535, hello->color);
    EXPECT_EQ(hosting, request->state);
    EXPECT_EQ(0, request->color);

    ASSERT_TRUE(bob.sends(id::joinReply, {1}) && bob.fences(&frames));
    ASSERT_THAT(kinds(frames),
                ElementsAre(id::rosterReply, id::rosterReply, id::rosterRequest, id::leadChange));
    const auto roster = entries(frames, id::rosterReply);
    EXPECT_THAT(names(roster), ElementsAre("Ann", "Bob"));
    EXPECT_EQ(0, roster[0].color);
    EXPECT_EQ(1, roster[1].color);
    EXPECT_EQ(bob.entry.address, roster[1].address);
    EXPECT_EQ("Ann", WireEntry::decode(frames[3].body)->firstName);
}

TEST_F(Joins, AHostThatIsCalledTakesTheLeadAndGivesTheCallerItsColour) {
    Party ann(meeting, "Ann");
    ASSERT_TRUE(ann.hosts("Plan"));
    WirePeer cid(meeting, "Cid"), dan(meeting, "Dan");
    ASSERT_TRUE(cid.connects(ann.port()) && cid.receives(id::rosterEntry));
    ASSERT_TRUE(cid.saysHello() && cid.asksToJoin());
    std::vector<WireFrame> frames;
    ASSERT_TRUE(cid.fences(&frames));
    ASSERT_THAT(kinds(frames),
                ElementsAre(id::joinReply, id::leadChange, id::rosterReply, id::rosterReply));
    const auto roster = entries(frames, id::rosterReply);
    EXPECT_THAT(names(roster), ElementsAre("Ann", "Cid"));
    EXPECT_EQ(hosting | state::leader, roster[0].state);
    EXPECT_EQ(1, roster[1].color);

    ASSERT_TRUE(dan.joins(ann.port()) && dan.fences(&frames));
    ASSERT_THAT(kinds(frames), ElementsAre(id::rosterReply, id::rosterReply, id::rosterReply));
    EXPECT_THAT(names(entries(frames, id::rosterReply)), ElementsAre("Ann", "Cid", "Dan"));
    EXPECT_EQ(2, entries(frames, id::rosterReply)[2].color);
    ASSERT_TRUE(cid.fences(&frames));
    EXPECT_THAT(names(entries(frames, id::rosterReply)), ElementsAre("Ann", "Cid", "Dan"))
        << "everybody gets the whole roster anew";
}

TEST_F(Joins, WhoJoinsAHostSetsItsClockAndAsksForTheRoster) {
    Party ann(meeting, "Ann");
    WirePeer host(meeting, "Host");
    host.entry.state = hosting;
    host.entry.meetingName = "Plan";
    ASSERT_TRUE(host.listens() && ann.calls(host) && host.picksUp() && host.saysHello());
    ASSERT_TRUE(host.receives(id::joinRequest) && host.sends(id::joinReply, {1}));
    std::vector<WireFrame> frames;
    ASSERT_TRUE(host.fences(&frames));
    EXPECT_THAT(kinds(frames), ElementsAre(id::echoRequest32, id::rosterRequest));
    EXPECT_EQ("Plan", ann->meetingName());
    EXPECT_THAT(ann.events, ElementsAre("ringing Host", "accepted Host", "join Host", "synch 16"));
}

TEST_F(Joins, AJoinedLeaderIsMadeKnown) {
    Party bob(meeting, "Bob");
    WirePeer called(meeting, "Called");
    called.entry.state = hosting | state::leader;
    ASSERT_TRUE(called.listens() && bob.meets(called) && called.fences());
    EXPECT_THAT(bob.events, ElementsAre("ringing Called", "accepted Called", "join Called",
                                        "leader Called", "synch 16"));

    Party ann(meeting, "Ann");
    WirePeer host(meeting, "Host");
    host.entry.state = hosting | state::leader;
    ASSERT_TRUE(host.joins(ann.port()) && host.fences());
    EXPECT_THAT(ann.events, ElementsAre("user Ann", "join Host", "leader Host", "synch 16"));
}

TEST_F(Joins, AServerIsJoinedWithoutAWordAboutIt) {
    Party ann(meeting, "Ann");
    WirePeer relay(meeting, "Relay");
    relay.entry.state = hosting | state::leader | state::server;
    ASSERT_TRUE(relay.joins(ann.port()) && relay.fences());
    ASSERT_TRUE(relay.sends(id::rosterReply, relay.entry.encode()) && relay.fences());
    relay.closes();
    ASSERT_TRUE(meeting.until([&] { return !ann->isMeeting(); }, "the relay's end is noticed"));
    EXPECT_THAT(ann.events, ElementsAre("user Ann", "synch 16", "synch 16"));
}

TEST_F(Joins, WithoutCallbacksEverythingStillHappens) {
    ConferenceParticipant silent(false, freshPort());
    WirePeer cid(meeting, "Cid");
    ASSERT_TRUE(silent.hostMeeting("Plan"));
    ASSERT_TRUE(cid.joins(silent.address().hostByteOrderPort()));
    for (const unsigned char id : {id::broadcast, id::rosterRequest, id::leadRequest, id::leadReply,
                                   id::stopLead, id::keepAlive, id::echoRequest32}) {
        EXPECT_TRUE(cid.sends(id, cid.entry.encode()));
    }
    EXPECT_TRUE(cid.fences());
    cid.closes();
    EXPECT_TRUE(meeting.until([&] { return !silent.isMeeting(); }, "the end is noticed"));
}

// ---- The called side's states ----

enum class State { accepted, identified, pending, member };

struct StateCase {
    const char *name;
    State state;
    std::function<void(Party &, WirePeer &)> happens;
    std::vector<int> answers;      // what the caller gets for it
    std::vector<std::string> told; // what the application is told
};

void otherAddress(Party &, WirePeer &cid) {
    WireEntry other = cid.entry;
    ++other.address.port;
    cid.sends(id::joinRequest, other.encode());
}

void asksAgain(Party &, WirePeer &cid) {
    cid.asksToJoin();
}

void accepted(Party &ann, WirePeer &cid) {
    EXPECT_TRUE(ann.accepts(cid));
}

void notAccepted(Party &ann, WirePeer &cid) {
    EXPECT_FALSE(ann.accepts(cid));
}

void notRefused(Party &ann, WirePeer &cid) {
    EXPECT_FALSE(ann.rejects(cid));
}

void answersUnasked(Party &, WirePeer &cid) {
    cid.sends(id::joinReply, {1});
}

const StateCase stateCases[] = {
    {"a join request from an unknown", State::accepted, asksAgain, {}, {}},
    {"a join reply from an unknown", State::accepted, answersUnasked, {}, {}},
    {"an acceptance of an unknown", State::accepted, notAccepted, {}, {}},
    {"a join request from elsewhere", State::identified, otherAddress, {}, {}},
    {"an unasked join reply", State::identified, answersUnasked, {}, {}},
    {"an acceptance before the request", State::identified, notAccepted, {}, {}},
    {"a refusal before the request", State::identified, notRefused, {}, {}},
    {"a join request", State::identified, asksAgain, {}, {"pending Cid"}},
    {"a join request from elsewhere while one waits", State::pending, otherAddress, {}, {}},
    {"an acceptance",
     State::pending,
     accepted,
     {id::joinReply, id::leadChange, id::rosterReply, id::rosterReply},
     {"join Cid", "leader Ann"}},
    {"a second request of a member", State::member, asksAgain, {}, {}},
    {"a request of a member from elsewhere", State::member, otherAddress, {}, {}},
    {"an acceptance of a member", State::member, notAccepted, {}, {}},
    {"a refusal of a member", State::member, notRefused, {}, {}},
    {"a join reply of a member", State::member, answersUnasked, {}, {}},
};

class CalledSide : public Joins, public testing::WithParamInterface<StateCase> {};

TEST_P(CalledSide, DoesWhatItsStateSays) {
    Party ann(meeting, "Ann");
    WirePeer cid(meeting, "Cid");
    ann.screensCalls();
    ASSERT_TRUE(ann.hosts("Plan") && cid.connects(ann.port()) && cid.receives(id::rosterEntry));
    const State state = GetParam().state;
    if (state != State::accepted) {
        ASSERT_TRUE(cid.saysHello() && cid.fences());
    }
    if (state == State::pending || state == State::member) {
        ASSERT_TRUE(cid.asksToJoin() && cid.fences());
        ASSERT_EQ(1, ann.told("pending Cid"));
    }
    if (state == State::member) {
        ASSERT_TRUE(ann.accepts(cid) && cid.fences());
    }
    ann.forgets();
    GetParam().happens(ann, cid);
    std::vector<WireFrame> frames;
    ASSERT_TRUE(cid.fences(&frames)) << "the connection stands";
    EXPECT_THAT(kinds(frames), testing::ElementsAreArray(GetParam().answers));
    std::vector<std::string> told = ann.events;
    std::erase(told, "synch 16");
    std::erase(told, "user Cid");
    std::sort(told.begin(), told.end());
    EXPECT_THAT(told, testing::ElementsAreArray(GetParam().told));
}

INSTANTIATE_TEST_SUITE_P(Table, CalledSide, testing::ValuesIn(stateCases), caseName<StateCase>);

TEST_F(Joins, ARefusalIsFollowedByAHangUp) {
    Party ann(meeting, "Ann");
    WirePeer cid(meeting, "Cid");
    ann.screensCalls();
    ASSERT_TRUE(cid.connects(ann.port()) && cid.saysHello() && cid.asksToJoin());
    ASSERT_TRUE(ann.isTold("pending Cid"));
    ASSERT_TRUE(ann.rejects(cid));
    WireFrame reply;
    ASSERT_TRUE(cid.receives(id::joinReply, &reply));
    EXPECT_EQ(Bytes{0}, reply.body);
    EXPECT_TRUE(cid.receives(id::hangup));
    EXPECT_TRUE(cid.seesTheEnd());
    EXPECT_THAT(ann.events, ElementsAre("pending Cid"));
}

struct LossCase {
    const char *name;
    void (WirePeer::*happens)();
};

const LossCase lossCases[] = {{"closes", &WirePeer::closes},
                              {"resets", &WirePeer::resets},
                              {"halfCloses", &WirePeer::halfCloses},
                              {"hangsUp", &WirePeer::hangsUp}};

class CallerLost : public Joins, public testing::WithParamInterface<LossCase> {};

// The caller vanishes after each step; the host's other member hears of it each time.
TEST_P(CallerLost, AtEachStepLeavesNothingBehind) {
    Party ann(meeting, "Ann");
    WirePeer cid(meeting, "Cid"), member(meeting, "Member");
    ASSERT_TRUE(ann.hosts("Plan") && member.joins(ann.port()));
    ann.screensCalls();
    TCPSelect loop;
    const int registered = loop.numDescriptors();
    for (int steps = 0; steps < 4; ++steps) {
        SCOPED_TRACE(steps);
        ASSERT_TRUE(cid.connects(ann.port()) && cid.receives(id::rosterEntry));
        ASSERT_TRUE(steps < 1 || (cid.saysHello() && cid.fences()));
        ASSERT_TRUE(steps < 2 || (cid.asksToJoin() && cid.fences()));
        ASSERT_TRUE(steps < 3 || (ann.accepts(cid) && cid.fences()));
        ann.forgets();
        (cid.*GetParam().happens)();
        WireFrame leave;
        ASSERT_TRUE(member.receives(id::leaveNotify, &leave));
        const auto gone = WireEntry::decode(leave.body);
        ASSERT_TRUE(gone);
        EXPECT_EQ(steps < 3 ? "" : "Cid", gone->firstName) << "only who had joined is named";
        EXPECT_EQ(steps < 3 ? 0 : 1, ann.told("leave Cid"));
        EXPECT_EQ(registered, loop.numDescriptors());
        EXPECT_FALSE(ann.accepts(cid));
        EXPECT_EQ(ann.roster(), (Roster{{"Member", 1}}));
    }
}

INSTANTIATE_TEST_SUITE_P(Table, CallerLost, testing::ValuesIn(lossCases), caseName<LossCase>);

TEST_F(Joins, AnAnswerThatCannotBeSentIsNoAnswer) {
    Party ann(meeting, "Ann");
    ann.screensCalls();
    for (const bool accept : {true, false}) {
        WirePeer cid(meeting, "Cid");
        ASSERT_TRUE(cid.connects(ann.port()) && cid.saysHello() && cid.asksToJoin());
        ann.forgets();
        ASSERT_TRUE(ann.isTold("pending Cid"));
        cid.resets();
        EXPECT_FALSE(accept ? ann.accepts(cid) : ann.rejects(cid));
        EXPECT_FALSE(ann->isMeeting());
        EXPECT_THAT(ann.events, ElementsAre("pending Cid"));
        TCPSelect loop;
        const int before = loop.numDescriptors();
        EXPECT_TRUE(meeting.until([&] { return loop.numDescriptors() < before; }, "the loss"));
    }
}

TEST_F(Joins, AJoinWhileTheApplicationIsAskedCountsTheVersionOfTheHeader) {
    static unsigned short major, minor;
    Party ann(meeting, "Ann");
    ann->setCallPendingCB([](ConferenceParticipant *, const ConferenceRosterEntry &caller) {
        major = caller.majorVersion();
        minor = caller.minorVersion();
    });
    WirePeer cid(meeting, "Cid");
    cid.entry.major = 9;
    cid.entry.minor = 8;
    ASSERT_TRUE(cid.connects(ann.port()) && cid.saysHello());
    WireFrame request;
    request.id = id::joinRequest;
    request.major = 5;
    request.minor = 6;
    request.body = cid.entry.encode();
    ASSERT_TRUE(cid.sends(request.encode()) && cid.fences());
    EXPECT_EQ(5, major);
    EXPECT_EQ(6, minor);
}

// ---- Hosts that call ----

TEST_F(Joins, AHostLetsNoHostInAndAMemberNoSecondOne) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob");
    WirePeer host(meeting, "Host"), early(meeting, "Early");
    host.entry.state = early.entry.state = hosting;
    WireFrame answer;
    ASSERT_TRUE(ann.hosts("Plan") && host.connects(ann.port()));
    ASSERT_TRUE(host.saysHello() && host.asksToJoin() && host.receives(id::joinReply, &answer));
    EXPECT_EQ(Bytes{0}, answer.body);
    EXPECT_TRUE(host.seesTheEnd());

    ASSERT_TRUE(early.connects(bob.port()) && early.receives(id::rosterEntry));
    ASSERT_TRUE(early.saysHello() && host.joins(bob.port()) && early.asksToJoin());
    ASSERT_TRUE(early.receives(id::rosterEntry, &answer));
    EXPECT_EQ(state::meeting, WireEntry::decode(answer.body)->state) << "it is told: busy";
    EXPECT_EQ(0, bob.told("join Early"));
}

// Nobody has joined yet, but somebody is called: whoever asks is told to come, and only one that
// knows and asks all the same is joined.
TEST_F(Joins, AHostThatACallHasMadeStepsAsideForOneThatInsists) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob"), host(meeting, "Host");
    host.entry.state = hosting;
    WireFrame answer;
    ASSERT_TRUE(bob.listens() && host.connects(ann.port()) && host.receives(id::rosterEntry));
    ASSERT_TRUE(ann.calls(bob) && bob.picksUp() && bob.saysHello() && bob.fences());
    ASSERT_TRUE(host.saysHello() && host.asksToJoin() && host.receives(id::rosterEntry, &answer));
    EXPECT_EQ(hosting, WireEntry::decode(answer.body)->state);
    EXPECT_TRUE(ann->isHost());
    ASSERT_TRUE(host.saysHello() && host.asksToJoin() && host.receives(id::joinReply, &answer));
    EXPECT_EQ(Bytes{1}, answer.body);
    EXPECT_TRUE(bob.receives(id::hangup) && bob.seesTheEnd());
    EXPECT_TRUE(ann->isMeeting() && !ann->isHost());
    EXPECT_EQ(1, ann.told("noAnswer 127.0.0.1"));
}

TEST_F(Joins, AHostWhoseOnlyCallWasRefusedIsNotBusy) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob"), host(meeting, "Host");
    ASSERT_TRUE(bob.listens() && ann.calls(bob) && bob.picksUp() && bob.saysHello());
    ASSERT_TRUE(bob.receives(id::joinRequest) && bob.sends(id::joinReply, {0}));
    ASSERT_TRUE(ann.isTold("rejected Bob") && ann->isHost());
    host.entry.state = hosting;
    ASSERT_TRUE(host.joins(ann.port()));
    EXPECT_FALSE(ann->isHost());

    Party cid(meeting, "Cid");
    ASSERT_TRUE(bob.listens() && cid.calls(bob) && bob.picksUp() && bob.saysHello());
    ASSERT_TRUE(bob.receives(id::joinRequest) && bob.sends(id::joinReply, {0}));
    ASSERT_TRUE(cid.isTold("rejected Bob") && host.listens() && cid.calls(host));
    EXPECT_TRUE(host.isJoined() && cid.isTold("join Host"));
    EXPECT_FALSE(cid->isHost());
}

// ---- Old parties ----

TEST_F(Joins, WhoSpeaksAnOlderVersionIsHungUpWhateverItSays) {
    Party ann(meeting, "Ann");
    for (const unsigned char id : {id::rosterEntry, id::joinRequest, id::broadcast}) {
        for (const std::uint16_t format : {std::uint16_t(1), std::uint16_t(2)}) {
            WirePeer old(meeting, "Old");
            LogFile log;
            ann.forgets();
            WireFrame frame;
            frame.format = format;
            frame.id = id;
            frame.major = 3;
            frame.body = old.entry.encode();
            ASSERT_TRUE(old.connects(ann.port()) && old.sends(frame.encode()));
            EXPECT_TRUE(old.receives(id::hangup));
            EXPECT_TRUE(old.seesTheEnd());
            EXPECT_THAT(ann.events, ElementsAre("version "));
            EXPECT_TRUE(log.has("_removePending no pending calls"));
        }
    }
}

TEST_F(Joins, ACallToAnOlderVersionIsToldOnceWithTheNameThatWasCalled) {
    for (const bool watched : {true, false}) {
        Party ann(meeting, "Ann");
        if (!watched) {
            ann->setVersionCB(nullptr);
        }
        WirePeer old(meeting, "Old");
        ASSERT_TRUE(old.listens() && ann.calls(old) && old.picksUp());
        WireFrame hello;
        hello.format = 1;
        hello.id = id::rosterEntry;
        hello.major = 3;
        hello.body = old.entry.encode();
        ASSERT_TRUE(old.sends(hello.encode()) && old.seesTheEnd());
        EXPECT_THAT(ann.events, watched ? testing::Matcher<std::vector<std::string>>(
                                              ElementsAre("version 127.0.0.1"))
                                        : testing::Matcher<std::vector<std::string>>(IsEmpty()));
        EXPECT_TRUE(ann.calls(old)) << "nothing of the call is left";
    }
}

// ---- Hidden addresses ----

TEST_F(Joins, APartyAloneHidesWhenItsCallerDoes) {
    Party ann(meeting, "Ann");
    WirePeer cid(meeting, "Cid");
    cid.entry.state = hosting | state::hiding;
    ASSERT_TRUE(cid.joins(ann.port()) && cid.fences());
    EXPECT_TRUE(ann->isHidingIPsRequired());
    EXPECT_EQ(1, ann.told("security hideIP"));
}

TEST_F(Joins, APartyInCompanyRefusesACallerThatHides) {
    Party ann(meeting, "Ann");
    WirePeer cid(meeting, "Cid"), member(meeting, "Member");
    ASSERT_TRUE(ann.hosts("Plan") && member.joins(ann.port()));
    cid.entry.state = state::hiding;
    ASSERT_TRUE(cid.connects(ann.port()) && cid.saysHello() && cid.asksToJoin());
    WireFrame reply;
    ASSERT_TRUE(cid.receives(id::joinReply, &reply));
    EXPECT_EQ(Bytes{0}, reply.body);
    EXPECT_TRUE(cid.receives(id::hangup));
    EXPECT_FALSE(ann->isHidingIPsRequired());
    EXPECT_EQ(0, ann.told("security hideIP"));
}

TEST_F(Joins, APartyThatHidesAdmitsWhoeverCanHide) {
    Party ann(meeting, "Ann");
    ann->setHidingIPsRequired(true);
    WirePeer cid(meeting, "Cid"), dan(meeting, "Dan");
    ASSERT_TRUE(ann.hosts("Plan"));
    EXPECT_TRUE(cid.joins(ann.port()));
    dan.entry.state = state::hiding;
    EXPECT_TRUE(dan.joins(ann.port()));
}

// The ringing comes before the refusal, on purpose.
TEST_F(Joins, ACallThatTheHidingRuleStopsRingsAndIsRejected) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob"), member(meeting, "Member");
    ASSERT_TRUE(ann.hosts("Plan") && member.joins(ann.port()) && bob.listens());
    bob.entry.state = state::hiding;
    ASSERT_TRUE(ann.calls(bob) && bob.picksUp());
    ann.forgets();
    ASSERT_TRUE(bob.saysHello() && bob.seesTheEnd());
    EXPECT_TRUE(bob.receives(id::rosterEntry));
    EXPECT_FALSE(bob.receives(id::joinRequest)) << "no request goes out";
    EXPECT_THAT(ann.events, ElementsAre("ringing Bob", "rejected Bob"));
}

TEST_F(Joins, ACallerAloneHidesWhenTheCalledPartyDoes) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob");
    bob.entry.state = state::hiding;
    ASSERT_TRUE(bob.listens() && ann.calls(bob) && bob.picksUp() && bob.saysHello());
    WireFrame request;
    ASSERT_TRUE(bob.receives(id::joinRequest, &request));
    EXPECT_TRUE(ann->isHidingIPsRequired());
    EXPECT_EQ(hosting | state::hiding, WireEntry::decode(request.body)->state);
}

} // namespace
} // namespace vintok::test
