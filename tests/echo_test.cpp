// The clock echo: its bytes in both widths, its arithmetic, and two parties whose clocks lie hours
// apart. Offsets are of the whole process, so that the other clock is a raw peer's.
#include "support/Hex.h"
#include "support/LogFile.h"
#include "support/SocketPair.h"
#include "support/Stage.h"
#include "support/Stream.h"
#include "vintok/ClockCorrection.h"
#include "vintok/messageUtil.h"

#include <cstring>
#include <ctime>
#include <limits>

namespace vintok::test {
namespace {

using testing::AllOf;
using testing::Ge;
using testing::Le;

constexpr unsigned char echoRequest = 0x20, echoReply = 0x21;

std::uint64_t now() {
    return static_cast<std::uint64_t>(getTime());
}

// Big-endian times of so many bytes each.
Bytes times(std::initializer_list<std::uint64_t> values, int width) {
    Bytes bytes;
    WireWriter writer(bytes);
    for (const std::uint64_t value : values)
        writer.number(value, width);
    return bytes;
}

std::uint64_t timeAt(const Bytes &bytes, std::size_t place, int width) {
    return WireReader(bytes.data() + place, bytes.size() - place).number(width);
}

// ---- Arithmetic ----

TEST(ClockCorrection, ComesOffBothSidesSoThatTheTransitTimeStaysIn) {
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    const struct {
        const char *name;
        std::uint64_t send, receive, remote;
        std::uint64_t add, subtract;
        int beforeEpoch;
    } cases[] = {
        {"100 ahead, 10 on the way", 1000, 1010, 1105, 95, 0, 0},
        {"behind", 1000, 1010, 905, 0, 105, 0},
        {"agree without transit", 1000, 1000, 1000, 0, 0, 0},
        {"sent later than received", 2000, 1000, 1300, 300, 0, 0},
        {"remote before 1970", 1000, 1010, 0, 0, 1005, 1},
        {"half is the remote time", 1000, 1010, 5, 0, 1005, 1},
        {"half is just below it", 1000, 1010, 6, 0, 1004, 0},
        {"both before 1970", 0, 0, 0, 0, 0, 2},
        {"from 0 to the largest", most, 0, most, most, 0, 1},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        const ClockCorrection correction = correctClock(row.send, row.receive, row.remote);
        EXPECT_EQ(row.add, correction.add);
        EXPECT_EQ(row.subtract, correction.subtract);
        EXPECT_EQ(row.beforeEpoch, correction.beforeEpoch);
    }
}

// ---- The four functions ----

class Echo : public Library, public testing::WithParamInterface<bool> {
protected:
    ~Echo() override { zeroTime(); }
    const bool use32 = GetParam();
    const int width = use32 ? 4 : 8;
};

TEST_P(Echo, ARequestCarriesTheSendersTime) {
    SocketPair pair;
    const std::uint64_t before = now();
    ASSERT_TRUE(sendEchoRequest(pair.mine(), 4, 0, use32));
    const WireFrame frame = takeFrame(pair.peer());
    EXPECT_EQ(use32 ? id::echoRequest32 : echoRequest, frame.id);
    EXPECT_EQ(4, frame.major);
    EXPECT_EQ(0, frame.minor);
    ASSERT_EQ(static_cast<std::size_t>(width), frame.body.size());
    EXPECT_THAT(timeAt(frame.body, 0, width), AllOf(Ge(before), Le(now())));
}

TEST_P(Echo, AReplyCarriesTheRequestsTimeAndTheOwn) {
    SocketPair pair;
    const std::uint64_t before = now();
    ASSERT_TRUE(sendEchoReply(pair.mine(), 0x0102030405060708, 9, 8, use32));
    const WireFrame frame = takeFrame(pair.peer());
    EXPECT_EQ(use32 ? id::echoReply32 : echoReply, frame.id);
    EXPECT_EQ(9, frame.major);
    EXPECT_EQ(8, frame.minor);
    ASSERT_EQ(static_cast<std::size_t>(2 * width), frame.body.size());
    EXPECT_EQ(hex(use32 ? "05060708" : "0102030405060708"),
              cutAt(frame.body, static_cast<std::size_t>(width)));
    EXPECT_THAT(timeAt(frame.body, static_cast<std::size_t>(width), width),
                AllOf(Ge(before), Le(now())));
}

TEST_P(Echo, ARequestIsReadAndItsTimeNeverHasASign) {
    Bytes body = hex(use32 ? "fffffffe" : "fffffffffffffffe");
    std::uint64_t sendTime = 0;
    ASSERT_TRUE(decodeEchoRequest(body.data(), body.size(), sendTime, use32));
    EXPECT_EQ(use32 ? 0xFFFFFFFEu : 0xFFFFFFFFFFFFFFFEu, sendTime);
}

TEST_P(Echo, AReplyMovesTheClock) {
    const std::uint64_t start = now();
    Bytes body = times({start, start + 7200}, width);
    ASSERT_TRUE(decodeEchoReply(body.data(), body.size(), use32));
    const auto passed = static_cast<std::int64_t>(now() - start) - getAddTime();
    EXPECT_THAT(getAddTime(), AllOf(Ge(7200 - passed), Le(7200)));
    EXPECT_EQ(0, getSubtractTime());

    zeroTime();
    const std::uint64_t again = now();
    body = times({again, again - 7200}, width);
    ASSERT_TRUE(decodeEchoReply(body.data(), body.size(), use32));
    EXPECT_EQ(0, getAddTime());
    EXPECT_GE(getSubtractTime(), 7200);
    EXPECT_LE(getSubtractTime(), 7200 + (static_cast<std::int64_t>(now()) + getSubtractTime() -
                                         static_cast<std::int64_t>(again)));
}

TEST_P(Echo, ATimeBefore1970IsTakenAs1970) {
    LogFile log;
    const std::uint64_t start = now();
    Bytes body = times({start - 10, 0}, width);
    ASSERT_TRUE(decodeEchoReply(body.data(), body.size(), use32));
    EXPECT_EQ(1, log.entries("vintok::decodeEchoReply winging it with date before 1970"));
    // Half of ten seconds, and of however long this took.
    EXPECT_LE(getSubtractTime(), static_cast<std::int64_t>(start) - 5 + 60);
    EXPECT_GE(getSubtractTime(), static_cast<std::int64_t>(start) - 5);
    const std::string shown =
        "Received echo Reply send " + (use32 ? std::to_string(start - 10) : "0") + " recieve ";
    EXPECT_NE(std::string::npos, log.text().find(shown)) << log.text();
}

TEST_P(Echo, WhatIsTooShortIsRefusedAndTheClockStays) {
    LogFile log;
    const Bytes body = times({1000, 2000}, width);
    for (std::size_t length = 1; length < body.size(); ++length) {
        SCOPED_TRACE(length);
        Bytes cut = cutAt(body, length);
        const bool whole = length >= static_cast<std::size_t>(width);
        std::uint64_t time = 77;
        EXPECT_EQ(whole, decodeEchoRequest(cut.data(), cut.size(), time, use32));
        EXPECT_EQ(whole ? 1000u : 77u, time);
        EXPECT_FALSE(decodeEchoReply(cut.data(), cut.size(), use32));
    }
    EXPECT_FALSE(decodeEchoReply(nullptr, 16, use32));
    EXPECT_EQ(0, getAddTime() + getSubtractTime());
    const std::string reply = "vintok::decodeEchoReply ";
    EXPECT_EQ(1, log.entries(reply + "bad parameters to decode echo reply"));
    EXPECT_EQ(width - 1, log.entries(reply + "cannot decode send time for echo reply"));
    EXPECT_EQ(width, log.entries(reply + "cannot decode remote time for echo reply"));
}

INSTANTIATE_TEST_SUITE_P(Widths, Echo, testing::Values(true, false),
                         [](const auto &row) { return row.param ? "bits32" : "bits64"; });

// ---- Between parties ----

// What the callback got, as the two numbers that it stands for.
std::vector<std::vector<std::uint64_t>> told;

void onSynchTime(ConferenceParticipant *, unsigned char *data, std::uint64_t length) {
    std::vector<std::uint64_t> pair(length / sizeof(std::uint64_t));
    std::memcpy(pair.data(), data, pair.size() * sizeof(std::uint64_t));
    told.push_back(pair);
}

class EchoBetweenParties : public Stage {
protected:
    EchoBetweenParties() {
        told.clear();
        ann->setSynchTimeCB(onSynchTime);
        zeroTime();
    }
    ~EchoBetweenParties() override { zeroTime(); }
    // Ann joins the host and asks for its time.
    WireFrame joins() {
        EXPECT_TRUE(ann.asks(host) && host.sends(id::joinReply, {1}));
        return host.next(id::echoRequest32);
    }
};

TEST_F(EchoBetweenParties, WhoJoinsTakesOverTheTimeOfWhoeverItJoined) {
    const WireFrame request = joins();
    ASSERT_EQ(4u, request.body.size());
    EXPECT_EQ(4, request.major);
    EXPECT_EQ(0, request.minor);
    const std::uint64_t remote = timeAt(request.body, 0, 4) + 3 * 3600;
    Bytes reply = request.body;
    WireWriter(reply).number(remote, 4);
    ASSERT_TRUE(host.sends(id::echoReply32, reply));
    ASSERT_TRUE(meeting.until([] { return !told.empty(); }, "the reply is handled"));
    EXPECT_GE(now(), remote) << "Ann's clock shows the host's time, and what passed since";
    EXPECT_LE(now(), remote + 60);
    EXPECT_THAT(told, ElementsAre(ElementsAre(static_cast<std::uint64_t>(getAddTime()), 0u)));
}

TEST_F(EchoBetweenParties, AnAnswerSays44AndLeavesTheClockAlone) {
    ASSERT_TRUE(ann.hosts("talk") && bob.joins(ann.port()));
    const std::uint64_t before = now();
    ASSERT_TRUE(bob.sends(id::echoRequest32, hex("01020304")));
    const WireFrame reply = bob.next(id::echoReply32);
    EXPECT_EQ(4, reply.major);
    EXPECT_EQ(4, reply.minor);
    ASSERT_EQ(8u, reply.body.size());
    EXPECT_EQ(hex("01020304"), cutAt(reply.body, 4));
    EXPECT_THAT(timeAt(reply.body, 4, 4), AllOf(Ge(before), Le(now())));
    EXPECT_EQ(0, getAddTime() + getSubtractTime());
    EXPECT_THAT(told, ElementsAre(ElementsAre(0u, 0u)));
}

TEST_F(EchoBetweenParties, WhatIsNoEchoIsNotAnsweredAndMovesNothing) {
    LogFile log;
    ASSERT_TRUE(annHosts({&bob}));
    told.clear();
    ASSERT_TRUE(bob.sends(id::echoRequest32, {}) && bob.sends(id::echoRequest32, {1, 2, 3}));
    ASSERT_TRUE(bob.sends(id::echoReply32, {}) && bob.sends(id::echoReply32, Bytes(7, 1)));
    ASSERT_TRUE(bob.sends(echoRequest, Bytes(8, 1)) && bob.sends(echoReply, Bytes(16, 1)));
    EXPECT_THAT(kinds(bob.gets()), IsEmpty());
    EXPECT_THAT(told, ElementsAre(ElementsAre(0u, 0u))) << "the fence alone";
    EXPECT_EQ(0, getAddTime() + getSubtractTime());
    EXPECT_EQ(2, log.entries("_handleMessage Unknow message")) << "the wide forms";
}

// ---- The clock ----

class Clock : public Library {
protected:
    // The library's clock must lie `offset` seconds from the system's.
    static void expectOffset(std::int64_t offset) {
        const std::int64_t before = std::time(nullptr);
        const std::int64_t now = getTime();
        const std::int64_t after = std::time(nullptr);
        EXPECT_LE(before + offset, now);
        EXPECT_GE(after + offset, now);
    }
};

TEST_F(Clock, KeepsTwoCountersByItsTwoRules) {
    struct Case {
        std::vector<std::int64_t> steps; // positive: added; negative: subtracted
        std::int64_t added, subtracted;
    };
    // An excess of added time stays whole, one of subtracted time is reduced; equal ones stay.
    const Case cases[] = {
        {{10}, 10, 0},       {{-10}, 0, 10},  {{10, -4}, 10, 0},
        {{3, -8}, 0, 5},     {{5, -5}, 5, 5}, {{5, -5, 1}, 6, 0},
        {{5, -5, -1}, 0, 1}, {{-8, 3}, 0, 5}, {{-8, 20}, 20, 0},
    };
    for (const Case &each : cases) {
        zeroTime();
        for (const std::int64_t step : each.steps)
            EXPECT_TRUE(step > 0 ? addTime(step) : subtractTime(-step));
        EXPECT_EQ(each.added, getAddTime());
        EXPECT_EQ(each.subtracted, getSubtractTime());
        expectOffset(each.added - each.subtracted);
    }
    zeroTime();
    expectOffset(0);
}

TEST_F(Clock, SurvivesAnyNumber) {
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
    for (const auto &[added, subtracted] :
         {std::pair{most, least}, std::pair{least, most}, std::pair{most, most}}) {
        EXPECT_TRUE(addTime(added));
        EXPECT_TRUE(subtractTime(subtracted));
        getTime();
    }
    zeroTime();
    expectOffset(0);
}

TEST_F(Clock, StartsAnewWithTheLibrary) {
    addTime(1000);
    fini();
    expectOffset(0);
    expectError(TCP_ERROR_NOT_INITIALIZED, "vintok::getTime");
    init();
    EXPECT_EQ(0, getAddTime());
    expectOffset(0);
}

} // namespace
} // namespace vintok::test
