// One party by itself: how it starts and listens, what configures it, which messages it takes and
// what it leaves behind.
#include "support/Environment.h"
#include "support/LogFile.h"
#include "support/Stage.h"
#include "support/TemporaryFolder.h"

#include <cstdio>
#include <cstdlib>

namespace vintok::test {
namespace {

class Participant : public testing::Test {
protected:
    Meeting meeting;
};

class ParticipantOnStage : public Stage {};

// What the constructor prints.
std::string announced(bool localOnly, unsigned short port, bool exactPort) {
    testing::internal::CaptureStdout();
    { ConferenceParticipant party(localOnly, port, exactPort); }
    return testing::internal::GetCapturedStdout();
}

std::string line(unsigned port) {
    return "\nPORT:" + std::to_string(port) + "\n";
}

// ---- Listening ----

TEST_F(Participant, TakesTheNextFreePortUnlessItNeedsThatOne) {
    const Party squatter(meeting, "Squatter", Party::Reach::everybody);
    LogFile log;
    EXPECT_EQ(line(0), announced(false, squatter.port(), true));
    EXPECT_TRUE(log.has("ConferenceParticipant could not create socket"));
    const std::string moved = announced(false, squatter.port(), false);
    unsigned port = 0;
    ASSERT_EQ(1, std::sscanf(moved.c_str(), "\nPORT:%u\n", &port));
    EXPECT_GT(port, squatter.port());
    EXPECT_LT(port, squatter.port() + 255u);
}

TEST_F(Participant, ListensOnTheSamePortInBothFamilies) {
    Party ann(meeting, "Ann", Party::Reach::everybody);
    Party bob(meeting, "Bob", Party::Reach::everybody);
    WirePeer cid(meeting, "Cid");
    ASSERT_NE(0, ann.port());
    EXPECT_TRUE(ann->address().isIPv4()) << "IPv4 is what it goes by";
    EXPECT_TRUE(ann.hosts("Plan") && cid.joins(ann.port()));
    if (!bob->placeCall("::1", ann.port(), "", 0, "", "", 0))
        GTEST_SKIP() << "this machine has no IPv6";
    EXPECT_TRUE(bob.isTold("join Ann"));
}

TEST_F(Participant, CanBeForThisMachineOnly) {
    Party ann(meeting, "Ann", Party::Reach::everybody);
    ConferenceParticipant local(true, freshPort());
    const unsigned short port = local.address().hostByteOrderPort();
    if (port == 0) {
        EXPECT_EQ(TCPAddress::IPTYPE_NONE, local.address().ipType());
        GTEST_SKIP() << "this machine has no IPv6: the party has no address";
    }
    EXPECT_TRUE(local.address().isIPv6() && local.address().isLoopback());
    WirePeer bob(meeting, "Bob");
    EXPECT_TRUE(bob.joins(port));
    EXPECT_TRUE(ann.ip() == "127.0.0.1" || !ann->placeCall(ann.ip(), port, "", 0, "", "", 0));
}

TEST_F(Participant, GoesWithoutAWordAndLeavesNothingInTheLoop) {
    WirePeer bob(meeting, "Bob"), cid(meeting, "Cid");
    std::vector<std::string> told;
    {
        Party ann(meeting, "Ann");
        ASSERT_TRUE(cid.listens() && bob.joins(ann.port()) && bob.fences());
        ASSERT_TRUE(bob.sends(id::rosterReply, WireEntry::party("Shadow", 60010).encode()));
        ASSERT_TRUE(bob.fences());
        ann.forgets();
        ann.inside = [&told](const std::string &event) { told.push_back(event); };
    }
    EXPECT_TRUE(bob.seesTheEnd());
    EXPECT_FALSE(bob.receives(id::hangup));
    EXPECT_THAT(told, IsEmpty());
    EXPECT_EQ(0, meeting.watched());
}

// ---- The environment ----

TEST_F(Participant, TheSwitchesAreOnWithOneWordOnly) {
    const char *const debug = "CONFERENCE_PARTICIPANT_DEBUG";
    const char *const rosterDebug = "CONFERENCE_ROSTER_DEBUG";
    const char *const secureJoins = "CONFERENCE_PRINT_SSL_JOIN_DATA";
    const struct {
        const char *variable, *value;
        LogLevel before, after;
        bool debug = false, rosterDebug = false;
    } cases[] = {
        {debug, "True", LOG_ERROR, LOG_DEBUG, true},
        {debug, "true", LOG_ERROR, LOG_ERROR},
        {rosterDebug, "True", LOG_ERROR, LOG_DEBUG, false, true},
        {secureJoins, "True", LOG_ERROR, LOG_INFO},
        {secureJoins, "True", LOG_DEBUG, LOG_DEBUG},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(std::string(row.variable) + "=" + row.value);
        LogFile log(row.before);
        const ScopedEnvironment variable(row.variable, row.value);
        ConferenceParticipant party(true, freshPort());
        EXPECT_EQ(row.after, logLevel());
        EXPECT_EQ(row.debug, ConferenceParticipant::printDebug());
        EXPECT_EQ(row.rosterDebug, ConferenceParticipant::printRosterDebug());
        ConferenceParticipant::setPrintDebug(false);
        ConferenceParticipant::setPrintRosterDebug(false);
    }
}

// ---- The configuration file, which a process reads once ----

struct Configuration {
    const char *name;
    std::string text;
    unsigned port;  // where the search for a port begins
    bool anonymous; // listens on all addresses
};

const std::string longLine(3000, 'x');

const Configuration configurations[] = {
    {"both behind others", "NAME x\n\n# y\nBIND_ANONYMOUS False\nCLIENT_PORT\t23200", 23200, false},
    {"twice", "CLIENT_PORT 23300\nCLIENT_PORT 23400\n", 23300, true},
    {"what is none",
     "CLIENT_PORT many\nCLIENT_PORT 23400\nBIND_ANONYMOUS false\nBIND_ANONYMOUS False\n", 7777,
     true},
    {"keys in other letters", "client_port 23400\nBind_Anonymous False\n", 7777, true},
    {"a long line", longLine + " " + longLine + "\nCLIENT_PORT 23500\n", 23500, true},
};

void configure(const std::string &root, const std::string &text) {
    std::filesystem::create_directories(root + "/etc");
    std::ofstream(root + "/etc/conferencing.cfg") << text;
}

// Ends well where a party listens as it was configured before there was another one.
[[noreturn]] void listen(const Configuration &row) {
    const TemporaryFolder folder;
    const std::string root = folder.path("install");
    configure(root, row.text);
    const ScopedEnvironment install("QOR_INSTALL", root);
    Meeting meeting;
    Party first(meeting, "First", Party::Reach::everybody);
    configure(root, "CLIENT_PORT 29000\n");
    ConferenceParticipant second;
    const unsigned port = second.address().hostByteOrderPort();
    WirePeer peer(meeting, "Peer");
    const bool reached = bool(peer.connects(first.port()));
    std::exit((port >= row.port && port < row.port + 255 ? 0 : 1) +
              (reached == row.anonymous || first.ip() == "127.0.0.1" ? 0 : 2));
}

TEST_F(Participant, ReadsTheConfigurationOnceInAProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe"; // a fresh process for each row
    for (const Configuration &row : configurations)
        EXPECT_EXIT(listen(row), testing::ExitedWithCode(0), "") << row.name;
}

// ---- Messages ----

TEST_F(ParticipantOnStage, NotesAndDropsMessagesThatItDoesNotKnow) {
    ASSERT_TRUE(annHosts({&bob}));
    LogFile log;
    // Reserved, held back, spoken by others, and none of the system's.
    const std::vector<unsigned char> unknown = {0x10, 0x11, 0x20, 0x21, 0x29, 0x36, 0x42,
                                                0x43, 0x45, 0x48, 0x99, 0x00, 0xFF};
    for (const unsigned char id : unknown)
        ASSERT_TRUE(bob.sends(id, bob.entry.encode()));
    EXPECT_TRUE(bob.fences());
    EXPECT_EQ(static_cast<int>(unknown.size()), log.entries("_handleMessage Unknow message"));
}

} // namespace
} // namespace vintok::test
