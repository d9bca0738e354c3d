// Who is in the meeting: what the host spreads and what it keeps to itself, whose word counts for
// which field, how parties go, and why nobody is listed twice.
#include "support/LogFile.h"
#include "support/Stage.h"

namespace vintok::test {
namespace {

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

TEST_F(RosterExchange, AHostAnswersItsOwnRequestFromWhatItKnows) {
    dan.entry.state = state::server;
    ASSERT_TRUE(annHosts({&bob, &dan}) && cid.connects(ann.port()) && cid.saysHello());
    ASSERT_TRUE(cid.fences() && introduces(dan, WireEntry::party("Ghost", 60002)));
    ann.forgets();
    EXPECT_TRUE(ann->requestRoster());
    EXPECT_THAT(ann.events, ElementsAre("user Bob", "user Ghost"))
        << "members and shadows, no servers, nobody who has not joined";
    ann->setServerMode(true);
    ann.forgets();
    EXPECT_TRUE(ann->requestRoster());
    EXPECT_THAT(ann.events, IsEmpty()) << "a server has nobody to tell";
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

// ---- What a host sends ----

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
    static int color;
    cid.entry.color = 5;
    ASSERT_TRUE(annAttends() && introduces(host, cid.entry));
    ASSERT_EQ(ann.roster(), (Roster{{"Cid", 5}, {"Host", 65535}}));
    ann->setLeaveCB([](ConferenceParticipant *, const ConferenceRosterEntry &party) {
        color = party.firstName() == "Sid" ? party.colorIndex() : -1;
    });
    cid.entry.color = 6;
    cid.entry.firstName = "Sid";
    ASSERT_TRUE(host.sends(id::leaveNotify, cid.entry.encode()) && host.fences());
    EXPECT_EQ(5, color);
    color = 0;
    ASSERT_TRUE(host.sends(id::leaveNotify, cid.entry.encode()) && host.fences());
    EXPECT_EQ(0, color) << "who has left cannot leave again";
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

// ---- Nobody twice ----

TEST_F(RosterExchange, ASecondConnectionOfWhoIsListedIsHungUpWhenItSaysHello) {
    ASSERT_TRUE(annHosts({&bob}));
    ann->setHidingIPsRequired(true);
    ann.forgets();
    cid.entry.address = bob.entry.address;
    LogFile log;
    ConferenceParticipant::setPrintDebug(true); // explains it
    ASSERT_TRUE(cid.connects(ann.port()) && cid.fences()) << "nobody minds before";
    ASSERT_TRUE(cid.saysHello());
    EXPECT_TRUE(cid.receives(id::hangup) && cid.seesTheEnd());
    ConferenceParticipant::setPrintDebug(false);
    for (const char *text : {"Hanging up on duplicate connection to client", "[ 0.0.0.0 ]",
                             "(Bob@example.org and Cid@example.org)"})
        EXPECT_THAT(log.text(), testing::HasSubstr(text));
    EXPECT_EQ(0, ann.told("leave Bob"));
    EXPECT_TRUE(bob.fences()) << "the first connection stays";
    EXPECT_EQ(ann.roster(), (Roster{{"Bob", 1}}));
}

TEST_F(RosterExchange, AMemberTellsItselfAloneAndWhomItKnowsHasNoSecondConnectionToIt) {
    ASSERT_TRUE(annAttends() && introduces(host, cid.entry));
    EXPECT_THAT(namesTold(host), ElementsAre("Ann"));
    ASSERT_TRUE(cid.connects(ann.port()) && cid.saysHello());
    EXPECT_TRUE(cid.receives(id::hangup) && cid.seesTheEnd());
}

} // namespace
} // namespace vintok::test
