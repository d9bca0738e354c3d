// What a party gets from those who do not keep to the rules: stray bytes, wrong lengths, bodies cut
// anywhere, counts that lie, noise, texts made to be formatted. Each time it goes on as before: the
// meeting stands, nothing false is told to the application, and the next caller is served.
#include "platform/TestSockets.h"
#include "support/Environment.h"
#include "support/Hex.h"
#include "support/LogFile.h"
#include "support/SocketPair.h"
#include "support/Stage.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <cstdlib>
#include <random>

namespace vintok::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

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

// Whether the system still gives a connection whose caller has reset it meanwhile.
bool givesWhatWasReset() {
    unsigned short port = 0;
    const int listener = listenSomewhere(port);
    setNonBlocking(listener);
    const int caller = connectLocal(port);
    platform::resetOnClose(caller);
    closeDescriptor(caller);
    const int given = acceptBoundSocket(listener);
    shutdownSocket(given);
    closeDescriptor(listener);
    return given != -1;
}

// ---- Pieces of frames ----

// Fewer bytes than the smallest frame are no message yet: whoever took them for a broken one would
// answer each turn of the loop with a keep-alive, until nobody is served any more.
TEST_F(Hostile, AFewBytesAndSilenceCostNobodyAnything) {
    for (const std::size_t count : {std::size_t(1), std::size_t(4), std::size_t(35)}) {
        WireFrame hello;
        hello.id = id::rosterEntry;
        hello.body = cid.entry.encode();
        const Bytes frame = hello.encode();
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

// Whoever likes can do so all day: it is nothing to fill a log with. Without a byte: before it is
// taken in, where some systems have no connection to give any more after a reset.
TEST_F(Hostile, AFewBytesAndTheEndAreAnEnd) {
    const bool givesAll = givesWhatWasReset();
    const LogFile log(LOG_WARNING);
    for (const std::size_t count : {0U, 1U, 4U, 35U}) {
        for (const auto end : {&WirePeer::closes, &WirePeer::resets, &WirePeer::halfCloses}) {
            if (count == 0 && end == &WirePeer::resets && !givesAll)
                continue;
            WirePeer stray(meeting, "Stray");
            ASSERT_TRUE(stray.connects(ann.port()));
            ASSERT_TRUE(count == 0 ||
                        (stray.receives(id::rosterEntry) && stray.sends(Bytes(count, 1))));
            (stray.*end)();
            ASSERT_TRUE(bob.fences());
            EXPECT_TRUE(isAlone());
        }
    }
    EXPECT_EQ("", log.text());
    stands();
}

// The read is waiting for the rest when the end comes.
TEST_F(Hostile, AFrameThatIsNeverFinishedEndsWithItsSender) {
    for (const bool politely : {true, false}) {
        WireFrame frame;
        frame.id = id::broadcast;
        Bytes bytes = frame.encode();
        bytes[1] = 0x10; // a megabyte
        ASSERT_TRUE(cid.connects(ann.port()) && cid.receives(id::rosterEntry));
        ASSERT_TRUE(cid.sends(bytes));
        politely ? cid.closes() : cid.resets();
        EXPECT_TRUE(isAlone());
    }
    EXPECT_THAT(ann.events, IsEmpty());
    stands();
}

struct LengthCase {
    const char *name;
    std::uint32_t length;
    std::uint16_t format;
};

const LengthCase lengthCases[] = {
    {"nothing", 0, 2},
    {"less than its own four bytes", 3, 2},
    {"less than the shortest header", 35, 1},
    {"less than the long header", 36, 2},
    {"one less than the long header", 59, 2},
    {"the long header of a version nobody has", 40, 65535},
    {"the long header of version zero", 59, 0},
};

class WrongLength : public Hostile, public testing::WithParamInterface<LengthCase> {};

TEST_P(WrongLength, LosesThatFrameOnly) {
    Bytes bytes;
    WireWriter writer(bytes);
    writer.number(GetParam().length, 4);
    writer.number(GetParam().format, 2);
    bytes.resize(std::max<std::size_t>(36, GetParam().length), 0xAB);
    for (int times = 0; times < 3; ++times) {
        ASSERT_TRUE(bob.sends(bytes));
        ASSERT_TRUE(bob.receives(id::keepAlive)) << "the line is tested, and good";
    }
    EXPECT_TRUE(bob.fences());
    EXPECT_THAT(ann.events, ElementsAre("synch 16"));
    stands();
}

INSTANTIATE_TEST_SUITE_P(Table, WrongLength, testing::ValuesIn(lengthCases), caseName<LengthCase>);

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
    entry.lastName = "Last";
    entry.title = "Title";
    entry.phone = "Phone";
    entry.meetingName = "Meeting";
    entry.meetingID = "Identifier";
    return entry;
}

Bytes names() {
    Bytes bytes;
    WireWriter writer(bytes);
    writer.text("/there/file.txt");
    writer.text("file.txt");
    return bytes;
}

const BodyCase bodies[] = {
    {"join request", id::joinRequest, stranger().encode()},
    {"roster reply", id::rosterReply, stranger().encode()},
    {"roster entry", id::rosterEntry, stranger().encode()},
    {"leave notify", id::leaveNotify, stranger().encode()},
    {"lead request", id::leadRequest, stranger().encode()},
    {"lead change", id::leadChange, stranger().encode()},
    {"file begin", id::fileBegin, names()},
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
        if (length % 16 == 0) {
            ASSERT_TRUE(bob.fences() && host.fences());
        }
    }
    check();
}

