// Calls of the real program by way of a multiplexer: against servers of the test, which answer as
// they please, and against the real one.
#include "support/Environment.h"
#include "support/Multiplexer.h"
#include "support/Program.h"
#include "support/TemporaryFolder.h"

#include "vintok/TCPStream.h"

using namespace vintok::test;

namespace {

class Ways : public testing::Test {
protected:
    Ways() { vintok::init(); }
    ~Ways() override { vintok::fini(); }

    static Arguments joining(const std::string &multiplexer, const Arguments &more = {}) {
        return with({"join", "--name", "Bob", "--mux", multiplexer, "--meeting-id", "talk"}, more);
    }
};

struct Answer {
    const char *what, *reply;
    const char *complaint; // behind the server's name
    bool pauses = false;   // instead of closing
};

const Answer answers[] = {
    {"nothing", "", " has closed the connection without a whole answer"},
    {"a pause", "HTTP/1.0 200 OK\r\n",
     " has sent a part of its answer only, and the rest is not waited for", true},
    {"no HTTP", "220 mail.example\r\n\r\n", " answers in something that is not HTTP"},
    {"a reason", "HTTP/1.0 504 Gateway Timeout\r\npLorMUX_Reason: nobody came\r\n\r\n",
     " refuses the call: 504 Gateway Timeout (nobody came)"},
    {"escape sequences", "HTTP/1.0 599 \x1b[2J\r\n\r\n", " refuses the call: 599 \\x1b[2J"},
    {"another scheme", "HTTP/1.1 407 Who?\r\nProxy-Authenticate: Digest realm=\"x\"\r\n\r\n",
     " asks for credentials by the scheme 'Digest'; only 'basic' is known here"},
    {"a challenge", "HTTP/1.1 407 Who?\r\nProxy-Authenticate: Basic realm=\"x\"\r\n\r\n",
     " asks for a user name and a password: give them with --auth-file, --auth or "
     "VINTOK_PROXY_AUTH"},
    {"a way to nowhere", "HTTP/1.1 302 Found\r\nLocation: elsewhere\r\n\r\n",
     " sends the call on and does not say where"},
};

TEST_F(Ways, EachAnswerThatEndsACallIsToldInALine) {
    bool proxied = false;
    for (const Answer &row : answers) {
        proxied = !proxied;
        SCOPED_TRACE(std::string(row.what) + (proxied ? " from a proxy" : ""));
        Called server;
        Program bob(proxied ? joining("mux.invalid", {"--proxy", server.address()})
                            : joining(server.address()));
        const std::unique_ptr<Client> call = server.picksUp();
        EXPECT_THAT(call->answer(), HasSubstr("CONNECT "));
        EXPECT_TRUE(call->sends(row.reply));
        if (!row.pauses)
            call->endsSending();
        EXPECT_TRUE(bob.ends(1));
        EXPECT_EQ("vintok: the " + std::string(proxied ? "proxy " : "multiplexer ") +
                      server.address() + row.complaint,
                  bob.errors().substr(0, bob.errors().find_first_of("\r\n")))
            << bob.story();
    }
}

TEST_F(Ways, CredentialsGoToWhoAsksForThemAlone) {
    Called proxy;
    Program bob(joining("mux.invalid:444", {"--proxy", proxy.address(), "--auth", "bob:se:cret"}));
    std::unique_ptr<Client> call = proxy.picksUp();
    EXPECT_THAT(call->answer(), testing::Not(HasSubstr("uthorization")));
    EXPECT_TRUE(call->sends("HTTP/1.0 407 Who?\r\nProxy-Authenticate: Basic realm=x\r\n\r\n"));
    call = proxy.picksUp();
    EXPECT_THAT(call->answer(), HasSubstr("Proxy-authorization: Basic Ym9iOnNlOmNyZXQ=\r\n"));
    EXPECT_TRUE(call->sends("HTTP/1.0 200 OK\r\n\r\n"));
    EXPECT_THAT(call->answer(),
                testing::AllOf(HasSubstr("pLorMUX_ConferenceAddress: mux.invalid:444\r\n"),
                               testing::Not(HasSubstr("uthorization"))));
    EXPECT_TRUE(call->sends("HTTP/1.0 401 Who?\r\nWWW-Authenticate: Basic\r\n\r\n"));
    EXPECT_TRUE(bob.ends(1));
    EXPECT_THAT(bob.errors(),
                HasSubstr("the multiplexer mux.invalid:444 asks for a user name and a "
                          "password, which cannot be brought to it through a proxy"));
}

TEST_F(Ways, CallersThatAreSentInCirclesGiveUp) {
    Called server;
    const Multiplexer mux({"--redirect", "talk=" + server.address()});
    Program bob(joining(mux.address()));
    for (int round = 0; round < 5; ++round) {
        const std::unique_ptr<Client> call = server.picksUp();
        call->answer();
        call->sends("HTTP/1.0 302 Found\r\nLocation: http://" + server.address() + "/\r\n\r\n");
    }
    EXPECT_TRUE(bob.ends(1, "sends the call on once too often"));
}

// Each way of calling, with the meeting at its end.
TEST_F(Ways, LeadToTheMeeting) {
    Program ann({"host", "--name", "Ann"});
    const std::string host = ann.target();
    const TemporaryFolder folder;
    const std::string secret = folder.holding("auth", "bob:secret");
    const ScopedEnvironment variable("VINTOK_PROXY_AUTH", "bob:secret");
    const Multiplexer knows({"--meeting", "talk=" + host});
    const Multiplexer asks({"--meeting", "talk=" + host, "--credentials", "bob:secret"});
    const Multiplexer allows({"--allow", "127.0.0.1", "--credentials", "bob:secret"});
    const Multiplexer sendsOn({"--redirect", host + '=' + allows.address()});
    const struct {
        const char *what;
        std::vector<std::string> arguments;
    } cases[] = {
        {"the meeting alone", joining(knows.address())},
        {"with credentials", joining(asks.address(), {"--auth-file", secret})},
        {"with those of the environment", joining(asks.address())},
        {"the party elsewhere, with credentials", joining(sendsOn.address(), {host})},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        Program bob(one.arguments);
        ASSERT_TRUE(ann.tells("joined", {named("Bob")})) << bob.story();
        EXPECT_TRUE(bob.isHeard("hello", ann, {named("Bob")}));
        EXPECT_TRUE(ann.isHeard("welcome", bob, {named("Ann")}));
        bob.type("/leave");
        EXPECT_TRUE(ann.tells("left", {named("Bob")}));
    }
}

// ---- A host that offers itself ----

class Offers : public Ways {
protected:
    static Arguments hosting(const std::string &multiplexer, const Arguments &more = {}) {
        return with({"host", "--name", "Ann", "--mux", multiplexer, "--meeting-id", "talk"}, more);
    }
    static Program guest(const std::string &name, const Multiplexer &mux) {
        return Program({"join", "--name", name, "--mux", mux.address(), "--meeting-id", "talk"});
    }
    static void expectHeard(Program &speaker, const std::string &name,
                            const std::vector<Program *> &others) {
        const std::string line(20000, 'l');
        for (const std::string &each : {std::string("I am ") + name, line}) {
            speaker.type(each);
            for (Program *other : others) {
                EXPECT_TRUE(other->tells("said", {named(name), text("text", each)}));
            }
        }
    }
};

TEST_F(Offers, BringGuestsToAHostThatNobodyCalls) {
    const Multiplexer mux(
        {"--meeting", "talk", "--credentials", "ann:secret", "--open-meeting", "talk"});
    Program ann(hosting(mux.address()));
    ASSERT_TRUE(ann.tells("offering", {text("whom", mux.address()), text("id", "talk")}));
    Program bob = guest("Bob", mux);
    ASSERT_TRUE(ann.tells("joined", {named("Bob")})) << bob.story();
    Program cid = guest("Cid", mux);
    ASSERT_TRUE(bob.tells("joined", {named("Cid")})) << ann.story() << cid.story();
    expectHeard(ann, "Ann", {&bob, &cid});
    expectHeard(bob, "Bob", {&ann, &cid});
    expectHeard(cid, "Cid", {&ann, &bob});
    bob.type("/leave");
    EXPECT_TRUE(bob.ends(0));
    EXPECT_TRUE(cid.tells("left", {named("Bob")}));
    Program dan = guest("Dan", mux);
    ASSERT_TRUE(cid.tells("joined", {named("Dan")})) << ann.story() << dan.story();
    expectHeard(dan, "Dan", {&ann, &cid});
    EXPECT_TRUE(mux.comesTo("tunnels", 2));

    ann.type("the last words");
    ann.type("/leave");
    for (Program *guest : {&cid, &dan}) {
        EXPECT_TRUE(guest->tells("said", {named("Ann"), text("text", "the last words")}));
        EXPECT_TRUE(guest->ends(0));
    }
    EXPECT_TRUE(ann.ends(0));
    EXPECT_TRUE(mux.comesTo("tunnels", 0));
    EXPECT_TRUE(mux.comesTo("waiting", 0));
}

TEST_F(Offers, AreMadeAgainWhereTheMultiplexerComesBackOrNobodyCame) {
    const std::vector<std::string> options = {"--meeting", "talk", "--wait-time", "1"};
    auto mux = std::make_unique<Multiplexer>(options);
    const unsigned short port = mux->port();
    Program ann(hosting(mux->address()));
    ASSERT_TRUE(ann.tells("offering"));
    EXPECT_TRUE(mux->comesTo("refused", 2)) << "the second offer ends as the first did";
    Program bob = guest("Bob", *mux);
    ASSERT_TRUE(ann.tells("joined", {named("Bob")})) << bob.story();
    ASSERT_TRUE(bob.tells("joined", {named("Ann")}));
    mux->kill();
    mux.reset();
    EXPECT_TRUE(bob.ends(0));
    ASSERT_TRUE(ann.tells("offer-failed", {{"again", "true"}}));
    const Multiplexer back({"--meeting", "talk"}, port);
    ASSERT_TRUE(ann.tells("offering"));
    Program cid = guest("Cid", back);
    EXPECT_TRUE(ann.tells("joined", {named("Cid")})) << cid.story();
}

TEST_F(Offers, TakeCredentialsToWhoAsksAndFollowARedirectWithoutThem) {
    const Multiplexer second({"--meeting", "talk"});
    const Multiplexer first(
        {"--credentials", "ann:secret", "--redirect", "talk=" + second.address()});
    Program wrong(hosting(first.address(), {"--auth", "ann:guess"}));
    EXPECT_TRUE(
        wrong.tells("offer-failed", {text("reason", "the multiplexer " + first.address() +
                                                        " does not accept the user name or the "
                                                        "password")}));
    Program ann(hosting(first.address(), {"--auth", "ann:secret"}));
    ASSERT_TRUE(ann.tells("offering", {text("whom", second.address())}));
    Program bob = guest("Bob", second);
    EXPECT_TRUE(ann.tells("joined", {named("Bob")})) << bob.story();
}

} // namespace
