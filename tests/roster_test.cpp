// Who is in the meeting: what the host spreads and what it keeps to itself, whose word counts for
// which field, how parties go, and why nobody is listed twice.
#include "support/LogFile.h"
#include "support/Party.h"
#include "support/WirePeer.h"

#include <gmock/gmock.h>

namespace vintok::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t hosting = state::meeting | state::host;

class RosterExchange : public testing::Test {
protected:
    // A member's application is told of a party by the host.
    void introduces(WirePeer &host, const WireEntry &party) {
        ASSERT_TRUE(host.sends(id::rosterReply, party.encode()) && host.fences());
    }
    // The parties that a member has learned of since it last asked, by the host's replies.
    std::vector<WireEntry> rosterOf(WirePeer &member) {
        std::vector<WireFrame> frames;
        EXPECT_TRUE(member.fences());
        EXPECT_TRUE(member.sends(id::rosterRequest) && member.fences(&frames));
        return entries(frames, id::rosterReply);
    }
    std::vector<std::string> namesIn(const std::vector<WireEntry> &roster) {
        std::vector<std::string> names;
        for (const WireEntry &entry : roster) {
            names.push_back(entry.firstName);
        }
        return names;
    }

    Meeting meeting;
};

// ---- Real parties ----

TEST_F(RosterExchange, EverybodySeesEverybodyAndColoursAreNotGivenTwice) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob"), cid(meeting, "Cid"), dan(meeting, "Dan");
    ASSERT_TRUE(gather(ann, {&bob, &cid}));
    bob.leaves();
    EXPECT_TRUE(cid.isTold("leave Bob") && ann.isTold("leave Bob"));
    EXPECT_TRUE(cid.sees({{"Ann", 0}}));
    ASSERT_TRUE(dan.meets(ann) && bob.meets(ann));
    EXPECT_TRUE(ann.sees({{"Bob", 4}, {"Cid", 2}, {"Dan", 3}}));
    EXPECT_TRUE(bob.sees({{"Ann", 0}, {"Cid", 2}, {"Dan", 3}}));
    EXPECT_TRUE(cid.sees({{"Ann", 0}, {"Bob", 4}, {"Dan", 3}}));
    EXPECT_TRUE(dan.sees({{"Ann", 0}, {"Bob", 4}, {"Cid", 2}}));
    EXPECT_EQ(4, bob->colorIndex());
    EXPECT_EQ(1, cid.told("join Dan")) << "a party joins once, however often it is listed";
}

TEST_F(RosterExchange, AMemberThatDiesLeaves) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(gather(ann, {&bob, &cid}));
    bob.dies();
    EXPECT_TRUE(ann.sees({{"Cid", 2}}) && cid.sees({{"Ann", 0}}));
    EXPECT_EQ(1, ann.told("leave Bob"));
    EXPECT_TRUE(cid.isTold("leave Bob"));
}

TEST_F(RosterExchange, AHostThatDiesEndsTheMeetingForEverybody) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(gather(ann, {&bob, &cid}));
    ann.dies();
    for (Party *member : {&bob, &cid}) {
        EXPECT_TRUE(member->isTold("leave Ann"));
        EXPECT_FALSE((*member)->isMeeting());
    }
}

TEST_F(RosterExchange, AChangedNameStopsAtTheHostUntilTheHostSpreadsIt) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(gather(ann, {&bob, &cid}));
    bob->setFirstName("Robert");
    EXPECT_TRUE(bob->sendRoster());
    EXPECT_TRUE(ann.sees({{"Robert", 1}, {"Cid", 2}}));
    EXPECT_EQ(0, cid.told("user Robert"));
    EXPECT_TRUE(ann->sendRoster());
    EXPECT_TRUE(cid.sees({{"Ann", 0}, {"Robert", 1}}));
}

