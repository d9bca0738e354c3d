// The lead: every road of a request, seen from host, leader, asker and bystander; what becomes of
// the lead when its holder goes; and what parties send that should not.
#include "support/LogFile.h"
#include "support/Party.h"
#include "support/TemporaryFolder.h"
#include "support/WirePeer.h"

#include <gmock/gmock.h>

namespace vintok::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Lead : public testing::Test {
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
    // Ann hosts; Bob has asked for the lead and has it.
    void bobLeads() {
        ASSERT_TRUE(gather(ann, {&bob, &cid}));
        forget();
        ASSERT_TRUE(bob->requestStartLeading());
        expectLeader("Bob");
    }

    Meeting meeting;
    Party ann{meeting, "Ann"}, bob{meeting, "Bob"}, cid{meeting, "Cid"};
};

TEST_F(Lead, TheHostLeadsFromTheFirstJoinOnAndSaysSo) {
    ASSERT_TRUE(ann.meets(bob));
    EXPECT_TRUE(ann->isLeader());
    EXPECT_TRUE(ann.isTold("leader Ann") && bob.isTold("leader Ann"));
    EXPECT_EQ(1, ann.told("leader Ann"));
    EXPECT_TRUE(ann->requestStartLeading()) << "who leads already has nothing to ask";
}

TEST_F(Lead, AHostThatIsNotAskedGivesTheLeadAway) {
    bobLeads();
    EXPECT_FALSE(ann->isLeader());
    EXPECT_TRUE(bob->requestStartLeading());
    EXPECT_EQ(0, bob.told("leadReply 1")) << "a host that leads itself only announces";
}

TEST_F(Lead, AHostDecidesWhenItIsReadyTo) {
    ASSERT_TRUE(gather(ann, {&bob, &cid}));
    forget();
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

    ASSERT_TRUE(cid->requestStartLeading());
    EXPECT_TRUE(ann.isTold("leadRequest Cid"));
    EXPECT_TRUE(ann->acceptLeadChange());
    expectLeader("Cid");
}

TEST_F(Lead, AHostMayDecideInsideTheQuestion) {
    ASSERT_TRUE(gather(ann, {&bob, &cid}));
    forget();
    ann.decidesOnLead();
    ann.inside = [this](const std::string &event) {
        if (event == "leadRequest Bob") {
            EXPECT_TRUE(ann->acceptLeadChange());
        }
    };
    ASSERT_TRUE(bob->requestStartLeading());
    expectLeader("Bob");
}

TEST_F(Lead, TheLeaderIsAskedThroughTheHostAndTheAskerHearsItTwice) {
    bobLeads();
    bob.decidesOnLead();
    ASSERT_TRUE(cid->requestStartLeading());
    EXPECT_TRUE(bob.isTold("leadRequest Cid"));
    EXPECT_TRUE(bob->rejectLeadChange());
    EXPECT_TRUE(meeting.until([this] { return cid.told("leadReply 0") == 2; }, "Cid hears twice"));
    EXPECT_TRUE(bob->isLeader());
    EXPECT_EQ(0, ann.told("leadReply 0")) << "the question was not the host's";

    ASSERT_TRUE(cid->requestStartLeading());
    EXPECT_TRUE(meeting.until([this] { return bob.told("leadRequest Cid") == 2; }, "asked again"));
    EXPECT_TRUE(bob->acceptLeadChange());
    EXPECT_TRUE(meeting.until([this] { return cid.told("leadReply 1") == 2; }, "Cid hears twice"));
    expectLeader("Cid");
}

TEST_F(Lead, TheHostAsksTheLeaderAsOthersDo) {
    bobLeads();
    bob.decidesOnLead();
    ASSERT_TRUE(ann->requestStartLeading());
    EXPECT_TRUE(ann->requestStartLeading()) << "the question is under way";
    EXPECT_TRUE(bob.isTold("leadRequest Ann"));
    ASSERT_TRUE(cid->requestStartLeading());
    EXPECT_TRUE(cid.isTold("leadReply 0")) << "the host was first";
    EXPECT_TRUE(bob->rejectLeadChange());
    EXPECT_TRUE(ann.isTold("leadReply 0"));

    ASSERT_TRUE(ann->requestStartLeading());
    EXPECT_TRUE(meeting.until([this] { return bob.told("leadRequest Ann") == 2; }, "asked again"));
    EXPECT_TRUE(bob->acceptLeadChange());
    EXPECT_TRUE(ann.isTold("leadReply 1"));
    EXPECT_EQ(1, ann.told("leadReply 1"));
    expectLeader("Ann");
}

