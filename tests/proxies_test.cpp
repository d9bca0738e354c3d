// Meetings of the real program through the proxies that people have, and the real multiplexer
// behind them.
#include "support/Multiplexer.h"
#include "support/Program.h"
#include "support/Proxy.h"

#include "vintok/TCPStream.h"

#include <cstdlib>

using namespace vintok::test;
namespace {

// Where all of them are known to be installed, none may be left out.
bool mayBeMissing() {
    return std::getenv("VINTOK_REQUIRE_PROXIES") == nullptr;
}

#define START_OR_SKIP(proxy)                                                                       \
    if (!(proxy).runs()) {                                                                         \
        ASSERT_TRUE(mayBeMissing()) << (proxy).story();                                            \
        GTEST_SKIP() << nameOf(GetParam()) << " does not start:\n" << (proxy).story();             \
    }

class Proxies : public testing::TestWithParam<Proxy::Kind> {
protected:
    Proxies() { vintok::init(); }
    ~Proxies() override { vintok::fini(); }

    std::string hostTarget() {
        if (m_target.empty())
            m_target = ann.target();
        return m_target;
    }
    static Arguments joining(const std::string &name, const Proxy &proxy,
                             const std::string &multiplexer, const Arguments &more = {}) {
        return with({"join", "--name", name, "--mux", multiplexer, "--meeting-id", "talk",
                     "--proxy", proxy.address()},
                    more);
    }

    Program ann{{"host", "--name", "Ann"}};

private:
    std::string m_target;
};

// Each says something to the other, short and long.
void talk(Program &one, const std::string &name, Program &other, const std::string &otherName) {
    const std::string much(10000, 'm'); // what nobody reads yet must fit into a pipe
    for (const std::string &line : {std::string("hello"), much}) {
        EXPECT_TRUE(one.isHeard(line, other, {named(name)}));
        EXPECT_TRUE(other.isHeard(line, one, {named(otherName)}));
    }
}

// The encryption ends at the multiplexer, and nobody is told otherwise.
TEST_P(Proxies, LetAnEncryptedMeetingThrough) {
    const TemporaryFolder folder;
    const std::string tls = folder.path("tls");
    ChildProcess init = Program::plain({"tls-init", tls});
    if (init.exitCode() != 0)
        GTEST_SKIP() << init.story();
    Proxy proxy(GetParam());
    START_OR_SKIP(proxy);
    const Multiplexer mux({"--meeting", "talk=" + hostTarget(), "--tls-cert", tls + "/host.pem",
                           "--tls-key", tls + "/host.key", "--tls-only"},
                          freePort());
    Program bob(
        joining("Bob", proxy, mux.address(), {"--tls-ca", tls + "/ca.pem", "--tls-require"}));
    EXPECT_TRUE(bob.tells("reply", {text("from", "proxy"), {"status", "200"}}));
    EXPECT_TRUE(bob.tells("reply", {text("from", "multiplexer"), {"status", "200"}}));
    ASSERT_TRUE(ann.tells("joined", {named("Bob")})) << bob.story() << mux.story();
    EXPECT_TRUE(bob.tells("encrypted", {text("server", "the multiplexer " + mux.address())}));
    talk(ann, "Ann", bob, "Bob");
    bob.type("/leave");
    EXPECT_TRUE(bob.ends(0));
    EXPECT_TRUE(mux.comesTo("tunnels", 0));

    Program open(joining("Cid", proxy, mux.address()));
    EXPECT_TRUE(open.ends(1, "403 Forbidden (only over TLS)"));
}

class AskingProxies : public Proxies {};

TEST_P(AskingProxies, TakeTheRightCredentials) {
    Proxy proxy(GetParam(), true);
    START_OR_SKIP(proxy);
    Multiplexer mux({"--meeting", "talk=" + hostTarget()}, freePort());
    const TemporaryFolder folder;
    Program bob(joining("Bob", proxy, mux.address(),
                        {"--auth-file", folder.holding("auth", Proxy::credentials)}));
    EXPECT_TRUE(bob.tells("reply", {text("from", "proxy"), {"status", "407"}}));
    EXPECT_TRUE(bob.tells("challenge", {text("whom", proxy.address()), text("user", "ann")}));
    ASSERT_TRUE(ann.tells("joined", {named("Bob")})) << bob.story() << mux.story();
    talk(ann, "Ann", bob, "Bob");

    Program without(joining("Cid", proxy, mux.address()));
    EXPECT_TRUE(without.ends(1, "the proxy " + proxy.address() +
                                    " asks for a user name and a password: give them"));
    Program wrong(joining("Cid", proxy, mux.address(), {"--auth", "ann:guess"}));
    EXPECT_TRUE(wrong.ends(1, "does not accept the user name or the password"));
}

constexpr auto nameOfCase = [](const auto &kind) { return nameOf(kind.param); };
INSTANTIATE_TEST_SUITE_P(Debian, Proxies,
                         testing::Values(Proxy::Kind::tinyproxy, Proxy::Kind::squid,
                                         Proxy::Kind::privoxy),
                         nameOfCase);
INSTANTIATE_TEST_SUITE_P(Debian, AskingProxies,
                         testing::Values(Proxy::Kind::tinyproxy, Proxy::Kind::squid), nameOfCase);

} // namespace
