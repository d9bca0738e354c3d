// ConferenceControl as an application and the other parties of a meeting see it: the program runs
// as a child, the application is at its socket, the parties are at its port.
#include "ControlParser.h"
#include "support/ChildProcess.h"
#include "support/Environment.h"
#include "support/Party.h"
#ifdef VINTOK_PROGRAM
#include "support/Program.h"
#endif
#include "support/SocketPair.h"
#include "support/TemporaryFolder.h"
#include "support/WirePeer.h"

#include <vintok/ControlText.h>
#include <vintok/ControlWords.h>
#include <vintok/TCPMessage.h>
#include <vintok/TCPStream.h>

#include <deque>
#include <sstream>
#include <stdexcept>

namespace vintok::test {
namespace {

using testing::Contains;
namespace fs = std::filesystem;
using Words = std::vector<std::string>;

std::string valueOf(const control::Text &text, const std::string &field) {
    for (const words::FieldRow &row : words::fieldRows)
        if (row.name == field)
            return text.value(row.field);
    return "no such field";
}

// The application at the other end of a control process: it listens on a local socket, starts
// ConferenceControl with that path, sends requests in their words, or bytes of any kind, and reads
// what it is told.
class Application {
public:
    // Runs the control process with these options behind "-path" and the socket.
    Application(Meeting &meeting, const std::vector<std::string> &options)
        : m_meeting(meeting),
          m_listener(createUnixSocket(m_folder.path("control"), 1, true)),
          m_process(with({VINTOK_CONFERENCE_CONTROL, "-path", m_folder.path("control")}, options)) {
        m_select.addSocketCallback(m_listener, acceptCB, this, false, false);
    }
    ~Application() {
        closes();
        if (m_listener != -1) {
            m_select.removeCallback(m_listener, acceptCB, this);
            shutdownSocket(m_listener);
        }
    }
    Application(const Application &) = delete;
    Application &operator=(const Application &) = delete;

    // Waits until the control process has connected.
    testing::AssertionResult connects() {
        return m_meeting.until([this] { return m_descriptor != -1; },
                               "the control process connects");
    }
    // The same, and starts it up on a port of its own.
    testing::AssertionResult startsUp() {
        auto result = connects();
        asks("startup\nport\n" + std::to_string(freshPort()));
        if (result)
            result = isTold("startup");
        return result && m_port == 0 ? testing::AssertionFailure() << "no port" : result;
    }
    // Where it listens, as it told last.
    unsigned short port() const { return m_port; }

    bool sends(const Bytes &bytes) const {
        return writeBytes(m_descriptor, bytes.data(), bytes.size(), nullptr) ==
               static_cast<std::int64_t>(bytes.size());
    }
    // A request of these lines; the end of the last one is added.
    bool asks(const std::string &text) const {
        return writeRequestString(m_descriptor, text + '\n');
    }

    // Waits for the next notification of a word, and drops those that came before it: the word
    // first, then the fields that it must have, such as "ok=true". `told` is then that one.
    testing::AssertionResult isTold(const std::string &notification) {
        std::istringstream parts(notification);
        std::string word, part;
        parts >> word;
        auto result = awaits(word);
        while (result && parts >> part) {
            const std::size_t equals = part.find('=');
            const std::string value = valueOf(m_told, part.substr(0, equals));
            if (value != part.substr(equals + 1))
                result = testing::AssertionFailure() << notification << " has '" << value << "'\n"
                                                     << story();
        }
        return result;
    }
    const control::Text &told() const { return m_told; }
    // Waits for the answer to a request that every state answers: to resume a playback, which is
    // refused. Whatever was asked before has been dealt with, and `words` are what came of it.
    testing::AssertionResult fences(std::vector<std::string> *words = nullptr) {
        asks("resumePlayback");
        auto result = m_meeting.until(
            [&] {
                return !m_notifications.empty() &&
                       m_notifications.back().word() == "playbackResumed";
            },
            "the answer");
        for (; words != nullptr && m_notifications.size() > 1; m_notifications.pop_front())
            words->push_back(m_notifications.front().word());
        m_notifications.clear();
        return result << story();
    }
    // Waits until the control process has closed its end, or is gone.
    testing::AssertionResult isLeftAlone() {
        return m_meeting.until([this] { return m_ended; }, "the end of the control socket")
               << story();
    }