TEST_F(Lead, AHostWithAQuestionInHandAsksNone) {
    bobLeads();
    bob.decidesOnLead();
    ASSERT_TRUE(cid->requestStartLeading());
    ASSERT_TRUE(bob.isTold("leadRequest Cid"));
    EXPECT_FALSE(ann->requestStartLeading());
    EXPECT_EQ(1, ann.told("leadReply 0"));
}

TEST_F(Lead, ThePartyThatHangsUpInsideTheAnswerStaysOut) {
    bobLeads();
    ann.inside = [this](const std::string &event) {
        if (event == "leadReply 1")
            ann.leaves();
    };
    ASSERT_TRUE(ann->requestStartLeading());
    EXPECT_TRUE(ann.isTold("leadReply 1"));
    EXPECT_FALSE(ann->isLeader() || ann->isMeeting() || ann->isHost());
    EXPECT_TRUE(bob.isTold("leave Ann") && cid.isTold("leave Ann"));
}

TEST_F(Lead, NobodyLeadsOutsideAMeeting) {
    EXPECT_FALSE(ann->requestStartLeading());
    EXPECT_FALSE(ann->acceptLeadChange() || ann->rejectLeadChange());
    ASSERT_TRUE(ann.hosts("alone"));
    EXPECT_FALSE(ann->requestStartLeading()) << "there is no leader to ask";
    EXPECT_THAT(ann.events, ElementsAre("user Ann"));
}

// ---- When the leader goes ----

TEST_F(Lead, TheHostTakesTheLeadOfALeaderThatDies) {
    bobLeads();
    bob.dies();
    EXPECT_TRUE(ann.isTold("leader Ann") && cid.isTold("leader Ann"));
    EXPECT_TRUE(ann->isLeader() && !cid->isLeader());
}

TEST_F(Lead, AnAskerThatDiesLeavesTheQuestionFree) {
    bobLeads();
    bob.decidesOnLead();
    ASSERT_TRUE(cid->requestStartLeading());
    ASSERT_TRUE(bob.isTold("leadRequest Cid"));
    cid.dies();
    ASSERT_TRUE(ann.isTold("leave Cid"));
    EXPECT_TRUE(ann->requestStartLeading());
    EXPECT_TRUE(bob.isTold("leadRequest Ann"));
    EXPECT_TRUE(bob->acceptLeadChange());
    EXPECT_TRUE(ann.isTold("leadReply 1") && ann->isLeader());
}

TEST_F(Lead, AQuestionToALeaderThatDiesIsTheHostsToDecide) {
    bobLeads();
    bob.decidesOnLead();
    ASSERT_TRUE(cid->requestStartLeading());
    ASSERT_TRUE(bob.isTold("leadRequest Cid"));
    bob.dies();
    EXPECT_TRUE(ann.isTold("leader Ann") && cid.isTold("leader Ann"));
    ASSERT_TRUE(cid->requestStartLeading());
    EXPECT_TRUE(cid.isTold("leadReply 0")) << "the first question is still open";
    EXPECT_TRUE(ann->acceptLeadChange());
    EXPECT_TRUE(cid.isTold("leader Cid") && cid->isLeader() && !ann->isLeader());
}

TEST_F(Lead, AHostWhoseQuestionDiesWithTheLeaderHearsOthersAgain) {
    bobLeads();
    bob.decidesOnLead();
    ASSERT_TRUE(ann->requestStartLeading());
    ASSERT_TRUE(bob.isTold("leadRequest Ann"));
    bob.dies();
    EXPECT_TRUE(ann.isTold("leader Ann") && cid.isTold("leader Ann"));
    ASSERT_TRUE(cid->requestStartLeading());
    EXPECT_TRUE(cid.isTold("leader Cid"));
    EXPECT_TRUE(cid->isLeader());
}