TEST_F(RosterExchange, AHostAnswersItsOwnRequestFromWhatItKnows) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob");
    ASSERT_TRUE(gather(ann, {&bob}));
    WirePeer caller(meeting, "Caller"), relay(meeting, "Relay");
    relay.entry.state = state::server;
    ASSERT_TRUE(relay.joins(ann.port()) && caller.connects(ann.port()) && caller.saysHello());
    ASSERT_TRUE(caller.fences() && relay.fences());
    ASSERT_TRUE(relay.sends(id::rosterReply, WireEntry::party("Ghost", 60002).encode()));
    ASSERT_TRUE(relay.fences());
    ann.forgets();
    EXPECT_TRUE(ann->requestRoster());
    EXPECT_THAT(ann.events, ElementsAre("user Bob", "user Ghost"))
        << "members and shadows, no servers, nobody who has not joined";
    ann->setUserDataCB(nullptr);
    EXPECT_TRUE(ann->requestRoster());
}

TEST_F(RosterExchange, AMemberAsksItsHost) {
    Party ann(meeting, "Ann"), bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(gather(ann, {&bob, &cid}));
    bob.forgets();
    EXPECT_TRUE(bob->requestRoster());
    for (const char *name : {"Ann", "Bob", "Cid"}) {
        EXPECT_TRUE(bob.isTold(std::string("user ") + name));
    }
}

TEST_F(RosterExchange, AloneThereIsNobodyToTellAndNobodyToAsk) {
    Party ann(meeting, "Ann");
    EXPECT_FALSE(ann->sendRoster());
    EXPECT_FALSE(ann->requestRoster());
    ASSERT_TRUE(ann.hosts("Plan"));
    EXPECT_FALSE(ann->sendRoster());
    EXPECT_TRUE(ann->requestRoster());
}

TEST_F(RosterExchange, AMemberThatAsksTellsWhoItIsFirst) {
    Party bob(meeting, "Bob");
    WirePeer host(meeting, "Host");
    host.entry.state = hosting;
    ASSERT_TRUE(host.joins(bob.port()) && host.fences());
    std::vector<WireFrame> frames;
    ASSERT_TRUE(bob->sendRoster() && bob->requestRoster() && host.fences(&frames));
    std::vector<int> kinds;
    for (const WireFrame &frame : frames) {
        kinds.push_back(frame.id);
        EXPECT_EQ(2, frame.format);
    }
    EXPECT_THAT(kinds, ElementsAre(id::rosterEntry, id::rosterEntry, id::rosterRequest));
    host.resets();
    EXPECT_FALSE(bob->sendRoster() || bob->requestRoster());
}

TEST_F(RosterExchange, AServerThatHostsHasNobodyToTellOfItsRoster) {
    Party relay(meeting, "Relay");
    relay->setServerMode(true);
    WirePeer bob(meeting, "Bob");
    ASSERT_TRUE(relay.hosts("Plan") && bob.joins(relay.port()) && bob.fences());
    relay.forgets();
    EXPECT_TRUE(relay->requestRoster());
    EXPECT_THAT(relay.events, IsEmpty());
}

// ---- What a host sends ----

TEST_F(RosterExchange, AMemberThatAsksGetsTheHostFirstAndItselfAmongTheOthers) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()) && cid.joins(ann.port()));
    const auto roster = rosterOf(bob);
    ASSERT_THAT(namesIn(roster), ElementsAre("Ann", "Bob", "Cid"));
    EXPECT_EQ(hosting | state::leader, roster[0].state);
    EXPECT_EQ("Plan", roster[0].meetingName);
    EXPECT_EQ(bob.entry.address, roster[1].address);
    EXPECT_EQ(2, roster[2].color);
}

TEST_F(RosterExchange, WhoHasNotJoinedIsNobodysBusiness) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob"), waiting(meeting, "Waiting"), guest(meeting, "Guest");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()));
    ann.screensCalls();
    ASSERT_TRUE(guest.connects(ann.port()) && guest.saysHello() && guest.fences());
    ASSERT_TRUE(waiting.connects(ann.port()) && waiting.saysHello() && waiting.asksToJoin());
    ASSERT_TRUE(ann.isTold("pending Waiting"));
    EXPECT_THAT(namesIn(rosterOf(bob)), ElementsAre("Ann", "Bob"));
    EXPECT_TRUE(ann->sendRoster());
    std::vector<WireFrame> frames;
    ASSERT_TRUE(guest.fences(&frames));
    EXPECT_THAT(entries(frames, id::rosterReply), IsEmpty());

    ASSERT_TRUE(ann.accepts(waiting) && bob.fences(&frames));
    EXPECT_THAT(namesIn(entries(frames, id::rosterReply)),
                ElementsAre("Ann", "Bob", "Ann", "Bob", "Waiting"))
        << "the spreading before, and the one with the new member";
}

