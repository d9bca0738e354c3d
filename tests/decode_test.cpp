// Runs of `vintok decode`, `host --record` and `replay`: over files of messages that the library
// wrote, whole and damaged, and over a meeting that is recorded and said again in another one.
#include "support/Addresses.h"
#include "support/LogFile.h"
#include "support/Program.h"
#include "support/TemporaryFolder.h"

#include "support/Hex.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPMessage_1_3.h"

#include <algorithm>

using namespace vintok;
using namespace vintok::test;

namespace {

constexpr std::int64_t newYear = 1767225600; // 2026-01-01 00:00:00 UTC

std::string bytesOf(const char *text) {
    const Bytes bytes = hex(text);
    return std::string(bytes.begin(), bytes.end());
}

std::string frame(TCPMessageBase &message, const TCPGUID &identifier, const std::string &body,
                  std::int64_t stamp = newYear) {
    message.setMessageID(identifier);
    message.setMessageMajorVersion(4);
    EXPECT_TRUE(message.allocateMessageBuffer(body.size()));
    std::copy(body.begin(), body.end(), message.messageBuffer());
    message.setTimeStamp(stamp);
    if (body.empty()) // the time is then in the fields alone
        message.TCPHeader::write();
    return std::string(message.rawBuffer(), message.rawBuffer() + message.rawBufferLength());
}

std::string frame(const TCPGUID &identifier, const std::string &body,
                  std::int64_t stamp = newYear) {
    TCPMessage message;
    return frame(message, identifier, body, stamp);
}

std::string entryBody(std::uint32_t more = 0) {
    WireEntry ann;
    ann.address = WireAddress::ipv4(0x7F000001, 7001);
    ann.firstName = "Ann";
    ann.lastName = "\"Lee\"\x1b";
    ann.email = "ann@x";
    ann.color = 3;
    ann.state = state::meeting | state::host | more;
    ann.meetingName = "Budget";
    const Bytes body = ann.encode();
    return std::string(body.begin(), body.end());
}

const char *const entryJson =
    R"({"name":"Ann \"Lee\"\u001b","title":"","email":"ann@x","phone":"","address":"127.0.0.1",)"
    R"("port":7001,"version":"4.0","colour":3,"state":"meeting host","meeting":"Budget",)"
    R"("meeting-id":""})";

class Decode : public testing::Test {
protected:
    std::string run(const std::string &content, int code, const Arguments &options = {"--json"}) {
        ChildProcess program =
            Program::plain(with({"decode", folder.holding("record", content)}, options));
        EXPECT_EQ(code, program.exitCode()) << program.story();
        errors = sameEnds(program.errors());
        return sameEnds(program.output());
    }

    TemporaryFolder folder;
    std::string errors;
};

const std::string aboutFile = "file 1\n::1 7001\na b\n25 " + std::string(64, '0');

struct Known {
    const TCPGUID &identifier;
    const char *name;
    std::string body;
    std::string fields;    // the object in JSON
    const char *rest = ""; // bytes that are shown as such
    bool malformed = false;
};

const std::vector<Known> &knownMessages() {
    static const TCPGUID strange = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 255}};
    static const std::vector<Known> messages = {
        {TCP_rosterEntry, "TCP_rosterEntry", entryBody(), entryJson},
        {TCP_rosterReply, "TCP_rosterReply", entryBody() + "x", entryJson, "78"},
        {TCP_leaveNotify, "TCP_leaveNotify", entryBody().substr(0, 30), "{}",
         "0000000000000000000000007f000001000000091b59000000000004416e", true},
        {TCP_joinReply, "TCP_joinReply", "\1", R"({"granted":true})"},
        {TCP_keepAlive, "TCP_keepAlive", bytesOf("07"), "{}", "07"},
        {TCP_broadcastMessage, "TCP_broadcastMessage", "say 1\n::1 7001\nAnn\nhi\nall",
         R"({"name":"Ann","address":"::1","port":7001,"text":"hi\nall"})"},
        {TCP_broadcastMessage, "TCP_broadcastMessage", aboutFile,
         R"({"address":"::1","port":7001,"file":"a b","size":25,"sha256":")" +
             std::string(64, '0') + "\"}"},
        {TCP_broadcastMessage, "TCP_broadcastMessage", "file-end 1\n::1 7001\nwithdrawn",
         R"({"address":"::1","port":7001,"sent":false})"},
        {TCP_broadcastMessage, "TCP_broadcastMessage", bytesOf("'line' 0a00"),
         R"({"text":"line\n"})"},
        {TCP_fileTransferBegin, "TCP_fileTransferBegin",
         bytesOf("00000004 '/a' 0a00 00000002 'b' 00"), R"({"path":"/a\n","relative":"b"})"},
        {TCP_fileTransferBegin, "TCP_fileTransferBegin", bytesOf("00000002 'a' 00 ffffffff 'b'"),
         R"({"path":"a"})", "ffffffff62", true},
        {TCP_fileTransferData, "TCP_fileTransferData", "content", R"({"text":"content"})"},
        {TCP_fileTransferEnd, "TCP_fileTransferEnd", bytesOf("ffffffff"), R"({"size":4294967295})"},
        {TCP_fileTransferEnd, "TCP_fileTransferEnd", bytesOf("ffff"), "{}", "ffff", true},
        {TCP_fileTransferAck, "TCP_fileTransferAck", bytesOf("0a010203 00000001 'a' 0000"),
         R"({"address":"10.1.2.3","success":true,"name":"a"})"},
        {TCP_echoReply32, "TCP_echoReply32", bytesOf("6955b8fd 6955b900"),
         R"({"sent":1767225597,"received":1767225600})"},
        {TCP_echoReply, "TCP_echoReply", bytesOf("000000006955b8fd 6955"), R"({"sent":1767225597})",
         "6955", true},
        {TCP_conferenceControlRequest, "TCP_conferenceControlRequest",
         bytesOf("'startup' 0a 'port' 0a '0' 0a00"), R"({"text":"startup\nport\n0"})"},
        {TCP_conferenceControlReply, "TCP_conferenceControlReply", "hosting\n", "{}",
         "686f7374696e670a", true},
        {TCP_messageID_98, "TCP_messageID_98", "x", R"({"text":"x"})"},
        {TCP_messageID_47, "TCP_messageID_47",
         bytesOf("00000007 000000000000000000000000 7f000001 00000001 1e61 0000 01"),
         R"({"number":7,"to":"127.0.0.1","port":7777,"taken":true})"},
        {TCP_RECYCLE_ME_3, "TCP_RECYCLE_ME_3", bytesOf("1e61 'b.example'"),
         R"({"to":"b.example","port":7777})"},
        {strange, "00000001000200030405060708090aff", "x", R"({"text":"x"})"},
    };
    return messages;
}