TEST_F(Lead, AHostThatDiesEndsTheQuestionForBothEnds) {
    bobLeads();
    bob.decidesOnLead();
    ASSERT_TRUE(cid->requestStartLeading());
    ASSERT_TRUE(bob.isTold("leadRequest Cid"));
    ann.dies();
    EXPECT_TRUE(bob.isTold("leave Ann") && cid.isTold("leave Ann"));
    EXPECT_FALSE(bob->acceptLeadChange() || bob->rejectLeadChange()) << "nobody to answer";
    EXPECT_FALSE(bob->isLeader() || cid->isLeader());
    EXPECT_EQ(0, cid.told("leadReply 1") + cid.told("leadReply 0"));
}

// The one moment in which a member is alone in a meeting: its host has gone, and it is told of the
// file that breaks off.
TEST_F(Lead, AMemberThatIsAloneIsRefusedAndHangsUp) {
    const TemporaryFolder folder;
    ASSERT_TRUE(ConferenceParticipant::setFileRoot(folder.path("files")));
    WirePeer host(meeting, "Host");
    host.entry.state = state::meeting | state::host;
    ASSERT_TRUE(host.listens() && bob.calls(host) && host.isJoined() && bob.isTold("join Host"));
    Bytes file;
    WireWriter(file).text("/f");
    WireWriter(file).text("f");
    ASSERT_TRUE(host.sends(id::fileBegin, file) && host.fences());
    bob.inside = [this](const std::string &event) {
        if (event == "file failed") {
            EXPECT_TRUE(bob->isMeeting());
            EXPECT_FALSE(bob->requestStartLeading());
            EXPECT_FALSE(bob->isMeeting());
        }
    };
    bob.leaves();
    EXPECT_EQ(1, bob.told("file failed"));
    EXPECT_EQ(1, bob.told("leadReply 0"));
    ConferenceParticipant::setFileRoot("");
}