    // Between the two nothing is read.
    void pauses() { m_select.removeCallback(m_descriptor, dataCB, this); }
    void resumes() { m_select.addSocketCallback(m_descriptor, dataCB, this, true, false); }
    void closes() {
        if (m_descriptor != -1 && !m_ended)
            m_select.removeCallback(m_descriptor, dataCB, this);
        shutdownSocket(std::exchange(m_descriptor, -1));
    }

    ChildProcess &process() { return m_process; }
    std::string story() const { return m_process.story(); }

private:
    static void acceptCB(int, void *data, bool) {
        auto &me = *static_cast<Application *>(data);
        me.m_select.removeCallback(me.m_listener, acceptCB, data);
        me.m_descriptor = acceptAndCloseBoundSocket(me.m_listener);
        me.resumes();
    }
    static void dataCB(int descriptor, void *data, bool) {
        auto &me = *static_cast<Application *>(data);
        TCPMessage message(descriptor);
        if (!message.read(-1, nullptr)) {
            // At the end there is nothing to be read, as in between; a look at the next byte tells.
            unsigned char byte = 0;
            if (peekBytes(descriptor, &byte, 1) != 1 && lastError() != TCP_ERROR_WOULD_BLOCK) {
                me.m_ended = true;
                me.m_select.removeCallback(descriptor, dataCB, data);
            }
            return;
        }
        control::Text text;
        std::string complaint;
        EXPECT_EQ(control::ParseError::none, control::parse(message, text, complaint)) << complaint;
        EXPECT_EQ(control::Direction::notification, text.direction());
        if (text.word() == "startup")
            me.m_port = text.address().hostByteOrderPort();
        me.m_notifications.push_back(text);
    }
    testing::AssertionResult awaits(const std::string &word) {
        std::string others;
        return m_meeting.until(
                   [&] {
                       while (!m_notifications.empty()) {
                           m_told = m_notifications.front();
                           m_notifications.pop_front();
                           if (m_told.word() == word)
                               return true;
                           others += " " + m_told.word();
                       }
                       return false;
                   },
                   "told " + word)
               << " told otherwise:" << others << "\n"
               << story();
    }

    Meeting &m_meeting;
    TCPSelect m_select;
    TemporaryFolder m_folder;
    int m_listener = -1;
    int m_descriptor = -1;
    bool m_ended = false;
    unsigned short m_port = 0;
    std::deque<control::Text> m_notifications;
    control::Text m_told;
    ChildProcess m_process; // last: it connects to the socket
};

std::string callTo(unsigned short port) {
    return "placeCall\nmachineName\n127.0.0.1\nport\n" + std::to_string(port) +
           "\nproxyPort\n0\ntriesRemaining\n0";
}

constexpr int exchanges = 28; // of the longest script, and one

// A request about a party.
std::string about(const Party &party, const std::string &word) {
    return word + "\naddress\n" + party.ip() + "\nport\n" + std::to_string(party.port()) +
           "\ncolorIndex\n0";
}

// Ann has the application. The others are parties of this process.
class ControlSession : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        // Where there are no local sockets there is no way to the program.
        const int probe = createUnixSocket(folder.path("probe"), 1, true);
        if (probe == -1)
            GTEST_SKIP() << "this system has no local sockets";
        shutdownSocket(probe);
        starts();
    }
    void starts() {
        app = std::make_unique<Application>(meeting, Words{"-local", "-uf", "Ann", "-alarm", "0"});
    }

    // Ends a script: at a failure, which would only be waited for again, or where the test wants.
    struct End : std::runtime_error {
        using std::runtime_error::runtime_error;
    };

    // Awaits what the application is told, one after the other.
    void isTold(const Words &notifications, const std::string &request = "") {
        for (const std::string &notification : notifications)
            if (const auto told = app->isTold(notification); !told) {
                broken = true;
                throw End("after '" + request + "': " + told.message());
            }
        if (--exchangesLeft == 0)
            throw End("as wanted");
    }
    void does(const std::string &request, const Words &told = {}) {
        EXPECT_TRUE(app->asks(request)) << request;
        isTold(told, request);
    }
    // What came of all that was asked so far, and was not waited for.
    Words rest() {
        Words words;
        EXPECT_TRUE(app->fences(&words));
        return words;
    }
    bool calls(Party &party) const {
        return party->placeCall("127.0.0.1", app->port(), "", 0, "", "", 0);
    }