TEST_F(Decode, TellsWhatEveryKindOfMessageSays) {
    std::string content, expected;
    for (const Known &known : knownMessages()) {
        expected += R"({"event":"message","offset":)" + std::to_string(content.size()) +
                    R"(,"time":1767225600,"identifier":")" + known.name +
                    R"(","frame":"2.0","version":"4.0","address":"","port":0,"length":)" +
                    std::to_string(known.body.size()) + R"(,"malformed":)" +
                    (known.malformed ? "true" : "false") + R"(,"body":)" + known.fields +
                    R"(,"hex":")" + known.rest + R"(","hidden":0})" + '\n';
        content += frame(known.identifier, known.body);
    }
    EXPECT_EQ(expected, run(content, 0));
    EXPECT_EQ("", errors);
}

TEST_F(Decode, ShowsBothFormsOfFrameToAPerson) {
    TCPMessage today;
    TCPMessage_1_3 older;
    for (TCPMessageBase *message :
         {static_cast<TCPMessageBase *>(&today), static_cast<TCPMessageBase *>(&older)}) {
        TCPAddress origin;
        origin.setLoopbackIPv4();
        origin.setHostByteOrderPort(7001);
        message->setOriginAddress(origin);
    }
    const std::string content =
        frame(today, TCP_broadcastMessage, "say 1\n::1 7\nAnn\none\x1b\n\ntwo") +
        frame(older, TCP_fileTransferData, std::string(20, '\xff'));
    EXPECT_EQ("0  2026-01-01 00:00:00 UTC  TCP_broadcastMessage  25 bytes  frame 2.0  message 4.0"
              "  from 127.0.0.1 port 7001\n"
              "    name        Ann\n"
              "    address     ::1\n"
              "    port        7\n"
              "    text        one\\x1b\n"
              "                \n"
              "                two\n"
              "85  2026-01-01 00:00:00 UTC  TCP_fileTransferData  20 bytes  frame 1.3  message 4.0"
              "  from 127.0.0.1\n"
              "    ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ................\n"
              "    ff ff ff ff                                     ....\n",
              run(content, 0, {}));
}

TEST_F(Decode, ShowsTheAddressOfWhoHidesWhereThatIsAskedFor) {
    const std::string entry = entryBody(state::hiding);
    TCPMessage sent;
    sent.setOriginAddress(nameOnly("127.0.0.1", 7001));
    const std::string content = frame(TCP_rosterEntry, entry) +
                                frame(sent, TCP_broadcastMessage, "say 1\n127.0.0.01 7\nAnn\nhi") +
                                frame(TCP_broadcastMessage, "say 1\n127.0.0.2 7\nBob\nhi");
    const std::string shown = run(content, 0), all = run(content, 0, {"--json", "--addresses"});
    EXPECT_EQ(3, occurrences(shown, R"("address":"hidden","port":7)")) << shown;
    EXPECT_EQ(1, occurrences(shown, "127.0.0."));
    EXPECT_EQ(4, occurrences(all, "127.0.0.")) << all;
}

