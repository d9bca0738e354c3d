// The multiplexer as a process, between raw clients.
#include "platform/TestSockets.h"
#include "support/Eventually.h"
#include "support/Multiplexer.h"
#include "support/TemporaryFolder.h"
#include "support/Wire.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>

namespace vintok::test {
namespace {

using testing::EndsWith;

std::string number(std::size_t value) {
    return std::to_string(value);
}

// Two clients of one meeting, joined and past their ready lines.
struct Tunnel {
    explicit Tunnel(const Multiplexer &mux, const std::string &meeting = "talk")
        : a(mux.port()), b(mux.port()) {
        const std::size_t waiting = mux.count("waiting");
        a.sends(callTo(mux, meeting));
        EXPECT_TRUE(mux.comesTo("waiting", waiting + 1));
        b.sends(callTo(mux, meeting));
        for (Client *each : {&a, &b}) {
            EXPECT_THAT(each->answer(), StartsWith(OPENED));
            EXPECT_TRUE(each->sends(READY));
        }
    }
    Client a, b;
};

// ---- Who is joined with whom ----

TEST(AMultiplexer, JoinsTwoPartiesOfAMeeting) {
    Multiplexer mux;
    Tunnel one(mux, "one");
    Tunnel two(mux, "two");
    for (Tunnel *tunnel : {&one, &two}) {
        EXPECT_TRUE(tunnel->a.sends("to b") && tunnel->b.sends("to a"));
        EXPECT_EQ("to b", tunnel->b.receives(4));
        EXPECT_EQ("to a", tunnel->a.receives(4));
    }
    one.a.closes();
    EXPECT_TRUE(one.b.seesTheEnd());
    one.b.closes();
    EXPECT_TRUE(mux.comesTo("tunnels", 1));
    EXPECT_TRUE(mux.printed("meeting \"one\" sent 4 received 4 "));
}

TEST(AMultiplexer, CallsThePartyThatIsNamedIfItMay) {
    Called party, other;
    Multiplexer mux({"--allow", party.address()});
    Client named(mux.port(), request("127.0.0.1", party.port(), "talk"));
    const auto picked = party.picksUp();
    EXPECT_THAT(named.answer(), StartsWith(OPENED));
    for (const char *host : {"127.0.0.1", "::ffff:127.0.0.1", "party.invalid"}) {
        Client refused(mux.port(), request(host, other.port(), "talk"));
        EXPECT_THAT(refused.answer(), StartsWith("HTTP/1.0 403 ")) << host;
    }
}

TEST(AMultiplexer, LetsTheOthersOfAMeetingComeWhereAPartyIsNotReached) {
    Called party;
    party.stops();
    Multiplexer mux({"--allow", "127.0.0.1"});
    Client a(mux.port(), request("127.0.0.1", party.port(), "talk"));
    EXPECT_TRUE(mux.comesTo("waiting", 1));
    Client b(mux.port(), request("127.0.0.1", party.port(), "talk"));
    EXPECT_THAT(a.answer(), StartsWith(OPENED));
    EXPECT_THAT(b.answer(), StartsWith(OPENED));
}

// ---- Bytes ----

TEST(AMultiplexer, TakesRequestsAndReadyLinesInAnyPieces) {
    Multiplexer mux;
    const std::string asked = callTo(mux, "talk");
    Client a(mux.port()), b(mux.port());
    for (const char byte : asked)
        a.sends(std::string(1, byte));
    EXPECT_TRUE(mux.comesTo("waiting", 1));
    b.sends(asked + READY + "all at once");
    a.sends(READY + "first");
    for (Client *each : {&a, &b})
        EXPECT_THAT(each->answer(), StartsWith(OPENED));
    EXPECT_EQ("first", b.receives(5));
    EXPECT_EQ("all at once", a.receives(11));
    for (const std::size_t cut : {1u, 10u, 24u}) {
        Client c(mux.port()), d(mux.port());
        c.sends(callTo(mux, "cut") + READY.substr(0, cut));
        EXPECT_TRUE(mux.comesTo("waiting", 1));
        d.sends(callTo(mux, "cut") + READY);
        EXPECT_THAT(c.answer(), StartsWith(OPENED));
        c.sends(READY.substr(cut) + READY);
        EXPECT_THAT(d.answer(), StartsWith(OPENED));
        EXPECT_EQ(READY, d.receives(READY.size())) << "the second one is the other's to read";
    }
}

TEST(AMultiplexer, HoldsBytesBackUntilTheReadyLine) {
    Called party;
    Multiplexer mux({"--meeting", "talk=" + party.address(), "--request-time", "1"});
    Client a(mux.port(), callTo(mux, "talk"));
    const auto called = party.picksUp();
    called->sends("hello");
    EXPECT_THAT(a.answer(), EndsWith("pLorMUX_Encrypt: false\r\n\r\n"));
    EXPECT_EQ(0u, mux.count("bytes-to-caller"));
    EXPECT_FALSE(a.hasBytes());
    a.sends(READY);
    EXPECT_EQ("hello", a.receives(5));

    Client wrong(mux.port(), callTo(mux, "talk"));
    const auto second = party.picksUp();
    EXPECT_THAT(wrong.answer(), StartsWith(OPENED));
    wrong.sends("pLorMUX_Response: Never");
    EXPECT_TRUE(wrong.seesTheEnd() && second->seesTheEnd());

    Client silent(mux.port(), callTo(mux, "talk"));
    const auto third = party.picksUp();
    EXPECT_THAT(silent.answer(), StartsWith(OPENED));
    EXPECT_TRUE(third->seesTheEnd()) << "its time is over";

    Client plain(mux.port()); // asks for no ready line
    std::string asked = callTo(mux, "talk");
    const std::string header = "pLorMUX_ResponseRequired: true\r\n";
    plain.sends(asked.erase(asked.find(header), header.size()) + READY);
    const auto fourth = party.picksUp();
    EXPECT_EQ(READY, fourth->receives(READY.size()));
}

TEST(AMultiplexer, PassesTheEndOfEachSideByItself) {
    Multiplexer mux;
    for (const bool fromCaller : {true, false}) {
        Tunnel tunnel(mux);
        Client &early = fromCaller ? tunnel.a : tunnel.b;
        Client &late = fromCaller ? tunnel.b : tunnel.a;
        early.sends("last words");
        early.endsSending();
        EXPECT_EQ("last words", late.rest());
        const std::string much(3 << 20, 'm');
        std::thread writer([&] {
            late.sends(much);
            late.endsSending();
        });
        EXPECT_EQ(much, early.receives(much.size()));
        writer.join();
        EXPECT_TRUE(early.seesTheEnd());
        EXPECT_TRUE(mux.comesTo("tunnels", 0));
    }
    EXPECT_TRUE(mux.printed(" \"ended\""));
    Tunnel reset(mux);
    reset.a.resets();
    EXPECT_TRUE(reset.b.seesTheEnd());
    reset.b.closes(); // where a reset comes as an end, this one has its say
    EXPECT_TRUE(mux.comesTo("tunnels", 0));
}

TEST(AMultiplexer, StopsReadingForAReaderThatIsSlow) {
    Multiplexer mux;
    Tunnel slow(mux, "slow");
    const std::string much = pattern(64 << 20);
    std::size_t sent = 0, passed = 0;
    for (int quiet = 0; quiet < 3;) { // until nothing moves any more
        const std::size_t before = sent + passed;
        sent += slow.a.pours(much.substr(sent));
        passed = mux.count("bytes-to-caller");
        quiet = sent + passed == before ? quiet + 1 : 0;
    }
    ASSERT_LT(sent, much.size()) << "somebody keeps all of it";
    EXPECT_LE(mux.count("bytes-held"), 65536u);
    Tunnel other(mux, "other");
    other.a.sends("meanwhile");
    EXPECT_EQ("meanwhile", other.b.receives(9)) << "nobody else waits";

    std::thread writer([&] { slow.a.sends(much.substr(sent)); });
    std::thread back([&] { slow.b.sends(much); });
    std::string there;
    std::thread reader([&] { there = slow.b.receives(much.size()); });
    EXPECT_TRUE(slow.a.receives(much.size()) == much);
    for (std::thread *each : {&writer, &back, &reader})
        each->join();
    EXPECT_TRUE(there == much);
    EXPECT_EQ(0u, mux.count("bytes-held"));
}

// ---- Refusals ----

struct RefusalCase {
    const char *what;
    std::string bytes;
    const char *answer;
};

TEST(AMultiplexer, RefusesWhatItCannotTake) {
    Multiplexer mux({"--credentials", "Ann:secret", "--redirect", "away=other.example:81"});
    const std::string basic = "Authorization: Basic QW5uOnNlY3JldA==\r\n";
    const std::string start = "CONNECT a.example:1 HTTP/1.0\r\n";
    const RefusalCase cases[] = {
        {"a request that did not fit", "\r\n\r\n", "400 "},
        {"a megabyte of header", start + "A: " + std::string(1 << 20, 'x') + "\r\n\r\n", "431 "},
        {"another method", "POST / HTTP/1.0\r\nContent-Length: 3\r\n\r\nabc", "405 "},
        {"another page", "GET / HTTP/1.1\r\nHost: x\r\n\r\n", "404 "},
        {"no address", "CONNECT here HTTP/1.0\r\npLorMUX_MeetingID: a\r\n" + basic + "\r\n",
         "400 "},
        {"no credentials", callTo(mux, "talk"),
         "401 Unauthorized\r\npLorMUX_Version: 2.0\r\n"
         "WWW-Authenticate: Basic realm="},
        {"wrong credentials", callTo(mux, "talk", "Authorization: Basic QW5u\r\n"), "401 "},
        {"no credentials on the way", jump(),
         "407 Proxy Authentication Required\r\n"
         "pLorMUX_Version: 2.0\r\n"
         "Proxy-Authenticate: Basic realm="},
        {"another meeting elsewhere", callTo(mux, "away", basic),
         "302 Found\r\npLorMUX_Version: 2.0\r\nLocation: http://other.example:81/\r\n"},
        {"a party that may not be called", request("10.1.2.3", 80, "talk", basic), "403 "},
    };
    for (const RefusalCase &row : cases) {
        SCOPED_TRACE(row.what);
        Client client(mux.port());
        std::thread writer([&] { client.sends(row.bytes); });
        EXPECT_THAT(client.answer(), StartsWith(std::string("HTTP/1.0 ") + row.answer));
        writer.join();
        EXPECT_TRUE(client.seesTheEnd());
    }
    Client twice(mux.port(), jump("Proxy-authorization: Basic QW5uOnNlY3JldA==\r\n") + jump());
    EXPECT_THAT(twice.answer(), StartsWith(OPENED));
    EXPECT_THAT(twice.answer(), StartsWith("HTTP/1.0 400 ")) << "the way goes no further";
    EXPECT_EQ(std::size(cases) + 1, mux.count("refused"));
}

TEST(AMultiplexer, KeepsItsLimits) {
    Called party;
    Multiplexer mux({"--meeting", "talk=" + party.address(), "--max-tunnels", "1", "--max-waiting",
                     "1", "--max-requests", "5", "--request-time", "1", "--idle-time", "1"});
    {
        Client waits(mux.port()), one(mux.port()), two(mux.port());
        waits.sends(callTo(mux, "tea"));
        EXPECT_TRUE(mux.comesTo("waiting", 1));
        one.sends(callTo(mux, "cake"));
        EXPECT_THAT(one.answer(), StartsWith("HTTP/1.0 503 "));
        two.sends(callTo(mux, "talk"));
        const auto called = party.picksUp();
        EXPECT_THAT(two.answer(), StartsWith(OPENED));
        two.sends(READY);
        Client three(mux.port(), callTo(mux, "talk"));
        EXPECT_THAT(three.answer(), StartsWith("HTTP/1.0 503 "));
        EXPECT_TRUE(called->seesTheEnd()) << "nobody says anything";
        EXPECT_TRUE(mux.printed(" \"idle\""));
    }
    {
        Client one(mux.port(), callTo(mux, "tea"));
        EXPECT_TRUE(mux.comesTo("waiting", 1));
        Client two(mux.port(), callTo(mux, "tea") + READY);
        one.sends(READY);
        EXPECT_THAT(one.answer(), StartsWith(OPENED));
        EXPECT_TRUE(one.seesTheEnd());
        EXPECT_TRUE(mux.printed("two callers, and neither speaks first"));
    }
    std::vector<std::unique_ptr<Client>> halfOpen;
    for (int i = 0; i < 100; ++i) {
        halfOpen.push_back(std::make_unique<Client>(mux.port()));
        halfOpen.back()->sends("CONNECT ");
    }
    EXPECT_EQ(5u, mux.count("requests"));
    EXPECT_THAT(halfOpen.front()->answer(), StartsWith("HTTP/1.0 503 ")) << "the oldest goes";
    EXPECT_THAT(halfOpen.back()->answer(), StartsWith("HTTP/1.0 408 "));
}

// ---- The process ----

TEST(AMultiplexer, CarriesAThousandTunnelsAndMore) {
    constexpr std::size_t reserve = 200; // of descriptors, for everything else
    std::size_t pairs = 2000;
#if defined(__SANITIZE_ADDRESS__)
    pairs = 500;
#endif
    const std::size_t limit = platform::descriptorLimit();
    pairs = limit == 0 ? 200 : std::min(pairs, (limit - reserve) / 2);
    Called party;
    Multiplexer mux({"--meeting", "talk=" + party.address(), "--quiet"});
    struct Pair {
        std::unique_ptr<Client> caller, called;
    };
    std::vector<Pair> all;
    for (std::size_t i = 0; i < pairs; ++i) {
        Pair pair;
        pair.caller = std::make_unique<Client>(mux.port());
        pair.caller->sends(callTo(mux, "talk") + READY);
        pair.called = party.picksUp();
        all.push_back(std::move(pair));
    }
    EXPECT_EQ(pairs, mux.count("tunnels"));
    for (std::size_t i = 0; i < pairs; ++i) {
        all[i].caller->sends(number(i) + '\n');
        all[i].called->sends(number(i * 7) + '\n');
    }
    for (std::size_t i = 0; i < pairs; ++i) {
        EXPECT_EQ(number(i) + '\n', all[i].called->receives(number(i).size() + 1));
        ASSERT_THAT(all[i].caller->answer(), StartsWith(OPENED)) << i;
        EXPECT_EQ(number(i * 7) + '\n', all[i].caller->receives(number(i * 7).size() + 1));
    }
    all.clear();
    EXPECT_TRUE(mux.comesTo("tunnels", 0));
}

TEST(AMultiplexer, EndsInOrder) {
    Multiplexer mux;
    Tunnel tunnel(mux);
    Client waits(mux.port(), callTo(mux, "tea"));
    EXPECT_TRUE(mux.comesTo("waiting", 1));
    if (!mux.interrupt())
        GTEST_SKIP() << "no signal can be sent to a program here";
    EXPECT_TRUE(mux.ends(0));
    EXPECT_THAT(waits.answer(), StartsWith("HTTP/1.0 503 "));
    EXPECT_TRUE(tunnel.a.seesTheEnd() && tunnel.b.seesTheEnd());
    EXPECT_THAT(mux.output(), HasSubstr("\"the server ends\""));
}

TEST(AMultiplexer, GoesOnWhenNobodyReadsItsLog) {
    // More lines than a pipe takes.
    const std::size_t REQUESTS = platform::descriptorLimit() == 0 ? 100 : 500;
    Multiplexer mux({"--max-waiting", "1"});
    Client waits(mux.port(), callTo(mux, "tea"));
    EXPECT_TRUE(mux.comesTo("waiting", 1));
    for (std::size_t i = 0; i < REQUESTS; ++i) {
        Client client(mux.port(), callTo(mux, std::string(200, 'x') + number(i)));
        ASSERT_THAT(client.answer(), StartsWith("HTTP/1.0 503 ")) << i;
    }
    EXPECT_EQ(REQUESTS, mux.count("refused"));
    std::size_t lines = 0;
    while (lines < REQUESTS && mux.printed("refuse "))
        ++lines;
    EXPECT_EQ(REQUESTS, lines) << "they come when they are read";
}

TEST(AMultiplexer, GoesOnWithAFullDiskAndReadsItsFilesAgainWhenItIsTold) {
    const TemporaryFolder folder;
    const std::string log = folder.path("log");
    std::error_code failed;
    std::filesystem::create_symlink("/dev/full", log, failed);
    if (failed || !std::filesystem::exists(log))
        GTEST_SKIP() << "no disk is full here";
    Multiplexer mux(
        {"--log-file", log, "--credentials-file", folder.holding("pairs", "Ann:old\n")});
    const auto knock = [&](const std::string &pair) {
        Client client(mux.port(), callTo(mux, "tea", "Authorization: Basic " + pair + "\r\n"));
        return client.answer();
    };
    const std::string ben = "QmVuOm5ldw=="; // Ben:new
    EXPECT_THAT(knock(ben), StartsWith("HTTP/1.0 401 "));
    std::filesystem::remove(log);
    folder.holding("log", "");
    folder.holding("pairs", "Ben:new\n");
    ASSERT_EQ(0, std::system(("kill -HUP " + number(mux.id())).c_str()));
    Client waits(mux.port());
    eventually([&] { return folder.content("log").find("reload") != std::string::npos; });
    EXPECT_THAT(folder.content("log"), HasSubstr(" lost 1 lines"));
    waits.sends(callTo(mux, "tea", "Authorization: Basic " + ben + "\r\n"));
    EXPECT_TRUE(mux.comesTo("waiting", 1));
}

} // namespace
} // namespace vintok::test
