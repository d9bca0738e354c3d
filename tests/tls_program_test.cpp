// Meetings of real processes under TLS, what a listener on the wire gets of them, and OpenSSL's own
// client and server on the other side.
#include "platform/Thread.h"
#include "support/Multiplexer.h"
#include "support/Program.h"
#include "support/SocketPair.h"
#include "support/TemporaryFolder.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>

using namespace vintok;
using namespace vintok::test;
using testing::HasSubstr;
using testing::Not;

namespace {

namespace fs = std::filesystem;

std::string portOf(const std::string &target) {
    return target.substr(target.find(':') + 1);
}

class TLSProgram : public testing::Test {
protected:
    static void SetUpTestSuite() {
        folder() = testing::TempDir() + "vintok-tls-program-" +
                   std::to_string(platform::currentProcessId());
        ChildProcess made = Program::plain({"tls-init", folder().string()});
        EXPECT_EQ(0, made.exitCode()) << made.story();
    }
    static void TearDownTestSuite() { fs::remove_all(folder()); }
    TLSProgram() { init(); }
    ~TLSProgram() override { fini(); }

    static fs::path &folder() {
        static fs::path path;
        return path;
    }
    static std::string file(const std::string &name) { return (folder() / name).string(); }

    using Arguments = std::vector<std::string>;
    // Callers that are slow, as on a busy machine, are waited for; those without TLS for a moment.
    static Arguments hosting(const Arguments &further = {}, const char *wait = "10000") {
        Arguments all = {"host",       "--name",         "Ann",       "--tls-wait",    wait,
                         "--tls-cert", file("host.pem"), "--tls-key", file("host.key")};
        all.insert(all.end(), further.begin(), further.end());
        return all;
    }
    // Whether the host has TLS is known here, so that nothing depends on how fast it is.
    static Arguments joining(const std::string &target, const Arguments &further = {},
                             const std::string &name = "Bob", bool hostIsPlain = false) {
        Arguments all = {"join", target, "--name", name, "--tls-wait", hostIsPlain ? "10000" : "1"};
        all.insert(all.end(), further.begin(), further.end());
        if (std::find(all.begin(), all.end(), "--tls-ca") == all.end())
            all.insert(all.end(), {"--tls-ca", file("ca.pem")});
        return all;
    }
    static ChildProcess openssl(const Arguments &arguments) {
        Arguments all = {OPENSSL_PROGRAM};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return ChildProcess(all);
    }
};

TEST_F(TLSProgram, AMeetingOfThreeIsEncryptedOnEachConnectionAndSaysSo) {
    Program ann(hosting({"--tls-require"}));
    const std::string target = ann.target();
    Program bob(joining(target, {"--tls-require"}));
    ASSERT_TRUE(bob.tells("encrypted", {named("Ann"), text("subject", "CN=vintok host")}))
        << bob.story();
    Program cid(
        joining(target, {"--tls-cert", file("guest.pem"), "--tls-key", file("guest.key")}, "Cid"));
    ASSERT_TRUE(ann.tells("encrypted", {named("Cid")})) << ann.story();
    ASSERT_TRUE(bob.tells("joined", {named("Cid")})) << bob.story();
    bob.type("from Bob");
    EXPECT_TRUE(cid.tells("said", {named("Bob"), text("text", "from Bob")})) << cid.story();
    const std::string guarded = R"("encrypted":true,"channel":"TLSv1.3 TLS_AES_256_GCM_SHA384")";
    std::string roster;
    ann.type("/who");
    ASSERT_TRUE(ann.tells("roster", {}, &roster)) << ann.story();
    EXPECT_NE(roster.find(guarded), roster.rfind(guarded)) << "both guests: " << roster;
    bob.type("/who");
    ASSERT_TRUE(bob.tells("roster", {}, &roster)) << bob.story();
    EXPECT_THAT(roster, HasSubstr(guarded));
    EXPECT_THAT(roster, HasSubstr(R"("encrypted":null)")) << "Cid is reached through Ann";
    cid.kill();
    bob.type("anybody?");
    EXPECT_TRUE(bob.tells("left", {named("Cid")})) << bob.story();
    ann.type("I am");
    EXPECT_TRUE(bob.tells("said", {named("Ann"), text("text", "I am")})) << bob.story();
    ann.kill();
    EXPECT_TRUE(bob.tells("broken-off")) << bob.story();
    EXPECT_EQ(1, bob.exitCode()) << "nobody has ended the meeting: " << bob.story();
}

struct Pairing {
    const char *name;
    std::vector<std::string> host; // further options; "-": without TLS
    std::vector<std::string> guest;
    const char *outcome; // the guest's event, or "": it fails
    const char *words;   // of the failure
};

TEST_F(TLSProgram, WhoMeetsWhomIsDecidedByWhatBothDemand) {
    const std::string ca = file("ca.pem");
    const Pairing rows[] = {
        {"a plain guest is served", {}, {"-"}, "joined", ""},
        {"a plain host is joined", {"-"}, {}, "plain", ""},
        {"a plain guest is turned away", {"--tls-require"}, {"-"}, "", "has hung up"},
        {"a plain host is refused",
         {"-"},
         {"--tls-require"},
         "",
         "without TLS, and TLS is required"},
        {"another name",
         {},
         {"--tls-name", "other.example"},
         "",
         "cannot be reached securely: certificate verify failed: hostname mismatch"},
        {"a host that nobody vouches for",
         {},
         {"--tls-ca", file("host.pem")},
         "",
         "certificate verify failed"},
        {"a certificate is demanded",
         {"--tls-demand-cert", "--tls-ca", ca},
         {},
         "",
         "certificate required"},
        {"and shown",
         {"--tls-demand-cert", "--tls-ca", ca},
         {"--tls-cert", file("guest.pem"), "--tls-key", file("guest.key")},
         "encrypted",
         ""},
        {"approved algorithms", {"--tls-fips"}, {"--tls-fips"}, "encrypted", ""},
    };
    for (const Pairing &row : rows) {
        SCOPED_TRACE(row.name);
        const Arguments plain = {"-"};
        const bool plainHost = row.host == plain;
        Program ann(plainHost ? Arguments{"host", "--name", "Ann"}
                              : hosting(row.host, row.guest == plain ? "300" : "10000"));
        const std::string target = ann.target();
        Program bob(row.guest == plain ? Arguments{"join", target, "--name", "Bob"}
                                       : joining(target, row.guest, "Bob", plainHost));
        if (*row.outcome != '\0') {
            EXPECT_TRUE(bob.tells(row.outcome, {named("Ann")})) << bob.story() << ann.story();
            bob.type("/leave");
            EXPECT_EQ(0, bob.exitCode()) << bob.story();
            EXPECT_THAT(bob.output(), Not(HasSubstr("broken-off")));
            continue;
        }
        EXPECT_EQ(1, bob.exitCode()) << bob.story();
        EXPECT_THAT(bob.errors(), HasSubstr(row.words)) << ann.story();
        EXPECT_EQ(row.guest != plain, bob.output().find("broken-off") != std::string::npos);
        // The host goes on.
        Program cid(joining(target,
                            {"--tls-cert", file("guest.pem"), "--tls-key", file("guest.key")},
                            "Cid", plainHost));
        EXPECT_TRUE(cid.tells("joined", {named("Ann")})) << cid.story() << ann.story();
    }
}

TEST_F(TLSProgram, WhatCannotBeUsedIsSaidInALine) {
    Multiplexer mux({"--tls-cert", file("host.pem"), "--tls-key", file("host.key"), "--meeting",
                     "talk=127.0.0.1:1"});
    const std::pair<Arguments, const char *> rows[] = {
        {{"host", "--local", "--tls-cert", file("host.pem")},
         "cannot use TLS: a certificate and its key are needed together"},
        {{"host", "--local", "--tls-cert", "/nowhere.pem", "--tls-key", file("host.key")},
         "cannot use TLS: cannot read /nowhere.pem"},
        {{"tls-init", folder().string()}, "ca.key: File exists"},
        {{"host", "--local", "--tls-require"}, "a host takes --tls-cert and --tls-key to encrypt"},
        {{"join", "--mux", mux.address(), "--meeting-id", "talk", "--tls-wait", "1", "--tls-ca",
          file("host.pem")},
         "cannot be reached securely: certificate verify failed"},
    };
    for (const auto &[arguments, words] : rows) {
        ChildProcess run = Program::plain(arguments);
        EXPECT_NE(0, run.exitCode()) << run.story();
        EXPECT_THAT(run.errors(), HasSubstr(words));
    }
}

// ---- OpenSSL on the other side ----

TEST_F(TLSProgram, OpenSSLsClientIsServedOrRefusedByTheHost) {
    struct Row {
        Arguments client;
        Arguments host;
        const char *seen;   // by the client
        const char *broken; // what the host tells of it, "" for nothing
    };
    const Row rows[] = {
        {{"-tls1_3"}, {}, "Verification: OK", ""},
        {{"-tls1_2"}, {}, "Verification: OK", ""},
        {{"-tls1_1", "-cipher", "ALL:@SECLEVEL=0"}, {}, "protocol version", "unsupported protocol"},
        {{"-tls1_2", "-cipher", "AES128-SHA"}, {}, "handshake failure", "no shared cipher"},
        {{"-tls1_3", "-ciphersuites", "TLS_CHACHA20_POLY1305_SHA256"},
         {"--tls-fips"},
         "handshake failure",
         "no shared cipher"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.client.back() + ' ' + row.seen);
        Program ann(hosting(row.host));
        Arguments arguments = {
            "s_client",     "-connect",         ann.target(), "-CAfile",
            file("ca.pem"), "-verify_hostname", "localhost",  "-verify_return_error"};
        arguments.insert(arguments.end(), row.client.begin(), row.client.end());
        ChildProcess client = openssl(arguments);
        if (*row.broken == '\0') {
            EXPECT_TRUE(client.printed(row.seen)) << client.story();
            continue;
        }
        EXPECT_TRUE(ann.tells("broken-off")) << ann.story();
        EXPECT_THAT(ann.output(), HasSubstr(row.broken));
        EXPECT_NE(0, client.exitCode());
        EXPECT_THAT(client.errors(), HasSubstr(row.seen));
    }
}

TEST_F(TLSProgram, ARenegotiationIsRefused) {
    Program ann(hosting());
    const std::string target = ann.target();
    ChildProcess client = openssl({"s_client", "-connect", target, "-tls1_2", "-msg"});
    ASSERT_TRUE(client.printed("Extended master secret: yes")) << client.story();
    // The record with her hello must not come in between.
    ASSERT_TRUE(client.printed("17 03 03")) << client.story();
    client.type("R");
    EXPECT_NE(0, client.exitCode());
    EXPECT_THAT(client.errors(), HasSubstr("no renegotiation"));
    Program bob(joining(target));
    EXPECT_TRUE(bob.tells("joined", {named("Ann")})) << bob.story();
}

TEST_F(TLSProgram, OpenSSLsServerIsJoinedOrRefusedByTheGuest) {
    struct Row {
        Arguments server;
        const char *seen;    // by the server, or ""
        const char *refusal; // by the guest
    };
    const Row rows[] = {
        {{}, "CIPHER is TLS_AES_256_GCM_SHA384", ""},
        {{"-tls1_2"}, "CIPHER is ECDHE-ECDSA-AES256-GCM-SHA384", ""},
        {{"-tls1_1", "-cipher", "ALL:@SECLEVEL=0"}, "", "protocol version"},
        {{"-cert", file("guest.pem"), "-key", file("guest.key")}, "", "IP address mismatch"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.seen + std::string(row.refusal));
        unsigned short port = 0;
        closeDescriptor(listenSomewhere(port));
        Arguments arguments = {"s_server",       "-accept", std::to_string(port), "-cert",
                               file("host.pem"), "-key",    file("host.key")};
        arguments.insert(arguments.end(), row.server.begin(), row.server.end());
        ChildProcess server = openssl(arguments);
        ASSERT_TRUE(server.printed("ACCEPT")) << server.story();
        Program bob(joining("127.0.0.1:" + std::to_string(port), {"--tls-require"}));
        if (*row.seen != '\0') {
            EXPECT_TRUE(server.printed(row.seen)) << server.story() << bob.story();
            continue;
        }
        EXPECT_EQ(1, bob.exitCode()) << bob.story();
        EXPECT_THAT(bob.errors(), HasSubstr(row.refusal));
    }
}

// ---- A listener on the wire ----

// What crosses the loopback interface to and from a port, and to one of our own that ends it: what
// is sent there comes behind everything that was sent before.
class Capture {
public:
    explicit Capture(const std::string &port)
        : m_file(testing::TempDir() + "vintok-capture-" +
                 std::to_string(platform::currentProcessId()) + ".pcap"),
          m_listener(listenSomewhere(m_endPort)),
          m_dumpcap({DUMPCAP_PROGRAM, "-q", "-i", "lo", "-w", m_file.string(), "-f",
                     "tcp port " + port + " or tcp port " + std::to_string(m_endPort)}) {
        m_running = m_dumpcap.complained("File:");
    }
    ~Capture() {
        m_dumpcap.kill();
        closeDescriptor(m_listener);
        fs::remove(m_file);
    }

