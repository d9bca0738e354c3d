// Meetings of real processes under TLS, what a listener on the wire gets of them, and OpenSSL's own
// client.
#include "support/Multiplexer.h"
#include "support/Program.h"
#include "support/TemporaryFolder.h"
#include "vintok/TCPStream.h"

#include <sstream>
#include <thread>

using namespace vintok;
using namespace vintok::test;

namespace {

using Arguments = std::vector<std::string>;

class TLSProgram : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ChildProcess made = Program::plain({"tls-init", file("")});
        EXPECT_TRUE(made.ends(0));
    }
    TLSProgram() { init(); }
    ~TLSProgram() override { fini(); }

    static std::string file(const std::string &name) {
        static const TemporaryFolder folder;
        return folder.path(name);
    }
    // Adds words with blanks between them; what ends in ".pem" or ".key" is a file.
    static Arguments with(Arguments all, const std::string &more) {
        std::istringstream words(more);
        for (std::string word; words >> word;)
            all.push_back(word.find(".pem") == std::string::npos &&
                                  word.find(".key") == std::string::npos
                              ? word
                              : file(word));
        return all;
    }
    // Callers that are slow, as on a busy machine, are waited for; those without TLS for a moment.
    static Arguments hosting(const std::string &further = "", const std::string &wait = "10000") {
        return with({"host", "--name", "Ann", "--tls-wait", wait},
                    "--tls-cert host.pem --tls-key host.key " + further);
    }
    // Whether the host has TLS is known here, so that nothing depends on how fast it is.
    static Arguments joining(const std::string &target, const std::string &further = "",
                             const std::string &name = "Bob", bool hostIsPlain = false) {
        const bool trusts = further.find("--tls-ca") == std::string::npos;
        return with({"join", target, "--name", name, "--tls-wait", hostIsPlain ? "10000" : "1"},
                    further + (trusts ? " --tls-ca ca.pem" : ""));
    }
    static ChildProcess openssl(const Arguments &first, const std::string &more) {
        Arguments all = with(first, more);
        all.insert(all.begin(), OPENSSL_PROGRAM);
        return ChildProcess(all);
    }
};

constexpr const char *asGuest = "--tls-cert guest.pem --tls-key guest.key";

TEST_F(TLSProgram, AMeetingOfThreeIsEncryptedOnEachConnectionAndSaysSo) {
    Program ann(hosting("--tls-require"));
    const std::string target = ann.target();
    Program bob(joining(target, "--tls-require"));
    ASSERT_TRUE(bob.tells("encrypted", {named("Ann"), text("subject", "CN=vintok host")}));
    Program cid(joining(target, asGuest, "Cid"));
    ASSERT_TRUE(ann.tells("encrypted", {named("Cid")}));
    ASSERT_TRUE(bob.tells("joined", {named("Cid")}));
    EXPECT_TRUE(bob.isHeard("from Bob", cid, {named("Bob")}));
    const std::string guarded = R"("encrypted":true,"channel":"TLSv1.3 TLS_AES_256_GCM_SHA384")";
    std::string roster;
    ASSERT_TRUE(ann.answers("/who", "roster", {}, &roster));
    EXPECT_NE(roster.find(guarded), roster.rfind(guarded)) << "both guests: " << roster;
    ASSERT_TRUE(bob.answers("/who", "roster", {}, &roster));
    EXPECT_THAT(roster, HasSubstr(guarded));
    EXPECT_THAT(roster, HasSubstr(R"("encrypted":null)")) << "Cid is reached through Ann";
    cid.kill();
    EXPECT_TRUE(bob.answers("anybody?", "left", {named("Cid")}));
    EXPECT_TRUE(ann.isHeard("I am", bob, {named("Ann")}));
    ann.kill();
    EXPECT_TRUE(bob.tells("broken-off"));
    EXPECT_EQ(1, bob.exitCode()) << "nobody has ended the meeting: " << bob.story();
}

struct Pairing {
    const char *name;
    std::string host; // further options; "-": without TLS
    std::string guest;
    const char *outcome; // the guest's event, or "": it fails
    const char *words;   // of the failure
};

