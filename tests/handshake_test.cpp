// Handshakes that go on in the background of the loop, and members under TLS that stop reading: who
// is slow, silent or gone holds nobody up.
//
// Ann hosts; Cid and Dan talk over TLS. All are on one thread, so a handshake that blocked would
// never end. What is to take long takes longer than a test waits for anything.
#include "platform/Socket.h"
#include "support/Party.h"
#include "support/TLSEnds.h"

#include <algorithm>

namespace vintok::test {
namespace {

constexpr std::uint32_t forLong = 25000, shortly = 30; // milliseconds
constexpr std::uint32_t securePreferred = 0x80000;     // of a party's state word
constexpr std::uint64_t MB = 1000 * 1000;
const Bytes beginOfHello = {0x16, 3, 1, 2, 0, 1};

class Handshakes : public testing::Test {
protected:
    Handshakes() {
        set({1, forLong, forLong});
        EXPECT_TRUE(setTransport(&tls) && setBackgroundTransport(&tls));
        for (Party *party : {&ann, &bob, &cid, &dan})
            (*party)->setBackgroundHandshakes(true);
        EXPECT_TRUE(ann.hosts("talk") && cid.meets(ann) && dan.meets(ann));
    }
    ~Handshakes() override {
        for (Party *party : {&ann, &bob, &cid, &dan})
            party->dies();
        setTransport(nullptr);
        for (const int end : {there, here})
            if (end != -1)
                platform::closeSocket(end);
    }

    // For the handshakes that begin from now on.
    struct Times {
        std::uint32_t connectWait, acceptWait, handshake;
    };
    void set(const Times &times) {
        options.connectWait = times.connectWait;
        options.acceptWait = times.acceptWait;
        options.handshakeTime = times.handshake;
        EXPECT_TRUE(tls.open(options)) << lastErrorString();
    }

    testing::AssertionResult talkGoesOn() {
        const std::string line = "line " + std::to_string(++said);
        return cid.says(line) ? dan.hears(line) : testing::AssertionFailure() << "cannot say it";
    }

    // Bob calls Ann through a wire that the test holds.
    testing::AssertionResult bobCallsByWire() {
        WirePeer answers(meeting, "wire"), connects(meeting, "wire");
        if (!answers.listens() || !bob.calls(answers) || !answers.picksUp())
            return testing::AssertionFailure() << "no wire to Bob";
        const auto connected = connects.connects(ann.port());
        there = answers.handsOver();
        here = connects.handsOver();
        return connected;
    }
    // Lets so many bytes through in each direction and turn until the condition holds.
    testing::AssertionResult byWire(std::size_t atOnce, const std::function<bool()> &condition) {
        const auto pass = [&](int from, int to) {
            Bytes bytes(atOnce);
            const std::int64_t count = platform::receiveNow(from, bytes.data(), atOnce);
            if (count <= 0)
                return;
            platform::send(to, bytes.data(), static_cast<std::size_t>(count));
            wire.append(bytes.begin(), bytes.begin() + count);
        };
        const auto holds = [&] {
            pass(there, here);
            pass(here, there);
            return condition();
        };
        return meeting.until(holds, "by the wire");
    }
    testing::AssertionResult bobMeetsByWire() {
        const auto connected = bobCallsByWire();
        return connected ? byWire(4096, [this] { return haveMet(); }) : connected;
    }
    bool haveMet() const { return bob.told("join Ann") == 1 && ann.told("join Bob") == 1; }
    bool isOnWire(const std::string &text) const { return wire.find(text) != std::string::npos; }

    // A party without TLS asks Ann to make the connection secure, is accepted, and says nothing
    // more.
    testing::AssertionResult asksForSecure(WirePeer &peer) {
        peer.entry.state |= securePreferred;
        set({1, shortly, forLong});
        const auto greeted = peer.connects(ann.port()) ? peer.receives(id::rosterEntry)
                                                       : testing::AssertionFailure();
        set({1, forLong, forLong});
        peer.saysHello();
        peer.asksToJoin();
        return greeted ? peer.receives(id::joinReply) : greeted;
    }

