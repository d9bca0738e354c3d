// Limits that an application sets: on members that read too slowly, on those who connect, on what a
// meeting may have, and on the time of calls. Without them everybody waits for everybody.
#include "platform/Socket.h"
#include "platform/Thread.h"
#include "support/Stage.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace vintok::test {
namespace {

using Limits = ConferenceParticipant::SlowMemberLimits;

struct Slow {
    std::string who;
    std::uint64_t waiting;
    ConferenceParticipant::SlowMember why;
};
std::vector<Slow> slow;

void onSlow(ConferenceParticipant *, const ConferenceRosterEntry &party, std::uint64_t waiting,
            ConferenceParticipant::SlowMember why) {
    slow.push_back({party.firstName(), waiting, why});
}

bool onDrop(ConferenceParticipant *, const ConferenceRosterEntry &, const unsigned char *data,
            std::uint64_t) {
    return data[0] == 'd';
}

// Ann hosts, Bob stops reading, Cid listens, Dan talks.
class Limited : public Stage {
protected:
    Limited() {
        slow.clear();
        ann->setSlowMemberCB(onSlow);
        EXPECT_TRUE(ann.hosts("Limits"));
    }
    ~Limited() override {
        if (stopped != -1)
            closeDescriptor(stopped);
    }

    void limits(std::uint64_t bytes, std::uint32_t milliseconds, std::uint64_t most) {
        ann->setSlowMemberLimits({bytes, milliseconds, most});
    }
    testing::AssertionResult gather() {
        for (WirePeer *peer : {&bob, &cid, &dan})
            if (const auto joined = peer->joins(ann.port()); !joined)
                return joined;
        stopped = bob.handsOver();
        return cid.fences();
    }
    testing::AssertionResult hears(WirePeer &listener, const Bytes &body) {
        WireFrame frame;
        const auto came = listener.receives(id::broadcast, &frame);
        return came && frame.body != body ? testing::AssertionFailure() << "another message" : came;
    }
    // Says something that Cid hears: by Dan, or by the host itself.
    testing::AssertionResult says(bool byHost, const Bytes &body) {
        if (byHost)
            ann->sendBroadcastData(body.data(), body.size());
        else
            dan.sends(id::broadcast, body);
        return hears(cid, body);
    }

