#include "Base64.h"
#include "Command.h"
#include "FileAnnouncement.h"
#include "JsonLine.h"
#include "Options.h"
#include "Palette.h"
#include "Saying.h"
#include "ServerReply.h"
#include "Target.h"
#include "Text.h"

#include "support/Environment.h"
#include "support/TemporaryFolder.h"

#include <vintok/TCPStream.h>

#include <set>

#include <gmock/gmock.h>

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
    const char *printed;
    const char *json;
};

const TextCase textCases[] = {
    {"plain text", "hello, world", "hello, world", "hello, world"},
    {"letters of every length", "a\u00e9\u20ac\U0001F600", "a\u00e9\u20ac\U0001F600",
     "a\u00e9\u20ac\U0001F600"},
    {"quotes and backslashes", R"(say "c:\x")", R"(say "c:\x")", R"(say \"c:\\x\")"},
    {"line ends", "one\ntwo\r\tthree", R"(one\x0atwo\x0d\x09three)", R"(one\ntwo\u000d\tthree)"},
    {"a zero byte", bytes("a\0b"), R"(a\x00b)", R"(a\u0000b)"},
    {"clearing the screen", "\x1b[2J\x1b]0;title\x07", R"(\x1b[2J\x1b]0;title\x07)",
     R"(\u001b[2J\u001b]0;title\u0007)"},
    {"an escape sequence of the second set", "\u009b2J", R"(\x9b2J)", R"(\u009b2J)"},
    {"that set as a bare byte",
     "\x9b"
     "2J",
     R"(\x9b2J)", R"(\ufffd2J)"},
    {"delete", "a\x7f", R"(a\x7f)", R"(a\u007f)"},
    {"text turned round", "abc\u202edef", R"(abc\u202edef)", R"(abc\u202edef)"},
    {"a separator that scripts take for a line end", "a\u2028b", R"(a\u2028b)", R"(a\u2028b)"},
    {"a hidden tag", "a\U000E0041", R"(a\ue0041)", R"(a\udb40\udc41)"},
    {"a lone continuation byte", "\x80", R"(\x80)", R"(\ufffd)"},
    {"a character that breaks off at the end", "a\xe2\x82", R"(a\xe2\x82)", R"(a\ufffd)"},
    {"a character that breaks off before another",
     "\xe2\x82"
     "x",
     R"(\xe2\x82x)", R"(\ufffdx)"},
    {"an overlong slash", "\xc0\xaf", R"(\xc0\xaf)", R"(\ufffd\ufffd)"},
    {"an overlong escape", "\xe0\x80\x9b", R"(\xe0\x80\x9b)", R"(\ufffd\ufffd\ufffd)"},
    {"half a surrogate pair", "\xed\xa0\x80", R"(\xed\xa0\x80)", R"(\ufffd\ufffd\ufffd)"},
    {"beyond the last character", "\xf4\x90\x80\x80", R"(\xf4\x90\x80\x80)",
     R"(\ufffd\ufffd\ufffd\ufffd)"},
    {"bytes that never occur", "\xff\xfe", R"(\xff\xfe)", R"(\ufffd\ufffd)"},
};

TEST(Text, ReachesTerminalsWithoutItsTeethAndScriptsEscaped) {
    for (const TextCase &one : textCases) {
        SCOPED_TRACE(one.what);
        EXPECT_EQ(one.printed, printable(one.text));
        EXPECT_EQ(R"({"event":"e","text":")" + std::string(one.json) + R"("})",
                  JsonLine("e").text("text", one.text).str());
    }
}

TEST(Text, LongTextIsCutBetweenCharacters) {
    EXPECT_EQ("a\u00e9\u20ac...", printable("a\u00e9\u20acx", 3));
    EXPECT_EQ("a\u00e9\u20ac", printable("a\u00e9\u20ac", 3));
}

TEST(JsonLine, HoldsFieldsInTheirOrder) {
    const JsonLine line = JsonLine("roster")
                              .number("count", -9223372036854775807 - 1)
                              .flag("full", false)
                              .nothing("lead")
                              .list("none", {})
                              .list("parties", {JsonLine().text("n", "A"), JsonLine()});
    EXPECT_EQ(R"({"event":"roster","count":-9223372036854775808,"full":false,"lead":null,)"
              R"("none":[],"parties":[{"n":"A"},{}]})",
              line.str());
}

