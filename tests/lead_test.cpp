// The lead: every road of a request, seen from host, leader, asker and bystander; what becomes of
// the lead when its holder goes; and what parties send that should not.
#include "support/LogFile.h"
#include "support/Stage.h"

namespace vintok::test {
namespace {

class Lead : public RealStage {
protected:
    // Everybody forgets what came before, and waits until all know of the new leader.
    void expectLeader(const std::string &name) {
        for (Party *party : {&ann, &bob, &cid}) {
            EXPECT_TRUE(party->isTold("leader " + name));
            EXPECT_EQ(party->name() == name, (*party)->isLeader()) << party->name();
        }
        forget();
    }
    void forget() {
        for (Party *party : {&ann, &bob, &cid})
            party->forgets();
    }
    // Ann hosts and leads the other two.
    void annLeads() {
        ASSERT_TRUE(gather(ann, {&bob, &cid}));
        forget();
    }
    // Ann hosts; Bob has asked for the lead and has it.
    void bobLeads() {
        annLeads();
        ASSERT_TRUE(bob->requestStartLeading());
        expectLeader("Bob");
    }
    // From then on he decides about it.
    void bobDecides() {
        bobLeads();
        bob.decidesOnLead();
    }
    // Bob, who leads, is asked.
    void asks(Party &asker) {
        ASSERT_TRUE(asker->requestStartLeading());
        EXPECT_TRUE(bob.isTold("leadRequest " + asker.name()));
    }
};

TEST_F(Lead, AHostThatIsNotAskedGivesTheLeadAway) {
    bobLeads();
    EXPECT_FALSE(ann->isLeader());
    EXPECT_TRUE(bob->requestStartLeading());
    EXPECT_EQ(0, bob.told("leadReply 1")) << "a host that leads itself only announces";
}

TEST_F(Lead, AHostDecidesWhenItIsReadyTo) {
    annLeads();
    ann.decidesOnLead();
    EXPECT_FALSE(ann->acceptLeadChange() || ann->rejectLeadChange()) << "nobody has asked";

    ASSERT_TRUE(bob->requestStartLeading());
    EXPECT_TRUE(ann.isTold("leadRequest Bob"));
    ASSERT_TRUE(cid->requestStartLeading());
    EXPECT_TRUE(cid.isTold("leadReply 0")) << "one request at a time";
    EXPECT_TRUE(ann->rejectLeadChange());
    EXPECT_TRUE(bob.isTold("leadReply 0"));
    EXPECT_EQ(1, bob.told("leadReply 0"));
    EXPECT_TRUE(ann->isLeader());
}

TEST_F(Lead, TheHostAsksTheLeaderAsOthersDo) {
    bobDecides();
    asks(ann);
    EXPECT_TRUE(ann->requestStartLeading()) << "the question is under way";
    ASSERT_TRUE(cid->requestStartLeading());
    EXPECT_TRUE(cid.isTold("leadReply 0")) << "the host was first";
    EXPECT_TRUE(bob->rejectLeadChange());
    EXPECT_TRUE(ann.isTold("leadReply 0"));
}

TEST_F(Lead, NobodyLeadsOutsideAMeeting) {
    EXPECT_FALSE(ann->requestStartLeading());
    EXPECT_FALSE(ann->acceptLeadChange() || ann->rejectLeadChange());
    ASSERT_TRUE(ann.hosts("alone"));
    EXPECT_FALSE(ann->requestStartLeading()) << "there is no leader to ask";
    EXPECT_THAT(ann.events, ElementsAre("user Ann"));
}

// ---- When the leader goes ----

TEST_F(Lead, AHostWhoseQuestionDiesWithTheLeaderHearsOthersAgain) {
    bobDecides();
    asks(ann);
    bob.dies();
    EXPECT_TRUE(ann.isTold("leader Ann") && cid.isTold("leader Ann"));
    ASSERT_TRUE(cid->requestStartLeading());
    EXPECT_TRUE(cid.isTold("leader Cid"));
    EXPECT_TRUE(cid->isLeader());
}

TEST_F(Lead, AServerHandsTheLeadToWhoAskedAndElseToTheFirst) {
    Party dan(meeting, "Dan");
    ann->setServerMode(true);
    ASSERT_TRUE(ann.hosts("relay") && bob.calls(ann));
    EXPECT_TRUE(bob.isTold("leader Bob")) << "the first member of a server's meeting leads";
    EXPECT_FALSE(ann->isLeader());
    ASSERT_TRUE(cid.calls(ann) && cid.isTold("user Bob"));
    ASSERT_TRUE(dan.calls(ann) && dan.isTold("user Cid"));
    EXPECT_EQ(0, ann.told("leader Ann"));

    bob.decidesOnLead();
    ASSERT_TRUE(dan->requestStartLeading());
    ASSERT_TRUE(bob.isTold("leadRequest Dan"));
    bob.dies();
    EXPECT_TRUE(dan.isTold("leader Dan") && cid.isTold("leader Dan"));
    EXPECT_TRUE(dan->isLeader());
    dan.dies();
    EXPECT_TRUE(cid.isTold("leader Cid"));
    EXPECT_TRUE(cid->isLeader());
}

// ---- On the wire ----

class LeadOnTheWire : public Stage {
protected:
    static Bytes asking(const WirePeer &peer) {
        WireEntry entry = peer.entry;
        entry.state |= state::leader;
        return entry.encode();
    }
    // Bob has asked for Ann's lead and has it.
    void bobLeads(const std::vector<WirePeer *> &members) {
        ASSERT_TRUE(annHosts(members) && bob.sends(id::leadRequest, asking(bob)));
        ASSERT_TRUE(bob.receives(id::leadChange));
        for (WirePeer *member : members)
            ASSERT_TRUE(member->fences());
    }
    // What the peer gets for its request.
    std::vector<int> asks(WirePeer &peer) {
        EXPECT_TRUE(peer.sends(id::leadRequest, asking(peer)));
        return kinds(peer.gets());
    }
};

TEST_F(LeadOnTheWire, AnAskerShowsItselfAsTheLeaderInItsRequestOnly) {
    ASSERT_TRUE(ann.meets(host) && ann->requestStartLeading());
    const WireEntry self = entryIn(host.next(id::leadRequest));
    EXPECT_NE(0u, self.state & state::leader);
    EXPECT_FALSE(ann->isLeader());
    ASSERT_TRUE(ann->sendRoster());
    EXPECT_EQ(0u, entryIn(host.next(id::rosterEntry)).state & state::leader);

    // The reply is the answer to whoever is no host, and any byte but 0 is yes.
    ASSERT_TRUE(host.sends(id::leadReply, {7, 9}) && host.fences());
    EXPECT_EQ(1, ann.told("leadReply 1"));
    EXPECT_FALSE(ann->isLeader()) << "it is the announcement that makes the leader";
    ASSERT_TRUE(host.sends(id::leadChange, self.encode()) && host.fences());
    EXPECT_TRUE(ann->isLeader() && ann.told("leader Ann") == 1);
    ASSERT_TRUE(host.sends(id::leadChange, self.encode()) && host.fences());
    EXPECT_EQ(1, ann.told("leader Ann")) << "no news";
    ASSERT_TRUE(host.sends(id::leadChange, host.entry.encode()) && host.fences());
    EXPECT_TRUE(!ann->isLeader() && ann.told("leader Host") == 1);

    // Neither host nor leader: not to be asked.
    ASSERT_TRUE(host.sends(id::leadRequest, host.entry.encode()));
    EXPECT_THAT(kinds(host.gets()), IsEmpty());
}

TEST_F(LeadOnTheWire, ALeaderThatCannotReadTheQuestionRefuses) {
    ASSERT_TRUE(ann.meets(host) && ann->requestStartLeading());
    ASSERT_TRUE(host.sends(id::leadChange, host.next(id::leadRequest).body) && host.fences());
    ASSERT_TRUE(ann->isLeader());
    LogFile log;
    ASSERT_TRUE(host.sends(id::leadReply, {}) && host.fences());
    EXPECT_TRUE(log.has("_handleLeadReply Me or buf not allocated"));
    ASSERT_TRUE(host.sends(id::leadRequest, {1, 2, 3}));
    EXPECT_EQ(Bytes{0}, host.next(id::leadReply).body);
    ASSERT_TRUE(host.sends(id::leadRequest, host.entry.encode()));
    EXPECT_EQ(Bytes{1}, host.next(id::leadReply).body) << "without a callback the lead is given";
}

TEST_F(LeadOnTheWire, TheHostPassesTheQuestionOnAsItCame) {
    ASSERT_TRUE(annHosts({&bob, &cid}) && bob.sends(id::leadRequest, asking(bob)));
    const WireEntry leader = entryIn(bob.next(id::leadChange));
    EXPECT_TRUE(cid.receives(id::leadChange));
    EXPECT_EQ(bob.entry.address, leader.address);
    EXPECT_NE(0u, leader.state & state::leader);

    ASSERT_TRUE(cid.sends(id::leadRequest, asking(cid)));
    EXPECT_EQ(asking(cid), bob.next(id::leadRequest).body);
    EXPECT_FALSE(ann->requestStartLeading()) << "one question at a time";
    ASSERT_TRUE(bob.sends(id::leadReply, {0}) && bob.fences());
    EXPECT_THAT(kinds(cid.gets()), ElementsAre(id::leadReply, id::leadReply));

    ASSERT_TRUE(cid.sends(id::leadRequest, asking(cid)) && bob.receives(id::leadRequest));
    ASSERT_TRUE(bob.sends(id::leadReply, {7}));
    EXPECT_EQ(Bytes{1}, cid.next(id::leadReply).body) << "whatever the leader's yes was";
}

TEST_F(LeadOnTheWire, ALeaderThatAsksBlocksTheQuestionUntilItLeaves) {
    bobLeads({&bob, &cid});
    EXPECT_THAT(asks(bob), ElementsAre(id::leadReply));
    EXPECT_THAT(asks(cid), ElementsAre(id::leadReply)) << "refused, and Bob is not asked";
    EXPECT_THAT(kinds(bob.gets()), IsEmpty());
    bob.closes();
    ASSERT_TRUE(ann.isTold("leave Bob"));
    ASSERT_TRUE(cid.fences() && cid.sends(id::leadRequest, asking(cid)));
    ASSERT_TRUE(cid.receives(id::leadChange));
    EXPECT_TRUE(ann.isTold("leader Cid"));
}

TEST_F(LeadOnTheWire, AQuestionThatNobodyCanAnswerIsRefusedAndStaysOpen) {
    bobLeads({&bob, &cid});
    ASSERT_TRUE(bob.sends(id::rosterEntry, bob.entry.encode())); // without the leader's bit
    ASSERT_TRUE(bob.fences() && cid.fences());
    for (const bool accepts : {false, true}) {
        EXPECT_THAT(asks(cid), ElementsAre(id::leadReply));
        EXPECT_THAT(asks(bob), ElementsAre(id::leadReply)) << "Cid's is still open";
        EXPECT_TRUE(accepts ? ann->acceptLeadChange() : ann->rejectLeadChange());
        EXPECT_TRUE(cid.receives(accepts ? id::leadChange : id::leadReply));
    }
    EXPECT_EQ(1, ann.told("leader Cid"));
    EXPECT_FALSE(ann->acceptLeadChange() || ann->rejectLeadChange());
}

TEST_F(LeadOnTheWire, AQuestionThatCannotBePassedOnIsRefused) {
    bobLeads({&cid, &bob}); // behind Cid, whose question is so read before Bob's end
    bob.resets();
    EXPECT_TRUE(ann->requestStartLeading()) << "the host's own cannot go out either";
    ASSERT_TRUE(cid.sends(id::leadRequest, asking(cid)));
    EXPECT_EQ(Bytes{0}, cid.next(id::leadReply).body);
    EXPECT_TRUE(ann.isTold("leave Bob"));
    EXPECT_EQ(2, ann.told("leader Ann"));
}

TEST_F(LeadOnTheWire, AStopGivesTheLeadBackToTheHostAndTellsNobodyElse) {
    bobLeads({&bob});
    ASSERT_TRUE(bob.sends(id::stopLead));
    ASSERT_TRUE(bob.receives(id::leadRequest)) << "the host asks for it as anybody does";
    ASSERT_TRUE(bob.sends(id::leadReply, {1}));
    EXPECT_TRUE(ann.isTold("leadReply 1"));
    EXPECT_TRUE(ann->isLeader() && ann.told("leadReply 1") == 1);
    EXPECT_EQ(2, ann.told("leader Ann")) << "at the beginning, and now";
}

} // namespace
} // namespace vintok::test
