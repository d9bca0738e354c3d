// Versions and services, the security options, and the decision of a join about the secure
// transport, from both sides.
#include "support/Environment.h"
#include "support/LogFile.h"
#include "support/MemoryTransport.h"
#include "support/Stage.h"
#include "vintok/TCPMessage.h"

#include <algorithm>

namespace vintok::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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
    } cases[] = {{0, 0, false, false}, {2, 9, false, false}, {3, 0, false, false},
                 {3, 1, false, false}, {3, 2, false, true},  {3, 9, false, true},
                 {4, 0, true, true},   {5, 9, true, true},   {65535, 0, true, true}};
    for (const auto &row : cases) {
        SCOPED_TRACE(std::to_string(row.major) + "." + std::to_string(row.minor));
        ConferenceRosterEntry entry;
        entry.setMajorVersion(row.major);
        entry.setMinorVersion(row.minor);
        TCPMessage message;
        message.setMessageMajorVersion(row.major);
        message.setMessageMinorVersion(row.minor);
        const std::pair<ConfService, bool> services[] = {{ConfServiceABI, row.abi},
                                                         {ConfServiceFIPS, row.later},
                                                         {ConfServiceHideIP, row.later}};
        for (const auto &[service, offered] : services) {
            EXPECT_EQ(offered, ConferenceParticipant::checkVersion(row.major, row.minor, service));
            EXPECT_EQ(offered, ConferenceParticipant::checkVersion(entry, service));
            EXPECT_EQ(offered, ConferenceParticipant::checkVersion(message, service));
            EXPECT_TRUE(ConferenceParticipant::checkVersion(ann.participant(), service));
        }
    }
    LogFile log;
    for (const int value : {0, 3, 5, 7})
        EXPECT_FALSE(ConferenceParticipant::checkVersion(4, 0, static_cast<ConfService>(value)));
    EXPECT_EQ(4, log.entries("s_checkVersion ConfService not recognized"));
}

