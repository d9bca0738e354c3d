// One party by itself: how it starts and listens, what configures it, which messages it takes and
// what it leaves behind.
#include "platform/Socket.h"
#include "support/Environment.h"
#include "support/LogFile.h"
#include "support/Stage.h"
#include "support/TemporaryFolder.h"

#include <cstdio>
#include <cstdlib>

namespace vintok::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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

// Takes a port for itself, in the families that it is given, as far as the machine has them.
class Squatter {
public:
    explicit Squatter(const std::vector<platform::Family> &families) {
        for (int tries = 0; tries < 255 && m_port == 0; ++tries) {
            const unsigned short port = freshPort();
            bool all = true;
            for (const platform::Family family : families)
                all = take(family, port) && all;
            if (all) {
                m_port = port;
            } else {
                release();
            }
        }
    }
    ~Squatter() { release(); }
    Squatter(const Squatter &) = delete;
    Squatter &operator=(const Squatter &) = delete;

    unsigned short port() const { return m_port; } // 0: it got none

private:
    bool take(platform::Family family, unsigned short port) {
        const int descriptor = platform::openSocket(family);
        if (descriptor == -1)
            return true;
        m_descriptors.push_back(descriptor);
        TCPAddress address;
        address.setHostByteOrderPort(port);
        platform::Endpoint endpoint;
        endpoint.family = family;
        endpoint.port = address.port();
        return platform::setExclusiveAddress(descriptor) &&
               (family != platform::FAMILY_IPV6 || platform::setIPv6Only(descriptor)) &&
               platform::bindSocket(descriptor, endpoint) && platform::listenSocket(descriptor, 1);
    }
    void release() {
        for (const int descriptor : m_descriptors)
            platform::closeSocket(descriptor);
        m_descriptors.clear();
    }

    std::vector<int> m_descriptors;
    unsigned short m_port = 0;
};

const std::vector<platform::Family> bothFamilies = {platform::FAMILY_IPV4, platform::FAMILY_IPV6};

// ---- Listening ----

TEST_F(Participant, TakesTheNextFreePortUnlessItNeedsThatOne) {
    const Squatter squatter(bothFamilies);
    ASSERT_NE(0, squatter.port());
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
    if (!bob->placeCall("::1", ann.port(), "", 0, "", "", 0)) {
        GTEST_SKIP() << "this machine has no IPv6";
    }
    EXPECT_TRUE(bob.isTold("join Ann"));
}

TEST_F(Participant, LivesOnOneFamilyWhenThePortIsTakenInTheOther) {
    const Squatter squatter({platform::FAMILY_IPV6});
    if (squatter.port() == 0) {
        GTEST_SKIP() << "this machine has no IPv6";
    }
    for (const bool exactPort : {true, false}) {
        EXPECT_EQ(line(squatter.port()), announced(false, squatter.port(), exactPort));
        const int before = meeting.watched();
        const ConferenceParticipant party(false, squatter.port(), exactPort);
        EXPECT_EQ(before + 1, meeting.watched()) << "it does not look for another port";
    }
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
    if (ann.ip() != "127.0.0.1") {
        EXPECT_FALSE(ann->placeCall(ann.ip(), port, "", 0, "", "", 0));
    }
}