INSTANTIATE_TEST_SUITE_P(Cut, Body, testing::ValuesIn(bodies), caseName<BodyCase>);

class Counts : public Body {};

// Every four bytes of a body that may be read as a count are replaced with counts that lie.
TEST_P(Counts, ThatLieAreNotBelieved) {
    const Bytes &whole = GetParam().body;
    const std::uint32_t lies[] = {0, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF,
                                  static_cast<std::uint32_t>(whole.size())};
    std::size_t at = GetParam().id == id::fileBegin ? 0 : 24;
    for (int text = 0; text < (GetParam().id == id::fileBegin ? 2 : 5); ++text) {
        for (const std::uint32_t lie : lies) {
            Bytes body = cutAt(whole, at);
            WireWriter(body).number(lie, 4);
            body.insert(body.end(), whole.begin() + static_cast<std::ptrdiff_t>(at + 4),
                        whole.end());
            send(body);
        }
        at += 4 + whole.at(at + 3);
        ASSERT_TRUE(bob.fences() && host.fences());
    }
    check();
}

INSTANTIATE_TEST_SUITE_P(Table, Counts,
                         testing::ValuesIn(std::vector<BodyCase>(bodies, bodies + 7)),
                         caseName<BodyCase>);

// ---- Noise ----

unsigned seed() {
    const char *fixed = std::getenv("VINTOK_TEST_SEED");
    return fixed != nullptr ? static_cast<unsigned>(std::atoi(fixed)) : std::random_device()();
}