TEST_F(Security, AnOldPartyIsToldOfByItsOrigin) {
    static std::vector<std::string> origins;
    origins.clear();
    ann->setVersionCB(
        [](ConferenceParticipant *, const std::string &name, const RosterBase &party) {
            std::string ip;
            party.ipString(ip, false);
            origins.push_back(name + "/" + ip);
        });
    LogFile log(LOG_TRACE);
    for (const bool six : {false, true}) {
        for (const std::uint16_t major : {std::uint16_t(3), std::uint16_t(2)}) {
            WirePeer old(meeting, "Old");
            WireFrame frame;
            frame.id = id::keepAlive;
            frame.major = major;
            frame.body = {0};
            frame.origin = old.entry.address = WireAddress::ipv4(0x0A4D0001, 7);
            if (six) {
                frame.origin.ip = {0xFD, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
                frame.origin.type = 2;
            }
            ASSERT_TRUE(old.connects(ann.port()) && old.sends(frame.encode()));
            EXPECT_TRUE(old.receives(id::hangup) && old.seesTheEnd());
        }
    }
    EXPECT_THAT(origins, ElementsAre("/10.77.0.1", "/10.77.0.1", "/fd00:0:0:0:0:0:0:1",
                                     "/fd00:0:0:0:0:0:0:1"));
    const std::string text = log.text(); // at this level an entry says more than its message
    EXPECT_EQ(2, occurrences(text, "Handle message version 3"));
    EXPECT_EQ(1, occurrences(text, "Version 3 message is not IPv4"));
}

// ---- Options ----

TEST_F(Security, AChangedOptionIsToldByItsName) {
    for (const bool on : {true, true, false, false}) {
        ann->setSSLOnly(on);
        ann->setFIPSSecureRequired(on);
        ann->setHidingIPsRequired(on);
        EXPECT_TRUE(on == ann->isSSLOnly() && on == ann->isFIPSSecureRequired() &&
                    on == ann->isHidingIPsRequired());
    }
    EXPECT_THAT(ann.events, ElementsAre("security SSLOnly", "security FIPS", "security hideIP",
                                        "security SSLOnly", "security FIPS", "security hideIP"));
    ann->setSecurityCB(nullptr);
    ann->setSSLOnly(true);
    EXPECT_TRUE(ann->isSSLOnly());
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
    {"nobody wants it", false, false, 0, {true, true}},
    {"able is not wanting", false, false, secureAble, {true, true}},
    {"carried bits", false, false, sslOnly | fipsRequired, {true, true}},
    {"the peer requires", false, false, state::secureRequired, {false, false}},
    {"the peer prefers", false, false, securePreferred, {false, false}},
    {"Ann prefers", true, false, 0, {false, false}},
    {"both", true, false, securePreferred | secureAble, {false, false}},
    {"the multiplexer encrypts there", true, false, muxEncrypt, {true, false}},
    {"the multiplexer encrypts here", true, true, 0, {false, false}},
    {"the multiplexer encrypts", true, true, muxEncrypt | state::secureRequired, {true, true}},
};

class Demands : public Security {
protected:
    static void demand(Party &party, const Demand &row) {
        party->setSecureAble(true);
        if (row.preferred) {
            EXPECT_TRUE(party->setSecurePreferred(true));
        }
        party->setMUXEncrypt(row.mux);
    }
};

TEST_F(Demands, DecideWhetherACallerStays) {
    for (const Demand &row : demands) {
        SCOPED_TRACE(row.name);
        LogFile log;
        Party called(meeting, "Called");
        demand(called, row);
        WirePeer caller(meeting, "Caller");
        caller.entry.state = hosting | row.bits;
        ASSERT_TRUE(caller.joins(called.port())) << "it is accepted first";
        EXPECT_TRUE(row.stays[0] ? caller.fences() : caller.seesTheEnd());
        EXPECT_EQ(row.stays[0], called.told("join Caller") == 1);
        EXPECT_EQ(row.stays[0], called->isMeeting());
        EXPECT_EQ(!row.stays[0], log.has("acceptCall Secure Accept Failed"));
    }
}

TEST_F(Demands, DecideWhetherACallStays) {
    for (const Demand &row : demands) {
        SCOPED_TRACE(row.name);
        LogFile log;
        Party caller(meeting, "Caller");
        demand(caller, row);
        WirePeer called(meeting, "Called");
        called.entry.state = row.bits;
        ASSERT_TRUE(caller.asks(called) && called.sends(id::joinReply, {1}));
        EXPECT_TRUE(row.stays[1] ? called.fences() : called.receives(id::hangup));
        EXPECT_TRUE(row.stays[1] || called.seesTheEnd());
        EXPECT_EQ(1, caller.told("join Called")) << "the join completes all the same";
        EXPECT_EQ(1, caller.told("accepted Called"));
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

TEST_F(Transported, WhoIsSecureFromTheConnectionOnTalksSo) {
    ASSERT_TRUE(ann.calls(bob) && bob.isTold("pending Ann"));
    EXPECT_EQ(2u, memory.descriptors.size());
    meet();
    EXPECT_EQ(1, called("accept ")) << "nobody asked for more";
    EXPECT_EQ(1, called("connect "));
    expectTalk();
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

// A record is taken in as a whole, and the transport takes in all that has come: most of what is
// said here waits in it, where no wait on the socket sees it.
TEST_F(Transported, WhatTheTransportHasTakenInAlreadyIsHeardInOrder) {
    ASSERT_TRUE(ann.calls(bob) && bob.isTold("pending Ann"));
    meet();
    for (const std::size_t size : {std::size_t{7}, std::size_t{1000}, std::size_t{60000}}) {
        SCOPED_TRACE(size);
        memory.recordSize = size;
        std::vector<std::string> said;
        bob.forgets();
        for (int word = 0; word < 20; ++word) {
            said.push_back("data " + std::string(static_cast<std::size_t>(word * 40 + 1), 'w'));
            EXPECT_TRUE(ann.says(said.back().substr(5)));
        }
        EXPECT_TRUE(bob.isTold(said.back()));
        std::erase_if(bob.events, [](const std::string &event) { return event[0] != 'd'; });
        EXPECT_TRUE(said == bob.events);
    }
    expectTalk();
}

TEST_F(Transported, WhereTheMultiplexerEncryptsNothingElseDoes) {
    for (Party *party : {&ann, &bob}) {
        prefers(*party);
        (*party)->setMUXEncrypt(true);
    }
    rings(Handshake::works);
    meet();
    EXPECT_EQ(0, called("accept ") + called("connect "));
    expectTalk();
}

TEST_F(Transported, ACalledPartyWhoseHandshakeFailsIsToldNothing) {
    for (const Handshake failure : {Handshake::isRefused, Handshake::breaks}) {
        SCOPED_TRACE(static_cast<int>(failure));
        Party eve(meeting, "Eve");
        prefers(eve);
        memory.handshake = Handshake::isRefused;
        ASSERT_TRUE(eve.calls(bob) && bob.isTold("pending Eve"));
        memory.handshake = failure;
        EXPECT_FALSE(bob->acceptCall(eve->address()));
        EXPECT_EQ(0, bob.told("join Eve"));
        EXPECT_FALSE(bob->isMeeting());
        EXPECT_TRUE(eve.isTold("join Bob")) << "the caller hears of it first";
        EXPECT_TRUE(meeting.until([&] { return memory.descriptors.empty(); }, "nothing is left"));
        bob.forgets();
    }
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
        {"SSLInfo: SSL-disabled [ ", false, 0, "false"},
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