TEST_F(RosterExchange, AMemberThatIsAskedSendsItselfAlone) {
    Party bob(meeting, "Bob");
    WirePeer host(meeting, "Host");
    host.entry.state = hosting;
    ASSERT_TRUE(host.joins(bob.port()));
    introduces(host, WireEntry::party("Cid", 60003));
    EXPECT_THAT(namesIn(rosterOf(host)), ElementsAre("Bob"));
}

TEST_F(RosterExchange, WhatReachesAHostGoesOutToAll) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()) && cid.joins(ann.port()));
    ASSERT_TRUE(cid.fences());
    bob.entry.title = "Dr";
    ASSERT_TRUE(bob.sends(id::rosterReply, bob.entry.encode()) && bob.fences());
    std::vector<WireFrame> frames;
    ASSERT_TRUE(cid.fences(&frames));
    const auto roster = entries(frames, id::rosterReply);
    ASSERT_THAT(namesIn(roster), ElementsAre("Ann", "Bob", "Cid"));
    EXPECT_EQ("Dr", roster[1].title);
}

TEST_F(RosterExchange, WhoCannotBeReachedDoesNotKeepTheRosterFromTheOthers) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()) && cid.joins(ann.port()));
    ASSERT_TRUE(bob.fences() && cid.fences());
    bob.resets();
    LogFile log;
    EXPECT_FALSE(ann->sendRoster());
    EXPECT_TRUE(log.has("_sendRoster message write Failed"));
    EXPECT_THAT(log.text(), testing::HasSubstr("Send Failed\nIP:  10.77."));
    std::vector<WireFrame> frames;
    ASSERT_TRUE(cid.fences(&frames));
    EXPECT_THAT(namesIn(entries(frames, id::rosterReply)), ElementsAre("Ann", "Bob", "Cid"));
    EXPECT_TRUE(ann.isTold("leave Bob")) << "the loop finds out";
}

// ---- Whose word counts ----

TEST_F(RosterExchange, AHostKeepsTheColourThatItGave) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()));
    bob.entry.color = 77;
    for (const unsigned char id : {id::rosterEntry, id::rosterReply}) {
        ASSERT_TRUE(bob.sends(id, bob.entry.encode()));
        EXPECT_EQ(1, rosterOf(bob).at(1).color);
    }
}

TEST_F(RosterExchange, AMemberBelievesItsHost) {
    Party bob(meeting, "Bob");
    WirePeer host(meeting, "Host");
    host.entry.state = hosting;
    ASSERT_TRUE(host.joins(bob.port()));
    WireEntry me = rosterOf(host).at(0);
    me.color = 9;
    me.firstName = "Somebody else";
    introduces(host, me);
    EXPECT_EQ(9, bob->colorIndex());
    EXPECT_EQ("Bob", bob->firstName()) << "its colour only, not its name";
    host.entry.color = 8;
    introduces(host, host.entry);
    EXPECT_TRUE(bob.sees({{"Host", 8}}));
}

TEST_F(RosterExchange, AHostIsNotToldWhoItIs) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()));
    WireEntry host = rosterOf(bob).at(0);
    host.color = 9;
    ann.forgets();
    LogFile log;
    introduces(bob, host);
    EXPECT_TRUE(log.has("_handleRosterReply got self back when hosting"));
    EXPECT_EQ(0, ann->colorIndex());
    EXPECT_THAT(ann.events, ElementsAre("synch 16"));
}

TEST_F(RosterExchange, AMemberCannotChangeItsAddress) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()));
    WireEntry other = bob.entry;
    ++other.address.port;
    other.firstName = "Other";
    ASSERT_TRUE(bob.sends(id::rosterEntry, other.encode()));
    EXPECT_THAT(namesIn(rosterOf(bob)), ElementsAre("Ann", "Bob"));
    EXPECT_EQ(0, ann.told("user Other"));
}

