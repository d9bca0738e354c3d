// What a party gets from those who do not keep to the rules: stray bytes, wrong lengths, bodies cut
// anywhere, counts that lie, noise, texts made to be formatted. Each time it goes on as before: the
// meeting stands, nothing false is told to the application, and the next caller is served.
#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "support/Environment.h"
#include "support/Hex.h"
#include "support/LogFile.h"
#include "support/Stage.h"

#include <algorithm>

namespace vintok::test {
namespace {

class Hostile : public Stage {
protected:
    Hostile() { setLogLevel(LOG_NONE); }

    // The meeting that must not suffer.
    void SetUp() override {
        ASSERT_TRUE(annHosts({&bob}));
        ann.forgets();
        before = meeting.watched();
    }
    void stands() {
        EXPECT_TRUE(ann.says("still here") && bob.receives(id::broadcast));
        WirePeer next(meeting, "Next");
        EXPECT_TRUE(next.joins(ann.port()));
        EXPECT_TRUE(bob.fences());
    }
    // Whoever came has gone again.
    testing::AssertionResult isAlone() {
        return meeting.until([&] { return meeting.watched() == before; }, "the end");
    }

    int before = 0; // any stranger came
};

// ---- Pieces of frames ----

// Fewer bytes than the smallest frame are no message yet: whoever took them for a broken one would
// answer each turn of the loop with a keep-alive, until nobody is served any more.
TEST_F(Hostile, AFewBytesAndSilenceCostNobodyAnything) {
    for (const std::size_t count : {std::size_t(4), std::size_t(35)}) {
        const Bytes frame = WireFrame{.id = id::rosterEntry, .body = cid.entry.encode()}.encode();
        ASSERT_TRUE(cid.connects(ann.port()) && cid.receives(id::rosterEntry));
        ASSERT_TRUE(cid.sends(cutAt(frame, count)));
        for (int turns = 0; turns < 5; ++turns)
            ASSERT_TRUE(bob.fences());
        ASSERT_TRUE(
            cid.sends(Bytes(frame.begin() + static_cast<std::ptrdiff_t>(count), frame.end())));
        ASSERT_TRUE(cid.asksToJoin());
        EXPECT_EQ(id::joinReply, cid.gets().at(0).id)
            << "the frame goes on where it was, and no keep-alive came before";
        cid.closes();
        EXPECT_TRUE(bob.receives(id::leaveNotify));
    }
    stands();
}

// Whoever likes can do so all day: it is nothing to fill a log with.
TEST_F(Hostile, AFewBytesAndTheEndAreAnEnd) {
    const LogFile log(LOG_WARNING);
    for (const std::size_t count : {1U, 35U}) {
        for (const auto end : {&WirePeer::closes, &WirePeer::resets, &WirePeer::halfCloses}) {
            WirePeer stray(meeting, "Stray");
            ASSERT_TRUE(stray.connects(ann.port()) && stray.receives(id::rosterEntry));
            ASSERT_TRUE(stray.sends(Bytes(count, 1)));
            (stray.*end)();
            ASSERT_TRUE(bob.fences());
            EXPECT_TRUE(isAlone());
        }
    }
    EXPECT_EQ("", log.text());
    stands();
}

// What is announced, and in which format.
const std::pair<std::uint32_t, std::uint16_t> wrongLengths[] = {
    {3, 2},      // less than its own four bytes
    {35, 1},     // less than the shortest header
    {59, 2},     // less than the long header
    {40, 65535}, // the long header of a version that nobody has
};

TEST_F(Hostile, AWrongLengthLosesThatFrameOnly) {
    for (const auto &[length, format] : wrongLengths) {
        SCOPED_TRACE(length);
        Bytes bytes;
        WireWriter writer(bytes);
        writer.number(length, 4);
        writer.number(format, 2);
        bytes.resize(std::max<std::size_t>(36, length), 0xAB);
        for (int times = 0; times < 3; ++times) {
            ASSERT_TRUE(bob.sends(bytes));
            ASSERT_TRUE(bob.receives(id::keepAlive)) << "the line is tested, and good";
        }
        EXPECT_TRUE(bob.fences());
    }
    EXPECT_THAT(ann.events, testing::Each("synch 16"));
    stands();
}

// ---- Bodies ----

struct BodyCase {
    const char *name;
    unsigned char id;
    Bytes body;
};

// A party that nobody has met, so that every trace of it in what the application is told is a
// fault.
WireEntry stranger() {
    WireEntry entry = WireEntry::party("Stranger", 60030);
    entry.lastName = entry.title = entry.phone = entry.meetingName = entry.meetingID = "strange";
    return entry;
}

const BodyCase bodies[] = {
    {"join request", id::joinRequest, stranger().encode()},
    {"roster reply", id::rosterReply, stranger().encode()},
    {"roster entry", id::rosterEntry, stranger().encode()},
    {"leave notify", id::leaveNotify, stranger().encode()},
    {"lead request", id::leadRequest, stranger().encode()},
    {"lead change", id::leadChange, stranger().encode()},
    {"file begin", id::fileBegin, wireTexts({"/there/file.txt", "file.txt"})},
    {"file end", id::fileEnd, {0, 0, 0, 1}},
    {"file ack", id::fileAck, Bytes(11, 1)},
    {"echo request", id::echoRequest32, {0, 0, 0, 1}},
    {"echo reply", id::echoReply32, Bytes(8)},
};

class Body : public Hostile, public testing::WithParamInterface<BodyCase> {
protected:
    // The same messages at a host, from its member, and at a member, from its host.
    void SetUp() override {
        Hostile::SetUp();
        ASSERT_TRUE(host.joins(eve.port()) && host.fences());
        eve.forgets();
    }
    void send(const Bytes &body) {
        ASSERT_TRUE(bob.sends(GetParam().id, body) && host.sends(GetParam().id, body));
    }
    // Nobody has heard of the stranger, or of a part of it.
    void check() {
        ASSERT_TRUE(bob.fences() && host.fences());
        for (Party *party : {&ann, &eve}) {
            std::vector<std::string> told = party->events;
            std::erase(told, "synch 16");
            EXPECT_THAT(told, IsEmpty());
            EXPECT_TRUE((*party)->isMeeting());
        }
        EXPECT_EQ(ann.roster(), (Roster{{"Bob", 1}}));
        EXPECT_EQ(eve.roster(), (Roster{{"Host", 65535}}));
        stands();
    }