    // Ann hosts, and Bob joins.
    void meets() {
        ASSERT_TRUE(app->connects()) << app->story();
        does("putenv\nQOR_COLLAB_ROOT_LOCAL=" + folder.path("ann"));
        does("startup\nisSecure\nhideIP\nlastName\nBee\nport\n" + std::to_string(freshPort()),
             {"startup isSecure=", "hideIP ok=true"});
        const unsigned short port = app->port();
        does("startup\nport\n0", {"startup", "hideIP ok=false"});
        EXPECT_EQ(port, app->port()) << "the one that it has";
        does("conveneMeeting\nmeetingName\nBudget");
        EXPECT_THAT(rest(), ElementsAre("hideIP", "beginMeeting", "hosting", "rosterEntry"));
        does(callTo(bob.port()), {"dialing", "ringing", "placedCallAccepted firstName=Bob",
                                  "rosterChanged change=join firstName=Bob colorIndex=1"});
        ASSERT_TRUE(bob.isTold("join Ann"));
        EXPECT_EQ("Budget", bob->meetingName());
        rest();
    }

    // A meeting from the first request to the last.
    void goes() {
        ASSERT_NO_FATAL_FAILURE(meets());
        EXPECT_TRUE(calls(cid) && cid.isTold("ringing Ann"));
        EXPECT_TRUE(calls(dan) && dan.isTold("ringing Ann"));
        isTold({"callPending firstName=Cid"});
        EXPECT_THAT(rest(), Not(Contains("callPending"))) << "one at a time";
        does("acceptPendingCall",
             {"rosterChanged change=join firstName=Cid", "callPending firstName=Dan"});
        EXPECT_TRUE(cid.sees({{"Ann", 0}, {"Bob", 1}}) && bob.sees({{"Ann", 0}, {"Cid", 2}}));
        does("rejectPendingCall");
        EXPECT_TRUE(dan.isTold("rejected Ann"));
        rest();
        does("meetingRoster\ncolorIndex\n0",
             {"rosterEntry firstName=Ann", "rosterEntry firstName=Bob",
              "rosterEntry firstName=Cid"});
        does(about(dan, "enableUser"));
        EXPECT_THAT(rest(), IsEmpty()) << "he is not there";

        EXPECT_TRUE(bob->requestStartLeading());
        isTold({"leadRequestPending firstName=Bob"});
        does("acceptLeadChange", {"endLeading"});
        EXPECT_TRUE(bob.isTold("leader Bob") && cid.isTold("leader Bob"));
        bob.decidesOnLead();
        does("startLeading");
        EXPECT_TRUE(bob.isTold("leadRequest Ann") && bob->acceptLeadChange());
        isTold({"beginLeadingGranted", "beginLeading"});
        EXPECT_TRUE(cid.isTold("leader Ann"));

        const std::string recording = "\nfilePath\n" + folder.path("recording");
        does("startRecording" + recording, {"recordingStarted ok=true"});
        EXPECT_TRUE(bob.says("one") && cid.hears("one") && cid.says("two") && bob.hears("two"));
        does("startPlayback" + recording, {"playbackStarted ok=false"}); // while it is written
        does("stopRecording", {"recordingStopped ok=true"});
        does("pausePlayback", {"playbackPaused ok=false"});
        does("startPlayback" + recording, {"playbackStarted ok=true", "playbackStopped ok=true"});
        EXPECT_TRUE(cid.hears("one") && cid.isTold("data two"));
        does(about(bob, "disableUser"));
        rest();
        bob.forgets();
        does("startPlayback" + recording, {"playbackStopped ok=true"});
        EXPECT_EQ(0, bob.told("data two")) << "he hears nothing";
        does(about(bob, "enableUser"));
        does("startPlayback" + recording, {"playbackStopped ok=true"});
        EXPECT_TRUE(bob.hears("two"));
        does("startRecording" + recording, {"recordingStarted ok=false"}); // over something
        EXPECT_EQ(2u * (60 + 3), folder.content("recording").size());

        does("transferFile\nfilePath\n" + folder.holding("out.txt", "from Ann"),
             {"transferFile", "transferredFileSuccess"});
        EXPECT_TRUE(bob.isTold("file whole") && cid.isTold("file whole")); // in one folder
        EXPECT_EQ("from Ann", folder.content("others/out.txt"));
        EXPECT_TRUE(bob->transferFile(folder.holding("in.txt", "from Bob"), "in.txt"));
        isTold({"transferredFileSuccess filePath=" + folder.path("ann/in.txt")});
        EXPECT_EQ("from Bob", folder.content("ann/in.txt"));
        does("adjournMeeting", {"endMeeting"});
        EXPECT_TRUE(bob.isTold("leave Ann") && cid.isTold("leave Ann"));
    }

