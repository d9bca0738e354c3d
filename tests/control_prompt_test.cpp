// Runs of `vintok control`: a person holds a meeting through the real control process, and through
// one that a test plays.
#include "support/Program.h"
#include "support/SocketPair.h"
#include "support/TemporaryFolder.h"

#include "vintok/ControlNotify.h"
#include "vintok/ControlRequest.h"
#include "vintok/ControlText.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPStream.h"

#include <functional>

using namespace vintok;
using namespace vintok::test;

namespace {

class ControlPrompt : public testing::Test {
protected:
    void SetUp() override {
        init();
        const int probe = createUnixSocket(folder.path("probe"), 1, true);
        if (probe == -1)
            GTEST_SKIP() << "no local sockets: " << lastErrorString();
        shutdownSocket(probe);
        path = folder.path("socket");
    }
    void TearDown() override { fini(); }

    Arguments waiting(const Arguments &more = {}) const {
        return with({"control", "--wait", "--socket", path}, more);
    }

    TemporaryFolder folder;
    std::string path;
};

// The program finds the other one beside itself.
TEST_F(ControlPrompt, StartsTheControlProcessByItself) {
    Program ann({"control", "--name", "Ann"});
    std::string line;
    ASSERT_TRUE(ann.tells("startup", {}, &line));
    const std::size_t port = line.find("\"port\":") + 7;
    ASSERT_TRUE(ann.answers("/convene", "hosting"));
    Program bob({"join", "127.0.0.1:" + line.substr(port, line.find_first_of(",}", port) - port)});
    ASSERT_TRUE(ann.tells("callPending"));
    ann.type("/accept");
    EXPECT_TRUE(bob.tells("joined", {named("Ann")}));
    ann.type("/shutdown");
    EXPECT_TRUE(ann.ends(0));
    EXPECT_EQ("", ann.errors());
    EXPECT_TRUE(bob.tells("ended"));
    EXPECT_TRUE(bob.ends(0));
}

// ---- A control process that the test plays ----

class Played : public ControlPrompt {
protected:
    // Waits for the prompt, and connects to it.
    void connectTo(ChildProcess &prompt) {
        ASSERT_TRUE(prompt.printed(path));
        descriptor = connectUnix(path);
        ASSERT_NE(-1, descriptor) << lastErrorString();
    }
    void hangUp() {
        shutdownSocket(descriptor);
        descriptor = -1;
    }
    std::string request() {
        if (!awaitBytes(descriptor, 1))
            return "no request";
        TCPMessage message;
        while (!message.read(descriptor, nullptr))
            if (lastError() != TCP_ERROR_WOULD_BLOCK)
                return "no request: " + lastErrorString();
        return reinterpret_cast<const char *>(message.messageBuffer());
    }