    Meeting meeting;
    TLSOptions options = optionsFor("mine.example");
    TLSTransport tls;
    Party ann{meeting, "Ann"}, bob{meeting, "Bob"}, cid{meeting, "Cid"}, dan{meeting, "Dan"};
    WirePeer eve{meeting, "Eve"}, fay{meeting, "Fay"};
    int said = 0;
    int there = -1, here = -1; // the wire's ends, towards Bob and Ann
    std::string wire;          // what has passed
};

// ---- Who connects ----

TEST_F(Handshakes, WhoSaysNothingHoldsNobodyUpAndOthersAreServedPlainOrSecure) {
    eve.readsText(true);
    ASSERT_TRUE(eve.connects(ann.port()));
    EXPECT_TRUE(talkGoesOn() && bobMeetsByWire());
    EXPECT_TRUE(eve.rest().empty()) << "it may yet begin with TLS";
    set({1, shortly, forLong});
    EXPECT_TRUE(fay.joins(ann.port())) << "silence is plain in the end";
    EXPECT_TRUE(eve.rest().empty());
    eve.readsText(false);
    EXPECT_TRUE(eve.saysHello() && eve.receives(id::rosterEntry)) << "and so is any other byte";
    EXPECT_TRUE(eve.asksToJoin() && eve.receives(id::joinReply)) << "which is not lost";
    EXPECT_TRUE(talkGoesOn());
}

TEST_F(Handshakes, WhoStopsInTheMiddleIsHungUpInTime) {
    ASSERT_TRUE(eve.connects(ann.port()) && eve.sends(beginOfHello));
    EXPECT_TRUE(talkGoesOn());
    set({1, shortly, shortly});
    for (const Bytes &begin : {beginOfHello, Bytes{0x16, 3}}) {
        ASSERT_TRUE(fay.connects(ann.port()) && fay.sends(begin));
        EXPECT_TRUE(fay.seesTheEnd()) << begin.size();
    }
    EXPECT_FALSE(eve.ended()) << "its time is another";
    set({1, forLong, forLong});
    ann->setCallerLimits({1, 0, 0, 0, 0});
    WirePeer gus(meeting, "Gus"), hal(meeting, "Hal");
    ASSERT_TRUE(fay.connects(ann.port()) && talkGoesOn() && gus.connects(ann.port()));
    EXPECT_TRUE(fay.seesTheEnd()) << "makes room for the next";
    ann->setCallerLimits({0, 0, shortly, 0, 0});
    ASSERT_TRUE(hal.connects(ann.port()));
    EXPECT_TRUE(hal.seesTheEnd()) << "has said no hello";
    EXPECT_FALSE(gus.ended());
    ann.dies();
    EXPECT_TRUE(eve.seesTheEnd() && gus.seesTheEnd()) << "nothing is left behind";
}

// ---- Calls ----

TEST_F(Handshakes, ACallWhoseHandshakeFailsEndsWithoutAnAnswer) {
    const auto calls = [&](bool starts) {
        return starts ? bob->startCall("127.0.0.1", eve.port(), "", 0, "", "", 0) : bob.calls(eve);
    };
    ASSERT_TRUE(eve.listens());
    for (const bool starts : {false, true}) {
        set({1, forLong, shortly});
        ASSERT_TRUE(calls(starts) && eve.picksUp());
        EXPECT_TRUE(bob.isTold("noAnswer 127.0.0.1") && eve.seesTheEnd());
        set({1, forLong, forLong});
        ASSERT_TRUE(calls(starts) && eve.picksUp()) << "the same may be called again";
        EXPECT_TRUE(meeting.until([&] { return !eve.rest().empty(); }, "it has begun"));
        EXPECT_FALSE(calls(starts)) << "it is under way";
        bob->hangup();
        EXPECT_TRUE(eve.seesTheEnd());
        EXPECT_EQ(2, bob.told("noAnswer 127.0.0.1"));
        bob.forgets();
    }
    EXPECT_TRUE(bob.meets(ann));
}

// ---- Joins ----

TEST_F(Handshakes, AJoinThatTurnsSecureGoesOnBehindItsHandshake) {
    ann.screensCalls();
    bob->setSecureAble(true);
    ASSERT_TRUE(bob->setSecurePreferred(true));
    tls.setConnectsUnnamed(false);
    set({1, shortly, forLong});
    ASSERT_TRUE(bobCallsByWire() && byWire(4096, [this] { return ann.told("pending Bob") == 1; }));
    EXPECT_TRUE(isOnWire("Bob")) << "so far it is plain";
    tls.setConnectsUnnamed(true);
    set({1, forLong, forLong});
    EXPECT_TRUE(ann->acceptCall(bob->address()));
    EXPECT_FALSE(ann->acceptCall(bob->address())) << "it is under way";
    EXPECT_TRUE(talkGoesOn());
    EXPECT_FALSE(haveMet());
    EXPECT_TRUE(byWire(1, [this] { return haveMet(); }));
    EXPECT_TRUE(bob.says("secret") && byWire(64, [this] { return ann.told("data secret") == 1; }));
    EXPECT_FALSE(isOnWire("secret"));
}

TEST_F(Handshakes, WhoAsksForOneInAJoinAndMakesNoneHoldsNobodyUp) {
    ann->setMeetingLimits({3, 0, 0});
    ASSERT_TRUE(asksForSecure(eve));
    EXPECT_TRUE(talkGoesOn());
    set({1, shortly, forLong});
    EXPECT_FALSE(fay.joins(ann.port())) << "its place is taken";
    EXPECT_TRUE(ann.rejects(eve) && eve.seesTheEnd() && talkGoesOn());
    ASSERT_TRUE(asksForSecure(eve));
    eve.closes();
    set({1, shortly, forLong});
    EXPECT_TRUE(meeting.until([&] { return bool(fay.joins(ann.port())); }, "its place is free"));
    fay.hangsUp();
    EXPECT_TRUE(ann.isTold("leave Fay"));
}

// As without the background: the join completes all the same.
TEST_F(Handshakes, ACallerWhoseHandshakeFailsInTheJoinJoinsAndLeaves) {
    ASSERT_TRUE(eve.listens());
    eve.entry.state |= securePreferred;
    for (const bool hangsUp : {true, false}) {
        set({forLong, forLong, hangsUp ? forLong : shortly});
        ASSERT_TRUE(bob.calls(eve) && eve.picksUp() && eve.saysHello());
        ASSERT_TRUE(eve.receives(id::joinRequest));
        set({1, forLong, hangsUp ? forLong : shortly});
        ASSERT_TRUE(eve.sends(id::joinReply, {1}));
        EXPECT_TRUE(meeting.until([&] { return !eve.rest().empty(); }, "it has begun"));
        if (hangsUp)
            bob->hangup();
        EXPECT_TRUE(eve.seesTheEnd());
        EXPECT_EQ(hangsUp ? 0 : 1, bob.told("join Eve"));
        EXPECT_EQ(hangsUp ? 0 : 1, bob.told("accepted Eve"));
    }
}

// ---- Members that stop reading ----

TEST_F(Handshakes, AMemberThatIsHeldUpHearsEverythingInTheEnd) {
    ann->setSlowMemberLimits({40 * MB, forLong, 40 * MB});
    ASSERT_TRUE(bobMeetsByWire());
    std::vector<std::string> lines;
    const auto isHeard = [&] { return bob.told("data " + lines.back()) == 1; };
    for (int line = 0; line < 80; ++line) {
        lines.push_back(std::to_string(line) + std::string(100000, '.'));
        ASSERT_TRUE(ann.says(lines.back()) && cid.hears(lines.back()));
        if (line == 60) {
            EXPECT_GT(ann->waitingBytes(), 0u);
            EXPECT_TRUE(byWire(3000, [&] { return bob.told("data " + lines[20]) == 1; }));
        }
    }
    EXPECT_TRUE(byWire(60000, isHeard));
    std::erase_if(bob.events, [](const std::string &event) { return event[0] != 'd'; });
    ASSERT_EQ(lines.size(), bob.events.size());
    for (std::size_t i = 0; i < lines.size(); ++i)
        EXPECT_TRUE("data " + lines[i] == bob.events[i]) << i;
}

} // namespace
} // namespace vintok::test