    bool running() const { return m_running; }
    bool forbidden() const {
        return m_dumpcap.errors().find("permi") != std::string::npos; // in each of its wordings
    }
    std::string story() const { return m_dumpcap.story(); }

    std::string result() {
        const std::string mark = "the capture ends here";
        const int sender = connectLocal(m_endPort);
        rawWriteBytes(sender, reinterpret_cast<const unsigned char *>(mark.data()), mark.size(),
                      true, nullptr);
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        std::string content;
        while (content.find(mark) == std::string::npos && std::chrono::steady_clock::now() < end) {
            platform::sleepMilliseconds(10);
            content = contentOf(m_file);
        }
        closeDescriptor(sender);
        EXPECT_THAT(content, HasSubstr(mark)) << story();
        return content;
    }

private:
    fs::path m_file;
    unsigned short m_endPort = 0;
    int m_listener;
    ChildProcess m_dumpcap;
    bool m_running = false;
};

TEST_F(TLSProgram, NoWordOfAMeetingCrossesTheWireInClear) {
    if (*DUMPCAP_PROGRAM == '\0')
        GTEST_SKIP() << "dumpcap is not installed";
    const std::string word = "a secret of the budget";
    for (const bool guarded : {false, true}) {
        SCOPED_TRACE(guarded ? "TLS" : "plain");
        Program ann(guarded ? hosting({"--tls-require"}) : Arguments{"host", "--name", "Ann"});
        const std::string target = ann.target();
        Capture capture(portOf(target));
        if (!capture.running() && capture.forbidden())
            GTEST_SKIP() << "capturing is not permitted: " << capture.story();
        ASSERT_TRUE(capture.running()) << capture.story();
        Program bob(guarded ? joining(target, {"--tls-require", "--email", "bob@secret.example"})
                            : Arguments{"join", target, "--email", "bob@secret.example"});
        ASSERT_TRUE(ann.tells("joined")) << ann.story();
        bob.type(word);
        ASSERT_TRUE(ann.tells("said", {text("text", word)})) << ann.story();
        ann.type(word);
        ASSERT_TRUE(bob.tells("said", {text("text", word), named("Ann")})) << bob.story();
        bob.type("/leave");
        EXPECT_EQ(0, bob.exitCode());
        const std::string wire = capture.result();
        for (const std::string &secret : {word, std::string("bob@secret.example")})
            EXPECT_EQ(guarded, wire.find(secret) == std::string::npos) << secret;
        EXPECT_EQ(guarded, wire.find(std::string("\x17\x03\x03", 3)) != std::string::npos)
            << "records of application data";
    }
}

// TLS reaches up to the multiplexer, for all of the tunnel or for the request alone.
TEST_F(TLSProgram, AMultiplexerKeepsTheConnectionEncryptedOrEndsThat) {
    if (*DUMPCAP_PROGRAM == '\0')
        GTEST_SKIP() << "dumpcap is not installed";
    const std::string word = "a secret of the tunnel";
    for (const bool kept : {true, false}) {
        SCOPED_TRACE(kept ? "kept" : "ended");
        Program ann({"host", "--name", "Ann"});
        Arguments arguments = {"--tls-cert",     file("host.pem"), "--tls-key",
                               file("host.key"), "--meeting",      "talk=" + ann.target()};
        if (!kept)
            arguments.push_back("--tls-until-open");
        Multiplexer mux(arguments);
        Capture capture(std::to_string(mux.port()));
        if (!capture.running() && capture.forbidden())
            GTEST_SKIP() << "capturing is not permitted: " << capture.story();
        ASSERT_TRUE(capture.running()) << capture.story();
        const Arguments way = {"join", "--mux",    mux.address(),  "--meeting-id", "talk", "--name",
                               "Bob",  "--tls-ca", file("ca.pem"), "--tls-wait",   "1"};
        Program bob(way);
        EXPECT_TRUE(bob.tells(kept ? "encrypted" : "plain", {named("Ann")})) << bob.story();
        bob.type(word);
        EXPECT_TRUE(ann.tells("said", {text("text", word)})) << ann.story() << bob.story();
        const std::string wire = capture.result();
        EXPECT_EQ(kept, wire.find(word) == std::string::npos);
        EXPECT_EQ(std::string::npos, wire.find("pLorMUX_MeetingID")) << "the request is secret";
        if (!kept) {
            Arguments strict = way;
            strict.push_back("--tls-require");
            Program cid(strict);
            EXPECT_EQ(1, cid.exitCode()) << cid.story();
            EXPECT_THAT(cid.errors(), HasSubstr("goes on without TLS, which is required"));
        }
    }
}
} // namespace
