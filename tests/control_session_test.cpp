// ConferenceControl as an application and the other parties of a meeting see it: the program runs
// as a child, the application is at its socket, the parties are at its port.
#include "Options.h"
#include "support/Application.h"
#include "support/Party.h"
#ifdef VINTOK_PROGRAM
#include "support/Program.h"
#endif
#include "support/SocketPair.h"
#include "support/WirePeer.h"

#include <vintok/ControlRequest.h>
#include <vintok/TCPMessage.h>
#include <vintok/TCPStream.h>

#include <gmock/gmock.h>

namespace vintok::test {
namespace {

using control::Field;
using testing::ElementsAre;
using testing::HasSubstr;

class ControlSession : public testing::Test {
protected:
    void SetUp() override {
        // Where there are no local sockets there is no way to the program.
        const int probe = createUnixSocket(folder.path("probe"), 1, true);
        if (probe == -1)
            GTEST_SKIP() << "this system has no local sockets";
        shutdownSocket(probe);
        app = std::make_unique<Application>(
            meeting, std::vector<std::string>{"-local", "-uf", "Ann", "-alarm", "0"});
    }

    // Convenes a meeting with Bob in it, and nothing more to be told.
    testing::AssertionResult holdsMeetingWith(Party &party) {
        if (const auto started = app->startsUp(); !started)
            return started;
        requestConveneMeeting(app->fd(), "Budget");
        if (!party->placeCall("127.0.0.1", app->port(), "", 0, "", "", 0))
            return testing::AssertionFailure() << "cannot call" << app->story();
        if (const auto pending = app->isTold("callPending"); !pending)
            return pending;
        requestAcceptPendingCall(app->fd());
        if (const auto joined = party.isTold("accepted Ann"); !joined)
            return joined;
        return app->fences();
    }