TEST_F(RosterExchange, WhatIsLocalDoesNotComeOverTheWire) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob");
    bob.entry.state = state::proxyConnection;
    ASSERT_TRUE(ann.hosts("Plan") && bob.connects(ann.port()) && bob.saysHello());
    bob.entry.state = 0;
    ASSERT_TRUE(bob.asksToJoin() && bob.receives(id::joinReply));
    bob.entry.state = state::proxyConnection | 0x100; // and the bit for a secure connection
    bob.entry.minor = 9;
    ASSERT_TRUE(bob.saysHello());
    const WireEntry known = rosterOf(bob).at(1);
    EXPECT_EQ(0u, known.state & (state::proxyConnection | 0x100));
    EXPECT_EQ(0, known.minor) << "the header tells the version";
}

TEST_F(RosterExchange, WhatAHostWritesOfItselfDoesNotChangeTheConnection) {
    Party bob(meeting, "Bob");
    WirePeer host(meeting, "Host");
    host.entry.state = hosting;
    ASSERT_TRUE(host.joins(bob.port()));
    WireEntry rewritten = host.entry;
    rewritten.state |= state::shadow | state::joinPending;
    introduces(host, rewritten);
    EXPECT_FALSE(bob->acceptCall(addressOf(host))) << "nothing is pending";
    EXPECT_TRUE(bob.says("hello"));
    EXPECT_TRUE(host.receives(id::broadcast)) << "the connection still belongs to the party";
}

// ---- Leaving ----

TEST_F(RosterExchange, AShadowLeavesWithTheColourThatItHad) {
    static std::vector<int> colors;
    colors.clear();
    Party bob(meeting, "Bob");
    WirePeer host(meeting, "Host");
    host.entry.state = hosting;
    ASSERT_TRUE(host.joins(bob.port()));
    WireEntry cid = WireEntry::party("Cid", 60004);
    cid.color = 5;
    introduces(host, cid);
    ASSERT_EQ(bob.roster(), (Roster{{"Cid", 5}, {"Host", 65535}}));
    bob->setLeaveCB([](ConferenceParticipant *, const ConferenceRosterEntry &party) {
        colors.push_back(party.firstName() == "Sid" ? party.colorIndex() : -1);
    });
    cid.color = 6;
    cid.firstName = "Sid";
    ASSERT_TRUE(host.sends(id::leaveNotify, cid.encode()) && host.fences());
    EXPECT_THAT(colors, ElementsAre(5));
    ASSERT_TRUE(host.sends(id::leaveNotify, cid.encode()) && host.fences());
    EXPECT_THAT(colors, ElementsAre(5)) << "who has left cannot leave again";
    introduces(host, cid);
    EXPECT_EQ(2, bob.told("join Cid") + bob.told("join Sid"));
}

TEST_F(RosterExchange, ANoticeCannotRemoveWhoIsConnected) {
    Party ann(meeting, "Ann"), dan(meeting, "Dan");
    WirePeer bob(meeting, "Bob"), cid(meeting, "Cid"), host(meeting, "Host");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()) && cid.joins(ann.port()));
    ASSERT_TRUE(bob.sends(id::leaveNotify, cid.entry.encode()) && bob.fences());
    EXPECT_EQ(ann.roster(), (Roster{{"Bob", 1}, {"Cid", 2}}));
    EXPECT_TRUE(cid.fences());

    host.entry.state = hosting;
    ASSERT_TRUE(host.joins(dan.port()));
    ASSERT_TRUE(host.sends(id::leaveNotify, host.entry.encode()) && host.fences());
    ASSERT_TRUE(host.sends(id::leaveNotify, WireEntry::party("Nobody", 60005).encode()));
    EXPECT_TRUE(host.fences());
    EXPECT_TRUE(dan->isMeeting());
    EXPECT_EQ(0, dan.told("leave Host") + dan.told("leave Nobody"));
}