    Meeting meeting;
    TemporaryFolder folder;
    const ScopedEnvironment files{"QOR_COLLAB_ROOT_LOCAL", folder.path("others")};
    std::unique_ptr<Application> app;
    int exchangesLeft = 0;
    static inline bool broken = false;
    Party bob{meeting, "Bob"}, cid{meeting, "Cid"}, dan{meeting, "Dan"};
};

TEST_F(ControlSession, GoesFromTheFirstRequestToTheLast) {
    goes();
    EXPECT_EQ(1 - exchanges, exchangesLeft) << "each is a case below";
    does("shutdown");
    EXPECT_TRUE(app->isLeftAlone());
    EXPECT_EQ(0, app->process().exitCode()) << app->story();
}

TEST_P(ControlSession, OutlivesTheDeathOfTheControlProcess) {
    if (broken)
        GTEST_SKIP() << "and a script that fails would be waited for each time";
    exchangesLeft = GetParam();
    EXPECT_THROW(goes(), End);
    app->process().kill();
    ASSERT_TRUE(app->isLeftAlone());
    EXPECT_TRUE(meeting.until([&] { return !bob->isMeeting() && !cid->isMeeting(); }, "the end"));
    EXPECT_FALSE(app->asks("time"));
    // The application and the others can go on as if nothing had been.
    starts();
    EXPECT_TRUE(app->startsUp());
    EXPECT_TRUE(bob.meets(cid));
}

INSTANTIATE_TEST_SUITE_P(AfterEach, ControlSession, testing::Range(1, exchanges));

TEST_F(ControlSession, EndsWithItsApplicationAndTellsEverybody) {
    for (const bool asked : {false, true}) {
        ASSERT_NO_FATAL_FAILURE(meets());
        asked ? does("shutdown", {"endMeeting"}) : app->closes();
        ASSERT_TRUE(bob.isTold("leave Ann"));
        EXPECT_FALSE(bob->isMeeting());
        EXPECT_EQ(0, app->process().exitCode()) << app->story();
        bob.forgets();
        starts();
    }
}

TEST_F(ControlSession, IsLeftInTheMiddleOfAFile) {
    ASSERT_NO_FATAL_FAILURE(meets());
    const std::string big = folder.holding("big", std::string(32 << 20, 'x'));
    const std::string part = folder.path("others/big");
    std::error_code none;
    app->asks("transferFile\nfilePath\n" + big);
    ASSERT_TRUE(meeting.until([&] { return fs::exists(part) && fs::file_size(part, none) > 0; },
                              "the beginning"));
    app->process().kill();
    EXPECT_TRUE(bob.isTold("leave Ann") && bob.isTold("file failed"));
    EXPECT_TRUE(app->isLeftAlone());
}

// The point of a process of its own: an application that hangs does not stop the meeting.
TEST_F(ControlSession, GoesOnWhileTheApplicationDoesNotRead) {
    ASSERT_NO_FATAL_FAILURE(meets());
    constexpr int fileCount = 150;
    app->pauses();
    for (int i = 0; i < fileCount; ++i) {
        const std::string name = std::to_string(i) + std::string(200, 'n');
        ASSERT_TRUE(bob->transferFile(folder.holding(name, "short"), name));
        ASSERT_TRUE(meeting.until([&] { return folder.content("ann/" + name) == "short"; }, name));
    }
    EXPECT_TRUE(calls(cid) && cid.isTold("ringing Ann"));
    app->resumes();
    for (int i = 0; i < fileCount; ++i)
        isTold({"transferredFileSuccess"});
    isTold({"callPending"});
}

// Every roster tells of everybody; what the application knows already is not told again.
TEST_F(ControlSession, TellsWhoHasChanged) {
    ASSERT_NO_FATAL_FAILURE(meets());
    for (const char *title : {"Dr", "Dr", "Prof"}) {
        bob->setTitle(title);
        ASSERT_TRUE(bob->sendRoster());
    }
    isTold({"rosterEntry title=Dr", "rosterEntry title=Prof"});
}