    int descriptor = -1;
};

RosterBase bobsRecord() {
    RosterBase bob;
    bob.setLoopbackIPv4();
    bob.setHostByteOrderPort(7001);
    bob.setFirstName("Bob");
    bob.setEmail("bob@x");
    bob.setColorIndex(1);
    return bob;
}

struct Told {
    std::function<bool(int)> send;
    const char *json, *sentence;
};

// One of each way that it can be told.
const Told notifications[] = {
    {[](int d) { return replyNotifyHideIP(d, true); }, R"("hideIP","ok":true})",
     "Addresses are hidden."},
    {[](int d) { return replyNotifyLeadRequestPending(d, bobsRecord()); },
     R"("leadRequestPending","address":"hidden",)", "Bob asks for the lead. /give or /keep?"},
    {[](int d) { return replyNotifyServerResponse(d, 407, "who are\nyou?"); },
     R"("serverResponse","serverResponseCode":407,"serverResponseMessage":"who are\nyou?"})",
     "The server answers 407: who are\\x0ayou?"},
    {[](int d) { return writeReplyString(d, "tea\x1b\n"); }, R"("problem",)", nullptr},
    {[](int d) { return requestHangup(d); },
     R"("problem","text":"the control process requests 'hangup'"})", nullptr},
};

TEST_F(Played, IsUnderstoodByScriptsAndByPeople) {
    Program script(waiting({"--no-startup"}));
    connectTo(script);
    for (const Told &told : notifications) {
        ASSERT_TRUE(told.send(descriptor));
        EXPECT_TRUE(script.printed(std::string("{\"event\":") + told.json)) << told.json;
    }
    hangUp();
    EXPECT_TRUE(script.ends(1));

    ChildProcess person = Program::plain(waiting({"--no-startup"}));
    connectTo(person);
    for (const Told &told : notifications) {
        ASSERT_TRUE(told.send(descriptor));
        EXPECT_TRUE(told.sentence ? person.printed(told.sentence) : person.complained("vintok: "))
            << told.json;
    }
    EXPECT_EQ(std::string::npos, person.errors().find('\x1b'));
    hangUp();
    EXPECT_TRUE(person.ends(1));
}

TEST_F(Played, GetsTheRequestsThatWereTyped) {
    Program ann(waiting({"--name", "Ann", "--port", "7005", "--hide-ip", "--secure"}));
    connectTo(ann);
    EXPECT_EQ("startup\nport\n7005\nisSecure\nhideIP\nfirstName\nAnn\n", request());
    replyNotifyUserJoin(descriptor, bobsRecord());
    replyNotifyUserLeave(descriptor, bobsRecord());
    ASSERT_TRUE(ann.tells("rosterChanged", {text("change", "leave")}));
    ASSERT_TRUE(ann.answers("/disable Bob", "problem"));
    replyNotifyUserJoin(descriptor, bobsRecord());
    ASSERT_TRUE(ann.tells("rosterChanged", {text("change", "join")}));
    replyNotifyCallAuthenticationRequired(descriptor, "h1", 7001, "p1", 8080, "", 2, "4711");
    replyNotifyRecordingStopped(descriptor, true);
    replyNotifyPlaybackStarted(descriptor, true);
    ASSERT_TRUE(ann.tells("playbackStarted"));
    const std::string bobs =
        "address\n127.0.0.1\nport\n7001\nfirstName\nBob\nemail\nbob@x\ncolorIndex\n1\n";
    const std::pair<std::string, std::string> typed[] = {
        {"/login ann:secret", "placeCall\nmachineName\nh1\nproxyAddress\np1\nmeetingID\n4711\n"
                              "authenticationString\nYW5uOnNlY3JldA==\nport\n7001\nproxyPort\n8080"
                              "\ntriesRemaining\n2\n"},
        {"/call [::1]:7 proxy=p2:80 meeting=1 login=a:b tries=4",
         "placeCall\nmachineName\n::1\nproxyAddress\np2\nmeetingID\n1\nauthenticationString\n"
         "YTpi\nport\n7\nproxyPort\n80\ntriesRemaining\n4\n"},
        {"/disable Bob", "disableUser\n" + bobs},
        {"/enable 127.0.0.1 7001", "enableUser\n" + bobs},
        {"/call h2", "placeCall\nmachineName\nh2\nport\n7777\nproxyPort\n0\ntriesRemaining\n1\n"},
        {"/convene Two Words", "conveneMeeting\nmeetingName\nTwo Words\n"},
        {"/send /a/b c/d", "transferFile\nfilePath\n/a/b\nrelativePath\nc/d\n"},
        {"/accept", "acceptPendingCall\n"},
        {"/who", "meetingRoster\naddress\n0.0.0.0\nport\n0\ncolorIndex\n65535\n"},
        {"/give", "acceptLeadChange\n"},
        {"/send \"/two words\"", "transferFile\nfilePath\n/two words\nrelativePath\ntwo words\n"},
        {"/record /r", "startRecording\nfilePath\n/r\n"},
        {"/play here",
         "startPlayback\nfilePath\n" + std::filesystem::absolute("here").string() + "\n"},
        {"/pause", "pausePlayback\n"},
        {"/stop", "stopPlayback\n"}, // the one of the two that is under way
        {"/stop playing", "stopPlayback\n"},
        {"/putenv A=b=c", "putenv\nA=b=c\n"},
        {"/startup 0", "startup\nport\n0\nisSecure\nhideIP\nfirstName\nAnn\n"},
        {"/shutdown", "shutdown\n"},
    };
    for (const auto &[line, text] : typed) {
        ann.type(line);
        EXPECT_EQ(text, request()) << line;
    }
    hangUp();
    EXPECT_TRUE(ann.ends(0));
}

TEST_F(Played, MayDieInTheMiddleOfAMessage) {
    for (const std::size_t cut : {1u, 35u, 40u, 60u}) {
        Program ann(waiting({"--no-startup"}));
        connectTo(ann);
        TCPMessage message;
        message.setMessageID(TCP_conferenceControlReply);
        message.allocateMessageBuffer(100);
        ASSERT_EQ(static_cast<std::int64_t>(cut),
                  writeBytes(descriptor, message.rawBuffer(), cut, nullptr));
        hangUp();
        EXPECT_EQ(1, ann.exitCode()) << cut << ann.story();
        EXPECT_EQ("vintok: the control process has ended\n", sameEnds(ann.errors())) << cut;
        EXPECT_TRUE(ann.tells("error", {text("reason", "the control process has ended")}));
    }
}

TEST_F(Played, MayIgnoreThatItIsToEnd) {
    Program ann(waiting({"--no-startup"}));
    connectTo(ann);
    ann.endInput();
    EXPECT_EQ("shutdown\n", request());
    EXPECT_TRUE(ann.ends(1));
    EXPECT_EQ("vintok: the control process did not end when it was asked to\n",
              sameEnds(ann.errors()));
}

} // namespace