// Whole frames, whose insides are anything: true ones with bytes changed, or chance alone.
TEST_F(Hostile, NoiseInWholeFramesIsSurvived) {
    const unsigned number = seed();
    SCOPED_TRACE("VINTOK_TEST_SEED=" + std::to_string(number));
    std::mt19937 random(number);
    const auto below = [&](std::size_t limit) { return random() % limit; };
    WirePeer &noisy = cid;
    for (int round = 0; round < 400; ++round) {
        if (!noisy.connected() || noisy.ended()) {
            ASSERT_TRUE(noisy.connects(ann.port()));
            ASSERT_TRUE(below(2) == 0 || noisy.joins(ann.port()));
        }
        WireFrame frame;
        frame.format = static_cast<std::uint16_t>(1 + below(3));
        frame.id = static_cast<unsigned char>(below(8) == 0 ? random() : 0x10 + below(0x36));
        frame.major = static_cast<std::uint16_t>(below(20) == 0 ? random() : 4);
        frame.body = stranger().encode();
        for (std::size_t changes = below(6); changes > 0; --changes)
            frame.body[below(frame.body.size())] = static_cast<unsigned char>(random());
        if (below(4) == 0)
            frame.body = Bytes(below(300), static_cast<unsigned char>(random()));
        if (!noisy.sends(frame.encode()) || round % 8 == 0)
            static_cast<void>(noisy.fences()); // hung up is well, too
    }
    noisy.closes();
    EXPECT_TRUE(bob.fences());
    EXPECT_TRUE(ann->isMeeting());
    // The first lines may be what finds the noisy one gone; then one reaches everybody.
    EXPECT_TRUE(meeting.until([&] { return ann.says("still here"); }, "a line reaches all"));
    EXPECT_TRUE(bob.receives(id::broadcast));
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
    ASSERT_TRUE(cid.sends(id::broadcast, Bytes(nasty.begin(), nasty.end())) && cid.fences());
    Bytes paths;
    WireWriter writer(paths);
    writer.text(nasty);
    writer.text("../" + nasty);
    ASSERT_TRUE(cid.sends(id::fileBegin, paths) && cid.sends(id::leaveNotify, entry.encode()));
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

TEST_F(Hostile, LongAndOddTextsComeThroughWhole) {
    const std::string odd = std::string(5000, 'x') + std::string("\0y", 2);
    cid.entry.firstName = odd;
    ASSERT_TRUE(cid.joins(ann.port()));
    EXPECT_EQ(1, ann.told("join " + odd));
    ASSERT_TRUE(bob.sends(id::rosterRequest));
    EXPECT_EQ(odd, names(bob.gets(), id::rosterReply).back());
}

// ---- Messages in the wrong place ----

TEST_F(Hostile, AHostIsNotDeposedByAMember) {
    WireEntry ann2 = bob.entry;
    ann2.state = hosting | state::leader | state::server;
    ASSERT_TRUE(bob.sends(id::rosterEntry, ann2.encode()) && bob.fences());
    for (const unsigned char id : {id::joinReply, id::leaveNotify, id::stopLead, id::rosterRequest})
        ASSERT_TRUE(bob.sends(id, bob.entry.encode()));
    EXPECT_TRUE(bob.fences());
    EXPECT_TRUE(ann->isHost() && ann->isMeeting());
    stands();
}

TEST_F(Hostile, CallersWithoutAnAddressAreOneParty) {
    cid.entry.address = dan.entry.address = WireAddress();
    ASSERT_TRUE(cid.knocks(ann.port()) && cid.receives(id::joinReply));
    ASSERT_TRUE(dan.connects(ann.port()) && dan.saysHello());
    EXPECT_TRUE(dan.receives(id::hangup) && dan.seesTheEnd()) << "one of them is enough";
    EXPECT_TRUE(cid.fences());
}

TEST_F(Hostile, ACallerThatClaimsToBeThePartyItCallsIsNotListedAsIt) {
    WirePeer mirror(meeting, "Mirror");
    TCPAddress::Storage storage = {};
    ann->address().storage(storage);
    std::copy_n(reinterpret_cast<const unsigned char *>(&storage.ip), 16,
                mirror.entry.address.ip.begin());
    mirror.entry.address.type = static_cast<std::uint32_t>(storage.type);
    mirror.entry.address.port = ann.port();
    ASSERT_TRUE(mirror.joins(ann.port()) && mirror.fences() && bob.fences());
    EXPECT_TRUE(ann->isHost() && ann->colorIndex() == 0);
    EXPECT_EQ("Ann", ann->firstName());
    mirror.closes();
    EXPECT_TRUE(bob.receives(id::leaveNotify));
    EXPECT_TRUE(ann->isHost());
    stands();
}

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