// As a guest; and how its own calls go.
TEST_F(ControlSession, CallsOthersAndTellsHowItWent) {
    ASSERT_TRUE(app->startsUp()) << app->story();
    Party dora(meeting, "Dora");
    dora.hosts("Talk");
    does(callTo(dora.port()), {"dialing", "ringing", "placedCallAccepted", "beginMeeting",
                               "rosterChanged change=join firstName=Dora"});
    does("startLeading", {"beginLeadingGranted", "beginLeading"}); // Dora lets everybody lead
    does("stopLeading", {"endLeading", "leaderChanged firstName=Dora"});
    dora.decidesOnLead();
    does("startLeading");
    ASSERT_TRUE(dora.isTold("leadRequest Ann"));
    dora->rejectLeadChange();
    isTold({"beginLeadingDenied"});
    does("hangup", {"endMeeting"});
    ASSERT_TRUE(dora.isTold("leave Ann"));
    does("startLeading", {"beginLeadingDenied"}); // with nobody to ask
    does(callTo(1), {"placedCallNoAnswer"});
    dora.hosts("Talk");
    ASSERT_TRUE(bob.meets(dora));
    does(callTo(bob.port()), {"placedCallBusy firstName=Bob"});

    WirePeer server(meeting, "Server"); // who refuses, then an old party, then a proxy
    ASSERT_TRUE(server.listens());
    does(callTo(server.port()));
    ASSERT_TRUE(server.picksUp() && server.saysHello());
    ASSERT_TRUE(server.receives(id::joinRequest) && server.sends(id::joinReply, {0}));
    server.hangsUp();
    isTold({"placedCallRejected machineName=127.0.0.1"});
    does(callTo(server.port()));
    const WireFrame old = {
        .id = id::keepAlive, .major = 3, .origin = server.entry.address, .body = {0}};
    ASSERT_TRUE(server.picksUp() && server.sends(old.encode()));
    isTold({"versionNotCompatible machineName=127.0.0.1"});
    server.readsText(true);
    does("placeCall\nmachineName\nmux.example\nport\n1\nproxyAddress\n127.0.0.1\nproxyPort\n" +
         std::to_string(server.port()) +
         "\nmeetingID\ntalk\nauthenticationString\na:b\ntriesRemaining\n3");
    ASSERT_TRUE(server.picksUp());
    ASSERT_TRUE(server.sendsText("HTTP/1.0 407 X\r\nProxy-Authenticate: Basic\r\n\r\n"));
    isTold({"serverResponse serverResponseCode=407",
            "authenticationRequired triesRemaining=2 authenticationString=a:b"});
}

TEST_F(ControlSession, KeepsItsLinesWhateverAGuestIsCalled) {
    ASSERT_TRUE(app->startsUp()) << app->story();
    app->asks("conveneMeeting");
    const std::pair<std::string, std::string> names[] = {
        {"Eve\nendMeeting\n", "Eve\\x0aendMeeting\\x0a"},
        {std::string("E\0ve", 4), "E\\x00ve"},
        {std::string(5000, 'e'), std::string(4096, 'e') + "..."}};
    for (const auto &[name, told] : names) {
        WirePeer eve(meeting, "Eve");
        eve.entry.firstName = name;
        eve.entry.address = {}; // told as one, or the lines would be missing
        ASSERT_TRUE(eve.connects(app->port()) && eve.saysHello() && eve.asksToJoin());
        isTold({"callPending firstName=" + told});
        does("acceptPendingCall", {"rosterChanged firstName=" + told});
        eve.closes();
        isTold({"rosterChanged change=leave"});
    }
}