    Meeting meeting;
    TemporaryFolder folder;
    std::unique_ptr<Application> app;
};

TEST_F(ControlSession, StartsUpConvenesAndLetsCallersInOneAfterTheOther) {
    ASSERT_TRUE(app->connects()) << app->story();
    requestStartup(app->fd(), freshPort(), true, true, "", "Bee", "", "", "", "");
    ASSERT_TRUE(app->isTold("startup"));
    EXPECT_FALSE(app->told().has(Field::isSecure)); // nothing there could secure it
    const unsigned short port = app->told().address().hostByteOrderPort();
    ASSERT_TRUE(app->isTold("hideIP", true));
    requestStartup(app->fd(), 0, false, false, "", "", "", "", "", "");
    ASSERT_TRUE(app->isTold("startup"));
    EXPECT_EQ(port, app->told().address().hostByteOrderPort());
    ASSERT_TRUE(app->fences());

    requestConveneMeeting(app->fd(), "Budget");
    std::vector<std::string> words;
    ASSERT_TRUE(app->fences(&words));
    EXPECT_THAT(words, ElementsAre("hideIP", "beginMeeting", "hosting", "rosterEntry"));

    Party bob(meeting, "Bob");
    ASSERT_TRUE(bob->placeCall("127.0.0.1", port, "", 0, "", "", 0));
    ASSERT_TRUE(app->isTold("callPending", Field::firstName, "Bob"));
    Party cid(meeting, "Cid");
    ASSERT_TRUE(cid->placeCall("127.0.0.1", port, "", 0, "", "", 0));
    ASSERT_TRUE(cid.isTold("ringing Ann"));
    requestAcceptPendingCall(app->fd());
    ASSERT_TRUE(app->isTold("rosterChanged", Field::change, "join"));
    EXPECT_EQ(1u, app->told().person().colorIndex());
    ASSERT_TRUE(app->isTold("callPending", Field::firstName, "Cid"));
    requestRejectPendingCall(app->fd());
    ASSERT_TRUE(cid.isTold("rejected Ann"));
    EXPECT_EQ("Budget", bob->meetingName());
    ASSERT_TRUE(app->fences());

    requestRoster(app->fd(), RosterBase());
    requestEnableUser(app->fd(), RosterBase()); // nobody of that address
    words.clear();
    ASSERT_TRUE(app->fences(&words));
    EXPECT_THAT(words, ElementsAre("rosterEntry", "rosterEntry"));

    bob.leaves();
    ASSERT_TRUE(app->isTold("rosterChanged", Field::change, "leave"));
    words.clear();
    ASSERT_TRUE(app->fences(&words));
    EXPECT_THAT(words, testing::Not(testing::Contains("endMeeting"))) << "a convened one stays";
    requestAdjournMeeting(app->fd());
    ASSERT_TRUE(app->isTold("endMeeting"));
}

TEST_F(ControlSession, CallsOthersAndTellsHowItWent) {
    ASSERT_TRUE(app->startsUp()) << app->story();
    Party host(meeting, "Dora");
    host.hosts("Talk");
    requestPlaceCall(app->fd(), "127.0.0.1", host.port(), "", 0, "", "", 0);
    ASSERT_TRUE(app->isToldAll({"dialing", "ringing", "placedCallAccepted", "beginMeeting"}));
    ASSERT_TRUE(app->isTold("rosterChanged", Field::firstName, "Dora"));
    EXPECT_EQ("join", app->told().value(Field::change));

    requestStartLeading(app->fd()); // Dora lets everybody lead
    ASSERT_TRUE(app->isToldAll({"beginLeadingGranted", "beginLeading"}));
    requestStopLeading(app->fd());
    ASSERT_TRUE(app->isTold("endLeading"));
    ASSERT_TRUE(app->isTold("leaderChanged", Field::firstName, "Dora"));
    host.decidesOnLead();
    requestStartLeading(app->fd());
    ASSERT_TRUE(host.isTold("leadRequest Ann"));
    host->rejectLeadChange();
    ASSERT_TRUE(app->isTold("beginLeadingDenied"));

    requestHangup(app->fd());
    ASSERT_TRUE(app->isTold("endMeeting"));
    ASSERT_TRUE(host.isTold("leave Ann"));
    requestStartLeading(app->fd()); // with nobody to ask
    ASSERT_TRUE(app->isTold("beginLeadingDenied"));
    host.screensCalls();
    host->hostMeeting("Talk");
    requestPlaceCall(app->fd(), "127.0.0.1", host.port(), "", 0, "", "", 0);
    ASSERT_TRUE(host.isTold("pending Ann"));
    TCPAddress caller;
    caller.setLoopbackIPv6();
    caller.setHostByteOrderPort(app->port());
    if (!host->rejectCall(caller)) { // as it told its address
        caller.clear();
        caller.setHostByteOrderPort(app->port());
        ASSERT_TRUE(host->rejectCall(caller));
    }
    ASSERT_TRUE(app->isTold("placedCallRejected", Field::machineName, "127.0.0.1"));
    requestPlaceCall(app->fd(), "127.0.0.1", 1, "", 0, "", "", -1);
    ASSERT_TRUE(app->isTold("placedCallNoAnswer"));
}

TEST_F(ControlSession, TellsWhyACallFails) {
    ASSERT_TRUE(app->startsUp()) << app->story();
    Party dora(meeting, "Dora"), bob(meeting, "Bob");
    dora.hosts("Talk");
    ASSERT_TRUE(bob.meets(dora));
    requestPlaceCall(app->fd(), "127.0.0.1", bob.port(), "", 0, "", "", 0);
    ASSERT_TRUE(app->isTold("placedCallBusy", Field::firstName, "Bob"));

    WirePeer server(meeting, "Server"); // a proxy, and later an old party
    server.readsText(true);
    ASSERT_TRUE(server.listens());
    requestPlaceCall(app->fd(), "mux.example", 1, "127.0.0.1", server.port(), "talk", "a:b", 3);
    ASSERT_TRUE(server.picksUp());
    ASSERT_TRUE(server.sendsText("HTTP/1.0 407 X\r\nProxy-Authenticate: Basic\r\n\r\n"));
    ASSERT_TRUE(app->isTold("serverResponse", Field::serverResponseCode, "407"));
    ASSERT_TRUE(app->isTold("authenticationRequired", Field::triesRemaining, "2"));
    EXPECT_EQ("a:b", app->told().value(Field::authenticationString));

    server.readsText(false);
    requestPlaceCall(app->fd(), "127.0.0.1", server.port(), "", 0, "", "", 0);
    ASSERT_TRUE(server.picksUp());
    WireFrame old;
    old.id = id::keepAlive;
    old.major = 3;
    old.body = {0};
    old.origin = server.entry.address;
    ASSERT_TRUE(server.sends(old.encode()));
    ASSERT_TRUE(app->isTold("versionNotCompatible", Field::machineName, "127.0.0.1"));
}

TEST_F(ControlSession, KeepsItsLinesWhateverAGuestIsCalled) {
    ASSERT_TRUE(app->startsUp()) << app->story();
    requestConveneMeeting(app->fd(), "Budget");
    const std::pair<std::string, std::string> names[] = {
        {"Eve\nendMeeting\n", "Eve\\x0aendMeeting\\x0a"},
        {std::string("E\0ve", 4), "E\\x00ve"},
        {std::string(5000, 'e'), std::string(4096, 'e') + "..."}};
    for (const auto &[name, told] : names) {
        WirePeer eve(meeting, "Eve");
        eve.entry.firstName = name;
        eve.entry.address = {}; // told as one, or the lines would be missing
        ASSERT_TRUE(eve.connects(app->port()) && eve.saysHello() && eve.asksToJoin());
        ASSERT_TRUE(app->isTold("callPending", Field::firstName, told));
        requestAcceptPendingCall(app->fd());
        ASSERT_TRUE(app->isTold("rosterChanged", Field::firstName, told));
        eve.closes();
        ASSERT_TRUE(app->isTold("rosterChanged", Field::change, "leave"));
    }
}

// Every roster tells of everybody; what the application knows already is not told again.
TEST_F(ControlSession, TellsWhoHasChanged) {
    Party bob(meeting, "Bob");
    ASSERT_TRUE(holdsMeetingWith(bob));
    bob->setTitle("Dr");
    ASSERT_TRUE(bob->sendRoster());
    ASSERT_TRUE(app->isTold("rosterEntry", Field::title, "Dr"));
    ASSERT_TRUE(bob->sendRoster());
    bob->setTitle("Prof");
    ASSERT_TRUE(bob->sendRoster());
    ASSERT_TRUE(app->isTold("rosterEntry", Field::title, "Prof"));
}

TEST_F(ControlSession, RecordsWhatIsSaidAndPlaysIt) {
    Party bob(meeting, "Bob");
    ASSERT_TRUE(holdsMeetingWith(bob));
    const std::string path = folder.path("recording");
    requestStartRecording(app->fd(), path);
    ASSERT_TRUE(app->isTold("recordingStarted", true));
    ASSERT_TRUE(bob.says("one") && bob.says("two"));
    ASSERT_TRUE(meeting.until([&] { return folder.content("recording").size() == 2 * (60 + 3); },
                              "two records"));
    requestStartPlayback(app->fd(), path); // of the file that is written
    ASSERT_TRUE(app->isTold("playbackStarted", false));
    requestStopRecording(app->fd());
    ASSERT_TRUE(app->isTold("recordingStopped", true));

    bob.forgets();
    requestPausePlayback(app->fd());
    requestStartPlayback(app->fd(), path);
    ASSERT_TRUE(app->isTold("playbackPaused", false)) << "nothing was played then";
    ASSERT_TRUE(app->isTold("playbackStarted", true));
    ASSERT_TRUE(bob.hears("two"));
    EXPECT_EQ(1, bob.told("data one"));
    ASSERT_TRUE(app->isTold("playbackStopped", true));

    bob.forgets();
    requestDisableUser(app->fd(), RosterBase(bob->address()));
    requestStartPlayback(app->fd(), path);
    ASSERT_TRUE(app->isTold("playbackStopped", true));
    EXPECT_EQ(0, bob.told("data two")) << "while he is disabled he hears nothing";
    requestEnableUser(app->fd(), RosterBase(bob->address()));
    requestStartPlayback(app->fd(), path);
    ASSERT_TRUE(bob.hears("two"));
    ASSERT_TRUE(app->isTold("playbackStopped", true));
    requestStartRecording(app->fd(), path); // which has something in it
    ASSERT_TRUE(app->isTold("recordingStarted", false));
    EXPECT_EQ(126u, folder.content("recording").size());
}

// Three messages, a second and a day apart: the third does not come by itself.
TEST_F(ControlSession, PausesResumesAndEndsAPlayback) {
    Party bob(meeting, "Bob");
    ASSERT_TRUE(holdsMeetingWith(bob));
    std::string records;
    for (const std::int64_t stamp : {100, 101, 101 + 86400}) {
        TCPMessage message;
        message.setMessageID(TCP_broadcastMessage);
        ASSERT_TRUE(message.allocateMessageBuffer(2));
        message.setTimeStamp(stamp);
        message.messageBuffer()[0] = 'h';
        message.messageBuffer()[1] = stamp == 101 ? 'o' : 'i';
        records.append(message.rawBuffer(), message.rawBuffer() + message.rawBufferLength());
    }
    requestStartPlayback(app->fd(), folder.holding("long", records));
    ASSERT_TRUE(app->isTold("playbackStarted", true));
    ASSERT_TRUE(bob.hears("hi"));
    requestPausePlayback(app->fd());
    ASSERT_TRUE(app->isTold("playbackPaused", true));
    requestResumePlayback(app->fd());
    ASSERT_TRUE(app->isTold("playbackResumed", true));
    ASSERT_TRUE(bob.hears("ho"));
    requestStopPlayback(app->fd());
    ASSERT_TRUE(app->isTold("playbackStopped", true));

    // What breaks off in the middle is played up to there, and what is no recording not at all.
    bob.forgets();
    requestStartPlayback(app->fd(), folder.holding("cut", records.substr(0, 100)));
    ASSERT_TRUE(app->isTold("playbackStarted", true));
    ASSERT_TRUE(bob.hears("hi"));
    ASSERT_TRUE(app->isTold("playbackStopped", false));
    ASSERT_TRUE(app->process().complained("damaged at byte 62"));
    for (const std::string &path : {folder.path("missing"), folder.path("")}) {
        requestStartPlayback(app->fd(), path);
        ASSERT_TRUE(app->isTold("playbackStarted", false)) << path;
    }
    // The end of the meeting ends both.
    requestStartPlayback(app->fd(), folder.path("long"));
    requestStartRecording(app->fd(), folder.path("new"));
    ASSERT_TRUE(app->isTold("recordingStarted", true));
    requestHangup(app->fd());
    ASSERT_TRUE(app->isTold("playbackStopped", false));
    ASSERT_TRUE(app->isTold("recordingStopped", true));
    requestStartPlayback(app->fd(), folder.path("long"));
    ASSERT_TRUE(app->isTold("playbackStarted", false)) << "in no meeting";
}

TEST_F(ControlSession, TellsWhenARecordingCannotBeWritten) {
    Party bob(meeting, "Bob");
    ASSERT_TRUE(holdsMeetingWith(bob));
    for (const std::string &path : {folder.path(""), folder.path("no folder/file")}) {
        requestStartRecording(app->fd(), path);
        ASSERT_TRUE(app->isTold("recordingStarted", false)) << path;
    }
    requestStartRecording(app->fd(), "/dev/full"); // opens, and takes nothing
    ASSERT_TRUE(app->isTold("recordingStarted", true));
    ASSERT_TRUE(bob.says("lost"));
    ASSERT_TRUE(app->isTold("recordingStopped", false));
    ASSERT_TRUE(app->process().complained("/dev/full"));
}

Bytes request(const std::string &text) {
    WireFrame frame;
    frame.id = 0x10;
    frame.body.assign(text.begin(), text.end());
    return frame.encode();
}

TEST_F(ControlSession, SurvivesWhateverItIsSent) {
    ASSERT_TRUE(app->connects()) << app->story();
    // Too early, too much, damaged, of another kind, in the wrong direction, without sense.
    for (const char *text : {"conveneMeeting\n", "placeCall\n", "stopPlayback\n", "hangup\n",
                             "nonsense\n", "startup\nport\n70000\n", "putenv\n", "hosting\n"})
        ASSERT_TRUE(app->asks(text));
    ASSERT_TRUE(app->sends(request("")));
    ASSERT_TRUE(app->sends(request("hangup\n")));
    ASSERT_TRUE(app->sends(request(std::string("startup\nport\0\n", 14))));
    ASSERT_TRUE(app->asks("startRecording\nfilePath\n" + std::string(4 << 20, 'x') + "\n"));
    WireFrame other;
    other.id = id::broadcast;
    other.body = {1, 2, 3};
    ASSERT_TRUE(app->sends(other.encode()));
    std::vector<std::string> words;
    ASSERT_TRUE(app->fences(&words)) << app->story();
    EXPECT_THAT(words, ElementsAre("playbackStopped"));

    ASSERT_TRUE(app->process().complained("too long")) << app->story();

    // Frames that are none cost what came with them and no more.
    for (const Bytes &bytes : {Bytes{0, 0, 0, 0}, Bytes{0, 0, 0, 35, 1}, Bytes(100, 0), [] {
                                   Bytes frame = request("time\n");
                                   frame.resize(40);
                                   frame[3] = 40; // shorter than its header
                                   return frame;
                               }()}) {
        ASSERT_TRUE(app->sends(bytes));
        ASSERT_TRUE(meeting.until([&] { return app->process().complained("control socket"); },
                                  "a complaint"))
            << app->story();
        ASSERT_TRUE(app->fences()) << app->story();
    }

    // Half a request holds nothing up, and counts when the rest has come.
    ASSERT_TRUE(app->startsUp()) << app->story();
    const Bytes whole = request(std::string("conveneMeeting\n\0", 16));
    ASSERT_TRUE(app->sends(Bytes(whole.begin(), whole.begin() + 70)));
    Party bob(meeting, "Bob");
    ASSERT_TRUE(bob->placeCall("127.0.0.1", app->port(), "", 0, "", "", 0));
    ASSERT_TRUE(app->isTold("callPending"));
    ASSERT_TRUE(app->sends(Bytes(whole.begin() + 70, whole.end())));
    requestAcceptPendingCall(app->fd());
    ASSERT_TRUE(app->isTold("rosterChanged"));
}

// What it is told meanwhile waits.
TEST_F(ControlSession, AnApplicationThatDoesNotReadForAWhileHoldsNothingUp) {
    ASSERT_TRUE(app->startsUp()) << app->story();
    for (int i = 0; i < 150; ++i)
        requestTime(app->fd());
    TCPAddress party;
    party.setLoopbackIPv4();
    party.setHostByteOrderPort(app->port());
    const int caller = connectToBoundSocket(party);
    EXPECT_TRUE(awaitBytes(caller, 36)) << "the hello"; // nothing has been read since
    shutdownSocket(caller);
    ASSERT_TRUE(app->fences());
}

TEST_F(ControlSession, EndsWithItsApplicationAndTellsEverybody) {
    Party bob(meeting, "Bob");
    ASSERT_TRUE(holdsMeetingWith(bob));
    app->closes();
    ASSERT_TRUE(bob.isTold("leave Ann"));
    EXPECT_FALSE(bob->isMeeting());
    EXPECT_EQ(0, app->process().exitCode()) << app->story();
}

TEST_F(ControlSession, EndsWhenItIsToldToShutDown) {
    Party bob(meeting, "Bob");
    ASSERT_TRUE(holdsMeetingWith(bob));
    requestShutdown(app->fd());
    ASSERT_TRUE(app->isTold("endMeeting"));
    ASSERT_TRUE(bob.isTold("leave Ann"));
    EXPECT_EQ(0, app->process().exitCode()) << app->story();
}

TEST_F(ControlSession, GivesTheProcessItsEnvironment) {
    ASSERT_TRUE(app->connects()) << app->story();
    requestPutenv(app->fd(), "CONFERENCE_PARTICIPANT_DEBUG", "True");
    requestPutenv(app->fd(), "EMPTY", "");
    ASSERT_TRUE(app->startsUp());
    requestConveneMeeting(app->fd(), "");
    // Read when the party starts, and makes the library tell more.
    EXPECT_TRUE(app->process().complained("Debug:")) << app->story();
}

TEST(ConferenceControl, HostsAloneWithoutAnApplication) {
    Meeting meeting;
    const std::string port = std::to_string(freshPort());
    ChildProcess process(
        {VINTOK_CONFERENCE_CONTROL, "-local", "-server", "-listen", port, "-mn", "Open"});
    std::string line;
    ASSERT_TRUE(process.printed("PORT:", &line)) << process.story();
    const auto listens = static_cast<unsigned short>(std::stoi(line.substr(line.find(':') + 1)));
    Party bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(bob->placeCall("127.0.0.1", listens, "", 0, "", "", 0));
    ASSERT_TRUE(cid->placeCall("127.0.0.1", listens, "", 0, "", "", 0));
    ASSERT_TRUE(bob.isTold("join Cid")) << process.story();
    ASSERT_TRUE(bob.says("hello"));
    ASSERT_TRUE(cid.hears("hello"));
    EXPECT_EQ("Open", cid->meetingName());
    if (!process.interrupt())
        GTEST_SKIP() << "this system cannot interrupt a child";
    EXPECT_EQ(0, process.exitCode()) << process.story();
}

#ifdef VINTOK_PROGRAM // which has TLS
TEST(ConferenceControl, EncryptsWithTheFilesOfItsEnvironment) {
    Meeting meeting;
    const TemporaryFolder folder;
    ChildProcess maker = Program::plain({"tls-init", folder.path("")});
    ASSERT_EQ(0, maker.exitCode()) << maker.story();
    ChildProcess process({VINTOK_CONFERENCE_CONTROL, "-local", "-sslFIPS", "-uf", "Ann", "-listen",
                          std::to_string(freshPort())},
                         {{"VINTOK_TLS_CERT", folder.path("host.pem")},
                          {"VINTOK_TLS_KEY", folder.path("host.key")}});
    std::string line;
    ASSERT_TRUE(process.printed("PORT:", &line)) << process.story();
    const std::string target = "127.0.0.1" + line.substr(line.find(':'));
    Program guest({"join", target, "--tls-ca", folder.path("ca.pem"), "--tls-require"});
    EXPECT_TRUE(guest.tells("encrypted", {named("Ann")})) << guest.story() << process.story();
    Program plain({"join", target});
    EXPECT_NE(0, plain.exitCode()) << plain.story();
}
#endif

TEST(ConferenceControlOptions, AreReadOrRefused) {
    struct Case {
        std::vector<const char *> arguments;
        std::string complaint;
    };
    const Case cases[] = {
        {{"-path", "-listen"}, ""}, // a value is whatever follows
        {{"-listen", "65535", "-alarm", "0", "-bg", "-h"}, ""},
        {{"-path"}, "-path needs a value"},
        {{"-listen", "65536"}, "-listen: '65536' cannot be used"},
        {{"-listen", ""}, "cannot be used"},
        {{"-alarm", "-1"}, "cannot be used"},
        {{"-alarm", "9x"}, "cannot be used"},
        {{"--help"}, "'--help' is no option"},
        {{""}, "'' is no option"},
        {{"file"}, "'file' is no option"},
    };
    for (const Case &row : cases) {
        std::vector<const char *> arguments = row.arguments;
        arguments.insert(arguments.begin(), "ConferenceControl");
        control::Options options;
        std::string complaint;
        EXPECT_EQ(row.complaint.empty(),
                  control::readOptions(static_cast<int>(arguments.size()), arguments.data(),
                                       options, complaint));
        EXPECT_THAT(complaint, HasSubstr(row.complaint));
    }
    const char *all[] = {"",    "-uf",     "a",   "-ul",     "b",    "-ut",    "c",
                         "-ue", "d",       "-up", "e",       "-mid", "f",      "-mn",
                         "g",   "-listen", "1",   "-listen", "7",    "-alarm", "8"};
    control::Options options;
    std::string complaint;
    ASSERT_TRUE(control::readOptions(static_cast<int>(std::size(all)), all, options, complaint));
    EXPECT_EQ("abcdefg", options.firstName + options.lastName + options.title + options.email +
                             options.phone + options.meetingID + options.meetingName);
    EXPECT_EQ(7, options.port);
    EXPECT_EQ(8u, options.alarm);
}

} // namespace
} // namespace vintok::test
