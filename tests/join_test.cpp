// Joining as it goes over the wire: what is said in which order and form on each side, what the
// called side does with each message in each state, and the rule that guards hidden addresses.
#include "support/LogFile.h"
#include "support/Stage.h"
#include "vintok/TCPSelect.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <thread>

namespace vintok::test {
namespace {

class Joins : public Stage {
protected:
    Joins() { host.entry.meetingName = "Plan"; }

    // The opening of the called side, up to the request.
    bool isKnockedAt(WirePeer &caller) {
        return caller.connects(ann.port()) && caller.receives(id::rosterEntry) &&
               caller.saysHello() && caller.asksToJoin();
    }
};

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
    ann->setTitle("Dr");
    ann->setPhone("555");
    ASSERT_TRUE(cid.connects(ann.port()));
    const WireFrame hello = cid.next(id::rosterEntry);
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
    EXPECT_EQ(expected, entryIn(hello));
    EXPECT_THAT(kinds(cid.gets()), IsEmpty()) << "then it waits for the caller";
}

TEST_F(Joins, AnIdlePartyThatAcceptsSetsItsClockAndAsksForTheRoster) {
    ASSERT_TRUE(isKnockedAt(host));
    const auto frames = host.gets();
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
    EXPECT_THAT(ann.events, testing::IsSupersetOf({"user Ann", "join Host"}));
}

TEST_F(Joins, ACallerThatFindsNoHostBecomesOneAndSpreadsTheRoster) {
    ASSERT_TRUE(ann.reaches(bob));
    EXPECT_THAT(kinds(bob.gets()), IsEmpty()) << "a caller waits for the hello";

    ASSERT_TRUE(bob.saysHello());
    auto frames = bob.gets();
    ASSERT_THAT(kinds(frames), ElementsAre(id::rosterEntry, id::joinRequest));
    EXPECT_EQ(2, frames[0].format);
    const WireEntry hello = entryIn(frames[0]), request = entryIn(frames[1]);
    EXPECT_EQ(0u, hello.state) << "the hello goes out before it is known who hosts";
    EXPECT_EQ(65535, hello.color);
    EXPECT_EQ(hosting, request.state);
    EXPECT_EQ(0, request.color);

    ASSERT_TRUE(bob.sends(id::joinReply, {1}));
    frames = bob.gets();
    ASSERT_THAT(kinds(frames),
                ElementsAre(id::rosterReply, id::rosterReply, id::rosterRequest, id::leadChange));
    const auto roster = entries(frames, id::rosterReply);
    EXPECT_EQ("Ann", roster[0].firstName);
    EXPECT_EQ(0, roster[0].color);
    EXPECT_EQ("Bob", roster[1].firstName);
    EXPECT_EQ(1, roster[1].color);
    EXPECT_EQ(bob.entry.address, roster[1].address);
    EXPECT_EQ("Ann", entryIn(frames[3]).firstName);
}

TEST_F(Joins, AHostThatIsCalledTakesTheLeadAndGivesTheCallerItsColour) {
    ASSERT_TRUE(ann.hosts("Plan") && isKnockedAt(cid));
    auto frames = cid.gets();
    ASSERT_THAT(kinds(frames),
                ElementsAre(id::joinReply, id::leadChange, id::rosterReply, id::rosterReply));
    EXPECT_THAT(names(frames, id::rosterReply), ElementsAre("Ann", "Cid"));
    EXPECT_EQ(hosting | state::leader, entryIn(frames[2]).state);
    EXPECT_EQ(1, entryIn(frames[3]).color);

    ASSERT_TRUE(dan.joins(ann.port()));
    frames = dan.gets();
    ASSERT_THAT(kinds(frames), ElementsAre(id::rosterReply, id::rosterReply, id::rosterReply));
    EXPECT_THAT(names(frames, id::rosterReply), ElementsAre("Ann", "Cid", "Dan"));
    EXPECT_EQ(2, entryIn(frames[2]).color);
    EXPECT_THAT(names(cid.gets(), id::rosterReply), ElementsAre("Ann", "Cid", "Dan"))
        << "everybody gets the whole roster anew";
}

TEST_F(Joins, AJoinedLeaderIsMadeKnown) {
    Party eve(meeting, "Eve");
    host.entry.state |= state::leader;
    for (Party *party : {&ann, &eve}) {
        ASSERT_TRUE(party == &ann ? host.joins(ann.port()) : eve.meets(host));
        EXPECT_TRUE(host.fences() && party->told("leader Host") == 1);
        EXPECT_EQ("Plan", (*party)->meetingName());
    }
}

TEST_F(Joins, AServerIsJoinedWithoutAWordAboutIt) {
    host.entry.state = hosting | state::leader | state::server;
    ASSERT_TRUE(annAttends());
    ASSERT_TRUE(host.sends(id::rosterReply, host.entry.encode()) && host.fences());
    host.closes();
    ASSERT_TRUE(meeting.until([&] { return !ann->isMeeting(); }, "the relay's end is noticed"));
    EXPECT_THAT(ann.events, ElementsAre("user Ann", "synch 16", "synch 16"));
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

const auto asksAgain = [](Party &, WirePeer &cid) { cid.asksToJoin(); };
const auto accepted = [](Party &ann, WirePeer &cid) { EXPECT_TRUE(ann.accepts(cid)); };
const auto notAccepted = [](Party &ann, WirePeer &cid) { EXPECT_FALSE(ann.accepts(cid)); };
const auto answersUnasked = [](Party &, WirePeer &cid) { cid.sends(id::joinReply, {1}); };
const StateCase stateCases[] = {
    {"a join request from an unknown", State::accepted, asksAgain, {}, {}},
    {"a join request from elsewhere", State::identified, otherAddress, {}, {}},
    {"an unasked join reply", State::identified, answersUnasked, {}, {}},
    {"an acceptance before the request", State::identified, notAccepted, {}, {}},
    {"a join request", State::identified, asksAgain, {}, {"pending Cid"}},
    {"a join request from elsewhere while one waits", State::pending, otherAddress, {}, {}},
    {"an acceptance",
     State::pending,
     accepted,
     {id::joinReply, id::leadChange, id::rosterReply, id::rosterReply},
     {"join Cid", "leader Ann"}},
    {"a second request of a member", State::member, asksAgain, {}, {}},
    {"an acceptance of a member", State::member, notAccepted, {}, {}},
    {"a join reply of a member", State::member, answersUnasked, {}, {}},
};

class CalledSide : public Joins, public testing::WithParamInterface<StateCase> {};

TEST_P(CalledSide, DoesWhatItsStateSays) {
    ann.screensCalls();
    ASSERT_TRUE(ann.hosts("Plan") && cid.connects(ann.port()) && cid.receives(id::rosterEntry));
    const State state = GetParam().state;
    ASSERT_TRUE(state == State::accepted || (cid.saysHello() && cid.fences()));
    if (state == State::pending || state == State::member) {
        ASSERT_TRUE(cid.asksToJoin() && cid.fences());
        ASSERT_EQ(1, ann.told("pending Cid"));
    }
    ASSERT_TRUE(state != State::member || (ann.accepts(cid) && cid.fences()));
    ann.forgets();
    GetParam().happens(ann, cid);
    EXPECT_THAT(kinds(cid.gets()), testing::ElementsAreArray(GetParam().answers));
    std::vector<std::string> told = ann.events;
    std::erase(told, "synch 16");
    std::erase(told, "user Cid");
    std::sort(told.begin(), told.end());
    EXPECT_THAT(told, testing::ElementsAreArray(GetParam().told));
}

INSTANTIATE_TEST_SUITE_P(Table, CalledSide, testing::ValuesIn(stateCases), caseName<StateCase>);

TEST_F(Joins, ARefusalIsFollowedByAHangUp) {
    ann.screensCalls();
    ASSERT_TRUE(cid.knocks(ann.port()) && ann.isTold("pending Cid") && ann.rejects(cid));
    EXPECT_EQ(Bytes{0}, cid.next(id::joinReply).body);
    EXPECT_TRUE(cid.receives(id::hangup));
    EXPECT_TRUE(cid.seesTheEnd());
    EXPECT_THAT(ann.events, ElementsAre("pending Cid"));
}

TEST_F(Joins, AnAnswerThatCannotBeSentIsNoAnswer) {
    ann.screensCalls();
    for (const bool accept : {true, false}) {
        ann.forgets();
        ASSERT_TRUE(cid.knocks(ann.port()) && ann.isTold("pending Cid"));
        cid.resets();
        EXPECT_FALSE(accept ? ann.accepts(cid) : ann.rejects(cid));
        EXPECT_THAT(ann.events, ElementsAre("pending Cid"));
    }
}

// The caller vanishes after each step; the host's other member hears of it each time.
TEST_F(Joins, ACallerThatIsLostAtAnyStepLeavesNothingBehind) {
    ASSERT_TRUE(annHosts({&dan}));
    ann.screensCalls();
    const int registered = meeting.watched();
    for (const auto loss :
         {&WirePeer::closes, &WirePeer::resets, &WirePeer::halfCloses, &WirePeer::hangsUp}) {
        for (int steps = 0; steps < 4; ++steps) {
            SCOPED_TRACE(steps);
            ASSERT_TRUE(cid.connects(ann.port()) && cid.receives(id::rosterEntry));
            ASSERT_TRUE(steps < 1 || (cid.saysHello() && cid.fences()));
            ASSERT_TRUE(steps < 2 || (cid.asksToJoin() && cid.fences()));
            ASSERT_TRUE(steps < 3 || (ann.accepts(cid) && cid.fences()));
            ann.forgets();
            (cid.*loss)();
            const auto gone = WireEntry::decode(dan.next(id::leaveNotify).body);
            ASSERT_TRUE(gone);
            EXPECT_EQ(steps < 3 ? "" : "Cid", gone->firstName) << "only who had joined is named";
            EXPECT_EQ(steps < 3 ? 0 : 1, ann.told("leave Cid"));
            EXPECT_EQ(registered, meeting.watched());
            EXPECT_FALSE(ann.accepts(cid));
            EXPECT_EQ(ann.roster(), (Roster{{"Dan", 1}}));
        }
    }
}

TEST_F(Joins, WhileTheApplicationIsAskedTheVersionOfTheHeaderCounts) {
    static unsigned short major;
    ann->setCallPendingCB([](ConferenceParticipant *, const ConferenceRosterEntry &caller) {
        major = caller.majorVersion();
    });
    cid.entry.major = 9;
    ASSERT_TRUE(cid.knocks(ann.port()) && cid.fences());
    EXPECT_EQ(4, major);
}

// ---- Hosts that call ----

TEST_F(Joins, AHostLetsNoHostInAndAMemberNoSecondOne) {
    Party eve(meeting, "Eve");
    ASSERT_TRUE(ann.hosts("Plan") && host.knocks(ann.port()));
    EXPECT_EQ(Bytes{0}, host.next(id::joinReply).body);
    EXPECT_TRUE(host.seesTheEnd());

    dan.entry.state = hosting;
    ASSERT_TRUE(dan.connects(eve.port()) && dan.receives(id::rosterEntry));
    ASSERT_TRUE(dan.saysHello() && host.joins(eve.port()) && dan.asksToJoin());
    EXPECT_EQ(state::meeting, entryIn(dan.next(id::rosterEntry)).state) << "it is told: busy";
    EXPECT_EQ(0, eve.told("join Dan"));
}

// Nobody has joined yet, but somebody is called: whoever asks is told to come, and only one that
// knows and asks all the same is joined.
TEST_F(Joins, AHostThatACallHasMadeStepsAsideForOneThatInsists) {
    ASSERT_TRUE(host.connects(ann.port()) && host.receives(id::rosterEntry));
    ASSERT_TRUE(ann.reaches(bob) && bob.saysHello() && bob.fences());
    ASSERT_TRUE(host.saysHello() && host.asksToJoin());
    EXPECT_EQ(hosting, entryIn(host.next(id::rosterEntry)).state);
    EXPECT_TRUE(ann->isHost());
    ASSERT_TRUE(host.saysHello() && host.asksToJoin());
    EXPECT_EQ(Bytes{1}, host.next(id::joinReply).body);
    EXPECT_TRUE(bob.receives(id::hangup) && bob.seesTheEnd());
    EXPECT_TRUE(ann->isMeeting() && !ann->isHost());
    EXPECT_EQ(1, ann.told("noAnswer 127.0.0.1"));
}

TEST_F(Joins, AHostWhoseOnlyCallWasRefusedIsNotBusy) {
    Party eve(meeting, "Eve");
    for (Party *caller : {&ann, &eve})
        ASSERT_TRUE(caller->asks(bob) && bob.sends(id::joinReply, {0}) &&
                    caller->isTold("rejected Bob") && (*caller)->isHost());
    ASSERT_TRUE(host.joins(ann.port()));
    EXPECT_FALSE(ann->isHost());
    ASSERT_TRUE(eve.meets(host));
    EXPECT_FALSE(eve->isHost());
}

// ---- Who listens where ----

constexpr unsigned char turnedAway = 0x34;

void hearsWhy(Party &party) {
    party->setUserData(&party);
    party->setTurnedAwayCB([](ConferenceParticipant *, const ConferenceRosterEntry &whom,
                              const char *why, void *self) {
        static_cast<Party *>(self)->note("turnedAway", whom.firstName());
        EXPECT_THAT(lastErrorString(), testing::HasSubstr(why));
    });
}

TEST_F(Joins, WhoCallsWithAnAddressThatIsTakenIsToldSo) {
    ASSERT_TRUE(annHosts({&dan}));
    hearsWhy(ann);
    cid.entry.address = dan.entry.address;
    for (const bool guarded : {false, true}) {
        ann->setMembersOnly(guarded);
        ann.forgets();
        ASSERT_TRUE(cid.connects(ann.port()) && cid.receives(id::rosterEntry) && cid.saysHello());
        EXPECT_EQ(Bytes{1}, cid.next(turnedAway).body);
        EXPECT_TRUE(cid.receives(id::hangup) && ann.told("turnedAway Cid") == 1);
    }
    Party eve(meeting, "Eve");
    hearsWhy(eve);
    ASSERT_TRUE(eve.asks(host) && host.sends(turnedAway, {1}) && host.seesTheEnd());
    EXPECT_EQ("turnedAway Host", eve.events.at(eve.events.size() - 2));
    EXPECT_EQ("noAnswer 127.0.0.1", eve.events.back());
    ASSERT_TRUE(eve.meets(bob) && bob.sends(turnedAway, {1}) && bob.fences()) << "a member cannot";
}

TEST_F(Joins, APartyMayListenNowhereOrAnywhere) {
    ConferenceParticipant::Listening nowhere, anywhere;
    nowhere.none = anywhere.anyPort = anywhere.localOnly = true;
    ASSERT_TRUE(ann.hosts("Plan"));
    ConferenceParticipant one(nowhere), other(anywhere);
    EXPECT_LT(49151, other.address().hostByteOrderPort());
    for (ConferenceParticipant *each : {&one, &other}) {
        each->setFirstName(each == &one ? "One" : "Other");
        ASSERT_TRUE(each->placeCall("127.0.0.1", ann.port(), "", 0, "", "", 0));
        EXPECT_TRUE(ann.isTold("join " + each->firstName()));
    }
    // Its loop has nothing but its connections.
    std::thread alone([&] {
        ConferenceParticipant third(nowhere);
        EXPECT_FALSE(third.address() == one.address());
        third.setFirstName("Third");
        third.setJoinCB([](auto *self, auto &) { self->hangup(); });
        EXPECT_TRUE(third.startCall("127.0.0.1", ann.port(), "", 0, "", "", 0));
        TCPSelect().run();
        EXPECT_FALSE(third.isMeeting());
    });
    EXPECT_TRUE(ann.isTold("join Third") && ann.isTold("leave Third"));
    alone.join();
    EXPECT_TRUE(one.isMeeting() && other.isMeeting());
}

// ---- Old parties ----

TEST_F(Joins, WhoSpeaksAnOlderVersionIsHungUpWhateverItSays) {
    for (const std::uint16_t format : {std::uint16_t(1), std::uint16_t(2)}) {
        LogFile log;
        ann.forgets();
        const WireFrame old = {.format = format, .id = id::broadcast, .major = 3};
        ASSERT_TRUE(cid.connects(ann.port()) && cid.sends(old.encode()));
        EXPECT_TRUE(cid.receives(id::hangup) && cid.seesTheEnd());
        EXPECT_THAT(ann.events, ElementsAre("version "));
        EXPECT_TRUE(log.has("_removePending no pending calls"));
        ASSERT_TRUE(ann.reaches(bob) && bob.sends(old.encode()) && bob.seesTheEnd());
        EXPECT_EQ("version 127.0.0.1", ann.events.back()) << "whoever was called";
    }
}

// ---- Hidden addresses ----

TEST_F(Joins, APartyAloneHidesWhenItsCallerDoes) {
    host.entry.state = hosting | state::hiding;
    ASSERT_TRUE(annAttends());
    EXPECT_TRUE(ann->isHidingIPsRequired());
    EXPECT_EQ(1, ann.told("security hideIP"));
}

TEST_F(Joins, APartyInCompanyRefusesACallerThatHides) {
    cid.entry.state = state::hiding;
    ASSERT_TRUE(annHosts({&dan}) && cid.knocks(ann.port()));
    EXPECT_EQ(Bytes{0}, cid.next(id::joinReply).body);
    EXPECT_TRUE(cid.receives(id::hangup));
    EXPECT_FALSE(ann->isHidingIPsRequired());
    EXPECT_EQ(0, ann.told("security hideIP"));
}

TEST_F(Joins, APartyThatHidesAdmitsWhoeverCanHide) {
    ann->setHidingIPsRequired(true);
    dan.entry.state = state::hiding;
    EXPECT_TRUE(annHosts({&cid, &dan}));
}

// The ringing comes before the refusal, on purpose.
TEST_F(Joins, ACallThatTheHidingRuleStopsRingsAndIsRejected) {
    bob.entry.state = state::hiding;
    ASSERT_TRUE(annHosts({&dan}) && ann.reaches(bob));
    ann.forgets();
    ASSERT_TRUE(bob.saysHello() && bob.seesTheEnd());
    EXPECT_TRUE(bob.receives(id::rosterEntry));
    EXPECT_FALSE(bob.receives(id::joinRequest)) << "no request goes out";
    EXPECT_THAT(ann.events, ElementsAre("ringing Bob", "rejected Bob"));
}

TEST_F(Joins, ACallerAloneHidesWhenTheCalledPartyDoes) {
    bob.entry.state = state::hiding;
    ASSERT_TRUE(ann.reaches(bob) && bob.saysHello());
    EXPECT_EQ(hosting | state::hiding, entryIn(bob.next(id::joinRequest)).state);
    EXPECT_TRUE(ann->isHidingIPsRequired());
}

} // namespace
} // namespace vintok::test