// That each option has its effect; the channel's own test has all that a certificate may lack.
const Pairing pairings[] = {
    {"a plain guest is served", "", "-", "joined", ""},
    {"a plain host is joined", "-", "", "plain", ""},
    {"a plain guest is turned away", "--tls-require", "-", "", "has hung up"},
    {"a plain host is refused", "-", "--tls-require", "", "without TLS, and TLS is required"},
    {"another name", "", "--tls-name other.example", "",
     "cannot be reached securely: certificate verify failed: hostname mismatch"},
    {"a certificate is demanded", "--tls-demand-cert --tls-ca ca.pem", "", "",
     "certificate required"},
    {"and shown", "--tls-demand-cert --tls-ca ca.pem", asGuest, "encrypted", ""},
    {"approved algorithms", "--tls-fips", "--tls-fips", "encrypted", ""},
};

TEST_F(TLSProgram, WhoMeetsWhomIsDecidedByWhatBothDemand) {
    for (const Pairing &row : pairings) {
        SCOPED_TRACE(row.name);
        const bool plainHost = row.host == "-", plainGuest = row.guest == "-";
        Program ann(plainHost ? Arguments{"host", "--name", "Ann"}
                              : hosting(row.host, plainGuest ? "300" : "10000"));
        const std::string target = ann.target();
        Program bob(plainGuest ? Arguments{"join", target, "--name", "Bob"}
                               : joining(target, row.guest, "Bob", plainHost));
        if (*row.outcome != '\0') {
            EXPECT_TRUE(bob.tells(row.outcome, {named("Ann")})) << ann.story();
            bob.type("/leave");
            EXPECT_TRUE(bob.ends(0));
            EXPECT_THAT(bob.output(), Not(HasSubstr("broken-off")));
            continue;
        }
        EXPECT_TRUE(bob.ends(1, row.words)) << ann.story();
        EXPECT_EQ(!plainGuest, bob.output().find("broken-off") != std::string::npos);
        // The host goes on.
        Program cid(joining(target, asGuest, "Cid", plainHost));
        EXPECT_TRUE(cid.tells("joined", {named("Ann")})) << ann.story();
    }
}

// ---- OpenSSL on the other side ----

TEST_F(TLSProgram, OpenSSLsClientIsServedOrRefusedByTheHost) {
    struct Row {
        const char *client, *host;
        const char *seen;   // by the client
        const char *broken; // what the host tells of it, "" for nothing
    };
    const Row rows[] = {
        {"-tls1_3", "", "Verification: OK", ""},
        {"-tls1_2", "", "Verification: OK", ""},
        {"-tls1_1 -cipher ALL:@SECLEVEL=0", "", "protocol version", "unsupported protocol"},
        {"-tls1_2 -cipher AES128-SHA", "", "handshake failure", "no shared cipher"},
        {"-tls1_3 -ciphersuites TLS_CHACHA20_POLY1305_SHA256", "--tls-fips", "handshake failure",
         "no shared cipher"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.client) + ' ' + row.seen);
        Program ann(hosting(row.host));
        ChildProcess client =
            openssl({"s_client", "-connect", ann.target()},
                    std::string("-CAfile ca.pem -verify_hostname localhost -verify_return_error ") +
                        row.client);
        if (*row.broken == '\0') {
            EXPECT_TRUE(client.printed(row.seen));
            continue;
        }
        EXPECT_TRUE(ann.tells("broken-off"));
        EXPECT_THAT(ann.output(), HasSubstr(row.broken));
        EXPECT_NE(0, client.exitCode());
        EXPECT_THAT(client.errors(), HasSubstr(row.seen));
    }
}

TEST_F(TLSProgram, ARenegotiationIsRefused) {
    Program ann(hosting());
    const std::string target = ann.target();
    ChildProcess client = openssl({"s_client", "-connect", target}, "-tls1_2 -msg");
    ASSERT_TRUE(client.printed("Extended master secret: yes"));
    // The record with her hello must not come in between.
    ASSERT_TRUE(client.printed("17 03 03"));
    client.type("R");
    EXPECT_NE(0, client.exitCode());
    EXPECT_THAT(client.errors(), HasSubstr("no renegotiation"));
    Program bob(joining(target));
    EXPECT_TRUE(bob.tells("joined", {named("Ann")}));
}

// ---- A listener on the wire ----

// Passes on what goes between whoever calls it and a port, and keeps it.
class Wire {
public:
    explicit Wire(unsigned short port) : m_thread([this, port] { run(port); }) {}
    ~Wire() { content(); }

