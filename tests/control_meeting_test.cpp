// Meetings of a party whose application drives it through a control process, with parties that run
// in this process: the whole way from ConferenceProcess over the program to the wire and back.
#include "vintok/ConferenceControl.h"

#include "platform/Process.h"
#include "support/Children.h"
#include "support/ControlEnd.h"
#include "support/Environment.h"
#include "support/Party.h"
#include "support/TemporaryFolder.h"
#include "vintok/ControlRequest.h"
#include "vintok/TCPStream.h"

#include <gmock/gmock.h>

namespace vintok::test {
namespace {

using control::Field;

// An application with a ConferenceProcess.
class ControlledParty : public ControlEnd, public ConferenceProcessCallback {
public:
    ControlledParty(Meeting &meeting, const TemporaryFolder &folder)
        : ControlEnd(meeting), m_folder(folder) {}
    ~ControlledParty() override { ends(); }

    bool starts() {
        m_process = std::make_unique<ConferenceProcess>(this, ConferenceProcessOptions(),
                                                        m_folder.path("socket"));
        return m_process->getLastError() == CONFERENCE_NO_ERROR;
    }
    void ends() {
        forgets();
        m_process.reset();
    }
    // The process dies, whatever it does.
    bool dies() const {
        platform::Process process;
        process.id = children().value_or(std::vector<unsigned int>(1)).front();
        return platform::terminateProcess(process);
    }

    std::string story() const override { return m_folder.content("log"); }

    void processStarted(int descriptor) override { watches(descriptor); }
    void processEnded() override { ++ended; }
    void processError(ConferenceError, const char *text) override { ADD_FAILURE() << text; }

    int ended = 0;

private:
    const TemporaryFolder &m_folder;
    std::unique_ptr<ConferenceProcess> m_process;
};

// Ann is under control and hosts; Bob is called by her, Cid calls.
class ControlledMeeting : public testing::TestWithParam<std::size_t> {
public:
    void SetUp() override {
        const int probe = createUnixSocket(folder.path("probe"), 1, true);
        if (probe == -1)
            GTEST_SKIP() << "this system has no local sockets";
        shutdownSocket(probe);
        std::filesystem::create_symlink(VINTOK_CONFERENCE_CONTROL,
                                        folder.path("ConferenceControl"));
    }
    void TearDown() override {
        ann.ends();
        EXPECT_EQ(0U, childCount(0));
    }

    void startsUp() {
        ASSERT_TRUE(ann.starts());
        requestPutenv(ann.fd(), "QOR_COLLAB_ROOT_LOCAL", folder.path("ann"));
        requestStartup(ann.fd(), freshPort(), false, false, "Ann", "Ash", "Dr", "ann@example.org",
                       "1", "id");
        ASSERT_TRUE(ann.isTold("startup"));
        address = ann.told().address();
        ASSERT_TRUE(ann.isTold("hideIP", false));
    }

    void convenes() {
        requestConveneMeeting(ann.fd(), "Budget");
        ASSERT_TRUE(ann.isTold("beginMeeting", Field::meetingName, "Budget"));
        ASSERT_TRUE(ann.isTold("hosting"));
    }

    void calls() {
        bob.screensCalls();
        requestPlaceCall(ann.fd(), "127.0.0.1", bob.port(), "", 0, "", "", 0);
        ASSERT_TRUE(ann.isToldAll({"dialing", "ringing"}));
        ASSERT_TRUE(bob.isTold("pending Ann"));
    }

    void isAccepted() {
        ASSERT_TRUE(bob->acceptCall(address));
        ASSERT_TRUE(ann.isTold("placedCallAccepted", Field::firstName, "Bob"));
        ASSERT_TRUE(ann.isTold("rosterChanged"));
        ASSERT_TRUE(bob.isTold("join Ann"));
        EXPECT_EQ("Budget", bob->meetingName());
    }

    void isCalled() {
        ASSERT_TRUE(cid->placeCall("127.0.0.1", address.hostByteOrderPort(), "", 0, "", "", 0));
        ASSERT_TRUE(ann.isTold("callPending", Field::firstName, "Cid"));
    }

    void accepts() {
        requestAcceptPendingCall(ann.fd());
        ASSERT_TRUE(ann.isTold("rosterChanged"));
        ASSERT_TRUE(cid.sees({{"Ann", 0}, {"Bob", 1}}));
        ASSERT_TRUE(bob.sees({{"Ann", 0}, {"Cid", 2}}));
    }