TEST_F(RosterExchange, WithoutALeaveCallbackAHostTellsOfNobodyInName) {
    Party ann(meeting, "Ann");
    ann->setLeaveCB(nullptr);
    WirePeer bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()) && cid.joins(ann.port()));
    cid.closes();
    WireFrame leave;
    ASSERT_TRUE(bob.receives(id::leaveNotify, &leave));
    const auto nobody = WireEntry::decode(leave.body);
    ASSERT_TRUE(nobody);
    EXPECT_EQ("", nobody->firstName);
    EXPECT_EQ(WireAddress(), nobody->address);
}

// ---- Nobody twice ----

TEST_F(RosterExchange, ASecondConnectionOfWhoIsListedIsHungUpWhenItSaysHello) {
    Party ann(meeting, "Ann");
    WirePeer bob(meeting, "Bob"), again(meeting, "Again");
    ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()));
    again.entry.address = bob.entry.address;
    for (const std::uint32_t state : {0u, state::proxyConnection}) {
        again.entry.state = state;
        ann.forgets();
        LogFile log;
        ASSERT_TRUE(again.connects(ann.port()) && again.fences()) << "nobody minds before";
        ASSERT_TRUE(again.saysHello());
        EXPECT_TRUE(again.receives(id::hangup) && again.seesTheEnd());
        EXPECT_THAT(log.text(), testing::HasSubstr("Hanging up on duplicate connection to client"));
        EXPECT_THAT(log.text(), testing::HasSubstr("(Again@example.org)"));
        EXPECT_EQ(0, ann.told("leave Bob"));
        EXPECT_TRUE(bob.fences()) << "the first connection stays";
        EXPECT_EQ(ann.roster(), (Roster{{"Bob", 1}}));
    }
}

TEST_F(RosterExchange, AMemberHasNoSecondConnectionToWhomItKnowsAsAShadow) {
    Party bob(meeting, "Bob");
    WirePeer host(meeting, "Host"), cid(meeting, "Cid");
    host.entry.state = hosting;
    ASSERT_TRUE(host.joins(bob.port()));
    introduces(host, cid.entry);
    ASSERT_TRUE(cid.connects(bob.port()) && cid.saysHello());
    EXPECT_TRUE(cid.receives(id::hangup) && cid.seesTheEnd());
    EXPECT_TRUE(bob->isMeeting() && host.fences());
    EXPECT_EQ(bob.roster(), (Roster{{"Cid", 65535}, {"Host", 65535}}));
}

TEST_F(RosterExchange, TheDuplicateIsExplainedOnRequestAndWithoutItsAddressWhenHiding) {
    for (const bool hides : {false, true}) {
        Party ann(meeting, "Ann");
        ann->setHidingIPsRequired(hides);
        WirePeer bob(meeting, "Bob"), again(meeting, "Again");
        bob.entry.address = again.entry.address = WireAddress::ipv4(0x0A4D0001, 5001);
        ASSERT_TRUE(ann.hosts("Plan") && bob.joins(ann.port()));
        LogFile log;
        ConferenceParticipant::setPrintDebug(true);
        ASSERT_TRUE(again.connects(ann.port()) && again.saysHello() && again.seesTheEnd());
        ConferenceParticipant::setPrintDebug(false);
        EXPECT_TRUE(log.has(std::string("Duplicate connection from (unknown )[ ") +
                            (hides ? "0.0.0.0" : "10.77.0.1") +
                            " ]  :  5001 (Bob@example.org and Again@example.org)"))
            << log.text();
    }
}

TEST_F(RosterExchange, WhatCannotBeReadIsNotedAndDropped) {
    Party bob(meeting, "Bob");
    WirePeer host(meeting, "Host");
    host.entry.state = hosting;
    ASSERT_TRUE(host.joins(bob.port()) && host.fences());
    bob.forgets();
    LogFile log;
    const Bytes nonsense(40, 0xEE);
    for (const unsigned char id : {id::rosterReply, id::rosterEntry, id::leaveNotify}) {
        ASSERT_TRUE(host.sends(id, nonsense));
    }
    ASSERT_TRUE(host.fences());
    EXPECT_EQ(1, log.entries("Could not decode Entry\n"));
    EXPECT_EQ(1, log.entries("Could not decode Entry"));
    EXPECT_THAT(bob.events, ElementsAre("synch 16"));
}

} // namespace
} // namespace vintok::test