TEST_F(Decode, SaysWhereADamagedFileStopsMakingSense) {
    const std::string first = frame(TCP_broadcastMessage, "hello");
    const std::string hangup = frame(TCP_hangup, std::string(1, '\0'));
    const std::pair<std::string, std::string> cases[] = {
        // the recordings' own test has them all
        {bytesOf("0000000a"), "a record cannot have a length of 10 bytes"},
        {hangup.substr(0, 60), "the file ends after 60 of 61 bytes"},
    };
    for (const auto &[damage, reason] : cases) {
        const std::string output = run(first + damage, 1);
        EXPECT_THAT(output, HasSubstr(R"("body":{"text":"hello"})"));
        EXPECT_THAT(output, HasSubstr(R"({"event":"damaged","offset":65,"reason":")" + reason));
        EXPECT_EQ("vintok: '" + folder.path("record") +
                      "' stops making sense at byte 65: " + reason + '\n',
                  errors);
    }
}

TEST_F(Decode, OfNoFileFailsAndOfAnEmptyOneIsNothing) {
    EXPECT_EQ("", run("", 0));
    ChildProcess missing = Program::plain({"decode", folder.path("missing")});
    EXPECT_TRUE(missing.ends(1));
    EXPECT_THAT(sameEnds(missing.errors()), HasSubstr("missing': No such file or directory\n"));
    ChildProcess input = Program::plain({"decode", "-"});
    input.type("This is a line and no message.");
    input.endInput();
    EXPECT_TRUE(input.ends(1, "'-'"));
}

// ---- Recordings that are said again ----

std::string said(std::int64_t stamp, const std::string &text) {
    return frame(TCP_broadcastMessage, "say 1\n192.0.2.1 7777\nCleo\n" + text, stamp);
}

class Replay : public testing::Test {
protected:
    void expectLines(Program &listener, const std::vector<std::string> &lines) {
        for (const std::string &line : lines) {
            std::string event;
            ASSERT_TRUE(listener.tells("said", {}, &event));
            EXPECT_THAT(event, HasSubstr("\"text\":\"" + line + "\"}"));
        }
    }

    TemporaryFolder folder;
};

TEST_F(Replay, SaysAgainWhatWasRecordedAtEitherEnd) {
    const std::string hosts = folder.path("host's");
    const std::string guests = folder.path("guest's");
    {
        Program ann({"host", "--name", "Ann", "--record", hosts});
        Program bob({"join", ann.target(), "--name", "Bob", "--record", guests});
        ASSERT_TRUE(ann.tells("joined", {named("Bob")}));
        ASSERT_TRUE(bob.isHeard("one", ann));
        ASSERT_TRUE(ann.isHeard("two", bob));
    }
    Program cid({"host", "--name", "Cid"});
    const std::string target = cid.target();
    Program dan({"join", target, "--name", "Dan"});
    ASSERT_TRUE(cid.tells("joined", {named("Dan")}));
    for (const std::string &file : {hosts, guests}) {
        Program replay({"replay", file, target, "--no-wait", "--name", "Tape"});
        for (Program *listener : {&cid, &dan}) {
            ASSERT_TRUE(listener->tells("joined", {named("Tape")}));
            expectLines(*listener, {"one", "two"});
            ASSERT_TRUE(listener->tells("left", {named("Tape")}));
        }
        EXPECT_TRUE(replay.ends(0));
        EXPECT_TRUE(replay.tells("played", {{"number", "1"}, named("Bob"), {"percent", "50"}}));
        EXPECT_TRUE(replay.tells("played", {{"number", "2"}, named("Ann"), {"percent", "100"}}));
        EXPECT_TRUE(replay.tells("played-all", {{"messages", "2"}, {"skipped", "0"}}));
        EXPECT_TRUE(replay.tells("ended"));
    }
}

// Whoever were told of a file would wait for it.
TEST_F(Replay, AnnouncesNoFiles) {
    const std::string sender = "\n127.0.0.1 7001\n";
    const std::string file = folder.holding(
        "files", frame(TCP_broadcastMessage, "file 1" + sender + "a\n1 " + std::string(64, '0')) +
                     frame(TCP_broadcastMessage, "file-end 1" + sender + "sent") + said(5, "line"));
    Program ann({"host", "--name", "Ann"});
    Program replay({"replay", file, ann.target()});
    EXPECT_TRUE(replay.ends(0));
    EXPECT_TRUE(replay.tells("played-all", {{"messages", "1"}, {"skipped", "2"}}));
    ASSERT_TRUE(ann.tells("left"));
    EXPECT_THAT(ann.output(), testing::Not(HasSubstr("\"data\"")));
}

TEST_F(Replay, WaitsBetweenMessagesAndFailsWhenTheMeetingEndsMeanwhile) {
    const std::string file = folder.holding("long", said(0, "first") + said(86400, "next day"));
    Program ann({"host", "--name", "Ann"});
    Program replay({"replay", file, ann.target()});
    expectLines(ann, {"first"});
    ann.type("/leave");
    EXPECT_TRUE(replay.ends(1));
    EXPECT_EQ("vintok: the meeting has ended before the recording did\n",
              sameEnds(replay.errors()));
    EXPECT_THAT(ann.output(), testing::Not(HasSubstr("next day")));
}

} // namespace