    void asksForTheRoster() {
        ASSERT_TRUE(ann.fences());
        requestRoster(ann.fd(), RosterBase());
        std::vector<std::string> names;
        for (int i = 0; i < 3; ++i) {
            ASSERT_TRUE(ann.isTold("rosterEntry"));
            names.push_back(ann.told().person().firstName());
        }
        EXPECT_THAT(names, testing::UnorderedElementsAre("Ann", "Bob", "Cid"));
    }

    void handsOnTheLead() {
        ASSERT_TRUE(bob->requestStartLeading());
        ASSERT_TRUE(ann.isTold("leadRequestPending", Field::firstName, "Bob"));
        requestAcceptLeadChange(ann.fd());
        ASSERT_TRUE(ann.isTold("endLeading"));
        ASSERT_TRUE(bob.isTold("leader Bob"));
        ASSERT_TRUE(cid.isTold("leader Bob"));
    }

    void getsTheLeadBack() {
        bob.decidesOnLead();
        requestStartLeading(ann.fd());
        ASSERT_TRUE(bob.isTold("leadRequest Ann"));
        ASSERT_TRUE(bob->acceptLeadChange());
        ASSERT_TRUE(ann.isTold("beginLeading"));
        ASSERT_TRUE(cid.isTold("leader Ann"));
    }

    void startsRecording() {
        requestStartRecording(ann.fd(), folder.path("recording"));
        ASSERT_TRUE(ann.isTold("recordingStarted", true));
    }

    void records() {
        ASSERT_TRUE(bob.says("one") && cid.hears("one"));
        ASSERT_TRUE(cid.says("two") && bob.hears("two"));
        requestStopRecording(ann.fd());
        ASSERT_TRUE(ann.isTold("recordingStopped", true));
        EXPECT_EQ(2U * (60 + 3), folder.content("recording").size());
    }

    void sendsAFile() {
        requestTransferFile(ann.fd(), folder.holding("out.txt", "from Ann"), "out.txt");
        ASSERT_TRUE(ann.isToldAll({"transferFile", "transferredFileSuccess"}));
        ASSERT_TRUE(bob.isTold("file whole") && cid.isTold("file whole")); // in one folder
        EXPECT_EQ("from Ann", folder.content("others/out.txt"));
    }

    void getsAFile() {
        ASSERT_TRUE(bob->transferFile(folder.holding("in.txt", "from Bob"), "in.txt"));
        ASSERT_TRUE(ann.isTold("transferredFileSuccess"));
        EXPECT_THAT(ann.told().value(Field::filePath), testing::EndsWith("in.txt"));
        EXPECT_EQ("from Bob", folder.content("ann/in.txt"));
    }

    void plays() {
        bob.forgets();
        requestStartPlayback(ann.fd(), folder.path("recording"));
        ASSERT_TRUE(ann.isTold("playbackStarted", true));
        ASSERT_TRUE(bob.hears("two"));
        EXPECT_EQ(1, bob.told("data one"));
    }

    void adjourns() {
        requestAdjournMeeting(ann.fd());
        ASSERT_TRUE(ann.isTold("endMeeting"));
        ASSERT_TRUE(bob.isTold("leave Ann") && cid.isTold("leave Ann"));
    }

    void shutsDown() {
        requestShutdown(ann.fd());
        ASSERT_TRUE(ann.isLeftAlone());
    }

    struct Step {
        const char *name;
        void (ControlledMeeting::*run)();
    };
    static constexpr Step steps[] = {
        {"starts up", &ControlledMeeting::startsUp},
        {"convenes", &ControlledMeeting::convenes},
        {"calls", &ControlledMeeting::calls},
        {"is accepted", &ControlledMeeting::isAccepted},
        {"is called", &ControlledMeeting::isCalled},
        {"accepts", &ControlledMeeting::accepts},
        {"asks for the roster", &ControlledMeeting::asksForTheRoster},
        {"hands on the lead", &ControlledMeeting::handsOnTheLead},
        {"gets the lead back", &ControlledMeeting::getsTheLeadBack},
        {"starts recording", &ControlledMeeting::startsRecording},
        {"records", &ControlledMeeting::records},
        {"sends a file", &ControlledMeeting::sendsAFile},
        {"gets a file", &ControlledMeeting::getsAFile},
        {"plays", &ControlledMeeting::plays},
        {"adjourns", &ControlledMeeting::adjourns},
        {"shuts down", &ControlledMeeting::shutsDown},
    };
    static constexpr std::size_t accepted = 4, adjourned = std::size(steps) - 1;

    // The first so many steps.
    void goes(std::size_t count) {
        for (std::size_t i = 0; i < count && !HasFatalFailure(); ++i) {
            const Step &step = steps[i];
            SCOPED_TRACE(step.name);
            (this->*step.run)();
        }
    }