    std::string target() const { return m_listener.address(); }
    // All of it, once the connection has ended.
    std::string content() {
        if (m_thread.joinable())
            m_thread.join();
        return m_there + m_back;
    }

private:
    void run(unsigned short port) {
        const std::unique_ptr<Client> caller = m_listener.picksUp();
        Client called(port);
        std::thread back([&] { pass(called, *caller, m_back); });
        pass(*caller, called, m_there);
        back.join();
    }
    static void pass(Client &from, Client &to, std::string &kept) {
        for (std::string bytes = from.takes(); !bytes.empty(); bytes = from.takes()) {
            kept += bytes;
            to.sends(bytes);
        }
        to.endsSending();
    }

    Called m_listener;
    std::string m_there, m_back;
    std::thread m_thread; // last: it uses the others
};

TEST_F(TLSProgram, NoWordOfAMeetingCrossesTheWireInClear) {
    const std::string word = "a secret of the budget";
    for (const bool guarded : {false, true}) {
        SCOPED_TRACE(guarded ? "TLS" : "plain");
        Program ann(guarded ? hosting("--tls-require") : Arguments{"host", "--name", "Ann"});
        Wire wire(ann.port());
        Program bob(guarded ? joining(wire.target(), "--tls-require --email bob@secret.example")
                            : Arguments{"join", wire.target(), "--email", "bob@secret.example"});
        ASSERT_TRUE(ann.tells("joined")) << bob.story();
        ASSERT_TRUE(bob.isHeard(word, ann));
        ASSERT_TRUE(ann.isHeard(word, bob, {named("Ann")}));
        bob.type("/leave");
        EXPECT_TRUE(bob.ends(0));
        const std::string content = wire.content();
        for (const std::string &secret : {word, std::string("bob@secret.example")})
            EXPECT_EQ(guarded, content.find(secret) == std::string::npos) << secret;
        EXPECT_EQ(guarded, content.find(std::string("\x17\x03\x03", 3)) != std::string::npos)
            << "records of application data";
    }
}

// TLS reaches up to the multiplexer, for all of the tunnel or for the request alone.
TEST_F(TLSProgram, AMultiplexerKeepsTheConnectionEncryptedOrEndsThat) {
    const std::string word = "a secret of the tunnel";
    for (const bool kept : {true, false}) {
        SCOPED_TRACE(kept ? "kept" : "ended");
        Program ann({"host", "--name", "Ann"});
        Multiplexer mux(with({"--meeting", "talk=" + ann.target()},
                             std::string("--tls-cert host.pem --tls-key host.key") +
                                 (kept ? " --tls-only" : " --tls-until-open")));
        Wire wire(mux.port());
        const auto way = [](const std::string &server, const std::string &more) {
            return with({"join", "--mux", server, "--name", "Bob", "--tls-wait", "1"},
                        "--meeting-id talk " + more);
        };
        Program bob(way(wire.target(), "--tls-ca ca.pem"));
        EXPECT_TRUE(bob.tells(kept ? "encrypted" : "plain", {named("Ann")}));
        EXPECT_TRUE(bob.isHeard(word, ann));
        bob.type("/leave");
        EXPECT_TRUE(bob.ends(0));
        const std::string content = wire.content();
        EXPECT_EQ(kept, content.find(word) == std::string::npos);
        EXPECT_EQ(std::string::npos, content.find("pLorMUX_MeetingID")) << "the request is secret";
        Program mistrusting(way(mux.address(), "--tls-ca host.pem"));
        EXPECT_TRUE(mistrusting.ends(1, "cannot be reached securely: certificate verify failed"));
        if (kept) {
            Client open(mux.port(), callTo(mux, "talk"));
            EXPECT_THAT(open.answer(), testing::StartsWith("HTTP/1.0 403 "));
        } else {
            Program cid(way(mux.address(), "--tls-ca ca.pem --tls-require"));
            EXPECT_TRUE(cid.ends(1, "goes on without TLS, which is required"));
        }
    }
}

TEST_F(TLSProgram, AMultiplexerJoinsNobodyOverTLSWithSomebodyInTheOpen) {
    Multiplexer mux(with({"--meeting", "talk"}, "--tls-cert host.pem --tls-key host.key"));
    Client offer(mux.port(), callTo(mux, "talk", OFFER));
    EXPECT_TRUE(mux.comesTo("waiting", 1));
    Program bob(with({"join", "--mux", mux.address(), "--name", "Bob", "--tls-wait", "1"},
                     "--meeting-id talk --tls-ca ca.pem"));
    EXPECT_TRUE(bob.ends(1, "403 Forbidden (the other party has come without TLS)"));
    Client open(mux.port(), callTo(mux, "talk"));
    EXPECT_THAT(open.answer(), testing::StartsWith(OPENED)) << "the offer has stayed";
}

} // namespace