    Party eve{meeting, "Eve"};
};

TEST_P(Body, CutAnywhereIsNotTakenForTheWhole) {
    const Bytes &whole = GetParam().body;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        send(cutAt(whole, length));
        ASSERT_TRUE(length % 16 != 0 || (bob.fences() && host.fences()));
    }
    check();
}

INSTANTIATE_TEST_SUITE_P(Cut, Body, testing::ValuesIn(bodies), caseName<BodyCase>);

// ---- Callers that cannot be served ----

TEST_F(Hostile, ACallerThatGivesUpInTheQueueTakesNobodyElseWithIt) {
    for (WirePeer *next : {&dan, &host}) {
        next->entry.state = 0;
        ASSERT_TRUE(cid.connects(ann.port()) && next->connects(ann.port()));
        cid.resets();
        EXPECT_TRUE(next->receives(id::rosterEntry));
        EXPECT_TRUE(next->saysHello() && next->asksToJoin() && next->receives(id::joinReply));
    }
}

// A listener whose connection cannot be accepted stays readable; a host that only noted that would
// spin.
TEST_F(Hostile, WithoutDescriptorsAHostTurnsCallersAwayAndServesItsMembers) {
    const std::size_t limit = platform::descriptorLimit();
    if (!platform::setDescriptorLimit(200))
        GTEST_SKIP() << "this system sets no limit on descriptors";
    std::vector<int> ballast;
    const auto fill = [&] {
        for (int more = 0; more != -1;)
            if ((more = platform::openSocket(platform::FAMILY_IPV4)) != -1)
                ballast.push_back(more);
    };
    const auto drop = [&] {
        platform::closeSocket(ballast.back());
        ballast.pop_back();
    };
    setLogLevel(LOG_ERROR);
    testing::internal::CaptureStderr(); // a log file would need a descriptor, too
    fill();
    for (int times = 0; times < 3; ++times) {
        drop();
        ASSERT_TRUE(cid.connects(ann.port()) && cid.seesTheEnd());
        EXPECT_TRUE(ann.says("hello") && bob.fences());
        cid.closes();
        fill();
    }
    int busyTurns = 0;
    for (int turns = 0; turns < 20; ++turns)
        busyTurns += meeting.turn() ? 1 : 0;
    EXPECT_LT(busyTurns, 5) << "nothing is left to do";
    while (!ballast.empty())
        drop();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(1, occurrences(log, "accept failed")) << "once for each shortage\n" << log;
    EXPECT_TRUE(cid.joins(ann.port())) << "as soon as there is room";
    platform::setDescriptorLimit(limit);
}

// ---- Texts ----

TEST_F(Hostile, TextsAreNeverFormatsAndTheLogShowsTheirControls) {
    const std::string nasty = "%s%n%d%99999999d\r\n\t{\x1b[31m";
    const ScopedEnvironment root("QOR_COLLAB_ROOT_LOCAL", testing::TempDir());
    LogFile log(LOG_TRACE);
    ConferenceParticipant::setPrintDebug(true);
    WireEntry &entry = cid.entry;
    for (std::string *text : {&entry.firstName, &entry.lastName, &entry.title, &entry.email,
                              &entry.phone, &entry.meetingName, &entry.meetingID})
        *text = nasty;
    dan.entry = entry;
    ASSERT_TRUE(cid.joins(ann.port()));
    ASSERT_TRUE(dan.connects(ann.port()) && dan.saysHello() && dan.seesTheEnd());
    ASSERT_TRUE(cid.sends(id::broadcast, letters(nasty)) && cid.fences());
    ASSERT_TRUE(cid.sends(id::fileBegin, wireTexts({nasty, "../" + nasty})) &&
                cid.sends(id::leaveNotify, entry.encode()));
    ASSERT_TRUE(cid.fences());
    cid.resets();
    EXPECT_FALSE(ann.says("anybody?"));
    ConferenceParticipant::setPrintDebug(false);
    EXPECT_EQ(1, ann.told("join " + nasty));
    EXPECT_EQ(1, ann.told("data " + nasty));
    EXPECT_EQ(1, ann.told("leave " + nasty));
    const std::string logged = log.text();
    EXPECT_THAT(logged, HasSubstr("First Name:  %s%n%d%99999999d\\x0d\\x0a\\x09{\\x1b[31m\n"));
    EXPECT_THAT(logged, HasSubstr("path leaves the root ../%s"));
    EXPECT_EQ(std::string::npos, logged.find_first_of("\r\x1b")) << "no terminal acts on it";
}

// ---- Messages in the wrong place ----

// A connection whose peer was believed to be behind a proxy took frames for HTTP, and was lost.
TEST_F(Hostile, HowAPartyIsReachedIsNotForTheWireToSay) {
    constexpr std::uint32_t road = state::shadow | state::proxyPending | state::multiplexerPending;
    WireEntry lie = bob.entry;
    lie.state |= road;
    ASSERT_TRUE(bob.sends(id::rosterEntry, lie.encode()) && bob.fences()) << "of itself";
    cid.entry.state = dan.entry.state = road;
    ASSERT_TRUE(cid.joins(ann.port()) && cid.sends(id::rosterReply, lie.encode()) && cid.fences());
    EXPECT_TRUE(bob.fences()) << "of another";

    ASSERT_TRUE(dan.connects(ann.port()) && dan.saysHello() && dan.fences());
    ASSERT_TRUE(bob.fences() && bob.sends(id::rosterRequest));
    EXPECT_THAT(names(bob.gets(), id::rosterReply), testing::Not(testing::Contains("Dan")))
        << "nobody has admitted it";
    stands();
}

} // namespace
} // namespace vintok::test