TEST_F(Participant, ThatCouldNotStartRefusesCallsAndLeavesNoConnection) {
    const Squatter squatter(bothFamilies);
    ConferenceParticipant failed(false, squatter.port(), true);
    WirePeer bob(meeting, "Bob");
    ASSERT_TRUE(bob.listens());
    LogFile log;
    for (int again = 0; again < 2; ++again) {
        EXPECT_FALSE(failed.placeCall("127.0.0.1", bob.port(), "", 0, "", "", 0));
        ASSERT_TRUE(bob.picksUp());
        EXPECT_TRUE(bob.seesTheEnd());
    }
    EXPECT_EQ(2, log.entries("placeCall cannot add data callback"));
    EXPECT_FALSE(failed.sendBroadcastData(reinterpret_cast<const unsigned char *>("x"), 1));
    EXPECT_TRUE(failed.hostMeeting("Plan"));
    failed.hangup();
    EXPECT_FALSE(failed.isMeeting());
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

TEST_F(ParticipantOnStage, ThatGoesWhileOthersStayDoesNotDisturbThem) {
    Party eve(meeting, "Eve");
    auto fay = std::make_unique<Party>(meeting, "Fay");
    ASSERT_TRUE(gather(ann, {&eve, fay.get()}));
    EXPECT_TRUE(ann.says("one"));
    fay.reset(); // with the message unread
    EXPECT_TRUE(ann.isTold("leave Fay") && eve.isTold("leave Fay"));
    EXPECT_TRUE(ann.says("two") && eve.hears("two"));
}

// ---- The environment ----

TEST_F(Participant, TheSwitchesAreOnWithOneWordOnly) {
    const char *const debug = "CONFERENCE_PARTICIPANT_DEBUG";
    const char *const rosterDebug = "CONFERENCE_ROSTER_DEBUG";
    const char *const secureJoins = "CONFERENCE_PRINT_SSL_JOIN_DATA";
    const struct {
        const char *variable;
        const char *value;
        LogLevel before, after;
        bool debug = false, rosterDebug = false;
    } cases[] = {
        {debug, "True", LOG_ERROR, LOG_DEBUG, true},
        {debug, "True", LOG_TRACE, LOG_TRACE, true},
        {debug, "true", LOG_ERROR, LOG_ERROR},
        {debug, "TRUE", LOG_ERROR, LOG_ERROR},
        {debug, "True ", LOG_ERROR, LOG_ERROR},
        {rosterDebug, "True", LOG_ERROR, LOG_DEBUG, false, true},
        {rosterDebug, "1", LOG_ERROR, LOG_ERROR},
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

struct ConfigurationCase {
    const char *name;
    const char *text;
    unsigned port;  // where the search for a port begins
    bool anonymous; // listens on all addresses
};

const std::string longLine(3000, 'x');
const std::string longThenPort = longLine + " " + longLine + "\nCLIENT_PORT 23500\n";

const ConfigurationCase configurationCases[] = {
    {"nothing", "", 7777, true},
    {"a port", "CLIENT_PORT 23100\n", 23100, true},
    {"both behind others", "NAME x\n\n# y\nBIND_ANONYMOUS False\nCLIENT_PORT\t23200", 23200, false},
    {"a port twice", "CLIENT_PORT 23300\nCLIENT_PORT 23400\n", 23300, true},
    {"a port that is none", "CLIENT_PORT many\nCLIENT_PORT 23400\n", 7777, true},
    {"a word that is none", "BIND_ANONYMOUS false\nBIND_ANONYMOUS False\n", 7777, true},
    {"the word that says what holds", "BIND_ANONYMOUS True\nBIND_ANONYMOUS False\n", 7777, true},
    {"keys in other letters", "client_port 23400\nBind_Anonymous False\n", 7777, true},
    {"a long line", longThenPort.c_str(), 23500, true},
};

class Configuration : public testing::TestWithParam<ConfigurationCase> {
protected:
    void SetUp() override {
        testing::FLAGS_gtest_death_test_style = "threadsafe"; // a fresh process for each row
    }
};

void configure(const std::string &root, const std::string &text) {
    std::filesystem::create_directories(root + "/etc");
    std::ofstream(root + "/etc/conferencing.cfg") << text;
}

// Says on standard error where a party listens.
void report(const ConfigurationCase &row) {
    const TemporaryFolder folder;
    const std::string root = folder.path("install");
    configure(root, row.text);
    const ScopedEnvironment install("QOR_INSTALL", root);
    Meeting meeting;
    Party first(meeting, "First", Party::Reach::everybody);
    configure(root, "CLIENT_PORT 29000\n");
    ConferenceParticipant second;
    const unsigned port = second.address().hostByteOrderPort();
    const bool portFits = port >= row.port && port < row.port + 255;
    WirePeer peer(meeting, "Peer");
    const bool reached = bool(peer.connects(first.port()));
    const bool bindFits = reached == row.anonymous || first.ip() == "127.0.0.1";
    std::fprintf(stderr, "listens from %u: %s, anonymous: %s\n", row.port, portFits ? "yes" : "no",
                 bindFits ? "as configured" : "not as configured");
}

[[noreturn]] void reportInAChild(const ConfigurationCase &row) {
    report(row);
    std::exit(0);
}

TEST_P(Configuration, IsReadOnceInAProcess) {
    EXPECT_EXIT(reportInAChild(GetParam()), testing::ExitedWithCode(0),
                ": yes, anonymous: as configured");
}

INSTANTIATE_TEST_SUITE_P(Table, Configuration, testing::ValuesIn(configurationCases),
                         caseName<ConfigurationCase>);

// ---- Messages ----

TEST_F(ParticipantOnStage, NotesAndDropsMessagesThatItDoesNotKnow) {
    ASSERT_TRUE(annHosts({&bob}));
    LogFile log;
    // Reserved, held back, spoken by others, and none of the system's.
    const std::vector<unsigned char> unknown = {0x10, 0x11, 0x20, 0x21, 0x22, 0x29, 0x34,
                                                0x43, 0x45, 0x46, 0x99, 0x00, 0xFF};
    for (const unsigned char id : unknown)
        ASSERT_TRUE(bob.sends(id, bob.entry.encode()));
    EXPECT_TRUE(bob.fences());
    EXPECT_EQ(static_cast<int>(unknown.size()), log.entries("_handleMessage Unknow message"));
}

TEST_F(ParticipantOnStage, ThatIsNoHostIgnoresTheDemandToStopLeading) {
    host.entry.state = hosting | state::leader;
    ASSERT_TRUE(annAttends());
    ann.forgets();
    ASSERT_TRUE(host.sends(id::stopLead));
    EXPECT_THAT(kinds(host.gets()), IsEmpty());
    EXPECT_THAT(ann.events, ElementsAre("synch 16"));
}

TEST_F(ParticipantOnStage, AnswersAnEchoWithItsClockInAMinorVersionOfItsOwn) {
    ASSERT_TRUE(bob.connects(ann.port()) && bob.sends(id::echoRequest32, {1, 2, 3, 4}));
    const WireFrame echo = bob.next(id::echoReply32);
    EXPECT_EQ(4, echo.major);
    EXPECT_EQ(4, echo.minor);
    ASSERT_EQ(8u, echo.body.size());
    EXPECT_EQ((Bytes{1, 2, 3, 4}), Bytes(echo.body.begin(), echo.body.begin() + 4));
}

} // namespace
} // namespace vintok::test
