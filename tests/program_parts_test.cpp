#include "Base64.h"
#include "Command.h"
#include "FileAnnouncement.h"
#include "JsonLine.h"
#include "Options.h"
#include "Saying.h"
#include "ServerReply.h"
#include "Target.h"
#include "Text.h"
#include "Whereabouts.h"

#include "support/Environment.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <vintok/TCPStream.h>

using namespace app;
using testing::HasSubstr;

namespace {

// A literal with zero bytes in it.
template <std::size_t N>
std::string bytes(const char (&text)[N]) {
    return std::string(text, N - 1);
}

struct TextCase {
    const char *what;
    std::string text;
    const char *printed, *json;
};

const TextCase textCases[] = {
    {"letters of every length", "a\u00e9\u20ac\U0001F600", "a\u00e9\u20ac\U0001F600",
     "a\u00e9\u20ac\U0001F600"},
    {"quotes and backslashes", R"(say "c:\x")", R"(say "c:\x")", R"(say \"c:\\x\")"},
    {"line ends", "one\ntwo\r\tthree", R"(one\x0atwo\x0d\x09three)", R"(one\ntwo\u000d\tthree)"},
    {"a zero byte", bytes("a\0b"), R"(a\x00b)", R"(a\u0000b)"},
    {"clearing the screen", "\x1b[2J\x1b]0;title\x07", R"(\x1b[2J\x1b]0;title\x07)",
     R"(\u001b[2J\u001b]0;title\u0007)"},
    {"an escape sequence of the second set", "\u009b2J", R"(\x9b2J)", R"(\u009b2J)"},
    {"text turned round", "abc\u202edef", R"(abc\u202edef)", R"(abc\u202edef)"},
    {"a separator that scripts take for a line end", "a\u2028b", R"(a\u2028b)", R"(a\u2028b)"},
    {"a character that breaks off at the end", "a\xe2\x82", R"(a\xe2\x82)", R"(a\ufffd)"},
    {"an overlong escape", "\xe0\x80\x9b", R"(\xe0\x80\x9b)", R"(\ufffd\ufffd\ufffd)"},
    {"half a surrogate pair", "\xed\xa0\x80", R"(\xed\xa0\x80)", R"(\ufffd\ufffd\ufffd)"},
    {"beyond the last character", "\xf4\x90\x80\x80", R"(\xf4\x90\x80\x80)",
     R"(\ufffd\ufffd\ufffd\ufffd)"},
};

TEST(Text, ReachesTerminalsWithoutItsTeethAndScriptsEscaped) {
    for (const TextCase &one : textCases) {
        SCOPED_TRACE(one.what);
        EXPECT_EQ(one.printed, printable(one.text));
        EXPECT_EQ(R"({"event":"e","text":")" + std::string(one.json) + R"("})",
                  JsonLine("e").text("text", one.text).str());
    }
}

TEST(Command, TellsWhatIsSaidFromWhatIsAsked) {
    const struct {
        std::string line;
        CommandKind kind;
        std::string text;
    } cases[] = {
        {" \t\r", CommandKind::nothing, ""},
        {"  indented ", CommandKind::say, "indented"},
        {"//slash", CommandKind::say, "/slash"},
        {" /leave ", CommandKind::leave, ""},
        {"/accept \t 12 ", CommandKind::accept, "12"},
        {"/send  my plan.txt ", CommandKind::send, "my plan.txt"},
        {"/", CommandKind::unknown, "/"},
        {"/whoami", CommandKind::unknown, "/whoami"},
        {"/leave now", CommandKind::unknown, "/leave now"},
    };
    for (const auto &one : cases) {
        const Command command = parseCommand(one.line);
        EXPECT_EQ(one.kind, command.kind) << one.line;
        EXPECT_EQ(one.text, command.text) << one.line;
    }
}

TEST(Saying, WhatIsSaidComesBackWhateverItHolds) {
    for (const TextCase &one : textCases) {
        Saying saying;
        ASSERT_TRUE(decodeSaying(encodeSaying({{"::1", 1}, one.text, one.text}), saying))
            << one.what;
        EXPECT_EQ(one.text, saying.text) << one.what;
        EXPECT_EQ(std::string::npos, saying.name.find('\n')) << one.what;
    }
}

TEST(Saying, AnOverlongNameOrTextIsCutSoThatItCanBeRead) {
    std::string name(maxSaidName - 1, 'n');
    name += "\u20ac"; // the limit falls into it
    const std::string text(maxSaidText + 100, 't');
    Saying saying;
    ASSERT_TRUE(decodeSaying(encodeSaying({{"::1", 1}, name, text}), saying));
    EXPECT_EQ(std::string(maxSaidName - 1, 'n'), saying.name);
    EXPECT_EQ(maxSaidText, saying.text.size());
}

TEST(Saying, AnythingElseIsRefusedAndChangesNothing) {
    const std::pair<const char *, std::string> bodies[] = {
        {"another mark", "say 2\n::1 1\nAnn\nhello"},
        {"no port", "say 1\n::1\nAnn\nhello"},
        {"a port too high", "say 1\n::1 65536\nAnn\nhello"},
        {"a port with a tail", "say 1\n::1 1x\nAnn\nhello"},
        {"no name", "say 1\n::1 1\nAnn"},
        {"an endless address", "say 1\n" + std::string(maxBodyAddress, ':') + " 1\nAnn\nhello"},
        {"an endless name", "say 1\n::1 1\n" + std::string(maxSaidName + 1, 'n') + "\nhello"},
        {"an endless text", "say 1\n::1 1\nAnn\n" + std::string(maxSaidText + 1, 't')},
    };
    for (const auto &[what, body] : bodies) {
        Saying saying{{"before", 5}, "name", "text"};
        EXPECT_FALSE(decodeSaying(body, saying)) << what;
        EXPECT_EQ("before", saying.place.address) << what;
        EXPECT_EQ("text", saying.text) << what;
    }
}

const std::string hash(64, 'a');

TEST(FileAnnouncement, AnAnnouncementAndAClosingComeBackAsTheyWere) {
    const std::string body =
        encodeAnnouncement({{"192.0.2.1", 7777}, "my plan.txt", {maxFileSize, hash}});
    EXPECT_EQ("file 1\n192.0.2.1 7777\nmy plan.txt\n2147483647 " + hash, body);
    FileAnnouncement announcement;
    ASSERT_TRUE(decodeAnnouncement(body, announcement));
    EXPECT_EQ((Place{"192.0.2.1", 7777}), announcement.place);
    EXPECT_EQ("my plan.txt", announcement.name);
    EXPECT_EQ((FileSum{maxFileSize, hash}), announcement.sum);
    for (const bool sent : {false, true}) {
        FileClosing closing;
        ASSERT_TRUE(decodeClosing(encodeClosing({{"::1", 1}, sent}), closing));
        EXPECT_EQ(sent, closing.sent);
        EXPECT_EQ("::1", closing.place.address);
        FileTurn turn;
        ASSERT_TRUE(decodeTurn(encodeTurn({{"::1", 1}, {"::2", 2}, sent}), turn));
        EXPECT_EQ(sent, turn.yes);
        EXPECT_EQ((Place{"::2", 2}), turn.whose);
    }
}

TEST(FileAnnouncement, AnythingElseIsRefusedAndChangesNothing) {
    const std::string head = "file 1\n::1 1\n";
    for (const std::string &body :
         {std::string(), "file 2\n::1 1\nf\n1 " + hash, "say 1\n::1 1\nf\n1 " + hash,
          head + "\n1 " + hash, head + std::string(maxFileName + 1, 'f') + "\n1 " + hash,
          head + "f\n0 " + hash, head + "f\n2147483648 " + hash, head + "f\n1" + hash,
          head + "f\n 1 " + hash, head + "f\n1 a" + hash, head + "f\n1 " + std::string(64, 'A'),
          head + "f\n1 " + hash + "\n", std::string("file-turn 1\n::1 1\n::2\nyes"),
          std::string("file-end 1\n::1 1\n"), std::string("file-end 1\n::1 1\nsent\n")}) {
        FileAnnouncement announcement{{"before", 5}, "name", {7, "sum"}};
        EXPECT_FALSE(decodeAnnouncement(body, announcement)) << body;
        EXPECT_EQ("name", announcement.name) << body;
        FileTurn turn;
        EXPECT_FALSE(decodeTurn(body, turn)) << body;
        FileClosing closing{{"before", 5}, true};
        EXPECT_FALSE(decodeClosing(body, closing)) << body;
        EXPECT_EQ("before", closing.place.address) << body;
    }
}

TEST(Target, IsAHostWithOrWithoutAPort) {
    const struct {
        const char *text, *host;
        unsigned short port;
    } good[] = {
        {"meeting.example", "meeting.example", 0},
        {"meeting.example:80", "meeting.example", 80},
        {"[::1]", "::1", 0},
        {"[2001:db8::1]:7777", "2001:db8::1", 7777},
    };
    for (const auto &one : good) {
        Target target;
        ASSERT_TRUE(parseTarget(one.text, target)) << one.text;
        EXPECT_EQ(one.host, target.host) << one.text;
        EXPECT_EQ(one.port, target.port) << one.text;
    }
    for (const char *text : {":7777", "host:", "host:0", "host:65536", "host:+7", "[::1", "[]:7",
                             "[::1]7777", "a b"}) {
        Target target;
        EXPECT_FALSE(parseTarget(text, target)) << text;
    }
    EXPECT_EQ("[::1]:80", (Target{"::1", 80}.text()));
    EXPECT_EQ("host", (Target{"host", 0}.text()));
}

// The command line, as a shell hands it over.
ParseResult parse(std::vector<const char *> arguments, Options &options, std::string &text) {
    arguments.insert(arguments.begin(), "vintok");
    return parseOptions(static_cast<int>(arguments.size()), arguments.data(), options, text);
}

TEST(Options, WrongOnesAreToldInOneLine) {
    const std::pair<std::vector<const char *>, const char *> cases[] = {
        {{}, "command is needed"},
        {{"join", "host:99999"}, "host:99999"},
        {{"host", "--port", "0"}, "--port"},
        {{"host", "--no-such"}, "--no-such"},
        {{"host", "--answer", "perhaps"}, "--answer"},
        {{"relay", "--meeting", "x"}, "--meeting"},
        {{"join", "a", "--proxy", "p"}, "--mux"},
        {{"join", "a", "--mux", "m:x", "--meeting-id", "i"}, "m:x"},
        {{"join", "--mux", "m", "--meeting-id", "a\r\nX: y"}, "--meeting-id"},
        {{"join", "a", "--mux", "m", "--meeting-id", "i", "--proxy", "p"}, "leave 'a' out"},
        {{"join", "a", "--meeting-id", "i"}, "goes with --mux or --cluster"},
        {{"host", "--cluster", "nats://n"}, "--meeting-id"},
        {{"join", "--cluster", "n", "--mux", "m", "--meeting-id", "i"}, "--mux"},
        {{"host", "--cluster", "n", "--meeting-id", "i", "--cluster-history", "1"}, "ordered"},
        {{"join", "--mux", "m", "--meeting-id", "i", "--auth", "ann"}, "not USER:PASSWORD"},
        {{"join", "--mux", "m", "--meeting-id", "i", "--auth-file", "/no/such"}, "/no/such"},
    };
    for (const auto &[arguments, complaint] : cases) {
        Options options;
        std::string text;
        EXPECT_EQ(ParseResult::wrong, parse(arguments, options, text)) << complaint;
        EXPECT_THAT(text, HasSubstr(complaint));
        EXPECT_EQ(std::string::npos, text.find('\n')) << text;
    }
}

TEST(Options, SayWhichWayACallTakes) {
    const vintok::test::TemporaryFolder folder;
    const std::string file = folder.holding("auth", "ann:of:file\r\nnext line");
    const vintok::test::ScopedEnvironment variable("VINTOK_PROXY_AUTH", "ann:of:environment");
    const std::pair<std::vector<const char *>, const char *> cases[] = {
        {{"--auth", "ann:given"}, "ann:given"},
        {{"--auth-file", file.c_str()}, "ann:of:file"},
        {{"--proxy", "[::1]"}, "ann:of:environment"}};
    for (const auto &[more, credentials] : cases) {
        std::vector<const char *> arguments = {"join", "--mux", "mux.example", "--meeting-id",
                                               "a b"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        Options options;
        std::string text;
        ASSERT_EQ(ParseResult::run, parse(arguments, options, text)) << text;
        EXPECT_EQ("mux.example:7780", options.tunnel.multiplexer.text());
        EXPECT_EQ("a b", options.tunnel.meetingID);
        EXPECT_EQ(credentials, options.tunnel.credentials);
        EXPECT_EQ(options.tunnel.proxy.host.empty() ? 0 : 80, options.tunnel.proxy.port);
    }
}

TEST(Whereabouts, AreReadAsTheyWereWrittenAndNothingElseIs) {
    const Place host{"::1", 7777}, ann{"10.0.0.1", 50001}, bob{"::2", 50002};
    const std::string body =
        cluster::encodeWhereabouts({{"East\n1", host, {ann}}, {"West", bob, {host}}});
    EXPECT_EQ("where 1\nEast 1\n::1 7777\n10.0.0.1 50001\n\nWest\n::2 50002\n::1 7777\n\n", body);
    std::vector<cluster::AtHost> hosts;
    for (std::size_t length = 0; length < body.size(); ++length) // with the first host, or none
        EXPECT_EQ(length == 8 || length == 40,
                  cluster::decodeWhereabouts(body.substr(0, length), hosts))
            << length;
    ASSERT_TRUE(cluster::decodeWhereabouts(body, hosts));
    cluster::Whereabouts known;
    known.take(hosts);
    EXPECT_EQ("East 1", known.of(ann));
    EXPECT_EQ("West", known.of(host));
    EXPECT_TRUE(known.isHost(bob) && !known.isHost(ann));
    known.left(ann);
    EXPECT_EQ("", known.of(ann));
}

TEST(Base64, PadsWhatIsLeftOver) { // RFC 4648, section 10
    const std::pair<const char *, const char *> cases[] = {
        {"f", "Zg=="}, {"fo", "Zm8="}, {"foobar", "Zm9vYmFy"}};
    for (const auto &[text, encoded] : cases)
        EXPECT_EQ(encoded, base64(text));
    EXPECT_EQ("/+8A", base64(bytes("\xff\xef\0")));
}

TEST(ServerReply, TellsAPersonWhatTheServerSays) {
    const struct {
        const char *reply, *text, *scheme, *realm;
        bool basic;
    } cases[] = {
        {"HTTP/1.0 200\n\n", "200", "", "", false},
        {"HTTP/1.0 404 Not Found\r\npLorMUX_Reason:  nobody \r\n\r\n", "404 Not Found (nobody)", "",
         "", false},
        {"HTTP/1.0 407 X\r\nPROXY-AUTHENTICATE: BASIC REALM=\"a \\\"b\\\"\"\r\n\r\n", "407 X",
         "BASIC", "a \"b\"", true},
        {"HTTP/1.0 401 X\r\nWWW-Authenticate: Digest realm=\"d\", Basic realm=b, x\r\n\r\n",
         "401 X", "Digest", "b", true},
        {"HTTP/1.0 407 X\r\nProxy-Authenticate: NTLM\r\nProxy-Authenticate: Basic\r\n\r\n", "407 X",
         "NTLM", "", true},
        {"nothing of HTTP", "0", "", "", false},
    };
    for (const auto &one : cases) {
        const ServerReply reply = readServerReply(one.reply);
        EXPECT_EQ(one.text, reply.text()) << one.reply;
        EXPECT_EQ(one.scheme, reply.scheme) << one.reply;
        EXPECT_EQ(one.realm, reply.realm) << one.reply;
        EXPECT_EQ(one.basic, reply.takesBasic) << one.reply;
    }
}

} // namespace