    TemporaryFolder folder;
    const ScopedEnvironment install{"QOR_INSTALL", folder.path("")};
    const ScopedEnvironment files{"QOR_COLLAB_ROOT_LOCAL", folder.path("others")};
    const ScopedEnvironment log{"VINTOK_ERROR_LOG_FILE", folder.path("log")};
    const ScopedEnvironment debug{"CONFERENCE_CONTROL_DEBUG"};
    Meeting meeting;
    ControlledParty ann{meeting, folder};
    Party bob{meeting, "Bob"}, cid{meeting, "Cid"};
    TCPAddress address; // Ann's
};

TEST_F(ControlledMeeting, GoesFromStartToEnd) {
    goes(std::size(steps));
    ann.ends();
    EXPECT_EQ(0, ann.ended) << "it has ended by itself";
    EXPECT_EQ(0U, childCount(0));
}

TEST_F(ControlledMeeting, IsLeftWhenTheApplicationDropsTheProcess) {
    ASSERT_NO_FATAL_FAILURE(goes(accepted));
    ann.ends();
    EXPECT_EQ(1, ann.ended);
    EXPECT_EQ(0U, childCount(0));
    EXPECT_TRUE(bob.isTold("leave Ann"));
}

TEST_F(ControlledMeeting, IsLeftInTheMiddleOfAFile) {
    ASSERT_NO_FATAL_FAILURE(goes(accepted));
    if (!children())
        GTEST_SKIP() << "this system does not show its children";
    const std::string part = folder.path("others/big");
    requestTransferFile(ann.fd(), folder.holding("big", std::string(32 << 20, 'x')), "big");
    ASSERT_TRUE(meeting.until(
        [&] {
            std::error_code none;
            return std::filesystem::exists(part) && std::filesystem::file_size(part, none) > 0;
        },
        "the beginning"));
    ASSERT_TRUE(ann.dies());
    EXPECT_TRUE(bob.isTold("leave Ann"));
    EXPECT_TRUE(bob.isTold("file failed"));
    EXPECT_TRUE(ann.isLeftAlone());
}

// The point of a process of its own: an application that hangs does not stop the meeting.
TEST_F(ControlledMeeting, GoesOnWhileTheApplicationDoesNotRead) {
    ASSERT_NO_FATAL_FAILURE(goes(accepted));
    ASSERT_TRUE(ann.fences());
    constexpr int fileCount = 150;
    ann.pauses();
    for (int i = 0; i < fileCount; ++i) {
        const std::string name = std::to_string(i) + std::string(200, 'n');
        ASSERT_TRUE(bob->transferFile(folder.holding(name, "short"), name));
        ASSERT_TRUE(meeting.until([&] { return folder.content("ann/" + name) == "short"; }, name));
    }
    EXPECT_TRUE(cid->placeCall("127.0.0.1", address.hostByteOrderPort(), "", 0, "", "", 0));
    EXPECT_TRUE(cid.isTold("ringing Ann"));
    ann.resumes();
    for (int i = 0; i < fileCount; ++i)
        ASSERT_TRUE(ann.isTold("transferredFileSuccess")) << i;
    ASSERT_TRUE(ann.isTold("callPending"));
}

TEST_P(ControlledMeeting, OutlivesTheDeathOfTheControlProcess) {
    ASSERT_NO_FATAL_FAILURE(goes(GetParam()));
    if (!children())
        GTEST_SKIP() << "this system does not show its children";
    ASSERT_EQ(1U, childCount(1));
    ASSERT_TRUE(ann.dies());
    ASSERT_TRUE(ann.isLeftAlone());
    if (GetParam() >= accepted && GetParam() < adjourned) {
        EXPECT_TRUE(bob.isTold("leave Ann"));
    }
    EXPECT_TRUE(meeting.until([&] { return !bob->isMeeting() && !cid->isMeeting(); }, "the end"));
    EXPECT_FALSE(requestTime(ann.fd()));
    ann.ends();
    EXPECT_EQ(0U, childCount(0));
    // The application and the others can go on as if nothing had been.
    ASSERT_NO_FATAL_FAILURE(startsUp());
    EXPECT_TRUE(bob.meets(cid));
}

INSTANTIATE_TEST_SUITE_P(AfterEachStep, ControlledMeeting,
                         testing::Range<std::size_t>(1, std::size(ControlledMeeting::steps)),
                         [](const testing::TestParamInfo<std::size_t> &row) {
                             return caseName(ControlledMeeting::steps[row.param - 1].name);
                         });

} // namespace
} // namespace vintok::test