TEST_F(Lead, AServerThatTakesTheLeadTellsNobody) {
    ann->setServerMode(true);
    ASSERT_TRUE(ann.hosts("relay") && bob.calls(ann) && bob.isTold("leader Bob"));
    ASSERT_TRUE(ann->requestStartLeading());
    EXPECT_TRUE(ann.isTold("leadReply 1"));
    EXPECT_TRUE(ann->isLeader());
    EXPECT_TRUE(meeting.until([this] { return !bob->isLeader(); }, "Bob leads no more"));
    EXPECT_EQ(0, ann.told("leader Ann") + bob.told("leader Ann"));
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

class LeadOnTheWire : public testing::Test {
protected:
    void joined(WirePeer &peer) {
        ASSERT_TRUE(ann->isHost() || ann.hosts("talk"));
        ASSERT_TRUE(peer.joins(ann.port()) && peer.fences());
    }
    Bytes asking(const WirePeer &peer) const {
        WireEntry entry = peer.entry;
        entry.state |= state::leader;
        return entry.encode();
    }
    // What the peer is sent from now until the host has handled what the peer has sent.
    std::vector<int> answers(WirePeer &peer) {
        std::vector<WireFrame> frames;
        EXPECT_TRUE(peer.fences(&frames));
        return kinds(frames);
    }

    Meeting meeting;
    Party ann{meeting, "Ann"};
    WirePeer bob{meeting, "Bob"}, cid{meeting, "Cid"};
};

TEST_F(LeadOnTheWire, AnAskerShowsItselfAsTheLeaderInItsRequestOnly) {
    WirePeer host(meeting, "Host");
    host.entry.state = state::meeting | state::host;
    ASSERT_TRUE(host.listens() && ann.calls(host) && host.isJoined() && ann.isTold("join Host"));
    ASSERT_TRUE(ann->requestStartLeading());
    WireFrame request;
    ASSERT_TRUE(host.receives(id::leadRequest, &request));
    EXPECT_NE(0u, WireEntry::decode(request.body).value().state & state::leader);
    EXPECT_FALSE(ann->isLeader());
    ASSERT_TRUE(ann->sendRoster());
    WireFrame entry;
    ASSERT_TRUE(host.receives(id::rosterEntry, &entry));
    EXPECT_EQ(0u, WireEntry::decode(entry.body).value().state & state::leader);

    // The reply is the answer to whoever is no host, and any byte but 0 is yes.
    ASSERT_TRUE(host.sends(id::leadReply, {7, 9}) && host.fences());
    EXPECT_EQ(1, ann.told("leadReply 1"));
    EXPECT_FALSE(ann->isLeader()) << "it is the announcement that makes the leader";
    WireEntry self = WireEntry::decode(request.body).value();
    ASSERT_TRUE(host.sends(id::leadChange, self.encode()) && host.fences());
    EXPECT_TRUE(ann->isLeader() && ann.told("leader Ann") == 1);
    ASSERT_TRUE(host.sends(id::leadChange, self.encode()) && host.fences());
    EXPECT_EQ(1, ann.told("leader Ann")) << "no news";
    ASSERT_TRUE(host.sends(id::leadChange, host.entry.encode()) && host.fences());
    EXPECT_TRUE(!ann->isLeader() && ann.told("leader Host") == 1);

    // Neither host nor leader: not to be asked.
    ASSERT_TRUE(host.sends(id::leadRequest, host.entry.encode()));
    EXPECT_THAT(answers(host), IsEmpty());
}

TEST_F(LeadOnTheWire, ALeaderThatCannotReadTheQuestionRefuses) {
    WirePeer host(meeting, "Host");
    host.entry.state = state::meeting | state::host;
    ASSERT_TRUE(host.listens() && ann.calls(host) && host.isJoined() && ann.isTold("join Host"));
    ASSERT_TRUE(ann->requestStartLeading());
    WireFrame request;
    ASSERT_TRUE(host.receives(id::leadRequest, &request));
    ASSERT_TRUE(host.sends(id::leadChange, request.body) && host.fences());
    ASSERT_TRUE(ann->isLeader());
    ASSERT_TRUE(host.sends(id::leadRequest, {1, 2, 3}));
    WireFrame reply;
    ASSERT_TRUE(host.receives(id::leadReply, &reply));
    EXPECT_EQ(Bytes{0}, reply.body);
    ASSERT_TRUE(host.sends(id::leadRequest, host.entry.encode()));
    ASSERT_TRUE(host.receives(id::leadReply, &reply));
    EXPECT_EQ(Bytes{1}, reply.body) << "without a callback the lead is given";
}

TEST_F(LeadOnTheWire, TheHostPassesTheQuestionOnAsItCame) {
    joined(bob);
    joined(cid);
    ASSERT_TRUE(bob.sends(id::leadRequest, asking(bob)));
    WireFrame frame;
    ASSERT_TRUE(bob.receives(id::leadChange, &frame) && cid.receives(id::leadChange));
    EXPECT_EQ(bob.entry.address, WireEntry::decode(frame.body).value().address);
    EXPECT_NE(0u, WireEntry::decode(frame.body).value().state & state::leader);

    ASSERT_TRUE(cid.sends(id::leadRequest, asking(cid)));
    ASSERT_TRUE(bob.receives(id::leadRequest, &frame));
    EXPECT_EQ(asking(cid), frame.body);
    ASSERT_TRUE(bob.sends(id::leadReply, {0}) && bob.fences());
    EXPECT_THAT(answers(cid), ElementsAre(id::leadReply, id::leadReply));

    ASSERT_TRUE(cid.sends(id::leadRequest, asking(cid)) && bob.receives(id::leadRequest));
    ASSERT_TRUE(bob.sends(id::leadReply, {7}) && cid.receives(id::leadReply, &frame));
    EXPECT_EQ(Bytes{1}, frame.body) << "whatever the leader's yes was";
}

TEST_F(LeadOnTheWire, ALeaderThatAsksBlocksTheQuestionUntilItLeaves) {
    joined(bob);
    joined(cid);
    ASSERT_TRUE(bob.sends(id::leadRequest, asking(bob)) && bob.receives(id::leadChange));
    ASSERT_TRUE(bob.sends(id::leadRequest, asking(bob)));
    EXPECT_THAT(answers(bob), ElementsAre(id::leadReply));
    ASSERT_TRUE(cid.fences() && cid.sends(id::leadRequest, asking(cid)));
    EXPECT_THAT(answers(cid), ElementsAre(id::leadReply)) << "refused, and Bob is not asked";
    EXPECT_THAT(answers(bob), IsEmpty());
    bob.closes();
    ASSERT_TRUE(ann.isTold("leave Bob"));
    ASSERT_TRUE(cid.fences() && cid.sends(id::leadRequest, asking(cid)));
    ASSERT_TRUE(cid.receives(id::leadChange));
    EXPECT_TRUE(ann.isTold("leader Cid"));
}

TEST_F(LeadOnTheWire, AQuestionThatNobodyCanAnswerIsRefusedAndStaysOpen) {
    joined(bob);
    joined(cid);
    ASSERT_TRUE(bob.sends(id::leadRequest, asking(bob)) && bob.receives(id::leadChange));
    ASSERT_TRUE(bob.sends(id::rosterEntry, bob.entry.encode())); // without the leader's bit
    ASSERT_TRUE(bob.fences() && cid.fences());
    for (const bool accepts : {false, true}) {
        ASSERT_TRUE(cid.sends(id::leadRequest, asking(cid)));
        EXPECT_THAT(answers(cid), ElementsAre(id::leadReply));
        ASSERT_TRUE(bob.sends(id::leadRequest, asking(bob)));
        EXPECT_THAT(answers(bob), ElementsAre(id::leadReply)) << "Cid's is still open";
        EXPECT_TRUE(accepts ? ann->acceptLeadChange() : ann->rejectLeadChange());
        EXPECT_TRUE(cid.receives(accepts ? id::leadChange : id::leadReply));
    }
    EXPECT_EQ(1, ann.told("leader Cid"));
    EXPECT_FALSE(ann->acceptLeadChange() || ann->rejectLeadChange());
}

TEST_F(LeadOnTheWire, AQuestionThatCannotBePassedOnIsRefused) {
    joined(cid);
    joined(bob); // behind Cid, whose question is so read before Bob's end
    ASSERT_TRUE(bob.sends(id::leadRequest, asking(bob)) && bob.receives(id::leadChange));
    ASSERT_TRUE(cid.fences());
    bob.resets();
    EXPECT_TRUE(ann->requestStartLeading()) << "the host's own cannot go out either";
    ASSERT_TRUE(cid.sends(id::leadRequest, asking(cid)));
    WireFrame reply;
    ASSERT_TRUE(cid.receives(id::leadReply, &reply));
    EXPECT_EQ(Bytes{0}, reply.body);
    EXPECT_TRUE(ann.isTold("leave Bob"));
    EXPECT_EQ(2, ann.told("leader Ann"));
}

TEST_F(LeadOnTheWire, AStopGivesTheLeadBackToTheHostAndTellsNobodyElse) {
    joined(bob);
    ASSERT_TRUE(bob.sends(id::leadRequest, asking(bob)) && bob.receives(id::leadChange));
    ASSERT_TRUE(bob.sends(id::stopLead));
    ASSERT_TRUE(bob.receives(id::leadRequest)) << "the host asks for it as anybody does";
    ASSERT_TRUE(bob.sends(id::leadReply, {1}));
    EXPECT_TRUE(ann.isTold("leadReply 1"));
    EXPECT_TRUE(ann->isLeader());
    EXPECT_EQ(2, ann.told("leader Ann")) << "at the beginning, and now";
}

TEST_F(LeadOnTheWire, WhatIsNoRequestIsNotAnswered) {
    LogFile log;
    joined(bob);
    const Bytes request = asking(bob);
    for (std::size_t length = 1; length < request.size(); ++length) {
        SCOPED_TRACE(length);
        const Bytes cut(request.begin(), request.begin() + static_cast<std::ptrdiff_t>(length));
        ASSERT_TRUE(bob.sends(id::leadRequest, cut));
        ASSERT_TRUE(bob.sends(id::leadChange, cut));
    }
    ASSERT_TRUE(bob.sends(id::leadReply, {}) && bob.sends(id::leadReply, {1}));
    EXPECT_THAT(answers(bob), IsEmpty());
    EXPECT_TRUE(log.has("_handleLeadReply Me or buf not allocated"));
    EXPECT_EQ(1, ann.told("leader Ann"));
    EXPECT_EQ(0, ann.told("leadReply 1") + ann.told("leadReply 0"));
    EXPECT_TRUE(ann->isLeader()) << "an answer that nobody asked for changes nothing";
}

} // namespace
} // namespace vintok::test
