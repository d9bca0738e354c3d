// Participants that reach the multiplexer over TLS, which is how they want to.
#include "support/Multiplexer.h"
#include "support/Party.h"
#include "support/TemporaryFolder.h"
#include "vintok-tls/TLSFolder.h"
#include "vintok-tls/TLSTransport.h"
#include "vintok/TCPStream.h"

#include <gmock/gmock.h>

namespace vintok::test {
namespace {

using testing::StartsWith;

class SecureParticipants : public testing::Test {
protected:
    SecureParticipants() {
        EXPECT_TRUE(createTLSFolder(file(""), {})) << lastErrorString();
        TLSOptions options;
        options.rootsFile = file("ca.pem");
        EXPECT_TRUE(tls.open(options)) << lastErrorString();
        EXPECT_TRUE(ben.hosts("Tuesday"));
        setTransport(&tls);
    }
    ~SecureParticipants() override { setTransport(nullptr); }

    std::string file(const std::string &name) const { return folder.path("tls/" + name); }
    std::vector<std::string> options(std::vector<std::string> more) const {
        const std::string address = "talk=127.0.0.1:" + std::to_string(ben.port());
        for (const std::string &word :
             {std::string("--tls-cert"), file("host.pem"), std::string("--tls-key"),
              file("host.key"), std::string("--meeting"), address})
            more.push_back(word);
        return more;
    }
    void talk(const Multiplexer &mux) {
        ASSERT_TRUE(ann.isTold("join Ben"));
        const std::string much(300000, 'm');
        EXPECT_TRUE(ann.says(much) && ben.hears(much));
        EXPECT_TRUE(ben.says(much) && ann.hears(much));
        EXPECT_LT(much.size(), mux.count("bytes-to-called"));
        ann.leaves();
        EXPECT_TRUE(ben.isTold("leave Ann"));
        EXPECT_TRUE(mux.comesTo("tunnels", 0));
        ann.forgets();
        ben.forgets();
    }

    TemporaryFolder folder;
    TLSTransport tls;
    Meeting meeting;
    Party ann{meeting, "Ann"};
    Party ben{meeting, "Ben"};
};

TEST_F(SecureParticipants, KeepTheirTunnelSecure) {
    Multiplexer mux(options({"--tls-only"}));
    ASSERT_TRUE(ann->placeCall("127.0.0.1", mux.port(), "", 0, "talk", "", 0));
    talk(mux);
    Client open(mux.port(), callTo(mux, "talk"));
    EXPECT_THAT(open.answer(), StartsWith("HTTP/1.0 403 "));
}

TEST_F(SecureParticipants, BeginBehindTheAnswerOfAProxy) {
    Multiplexer mux(options({"--credentials", "Ann:secret"}));
    tls.setConnectsUnnamed(false);
    ASSERT_TRUE(ann->placeCall("127.0.0.1", ben.port(), "127.0.0.1", mux.port(), "talk",
                               "QW5uOnNlY3JldA==", 0));
    talk(mux);
}

TEST_F(SecureParticipants, GoOnInTheOpenWhereTheyAreToldTo) {
    Multiplexer mux(options({"--tls-until-open", "--tls-only"}));
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(ann->placeCall("127.0.0.1", mux.port(), "", 0, "talk", "", 0));
        talk(mux);
    }
}

TEST_F(SecureParticipants, AreNotJoinedWithSomebodyInTheOpen) {
    Multiplexer mux(options({"--request-time", "1"}));
    Client offer(mux.port(), callTo(mux, "tea", OFFER));
    EXPECT_TRUE(mux.comesTo("waiting", 1));
    ASSERT_TRUE(ann->placeCall("127.0.0.1", mux.port(), "", 0, "tea", "", 0));
    EXPECT_TRUE(ann.isTold("response 403"));
    EXPECT_TRUE(mux.printed("the other party has come without TLS"));
    Client caller(mux.port(), callTo(mux, "tea"));
    EXPECT_THAT(caller.answer(), StartsWith(OPENED)) << "the offer has stayed";
    Client open(mux.port(), callTo(mux, "cake")), late(mux.port(), callTo(mux, "cake"));
    for (Client *each : {&open, &late})
        EXPECT_THAT(each->answer(), StartsWith(OPENED));
    for (Client *each : {&open, &late})
        each->sends(READY);
    EXPECT_TRUE(open.seesTheEnd()) << "two callers, and neither speaks first";
    EXPECT_TRUE(mux.printed("neither speaks first"));
}

TEST_F(SecureParticipants, AreToldAtTheStartThatACertificateIsOfNoUse) {
    ChildProcess run({MULTIPLEXER, "--tls-cert", file("host.pem"), "--tls-key", file("ca.key")});
    EXPECT_TRUE(run.ends(1));
    EXPECT_THAT(run.errors(), StartsWith("multiplexer: "));
}

} // namespace
} // namespace vintok::test
