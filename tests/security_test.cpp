// Versions and services, the security options, and the decision of a join about the secure
// transport, from both sides.
#include "support/Environment.h"
#include "support/LogFile.h"
#include "support/MemoryTransport.h"
#include "support/Stage.h"

#include <algorithm>

namespace vintok::test {
namespace {

// Further bits of a party's state word.
constexpr std::uint32_t secureAble = 0x200, muxEncrypt = 0x40000, securePreferred = 0x80000,
                        fipsRequired = 0x200000, sslOnly = 0x800000;

class Security : public testing::Test {
protected:
    ~Security() override { setTransport(nullptr); }

    Meeting meeting;
    Party ann{meeting, "Ann"};
};

// ---- Versions ----

TEST_F(Security, AVersionOffersAServiceFromTheFirstThatHasIt) {
    const struct {
        unsigned short major, minor;
        bool abi, later; // `later`: FIPS-grade security and hiding, which came together
    } cases[] = {
        {2, 9, false, false}, {3, 1, false, false}, {3, 2, false, true}, {4, 0, true, true}};
    for (const auto &row : cases) {
        SCOPED_TRACE(std::to_string(row.major) + "." + std::to_string(row.minor));
        ConferenceRosterEntry entry;
        entry.setMajorVersion(row.major);
        entry.setMinorVersion(row.minor);
        EXPECT_EQ(row.abi, ConferenceParticipant::checkVersion(entry, ConfServiceABI));
        for (const ConfService service : {ConfServiceFIPS, ConfServiceHideIP})
            EXPECT_EQ(row.later, ConferenceParticipant::checkVersion(entry, service));
    }
    LogFile log;
    EXPECT_FALSE(ConferenceParticipant::checkVersion(4, 0, static_cast<ConfService>(3)));
    EXPECT_EQ(1, log.entries("s_checkVersion ConfService not recognized"));
}

// ---- Options ----

TEST_F(Security, AChangedOptionIsToldByItsName) {
    for (const bool on : {true, true, false, false}) {
        ann->setSSLOnly(on);
        ann->setFIPSSecureRequired(on);
        ann->setHidingIPsRequired(on);
    }
    EXPECT_THAT(ann.events, ElementsAre("security SSLOnly", "security FIPS", "security hideIP",
                                        "security SSLOnly", "security FIPS", "security hideIP"));
}

TEST_F(Security, PreferenceIsRaisedByWhoeverIsAbleAndLoweredWhileNobodyIsThere) {
    LogFile log;
    EXPECT_FALSE(ann->setSecurePreferred(true) || ann->isSecurePreferred());
    EXPECT_TRUE(log.has("setSecurePreferred unable to set encryption preferred"));
    EXPECT_TRUE(ann->setSecurePreferred(false));
    ann->setSecureAble(true);
    EXPECT_TRUE(ann->setSecurePreferred(true) && ann->isSecurePreferred());
    EXPECT_TRUE(ann->setSecurePreferred(false) && !ann->isSecurePreferred());

    WirePeer bob(meeting, "Bob");
    ASSERT_TRUE(ann.hosts("talk") && bob.joins(ann.port()));
    EXPECT_TRUE(ann->setSecurePreferred(true)) << "it can always be raised";
    EXPECT_FALSE(ann->setSecurePreferred(false));
    EXPECT_TRUE(ann->isSecurePreferred());
    EXPECT_TRUE(log.has("setSecurePreferred unable to set encryption while connected"));
    EXPECT_EQ(0, ann.told("security none"));
}

// ---- The decision, without a transport: who wants one loses the connection ----

struct Demand {
    const char *name;
    bool preferred;     // by Ann
    bool mux;           // Ann's own bit
    std::uint32_t bits; // the peer's
    bool stays[2];      // when Ann is called, when Ann calls
};

const Demand demands[] = {
    {"able is not wanting", false, false, secureAble | sslOnly | fipsRequired, {true, true}},
    {"the peer requires", false, false, state::secureRequired, {false, false}},
    {"the peer prefers", false, false, securePreferred, {false, false}},
    {"Ann prefers", true, false, 0, {false, false}},
    {"the multiplexer encrypts there", true, false, muxEncrypt, {true, false}},
    {"the multiplexer encrypts here", true, true, 0, {false, false}},
    {"the multiplexer encrypts", true, true, muxEncrypt | state::secureRequired, {true, true}},
};

void demand(Party &party, const Demand &row) {
    party->setSecureAble(true);
    EXPECT_TRUE(!row.preferred || party->setSecurePreferred(true));
    party->setMUXEncrypt(row.mux);
}

TEST_F(Security, DemandsDecideWhoStays) {
    for (const Demand &row : demands) {
        SCOPED_TRACE(row.name);
        LogFile log;
        Party one(meeting, "One"), other(meeting, "Other");
        demand(one, row);
        WirePeer caller(meeting, "Caller"), called(meeting, "Called");
        caller.entry.state = hosting | row.bits;
        ASSERT_TRUE(caller.joins(one.port())) << "it is accepted first";
        EXPECT_TRUE(row.stays[0] ? caller.fences() : caller.seesTheEnd());
        EXPECT_EQ(row.stays[0], one.told("join Caller") == 1);
        EXPECT_EQ(row.stays[0], one->isMeeting());
        EXPECT_EQ(!row.stays[0], log.has("acceptCall Secure Accept Failed"));

        demand(other, row);
        called.entry.state = row.bits;
        ASSERT_TRUE(other.asks(called) && called.sends(id::joinReply, {1}));
        EXPECT_TRUE(row.stays[1] ? called.fences() : called.receives(id::hangup));
        EXPECT_TRUE(row.stays[1] || called.seesTheEnd());
        EXPECT_EQ(1, other.told("join Called")) << "the join completes all the same";
        EXPECT_EQ(1, other.told("accepted Called"));
        EXPECT_EQ(!row.stays[1], log.has("_handleJoinReply vintok::secureConnect failed"));
    }
}

// ---- With a transport ----

class Transported : public Security {
protected:
    using Handshake = MemoryTransport::Handshake;
    Transported() {
        setTransport(&memory);
        bob.screensCalls();
    }
    static void prefers(Party &party) {
        party->setSecureAble(true);
        ASSERT_TRUE(party->setSecurePreferred(true));
    }
    // Ann's call waits for Bob's answer. Nothing is secure so far; the next handshake goes so.
    void rings(Handshake next) {
        memory.handshake = Handshake::isRefused;
        ASSERT_TRUE(ann.calls(bob) && bob.isTold("pending Ann"));
        EXPECT_THAT(memory.descriptors, IsEmpty());
        memory.calls.clear();
        memory.handshake = next;
    }
    // Bob accepts the call, and both are told.
    void meet() {
        EXPECT_TRUE(bob->acceptCall(ann->address()));
        EXPECT_TRUE(ann.isTold("join Bob") && bob.isTold("join Ann"));
    }
    int called(const std::string &word) const {
        return static_cast<int>(
            std::count_if(memory.calls.begin(), memory.calls.end(),
                          [&](const std::string &call) { return call.rfind(word, 0) == 0; }));
    }
    void expectTalk() {
        EXPECT_TRUE(ann.says("hello") && bob.hears("hello"));
        EXPECT_TRUE(bob.says("you too") && ann.hears("you too"));
    }