TEST(Command, TellsWhatIsSaidFromWhatIsAsked) {
    const struct {
        std::string line;
        CommandKind kind;
        std::string text;
    } cases[] = {
        {"", CommandKind::nothing, ""},
        {" \t\r", CommandKind::nothing, ""},
        {"hello all\r", CommandKind::say, "hello all"},
        {"  indented ", CommandKind::say, "indented"},
        {"//slash", CommandKind::say, "/slash"},
        {"//", CommandKind::say, "/"},
        {"1/2", CommandKind::say, "1/2"},
        {"/who", CommandKind::who, ""},
        {" /leave ", CommandKind::leave, ""},
        {"/accept", CommandKind::accept, ""},
        {"/accept \t 12 ", CommandKind::accept, "12"},
        {"/reject 3", CommandKind::reject, "3"},
        {"/send  my plan.txt ", CommandKind::send, "my plan.txt"},
        {"/help", CommandKind::help, ""},
        {"/", CommandKind::unknown, "/"},
        {"/whoami", CommandKind::unknown, "/whoami"},
        {"/WHO", CommandKind::unknown, "/WHO"},
        {"/leave now", CommandKind::unknown, "/leave now"},
    };
    for (const auto &one : cases) {
        const Command command = parseCommand(one.line);
        EXPECT_EQ(one.kind, command.kind) << one.line;
        EXPECT_EQ(one.text, command.text) << one.line;
    }
}

TEST(Command, HelpListsWhatIsUnderstood) {
    for (const CommandHelp &help : commandHelp()) {
        const std::string word = help.usage.substr(0, help.usage.find(' '));
        EXPECT_NE(CommandKind::unknown, parseCommand(word).kind) << help.usage;
        EXPECT_FALSE(help.meaning.empty());
    }
}

TEST(Saying, IsATextOfFourLines) {
    const std::string body = encodeSaying({{"192.0.2.1", 7777}, "Ann Lee", "hello\nall"});
    EXPECT_EQ("say 1\n192.0.2.1 7777\nAnn Lee\nhello\nall", body);
    Saying saying;
    ASSERT_TRUE(decodeSaying(body, saying));
    EXPECT_EQ("192.0.2.1", saying.place.address);
    EXPECT_EQ(7777, saying.place.port);
    EXPECT_EQ("Ann Lee", saying.name);
    EXPECT_EQ("hello\nall", saying.text);
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
        {"nothing", ""},
        {"zero bytes", std::string(1024, '\0')},
        {"another mark", "say 2\n::1 1\nAnn\nhello"},
        {"the mark alone", "say 1"},
        {"no address", "say 1\n"},
        {"no port", "say 1\n::1\nAnn\nhello"},
        {"an empty address", "say 1\n 7777\nAnn\nhello"},
        {"an empty port", "say 1\n::1 \nAnn\nhello"},
        {"a port too high", "say 1\n::1 65536\nAnn\nhello"},
        {"a negative port", "say 1\n::1 -1\nAnn\nhello"},
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
    for (const std::string &body : {std::string(),
                                    std::string(2000, '\0'),
                                    "file 2\n::1 1\nf\n1 " + hash,
                                    "say 1\n::1 1\nf\n1 " + hash,
                                    "file 1\n::1\nf\n1 " + hash,
                                    head,
                                    head + "f",
                                    head + "\n1 " + hash,
                                    head + std::string(maxFileName + 1, 'f') + "\n1 " + hash,
                                    head + "f\n0 " + hash,
                                    head + "f\n2147483648 " + hash,
                                    head + "f\n99999999999999999999999 " + hash,
                                    head + "f\n-1 " + hash,
                                    head + "f\n1" + hash,
                                    head + "f\n1 ",
                                    head + "f\n 1 " + hash,
                                    head + "f\n1 a" + hash,
                                    head + "f\n1 " + std::string(64, 'A'),
                                    head + "f\n1 " + hash + "\n",
                                    std::string("file-turn 1\n::1 1\n::2\nyes"),
                                    std::string("file-turn 1\n::1 1\nyes"),
                                    std::string("file-end 1\n::1 1\n"),
                                    std::string("file-end 1\n::1 1\nsent\n")}) {
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
        const char *text;
        const char *host;
        unsigned short port;
    } good[] = {
        {"meeting.example", "meeting.example", 0},
        {"meeting.example:80", "meeting.example", 80},
        {"192.0.2.1:65535", "192.0.2.1", 65535},
        {"::1", "::1", 0},
        {"[::1]", "::1", 0},
        {"[2001:db8::1]:7777", "2001:db8::1", 7777},
    };
    for (const auto &one : good) {
        Target target;
        ASSERT_TRUE(parseTarget(one.text, target)) << one.text;
        EXPECT_EQ(one.host, target.host) << one.text;
        EXPECT_EQ(one.port, target.port) << one.text;
    }
    for (const char *text :
         {"", ":7777", "host:", "host:0", "host:65536", "host:7a", "host:+7", "[::1", "[]:7",
          "[::1]7777", "[::1]:", "a b", "http://host", "::1]:7"}) {
        Target target;
        EXPECT_FALSE(parseTarget(text, target)) << text;
    }
    EXPECT_EQ("[::1]:80", (Target{"::1", 80}.text()));
    EXPECT_EQ("host", (Target{"host", 0}.text()));
}

