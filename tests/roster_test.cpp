// Who is in the meeting: what the host spreads and what it keeps to itself, whose word counts for
// which field, how parties go, and why nobody is listed twice.
#include "support/LogFile.h"
#include "support/Stage.h"

namespace vintok::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RosterExchange : public Stage {
protected:
    // A member's application is told of a party by the host.
    bool introduces(WirePeer &teller, const WireEntry &party) {
        return teller.sends(id::rosterReply, party.encode()) && teller.fences();
    }
    // The replies to a member that asks for the roster.
    std::vector<WireFrame> rosterOf(WirePeer &member) {
        EXPECT_TRUE(member.fences() && member.sends(id::rosterRequest));
        return member.gets();
    }
    WireEntry rosterOf(WirePeer &member, std::size_t place) {
        return entries(rosterOf(member), id::rosterReply).at(place);
    }
    std::vector<std::string> namesTold(WirePeer &member) {
        return names(rosterOf(member), id::rosterReply);
    }
};

class RealRosters : public RealStage {
protected:
    void SetUp() override { ASSERT_TRUE(gather(ann, {&bob, &cid})); }
};

// ---- Real parties ----

TEST_F(RealRosters, EverybodySeesEverybodyAndColoursAreNotGivenTwice) {
    Party dan(meeting, "Dan");
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

TEST_F(RealRosters, AMemberThatDiesLeaves) {
    bob.dies();
    EXPECT_TRUE(ann.sees({{"Cid", 2}}) && cid.sees({{"Ann", 0}}));
    EXPECT_EQ(1, ann.told("leave Bob"));
    EXPECT_TRUE(cid.isTold("leave Bob"));
}

TEST_F(RealRosters, AHostThatDiesEndsTheMeetingForEverybody) {
    ann.dies();
    for (Party *member : {&bob, &cid}) {
        EXPECT_TRUE(member->isTold("leave Ann"));
        EXPECT_FALSE((*member)->isMeeting());
    }
}

TEST_F(RealRosters, AChangedNameStopsAtTheHostUntilTheHostSpreadsIt) {
    bob->setFirstName("Robert");
    EXPECT_TRUE(bob->sendRoster());
    EXPECT_TRUE(ann.sees({{"Robert", 1}, {"Cid", 2}}));
    EXPECT_EQ(0, cid.told("user Robert"));
    EXPECT_TRUE(ann->sendRoster());
    EXPECT_TRUE(cid.sees({{"Ann", 0}, {"Robert", 1}}));
}

TEST_F(RealRosters, AMemberAsksItsHost) {
    bob.forgets();
    EXPECT_TRUE(bob->requestRoster());
    for (const char *name : {"Ann", "Bob", "Cid"})
        EXPECT_TRUE(bob.isTold(std::string("user ") + name));
}

TEST_F(RosterExchange, AHostAnswersItsOwnRequestFromWhatItKnows) {
    dan.entry.state = state::server;
    ASSERT_TRUE(annHosts({&bob, &dan}) && cid.connects(ann.port()) && cid.saysHello());
    ASSERT_TRUE(cid.fences() && introduces(dan, WireEntry::party("Ghost", 60002)));
    ann.forgets();
    EXPECT_TRUE(ann->requestRoster());
    EXPECT_THAT(ann.events, ElementsAre("user Bob", "user Ghost"))
        << "members and shadows, no servers, nobody who has not joined";
    ann->setUserDataCB(nullptr);
    EXPECT_TRUE(ann->requestRoster());
}

TEST_F(RosterExchange, AloneThereIsNobodyToTellAndNobodyToAsk) {
    EXPECT_FALSE(ann->sendRoster());
    EXPECT_FALSE(ann->requestRoster());
    ASSERT_TRUE(ann.hosts("Plan"));
    EXPECT_FALSE(ann->sendRoster());
    EXPECT_TRUE(ann->requestRoster());
}

TEST_F(RosterExchange, AMemberThatAsksTellsWhoItIsFirst) {
    ASSERT_TRUE(annAttends() && ann->sendRoster() && ann->requestRoster());
    const auto frames = host.gets();
    EXPECT_THAT(kinds(frames), ElementsAre(id::rosterEntry, id::rosterEntry, id::rosterRequest));
    for (const WireFrame &frame : frames)
        EXPECT_EQ(2, frame.format);
    host.resets();
    EXPECT_FALSE(ann->sendRoster() || ann->requestRoster());
}

TEST_F(RosterExchange, AServerThatHostsHasNobodyToTellOfItsRoster) {
    ann->setServerMode(true);
    ASSERT_TRUE(annHosts({&bob}));
    ann.forgets();
    EXPECT_TRUE(ann->requestRoster());
    EXPECT_THAT(ann.events, IsEmpty());
}

// ---- What a host sends ----

TEST_F(RosterExchange, AMemberThatAsksGetsTheHostFirstAndItselfAmongTheOthers) {
    ASSERT_TRUE(annHosts({&bob, &cid}));
    const auto frames = rosterOf(bob);
    ASSERT_THAT(names(frames, id::rosterReply), ElementsAre("Ann", "Bob", "Cid"));
    const auto roster = entries(frames, id::rosterReply);
    EXPECT_EQ(hosting | state::leader, roster[0].state);
    EXPECT_EQ("Plan", roster[0].meetingName);
    EXPECT_EQ(bob.entry.address, roster[1].address);
    EXPECT_EQ(2, roster[2].color);
}

TEST_F(RosterExchange, WhoHasNotJoinedIsNobodysBusiness) {
    ASSERT_TRUE(annHosts({&bob}));
    ann.screensCalls();
    ASSERT_TRUE(cid.connects(ann.port()) && cid.saysHello() && cid.fences());
    ASSERT_TRUE(dan.knocks(ann.port()) && ann.isTold("pending Dan"));
    EXPECT_THAT(namesTold(bob), ElementsAre("Ann", "Bob"));
    EXPECT_TRUE(ann->sendRoster());
    EXPECT_THAT(names(cid.gets(), id::rosterReply), IsEmpty());

    ASSERT_TRUE(ann.accepts(dan));
    EXPECT_THAT(names(bob.gets(), id::rosterReply), ElementsAre("Ann", "Bob", "Ann", "Bob", "Dan"))
        << "the spreading before, and the one with the new member";
}

TEST_F(RosterExchange, AMemberThatIsAskedSendsItselfAlone) {
    ASSERT_TRUE(annAttends() && introduces(host, cid.entry));
    EXPECT_THAT(namesTold(host), ElementsAre("Ann"));
}

TEST_F(RosterExchange, WhatReachesAHostGoesOutToAll) {
    ASSERT_TRUE(annHosts({&bob, &cid}));
    bob.entry.title = "Dr";
    ASSERT_TRUE(introduces(bob, bob.entry));
    const auto frames = cid.gets();
    ASSERT_THAT(names(frames, id::rosterReply), ElementsAre("Ann", "Bob", "Cid"));
    EXPECT_EQ("Dr", entries(frames, id::rosterReply)[1].title);
}

TEST_F(RosterExchange, WhoCannotBeReachedDoesNotKeepTheRosterFromTheOthers) {
    ASSERT_TRUE(annHosts({&bob, &cid}));
    bob.resets();
    LogFile log;
    EXPECT_FALSE(ann->sendRoster());
    EXPECT_TRUE(log.has("_sendRoster message write Failed"));
    EXPECT_THAT(log.text(), testing::HasSubstr("Send Failed\nIP:  10.77."));
    EXPECT_THAT(names(cid.gets(), id::rosterReply), ElementsAre("Ann", "Bob", "Cid"));
    EXPECT_TRUE(ann.isTold("leave Bob")) << "the loop finds out";
}

// ---- Whose word counts ----

TEST_F(RosterExchange, AHostKeepsTheColourThatItGave) {
    ASSERT_TRUE(annHosts({&bob}));
    bob.entry.color = 77;
    for (const unsigned char id : {id::rosterEntry, id::rosterReply}) {
        ASSERT_TRUE(bob.sends(id, bob.entry.encode()));
        EXPECT_EQ(1, rosterOf(bob, 1).color);
    }
}

TEST_F(RosterExchange, AMemberBelievesItsHost) {
    ASSERT_TRUE(annAttends());
    WireEntry me = rosterOf(host, 0);
    me.color = 9;
    me.firstName = "Somebody else";
    ASSERT_TRUE(introduces(host, me));
    EXPECT_EQ(9, ann->colorIndex());
    EXPECT_EQ("Ann", ann->firstName()) << "its colour only, not its name";
    host.entry.color = 8;
    ASSERT_TRUE(introduces(host, host.entry));
    EXPECT_TRUE(ann.sees({{"Host", 8}}));
}

TEST_F(RosterExchange, AHostIsNotToldWhoItIs) {
    ASSERT_TRUE(annHosts({&bob}));
    WireEntry own = rosterOf(bob, 0);
    own.color = 9;
    ann.forgets();
    LogFile log;
    ASSERT_TRUE(introduces(bob, own));
    EXPECT_TRUE(log.has("_handleRosterReply got self back when hosting"));
    EXPECT_EQ(0, ann->colorIndex());
    EXPECT_THAT(ann.events, ElementsAre("synch 16"));
}

TEST_F(RosterExchange, AMemberCannotChangeItsAddress) {
    ASSERT_TRUE(annHosts({&bob}));
    WireEntry other = bob.entry;
    ++other.address.port;
    other.firstName = "Other";
    ASSERT_TRUE(bob.sends(id::rosterEntry, other.encode()));
    EXPECT_THAT(namesTold(bob), ElementsAre("Ann", "Bob"));
    EXPECT_EQ(0, ann.told("user Other"));
}

TEST_F(RosterExchange, WhatIsLocalDoesNotComeOverTheWire) {
    bob.entry.state = state::proxyConnection;
    ASSERT_TRUE(ann.hosts("Plan") && bob.connects(ann.port()) && bob.saysHello());
    bob.entry.state = 0;
    ASSERT_TRUE(bob.asksToJoin() && bob.receives(id::joinReply));
    bob.entry.state = state::proxyConnection | 0x100; // and the bit for a secure connection
    bob.entry.minor = 9;
    ASSERT_TRUE(bob.saysHello());
    const WireEntry known = rosterOf(bob, 1);
    EXPECT_EQ(0u, known.state & (state::proxyConnection | 0x100));
    EXPECT_EQ(0, known.minor) << "the header tells the version";
}

TEST_F(RosterExchange, WhatAHostWritesOfItselfDoesNotChangeTheConnection) {
    ASSERT_TRUE(annAttends());
    WireEntry rewritten = host.entry;
    rewritten.state |= state::shadow | state::joinPending;
    ASSERT_TRUE(introduces(host, rewritten));
    EXPECT_FALSE(ann.accepts(host)) << "nothing is pending";
    EXPECT_TRUE(ann.says("hello"));
    EXPECT_TRUE(host.receives(id::broadcast)) << "the connection still belongs to the party";
}

// ---- Leaving ----

TEST_F(RosterExchange, AShadowLeavesWithTheColourThatItHad) {
    static std::vector<int> colors;
    colors.clear();
    cid.entry.color = 5;
    ASSERT_TRUE(annAttends() && introduces(host, cid.entry));
    ASSERT_EQ(ann.roster(), (Roster{{"Cid", 5}, {"Host", 65535}}));
    ann->setLeaveCB([](ConferenceParticipant *, const ConferenceRosterEntry &party) {
        colors.push_back(party.firstName() == "Sid" ? party.colorIndex() : -1);
    });
    cid.entry.color = 6;
    cid.entry.firstName = "Sid";
    for (int times = 0; times < 2; ++times) {
        ASSERT_TRUE(host.sends(id::leaveNotify, cid.entry.encode()) && host.fences());
        EXPECT_THAT(colors, ElementsAre(5)) << "who has left cannot leave again";
    }
    ASSERT_TRUE(introduces(host, cid.entry));
    EXPECT_EQ(2, ann.told("join Cid") + ann.told("join Sid"));
}

TEST_F(RosterExchange, ANoticeCannotRemoveWhoIsConnected) {
    ASSERT_TRUE(annHosts({&bob, &cid}));
    ASSERT_TRUE(bob.sends(id::leaveNotify, cid.entry.encode()) && bob.fences());
    EXPECT_EQ(ann.roster(), (Roster{{"Bob", 1}, {"Cid", 2}}));
    EXPECT_TRUE(cid.fences());

    Party eve(meeting, "Eve");
    ASSERT_TRUE(host.joins(eve.port()));
    ASSERT_TRUE(host.sends(id::leaveNotify, host.entry.encode()) && host.fences());
    ASSERT_TRUE(host.sends(id::leaveNotify, WireEntry::party("Nobody", 60005).encode()));
    EXPECT_TRUE(host.fences());
    EXPECT_TRUE(eve->isMeeting());
    EXPECT_EQ(0, eve.told("leave Host") + eve.told("leave Nobody"));
}

TEST_F(RosterExchange, WithoutALeaveCallbackAHostTellsOfNobodyInName) {
    ann->setLeaveCB(nullptr);
    ASSERT_TRUE(annHosts({&bob, &cid}));
    cid.closes();
    const auto nobody = WireEntry::decode(bob.next(id::leaveNotify).body);
    ASSERT_TRUE(nobody);
    EXPECT_EQ("", nobody->firstName);
    EXPECT_EQ(WireAddress(), nobody->address);
}

// ---- Nobody twice ----

TEST_F(RosterExchange, ASecondConnectionOfWhoIsListedIsHungUpWhenItSaysHello) {
    ASSERT_TRUE(annHosts({&bob}));
    WirePeer again(meeting, "Again");
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
    ASSERT_TRUE(annAttends() && introduces(host, cid.entry));
    ASSERT_TRUE(cid.connects(ann.port()) && cid.saysHello());
    EXPECT_TRUE(cid.receives(id::hangup) && cid.seesTheEnd());
    EXPECT_TRUE(ann->isMeeting() && host.fences());
    EXPECT_EQ(ann.roster(), (Roster{{"Cid", 65535}, {"Host", 65535}}));
}

TEST_F(RosterExchange, TheDuplicateIsExplainedOnRequestAndWithoutItsAddressWhenHiding) {
    bob.entry.address = cid.entry.address = WireAddress::ipv4(0x0A4D0001, 5001);
    ASSERT_TRUE(annHosts({&bob}));
    for (const bool hides : {false, true}) {
        ann->setHidingIPsRequired(hides);
        LogFile log;
        ConferenceParticipant::setPrintDebug(true);
        ASSERT_TRUE(cid.connects(ann.port()) && cid.saysHello() && cid.seesTheEnd());
        ConferenceParticipant::setPrintDebug(false);
        EXPECT_TRUE(log.has(std::string("Duplicate connection from (unknown )[ ") +
                            (hides ? "0.0.0.0" : "10.77.0.1") +
                            " ]  :  5001 (Bob@example.org and Cid@example.org)"))
            << log.text();
    }
}

TEST_F(RosterExchange, WhatCannotBeReadIsNotedAndDropped) {
    ASSERT_TRUE(annAttends());
    ann.forgets();
    LogFile log;
    for (const unsigned char id : {id::rosterReply, id::rosterEntry, id::leaveNotify})
        ASSERT_TRUE(host.sends(id, Bytes(40, 0xEE)));
    ASSERT_TRUE(host.fences());
    EXPECT_EQ(1, log.entries("Could not decode Entry\n"));
    EXPECT_EQ(1, log.entries("Could not decode Entry"));
    EXPECT_THAT(ann.events, ElementsAre("synch 16"));
}

} // namespace
} // namespace vintok::test
