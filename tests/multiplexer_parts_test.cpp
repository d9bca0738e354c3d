// The multiplexer's parts that need no network: what is asked, who may be called, who is let in.
#include "Credentials.h"
#include "Log.h"
#include "Options.h"
#include "Request.h"
#include "Rules.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

using namespace mux;
using vintok::test::TemporaryFolder;

namespace {

using Result = RequestReader::Result;

constexpr std::size_t limit = 512;

// Reads the bytes as they come, `step` at a time.
Result readInSteps(const std::string &bytes, std::size_t step, Request &request,
                   std::size_t &length) {
    RequestReader reader(limit);
    Result result = Result::more;
    for (std::size_t size = 0; size < bytes.size() && result == Result::more;) {
        size = std::min(size + step, bytes.size());
        result = reader.read(std::string_view(bytes).substr(0, size), request, length);
    }
    return result;
}

struct HeadCase {
    const char *what;
    std::string bytes;
    Result result;
};

const std::string start = "CONNECT a.example:-25536 HTTP/1.0";

const HeadCase headCases[] = {
    {"a request", start + "\r\npLorMUX_MeetingID: talk\r\n\r\n", Result::whole},
    {"a header in another case", start + "\r\nplormux_meetingid: talk\r\n\r\n", Result::whole},
    {"a second header of the name", start + "\npLorMUX_MeetingID: talk\npLorMUX_MeetingID: x\n\n",
     Result::whole},
    {"bytes of the stream behind it", start + "\r\npLorMUX_MeetingID: talk\r\n\r\n\x01\x02\n\n",
     Result::whole},
    {"no end yet", start + "\r\nA: b\r\n", Result::more},
    {"a zero byte", start + std::string("\r\nA: \0b\r\n", 9), Result::bad},
    {"an escape", start + "\r\nA: \x1b[2J\r\n\r\n", Result::bad},
    {"another protocol", "CONNECT a.example:1 SIP/2.0\r\n\r\n", Result::bad},
    {"four words", "CONNECT a.example:1 b HTTP/1.0\r\n\r\n", Result::bad},
    {"a blank before the colon", start + "\r\nA : b\r\n\r\n", Result::bad},
    {"a continued header", start + "\r\nA: b\r\n c\r\n\r\n", Result::bad},
    {"exactly as long as allowed",
     start + "\nA:" + std::string(limit - start.size() - 5, 'x') + "\n\n", Result::whole},
    {"a byte longer", start + "\nA:" + std::string(limit - start.size() - 4, 'x') + "\n\n",
     Result::tooLong},
    {"headers without end", start + "\n" + std::string(limit, 'A'), Result::tooLong},
};

TEST(Requests, AreReadTheSameHoweverTheyAreCut) {
    for (const HeadCase &row : headCases) {
        for (std::size_t step = 1; step <= row.bytes.size(); ++step) {
            SCOPED_TRACE(std::string(row.what) + " by " + std::to_string(step));
            Request request;
            std::size_t length = 0;
            ASSERT_EQ(row.result, readInSteps(row.bytes, step, request, length));
            if (row.result == Result::whole) {
                EXPECT_EQ("CONNECT", request.method);
                EXPECT_EQ("a.example:-25536", request.target);
                EXPECT_EQ('\n', row.bytes[length - 1]);
                EXPECT_TRUE(row.bytes.find("talk") == std::string::npos ||
                            request.header("pLorMUX_MeetingID") == "talk")
                    << "the first one";
            }
        }
    }
}

TEST(Requests, NameAddressesWithPortsThatMayLookNegative) {
    const std::pair<const char *, const char *> good[] = {
        {"Host.Example:7777", "host.example:7777"},
        {"host:-25536", "host:40000"},
        {"::1:80", "[::1]:80"},
        {"[2001:DB8::1]:-2", "[2001:db8::1]:65534"},
    };
    for (const auto &[text, meant] : good) {
        Authority authority;
        ASSERT_TRUE(parseAuthority(text, authority)) << text;
        EXPECT_EQ(meant, authority.text());
    }
    for (const std::string bad : {"host", ":80", "host:0", "host:65536", "host:-32769", "host:1x",
                                  "ho st:1", "[]:1", "\x1b:1"}) {
        Authority authority;
        EXPECT_FALSE(parseAuthority(bad, authority)) << bad;
    }
    Authority authority;
    EXPECT_FALSE(parseAuthority(std::string(256, 'h') + ":1", authority));
}

bool allows(const Rules &rules, const std::string &host, std::uint16_t port) {
    Endpoint endpoint;
    return makeEndpoint(host, port, endpoint) ? rules.allowsAddress(endpoint)
                                              : rules.allowsName({host, port});
}

struct RuleCase {
    const char *rule;
    std::vector<const char *> allowed;
    std::vector<const char *> refused;
};

const RuleCase ruleCases[] = {
    {"party.example:7777", {"party.example"}, {"party.example:7778"}},
    {"10.1.2.3", {"10.1.2.3", "::ffff:10.1.2.3"}, {"10.1.2.4", "a.example"}},
    {"10.0.0.0/8", {"10.255.0.1", "::ffff:10.0.0.1"}, {"11.0.0.1", "::10.0.0.1", "a00::1"}},
    {"172.16.0.0/12:7777", {"172.31.255.255"}, {"172.32.0.0", "172.16.0.1:22"}},
    {"2001:db8::/33", {"2001:db8:7fff::1"}, {"2001:db8:8000::1", "32.1.13.184"}},
    {"[::1]:7777", {"::1"}, {"::1:80", "::2"}},
    {"::/0", {"2001:db8::1"}, {"::ffff:10.0.0.1", "10.0.0.1"}},
};

TEST(Rules, SayWhoMayBeCalled) {
    for (const RuleCase &row : ruleCases) {
        SCOPED_TRACE(row.rule);
        Rules rules;
        ASSERT_TRUE(rules.add(row.rule));
        const auto allowed = [&](const std::string &text) {
            Authority authority{text, 7777};
            Endpoint literal;
            if (!makeEndpoint(text, 1, literal) || text == "::1:80")
                parseAuthority(text, authority);
            return allows(rules, authority.host, authority.port);
        };
        for (const char *text : row.allowed)
            EXPECT_TRUE(allowed(text)) << text;
        for (const char *text : row.refused)
            EXPECT_FALSE(allowed(text)) << text;
    }
    Rules rules;
    for (const char *bad : {"10.0.0.0/33", "name/8", "a:0", "[::1", "a b"})
        EXPECT_FALSE(rules.add(bad)) << bad;
    EXPECT_FALSE(allows(rules, "127.0.0.1", 80)) << "nobody may be called unless it is said";
}

TEST(Credentials, AreTakenInTheBasicSchemeAlone) {
    Credentials credentials;
    EXPECT_TRUE(credentials.empty());
    EXPECT_TRUE(credentials.add("Ann:secret") && credentials.add("Ben:\xc3\xa4:b"));
    EXPECT_FALSE(credentials.add("nobody"));
    for (const char *good :
         {"Basic QW5uOnNlY3JldA==", "basic QW5uOnNlY3JldA==", "BASIC QmVuOsOkOmI="})
        EXPECT_TRUE(credentials.accept(good)) << good;
    for (const char *bad : {"", "Basic ", "Basic QW5uOnNlY3JldA=", "Basic QW5uOnNlY3JldA==x",
                            "QW5uOnNlY3JldA==", "Bearer QW5uOnNlY3JldA=="})
        EXPECT_FALSE(credentials.accept(bad)) << bad;
}

TEST(Options, KeepWhatFilesHeldUntilTheyCanBeReadAgain) {
    const TemporaryFolder folder;
    Options options;
    std::string failure;
    options.ruleFiles.push_back(folder.holding("rules", "# parties\n10.0.0.0/8\r\n\nben:1\n"));
    options.credentialFiles.push_back(folder.holding("pairs", "# let in\nAnn:secret\r\n\n"));
    ASSERT_TRUE(readFiles(options, failure)) << failure;
    const auto isInForce = [&] {
        return options.credentials.accept("Basic QW5uOnNlY3JldA==") &&
               allows(options.allowed, "10.1.2.3", 80);
    };
    EXPECT_TRUE(isInForce());
    folder.holding("rules", "10.0.0.0/99\n");
    EXPECT_FALSE(readFiles(options, failure));
    EXPECT_THAT(failure, testing::HasSubstr("rules, line 1: not HOST, "));
    folder.holding("pairs", "Ben:secret\nnobody\n");
    EXPECT_FALSE(readFiles(options, failure));
    EXPECT_THAT(failure, testing::HasSubstr("pairs, line 2: not NAME:PASSWORD"));
    folder.holding("pairs", "\n");
    EXPECT_FALSE(readFiles(options, failure)) << "or everybody would be let in";
    EXPECT_TRUE(isInForce());
}

TEST(LogLines, ShowTextFromOutsideAsTextAlone) {
    EXPECT_EQ("\"a\\\"b\\x1b[2J\\x0a\"", mux::quoted("a\"b\x1b[2J\n"));
    EXPECT_LT(mux::quoted(std::string(10000, 'x')).size(), 200u);
}

} // namespace