TEST(Palette, NeighbouringColoursDiffer) {
    std::set<std::string> names;
    for (unsigned short index = 0; index < 12; ++index)
        names.insert(colourOf(index).name);
    EXPECT_EQ(12u, names.size());
    EXPECT_THAT(coloured("x", 65534), HasSubstr("x\x1b[0m")) << "any index has a colour";
    EXPECT_EQ("no colour", colourText(65535));
}

// The command line, as a shell hands it over.
ParseResult parse(std::vector<const char *> arguments, Options &options, std::string &text) {
    arguments.insert(arguments.begin(), "vintok");
    return parseOptions(static_cast<int>(arguments.size()), arguments.data(), options, text);
}

TEST(Options, WrongOnesAreToldInOneLine) {
    const struct {
        std::vector<const char *> arguments;
        const char *complaint;
    } cases[] = {
        {{}, "command is needed"},
        {{"dance"}, "dance"},
        {{"join"}, "target"},
        {{"join", "host:99999"}, "host:99999"},
        {{"join", "a", "b"}, "b"},
        {{"host", "--port", "0"}, "--port"},
        {{"host", "--port", "many"}, "--port"},
        {{"host", "--no-such"}, "--no-such"},
        {{"host", "--answer", "perhaps"}, "--answer"},
        {{"host", "--log-level", "loud"}, "--log-level"},
        {{"host", "--name"}, "--name"},
        {{"relay", "--meeting", "x"}, "--meeting"},
        {{"join", "a", "--clock-offset", "1"}, "--clock-offset"},
        {{"relay-send"}, "target"},
        {{"join", "a", "--proxy", "p"}, "--mux"},
        {{"join", "a", "--mux", "m"}, "--meeting-id"},
        {{"join", "a", "--mux", "m:x", "--meeting-id", "i"}, "m:x"},
        {{"join", "--mux", "m", "--meeting-id", "a\r\nX: y"}, "--meeting-id"},
        {{"join", "a", "--mux", "m", "--meeting-id", "i", "--proxy", "p"}, "leave 'a' out"},
        {{"join", "--mux", "m", "--meeting-id", "i", "--auth", "ann"}, "not USER:PASSWORD"},
        {{"join", "--mux", "m", "--meeting-id", "i", "--auth-file", "/no/such"}, "/no/such"},
    };
    for (const auto &one : cases) {
        Options options;
        std::string text;
        EXPECT_EQ(ParseResult::wrong, parse(one.arguments, options, text)) << one.complaint;
        EXPECT_THAT(text, HasSubstr(one.complaint));
        EXPECT_EQ(std::string::npos, text.find('\n')) << text;
    }
}