    int stopped = -1;
};

constexpr std::uint64_t MB = 1000 * 1000;

struct Excess {
    const char *name;
    bool byHost;
    Limits limits;
    ConferenceParticipant::SlowMember why;
};

class Excessive : public Limited, public testing::WithParamInterface<Excess> {};

TEST_P(Excessive, WhoStopsReadingIsHungUpAndNobodyWaitsForHim) {
    ann->setSlowMemberLimits(GetParam().limits);
    ASSERT_TRUE(gather());
    for (int said = 0; slow.empty() && said < 4000; ++said)
        ASSERT_TRUE(says(GetParam().byHost, Bytes(100000, static_cast<unsigned char>(said))));
    ASSERT_EQ(1u, slow.size());
    EXPECT_EQ("Bob", slow[0].who);
    EXPECT_EQ(GetParam().why, slow[0].why);
    EXPECT_GT(slow[0].waiting, MB);
    EXPECT_LE(slow[0].waiting, GetParam().limits.mostBytes);
    EXPECT_TRUE(ann.isTold("leave Bob"));
    EXPECT_TRUE(dan.receives(id::leaveNotify)); // who has read nothing so far
    EXPECT_TRUE(ann.sees({{"Cid", 2}, {"Dan", 3}}));
    EXPECT_TRUE(says(false, {'x'}));
}

INSTANTIATE_TEST_SUITE_P(
    , Excessive,
    testing::Values(
        Excess{"FullRelayed", false, {MB, 60000, 4 * MB}, ConferenceParticipant::SLOW_MEMBER_FULL},
        Excess{"FullSaid", true, {MB, 60000, 4 * MB}, ConferenceParticipant::SLOW_MEMBER_FULL},
        Excess{"Behind", false, {MB, 50, 400 * MB}, ConferenceParticipant::SLOW_MEMBER_BEHIND}),
    caseName<Excess>);

TEST_F(Limited, WhoIsHeldUpHearsEverythingInTheEnd) {
    limits(MB, 60000, 2 * MB);
    ASSERT_TRUE(gather());
    // Faster than Bob takes it: who sends a file is read more slowly meanwhile.
    const int sending = dan.handsOver();
    const Bytes frame = WireFrame{.id = id::fileData, .body = Bytes(20000)}.encode();
    const std::size_t all = 1000 * frame.size();
    std::atomic<std::size_t> taken{0};
    std::thread reader([&] {
        Bytes buffer(20000);
        for (std::int64_t count = 1; count > 0 && taken < all;) {
            count = platform::receive(stopped, buffer.data(), buffer.size());
            taken += static_cast<std::size_t>(std::max<std::int64_t>(count, 0));
            platform::sleepMilliseconds(1);
        }
    });
    std::thread writer([&] {
        for (int i = 0; i < 1000; ++i)
            for (std::size_t sent = 0; sent < frame.size();)
                sent += static_cast<std::size_t>(
                    platform::send(sending, frame.data() + sent, frame.size() - sent));
    });
    EXPECT_TRUE(meeting.until([&] { return taken >= all || !slow.empty(); }, "all has come"));
    EXPECT_TRUE(slow.empty());
    closeDescriptor(stopped);
    closeDescriptor(sending);
    stopped = -1;
    reader.join();
    writer.join();
}

TEST_F(Limited, WhatMayBeDroppedIsKeptFromWhoIsBehindAndTheRestIsNot) {
    limits(MB, 50, 400 * MB);
    ann->setDropCB(onDrop);
    ASSERT_TRUE(gather());
    Bytes big(100000, 'k');
    while (ann->waitingBytes() <= 2 * MB)
        ASSERT_TRUE(says(false, big));
    // The system may still take some of it.
    const std::uint64_t before = ann->waitingBytes();
    big[0] = 'd';
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(says(i % 2 == 0, big));
    EXPECT_LT(ann->waitingBytes(), before + MB);
    const std::uint64_t dropped = ann->waitingBytes();
    big[0] = 'k';
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(says(i % 2 == 0, big));
    EXPECT_GT(ann->waitingBytes(), dropped + MB);
    EXPECT_TRUE(slow.empty());
}

// ---- Who connects ----

TEST_F(Limited, CallersMakeRoomOldestFirstUnlessTheyAsk) {
    for (const bool perAddress : {false, true}) {
        ConferenceParticipant::CallerLimits two;
        (perAddress ? two.perAddress : two.connections) = 2;
        ann->setCallerLimits(two);
        ann.screensCalls();
        WirePeer asking(meeting, "Eve"), silent(meeting, "Fay"), next(meeting, "Gus");
        ASSERT_TRUE(asking.knocks(ann.port()) && ann.isTold("pending Eve"));
        ASSERT_TRUE(silent.connects(ann.port()) && silent.receives(id::rosterEntry));
        ASSERT_TRUE(next.connects(ann.port()) && next.receives(id::rosterEntry));
        EXPECT_TRUE(silent.seesTheEnd());
        EXPECT_TRUE(next.saysHello() && next.asksToJoin() && ann.isTold("pending Gus"));
        ASSERT_TRUE(silent.connects(ann.port()));
        EXPECT_TRUE(silent.seesTheEnd()) << "both others ask";
        EXPECT_TRUE(ann.accepts(asking));
        EXPECT_TRUE(asking.receives(id::joinReply)) << "and are let in all the same";
        ASSERT_TRUE(silent.connects(ann.port()));
        EXPECT_TRUE(silent.receives(id::rosterEntry)) << "a member is no caller";
        ann.leaves();
        ann.forgets();
        EXPECT_TRUE(ann.hosts("Limits"));
    }
}

TEST_F(Limited, WhoIsLateOrTooLongIsHungUp) {
    ann->setMeetingLimits({2, 20000, 3000});
    const struct {
        const char *name;
        std::uint32_t time;
        std::function<void(WirePeer &)> does;
    } rows[] = {{"silent", 50, [](WirePeer &) {}},
                {"hello only", 50, [](WirePeer &peer) { peer.saysHello(); }},
                {"long frame", 0, [](WirePeer &peer) { peer.sends(id::broadcast, Bytes(6000)); }},
                {"long entry", 0, [](WirePeer &peer) {
                     peer.entry.email = std::string(3500, 'x');
                     peer.saysHello();
                 }}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        ann->setCallerLimits({0, 0, row.time, row.time, 5000});
        WirePeer peer(meeting, "Eve");
        ASSERT_TRUE(peer.connects(ann.port()) && peer.receives(id::rosterEntry));
        row.does(peer);
        EXPECT_TRUE(peer.seesTheEnd());
    }
    ASSERT_TRUE(cid.joins(ann.port()) && dan.joins(ann.port()));
    EXPECT_TRUE(dan.sends(id::broadcast, Bytes(30000)) && dan.sends(id::broadcast, {'x'}));
    EXPECT_TRUE(hears(cid, {'x'})) << "the long one was passed over";
    WirePeer third(meeting, "Eve");
    ASSERT_TRUE(third.knocks(ann.port()));
    EXPECT_EQ(Bytes{0}, third.next(id::joinReply).body) << "the meeting is full";
}

TEST_F(Limited, WhoAsksToJoinTooSoonWaitsForItsTurn) {
    ann->setCallerLimits({0, 0, 0, 0, 0, 2}); // so many at once, then one each 500 milliseconds
    WirePeer gone(meeting, "Eve");
    const auto start = std::chrono::steady_clock::now();
    for (WirePeer *peer : {&bob, &cid, &gone, &dan})
        ASSERT_TRUE(peer->knocks(ann.port()));
    for (WirePeer *peer : {&bob, &cid})
        EXPECT_TRUE(peer->receives(id::joinReply));
    gone.closes();
    EXPECT_TRUE(dan.receives(id::joinReply));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_TRUE(ann.sees({{"Bob", 1}, {"Cid", 2}, {"Dan", 3}}));
}

TEST_F(Limited, ARosterByDifferencesTellsEachWhatIsNewToHim) {
    const auto isTold = [](WirePeer &peer, const std::vector<std::string> &names) {
        std::vector<std::string> told;
        WireFrame frame;
        while (told.size() < names.size() && peer.receives(id::rosterReply, &frame))
            told.push_back(WireEntry::decode(frame.body).value_or(WireEntry()).firstName);
        EXPECT_EQ(names, told);
        std::vector<WireFrame> rest;
        EXPECT_TRUE(peer.fences(&rest));
        EXPECT_THAT(entries(rest, id::rosterReply), IsEmpty());
    };
    ann->setRosterByDifferences(true);
    ASSERT_TRUE(bob.joins(ann.port()));
    isTold(bob, {"Ann", "Bob"});
    ASSERT_TRUE(cid.joins(ann.port()));
    isTold(bob, {"Cid"});
    isTold(cid, {"Ann", "Bob", "Cid"});
    bob.entry.title = "Dr.";
    EXPECT_TRUE(bob.sends(id::rosterReply, bob.entry.encode()));
    isTold(cid, {"Bob"});
    ann->setRosterByDifferences(false);
    ASSERT_TRUE(dan.joins(ann.port()));
    isTold(cid, {"Ann", "Bob", "Cid", "Dan"});
}

// ---- Calls ----

class Started : public Stage {
protected:
    bool starts(const std::string &name, unsigned short port) {
        return ann->startCall(name, port, "", 0, "", "", 0);
    }
};

TEST_F(Started, ACallThatFailsLaterIsToldAndMayBePlacedAgain) {
    ASSERT_TRUE(bob.listens());
    const unsigned short free = freshPort();
    for (int round = 0; round < 2; ++round) {
        ann.forgets();
        // Some systems know at once that nobody listens.
        EXPECT_TRUE(!starts("127.0.0.1", free) || ann.isTold("noAnswer 127.0.0.1"));
    }
    ASSERT_TRUE(starts("127.0.0.1", bob.port()));
    ann.forgets();
    ann.leaves();
    EXPECT_TRUE(ann.isTold("noAnswer 127.0.0.1"));
    ASSERT_TRUE(starts("127.0.0.1", bob.port()));
    ann.dies(); // and leaves nothing behind in the loop
    EXPECT_TRUE(bob.picksUp());
}

TEST_F(Started, NobodyWaitsForAHelloOrAnAnswerBeyondItsTime) {
    for (const bool saysHello : {false, true}) {
        SCOPED_TRACE(saysHello);
        ann.forgets();
        ann->setCallTimeouts(saysHello ? 0 : 50, saysHello ? 50 : 0);
        WirePeer slowPeer(meeting, "Bob");
        ASSERT_TRUE(slowPeer.listens());
        ASSERT_TRUE(saysHello ? ann.calls(slowPeer) : starts("127.0.0.1", slowPeer.port()));
        ASSERT_TRUE(slowPeer.picksUp());
        EXPECT_TRUE(!saysHello || slowPeer.saysHello());
        EXPECT_TRUE(ann.isTold("noAnswer 127.0.0.1"));
        EXPECT_TRUE(slowPeer.seesTheEnd());
        ann.leaves();
    }
}

} // namespace
} // namespace vintok::test