    MemoryTransport memory; // serves both ends
    Party bob{meeting, "Bob"};
};

TEST_F(Transported, TheJoinTurnsAPlainConnectionSecureOnBothSides) {
    for (Party *wants : {&ann, &bob}) {
        SCOPED_TRACE(wants->name());
        Party &other = wants == &ann ? bob : ann;
        prefers(*wants);
        rings(Handshake::works);
        meet();
        EXPECT_EQ(1, called("accept "));
        EXPECT_EQ(1, called("connect "));
        EXPECT_EQ(2u, memory.descriptors.size());
        expectTalk();
        ann.leaves();
        EXPECT_TRUE(bob.isTold("leave Ann"));
        ann.forgets();
        bob.forgets();
        EXPECT_TRUE((*wants)->setSecurePreferred(false));
        EXPECT_FALSE(other->isSecurePreferred());
    }
}

TEST_F(Transported, WhoIsSecureAlreadyConnectsNoSecondTime) {
    prefers(ann);
    ASSERT_TRUE(ann.calls(bob) && bob.isTold("pending Ann"));
    memory.handshake = Handshake::isAbsent;
    meet();
    EXPECT_EQ(2, called("accept "));
    EXPECT_EQ(1, called("connect "));
    expectTalk();
}

TEST_F(Transported, ACallerWhoseHandshakeFailsJoinsAndLeaves) {
    prefers(ann);
    rings(Handshake::works);
    EXPECT_TRUE(bob->acceptCall(ann->address()));
    memory.handshake = Handshake::isRefused;
    EXPECT_TRUE(ann.isTold("join Bob"));
    EXPECT_TRUE(bob.isTold("join Ann") && bob.isTold("leave Ann"));
    EXPECT_THAT(memory.descriptors, IsEmpty());
}

// ---- The report of a join ----

TEST_F(Security, AJoinIsReportedToWhoeverAsksForIt) {
    const ScopedEnvironment asked("CONFERENCE_PRINT_SSL_JOIN_DATA", "True");
    const LogLevel before = logLevel(); // the switch makes the log louder
    const struct {
        const char *prefix;
        bool hides;
        std::uint32_t bits;
        const char *asks; // the peer for encryption
    } cases[] = {
        {"SSLInfo: SSL-MUXmode [ ", false, muxEncrypt | state::secureRequired, "true"},
        {"SSLInfo: SSL-disabled [ ", true, 0, "false"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.prefix);
        Party called(meeting, "Called");
        LogFile log;
        called->setHidingIPsRequired(row.hides);
        WirePeer caller(meeting, "Caller");
        caller.entry.address = WireAddress::ipv4(0x0A4D0909, 40000);
        caller.entry.email = "caller@example.org";
        caller.entry.state = hosting | row.bits;
        ASSERT_TRUE(caller.joins(called.port()) && caller.fences());
        const std::string peer = row.asks, ip = row.hides ? "0.0.0.0" : "10.77.9.9";
        for (const std::string &line :
             {row.prefix + ip + " ] : 40000 ", std::string("\n  caller@example.org\n}"),
              "me/peer - isMUX:false/" + peer + " 128Able:false/false 128Req:false/" + peer +
                  " Vers:4.0/4.0\n"})
            EXPECT_THAT(log.text(), testing::HasSubstr(line));
        // The roster's texts name no address of a party that hides.
        ConferenceRosterEntry entry;
        entry.setHidingIPsRequired(row.hides);
        EXPECT_EQ(row.hides, entry.toString().find("IP:  hidden\n") != std::string::npos);
    }
    setLogLevel(before);
}

} // namespace
} // namespace vintok::test