TEST(Options, SayWhoIsToMeetWhomAndHow) {
    Options options;
    std::string text;
    ASSERT_EQ(
        ParseResult::run,
        parse(
            {"join",       "[::1]:7001", "--name",      "Ann van der Lee", "--email",      "a@b",
             "--local",    "--port",     "7002",        "--exact-port",    "--json",       "--stay",
             "--color",    "never",      "--log-level", "debug",           "--keep-alive", "5",
             "--patience", "9"},
            options, text))
        << text;
    EXPECT_EQ(Role::join, options.role);
    EXPECT_EQ("[::1]:7001", options.target.text());
    EXPECT_EQ("Ann", options.firstName);
    EXPECT_EQ("van der Lee", options.lastName);
    EXPECT_EQ("a@b", options.email);
    EXPECT_EQ(7002, options.port);
    EXPECT_TRUE(options.exactPort && options.localOnly && options.json && options.stay);
    EXPECT_EQ(When::never, options.colour);
    EXPECT_EQ(vintok::LOG_DEBUG, options.logLevel);
    EXPECT_EQ(5u, options.keepAlive);
    EXPECT_EQ(9u, options.patience);
}

TEST(Options, SayWhichWayACallTakes) {
    const vintok::test::TemporaryFolder folder;
    const std::string file = folder.holding("auth", "ann:of:file\r\nnext line");
    const vintok::test::ScopedEnvironment variable("VINTOK_PROXY_AUTH", "ann:of:environment");
    const struct {
        std::vector<const char *> more;
        const char *credentials;
    } cases[] = {{{"--auth", "ann:given"}, "ann:given"},
                 {{"--auth-file", file.c_str()}, "ann:of:file"},
                 {{"--proxy", "[::1]"}, "ann:of:environment"}};
    for (const auto &one : cases) {
        std::vector<const char *> arguments = {"join", "--mux", "mux.example", "--meeting-id",
                                               "a b"};
        arguments.insert(arguments.end(), one.more.begin(), one.more.end());
        Options options;
        std::string text;
        ASSERT_EQ(ParseResult::run, parse(arguments, options, text)) << text;
        EXPECT_EQ("mux.example:7780", options.tunnel.multiplexer.text());
        EXPECT_EQ("a b", options.tunnel.meetingID);
        EXPECT_EQ(one.credentials, options.tunnel.credentials);
        EXPECT_EQ(options.tunnel.proxy.host.empty() ? 0 : 80, options.tunnel.proxy.port);
    }
}

TEST(Base64, PadsWhatIsLeftOver) { // RFC 4648, section 10
    const std::pair<const char *, const char *> cases[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}};
    for (const auto &[text, encoded] : cases)
        EXPECT_EQ(encoded, base64(text));
    EXPECT_EQ("/+8A", base64(bytes("\xff\xef\0")));
}

TEST(ServerReply, TellsAPersonWhatTheServerSays) {
    const struct {
        const char *reply, *text, *scheme, *realm;
        bool basic;
    } cases[] = {
        {"HTTP/1.1 200 OK\r\n\r\n", "200 OK", "", "", false},
        {"HTTP/1.0 200\n\n", "200", "", "", false},
        {"HTTP/1.0 404 Not Found\r\npLorMUX_Reason:  nobody \r\n\r\n", "404 Not Found (nobody)", "",
         "", false},
        {"HTTP/1.0 407 X\r\nPROXY-AUTHENTICATE: BASIC REALM=\"a \\\"b\\\"\"\r\n\r\n", "407 X",
         "BASIC", "a \"b\"", true},
        {"HTTP/1.0 401 X\r\nWWW-Authenticate: Digest realm=\"d\", Basic realm=b, x\r\n\r\n",
         "401 X", "Digest", "b", true},
        {"HTTP/1.0 407 X\r\nProxy-Authenticate: NTLM\r\nProxy-Authenticate: Basic\r\n\r\n", "407 X",
         "NTLM", "", true},
        {"HTTP/1.0 407 X\r\nProxy-Authenticate: NTLM\r\n\r\n", "407 X", "NTLM", "", false},
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

TEST(Options, HelpNamesEveryCommandAndVersionTheProgram) {
    Options options;
    std::string text;
    EXPECT_EQ(ParseResult::done, parse({"--help"}, options, text));
    for (const char *word : {"host", "join", "relay", "relay-send", "relay-listen", "Exit status"})
        EXPECT_THAT(text, HasSubstr(word));
    EXPECT_EQ(ParseResult::done, parse({"host", "--help"}, options, text));
    EXPECT_THAT(text, HasSubstr("--answer"));
    EXPECT_EQ(ParseResult::done, parse({"--version"}, options, text));
    EXPECT_THAT(text, testing::StartsWith("vintok "));
}

} // namespace