// Three messages, a second and a day apart: the third does not come by itself.
TEST_F(ControlSession, PausesResumesAndEndsAPlayback) {
    ASSERT_NO_FATAL_FAILURE(meets());
    std::string records;
    for (const std::int64_t stamp : {100, 101, 101 + 86400}) {
        const Bytes frame = WireFrame{.time = stamp,
                                      .id = id::broadcast,
                                      .body = letters(stamp == 101 ? "ho" : "hi")}
                                .encode();
        records.append(frame.begin(), frame.end());
    }
    const auto play = [&](const std::string &path) { return "startPlayback\nfilePath\n" + path; };
    const std::string whole = play(folder.holding("long", records));
    does(whole, {"playbackStarted ok=true"});
    ASSERT_TRUE(bob.hears("hi"));
    does("pausePlayback", {"playbackPaused ok=true"});
    does("resumePlayback", {"playbackResumed ok=true"});
    ASSERT_TRUE(bob.hears("ho"));
    does("stopPlayback", {"playbackStopped ok=true"});

    // What breaks off in the middle is played up to there, and what is no recording not at all.
    bob.forgets();
    does(play(folder.holding("cut", records.substr(0, 100))),
         {"playbackStarted ok=true", "playbackStopped ok=false"});
    ASSERT_TRUE(bob.hears("hi"));
    ASSERT_TRUE(app->process().complained("damaged at byte 62"));
    does(play(folder.path("missing")), {"playbackStarted ok=false"});
    does(play(folder.path("")), {"playbackStarted ok=false"});
    // The end of the meeting ends both.
    does(whole);
    does("startRecording\nfilePath\n" + folder.path("new"), {"recordingStarted ok=true"});
    does("hangup", {"playbackStopped ok=false", "recordingStopped ok=true"});
    does(whole, {"playbackStarted ok=false"}); // in no meeting
}

TEST_F(ControlSession, TellsWhenARecordingCannotBeWritten) {
    ASSERT_NO_FATAL_FAILURE(meets());
    for (const std::string &path : {folder.path(""), folder.path("no folder/file")})
        does("startRecording\nfilePath\n" + path, {"recordingStarted ok=false"});
    does("startRecording\nfilePath\n/dev/full", {"recordingStarted ok=true"}); // opens
    ASSERT_TRUE(bob.says("lost"));
    isTold({"recordingStopped ok=false"});
    ASSERT_TRUE(app->process().complained("/dev/full"));
}

Bytes request(const std::string &text) {
    return WireFrame{.id = 0x10, .body = letters(text)}.encode();
}

TEST_F(ControlSession, SurvivesWhateverItIsSent) {
    ASSERT_TRUE(app->connects()) << app->story();
    // Too early, too much, damaged, of another kind, in the wrong direction, without sense.
    for (const char *text : {"conveneMeeting", "placeCall", "stopPlayback", "hangup", "nonsense",
                             "startup\nport\n70000", "putenv", "hosting"})
        ASSERT_TRUE(app->asks(text));
    ASSERT_TRUE(app->sends(request("")));
    ASSERT_TRUE(app->sends(request("hangup\n")));
    ASSERT_TRUE(app->sends(request(std::string("startup\nport\0\n", 14))));
    ASSERT_TRUE(app->asks("startRecording\nfilePath\n" + std::string(4 << 20, 'x')));
    ASSERT_TRUE(app->sends(WireFrame{.id = id::broadcast, .body = {1, 2, 3}}.encode()));
    EXPECT_THAT(rest(), ElementsAre("playbackStopped"));
    ASSERT_TRUE(app->process().complained("too long")) << app->story();

    // Frames that are none cost what came with them and no more.
    for (const Bytes &bytes : {Bytes{0, 0, 0, 0}, Bytes{0, 0, 0, 35, 1}, Bytes(100, 0)}) {
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
    ASSERT_TRUE(calls(bob) && app->isTold("callPending"));
    ASSERT_TRUE(app->sends(Bytes(whole.begin() + 70, whole.end())));
    does("acceptPendingCall", {"rosterChanged"});
}

TEST(ConferenceControl, HostsAloneWithoutAnApplication) {
    Meeting meeting;
    const std::string port = std::to_string(freshPort());
    ChildProcess process(
        {VINTOK_CONFERENCE_CONTROL, "-local", "-server", "-listen", port, "-mn", "Open"});
    std::string line;
    ASSERT_TRUE(process.printed("PORT:", &line));
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
    EXPECT_TRUE(process.ends(0));
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
    ASSERT_TRUE(process.printed("PORT:", &line));
    const std::string target = "127.0.0.1" + line.substr(line.find(':'));
    Program guest({"join", target, "--tls-ca", folder.path("ca.pem"), "--tls-require"});
    EXPECT_TRUE(guest.tells("encrypted", {named("Ann")})) << process.story();
    Program plain({"join", target});
    EXPECT_NE(0, plain.exitCode()) << plain.story();
}
#endif

} // namespace
} // namespace vintok::test
