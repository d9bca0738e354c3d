// Calls through a proxy and a multiplexing server, both played by raw peers: what they are asked,
// what each of their answers leads to, and how the call goes on behind them.
#include "support/Environment.h"
#include "support/LogFile.h"
#include "support/Party.h"
#include "support/StubTransport.h"
#include "support/WirePeer.h"

namespace vintok::test {
namespace {

constexpr const char *ok = "HTTP/1.0 200 Connection established\r\n\r\n";
constexpr const char *ready = "pLorMUX_Response: Ready\n\n";
constexpr const char *tooLong = "\r\n\r\n";

std::string number(int value) {
    return std::to_string(value);
}

// The port after CONNECT has a sign.
std::string proxyRequest(const std::string &remote, int port, int proxyPort,
                         const std::string &more = "") {
    return "CONNECT " + remote + ":" + number(port > 32767 ? port - 65536 : port) +
           " HTTP/1.0\r\npLorMUX_Version: 2.0\r\npLorMUX_ProxyJump: true\r\n"
           "pLorMUX_ProxyAddress: 127.0.0.1:" +
           number(proxyPort) + "\r\n" + more + "\r\n";
}

std::string muxRequest(const std::string &remote, int port, const std::string &proxy,
                       const std::string &meetingID = "talk", const std::string &build = "none") {
    return "CONNECT " + remote + ":" + number(port > 32767 ? port - 65536 : port) +
           " HTTP/1.0\r\npLorMUX_Version: 2.0\r\npLorMUX_ResponseRequired: true\r\n"
           "pLorMUX_Encrypt: true\r\npLorMUX_Redirect: true\r\npLorMUX_MeetingID: " +
           meetingID + "\r\npLorMUX_ConfParticipantVersion: 4.0\r\npLorMUX_ProxyAddress: " + proxy +
           "\r\npLorMUX_ConferenceAddress: " + remote + ":" + number(port) +
           "\r\nQOR_BUILD_INFO: " + build + "\r\n\r\n";
}

// A secure transport that changes nothing: a peer without a transport reads what goes over it.
class PlainTransport : public StubTransport {
public:
    // Whether a handshake works with a peer that is named, and with one that is not.
    bool connectsByName = true, connectsUnnamed = false;
    std::vector<std::string> names; // that were connected to
    int removed = 0;

    bool secureConnect(int, const char *peerName) override {
        if (peerName == nullptr)
            return connectsUnnamed;
        names.emplace_back(peerName);
        return connectsByName;
    }
    bool secureAccept(int) override { return false; }
    std::int64_t securePeek(int fd, unsigned char *buffer, std::size_t length) override {
        return rawPeekBytes(fd, buffer, length);
    }
    std::int64_t secureRecv(int fd, unsigned char *buffer, std::size_t length) override {
        return rawReadBytes(fd, buffer, length, true, nullptr);
    }
    std::int64_t secureSend(int fd, const unsigned char *buffer, std::size_t length) override {
        return rawWriteBytes(fd, buffer, length, true, nullptr);
    }
    bool secureBytesPending(int fd, std::size_t *pending, bool) override {
        const std::int64_t waiting = rawBytesPending(fd);
        *pending = waiting > 0 ? static_cast<std::size_t>(waiting) : 0;
        return waiting >= 0;
    }
    bool removeSecureDescriptor(int) override {
        ++removed;
        return true;
    }
};

class Tunnel : public testing::Test {
protected:
    Tunnel() {
        setTransport(&transport);
        server.readsText(true);
        EXPECT_TRUE(server.listens());
    }
    ~Tunnel() override { setTransport(nullptr); }

    bool callsThroughProxy(const std::string &authentication = "", unsigned retries = 0,
                           const std::string &remote = "mux.example", unsigned short port = 40000) {
        return ann->placeCall(remote, port, "127.0.0.1", server.port(), "talk", authentication,
                              retries);
    }
    bool callsServer(unsigned retries = 0, const std::string &meetingID = "talk") {
        return ann->placeCall("127.0.0.1", server.port(), "", 0, meetingID, "", retries);
    }
    std::string serverRequest(const std::string &meetingID = "talk") const {
        return muxRequest("127.0.0.1", server.port(), ":80", meetingID);
    }
    // Ann has called the server and waits for its answer.
    void asksServer(unsigned retries = 0) {
        ann.forgets();
        ASSERT_TRUE(callsServer(retries) && server.picksUp());
        ASSERT_TRUE(server.receivesText(serverRequest()));
    }
    // The tunnel stands: the call is now one like any other.
    void expectCall(WirePeer &peer) {
        EXPECT_TRUE(peer.receivesText(ready));
        peer.readsText(false);
        ASSERT_TRUE(peer.saysHello());
        expectJoin(peer);
    }
    void expectJoin(WirePeer &peer) {
        ASSERT_TRUE(peer.receives(id::joinRequest) && peer.sends(id::joinReply, {1}));
        ASSERT_TRUE(peer.fences());
        EXPECT_EQ(1, ann.told("join " + peer.entry.firstName));
        EXPECT_TRUE(ann.says("through"));
        EXPECT_TRUE(peer.receives(id::broadcast));
        ann.leaves();
        EXPECT_TRUE(peer.receives(id::hangup) && peer.seesTheEnd());
    }

    const ScopedEnvironment noBuild{"QOR_BUILD_INFO"};
    PlainTransport transport;
    Meeting meeting;
    Party ann{meeting, "Ann"};
    WirePeer server{meeting, "Server"};
};

// ---- Roads ----

TEST_F(Tunnel, ThroughAProxyTheServerIsAskedOnTheSameConnection) {
    ASSERT_TRUE(callsThroughProxy() && server.picksUp());
    EXPECT_TRUE(server.receivesText(proxyRequest("mux.example", 40000, server.port())));
    EXPECT_THAT(transport.names, IsEmpty()) << "the proxy reads its request";
    ASSERT_TRUE(server.sendsText(ok));
    EXPECT_TRUE(server.receivesText(
        muxRequest("mux.example", 40000, "127.0.0.1:" + number(server.port()))));
    EXPECT_THAT(transport.names, ElementsAre("mux.example"));
    ASSERT_TRUE(server.sendsText("HTTP/1.0 206 Tunnel\nServer: x\n\n")) << "line feeds alone";
    expectCall(server);
    EXPECT_EQ(1, ann.told("response 200"));
    EXPECT_EQ(1, ann.told("response 206"));
}

TEST_F(Tunnel, CredentialsGoOutAsTheyWereGivenForBothHeaders) {
    ASSERT_TRUE(callsThroughProxy("QW5uOg==", 0, "mux.example", 443) && server.picksUp());
    EXPECT_TRUE(server.receivesText(proxyRequest("mux.example", 443, server.port(),
                                                 "Proxy-authorization: Basic QW5uOg==\r\n"
                                                 "Authorization: Basic QW5uOg==\r\n")));
    ASSERT_TRUE(server.sendsText(ok));
    EXPECT_TRUE(
        server.receivesText(muxRequest("mux.example", 443, "127.0.0.1:" + number(server.port()))))
        << "the server asks for none";
}

TEST_F(Tunnel, AServerThatIsItsOwnProxyIsAskedAtOnce) {
    const ScopedEnvironment build("QOR_BUILD_INFO", "b17");
    ASSERT_TRUE(
        ann->placeCall("127.0.0.1", server.port(), "127.0.0.1", server.port(), "talk", "", 0));
    ASSERT_TRUE(server.picksUp());
    EXPECT_TRUE(server.receivesText(muxRequest(
        "127.0.0.1", server.port(), "127.0.0.1:" + number(server.port()), "talk", "b17")));
}

TEST_F(Tunnel, WhatFollowsTheReplyInTheSameSegmentIsNotLost) {
    for (const std::string headers : {"", "pLorMUX_Encrypt: true\r\n"}) {
        SCOPED_TRACE(headers);
        asksServer();
        const int before = transport.removed;
        const WireFrame hello = {
            .id = id::rosterEntry, .origin = server.entry.address, .body = server.entry.encode()};
        const std::string reply = "HTTP/1.0 200 OK\r\n" + headers + "\r\n";
        Bytes bytes(reply.begin(), reply.end());
        const Bytes frame = hello.encode();
        bytes.insert(bytes.end(), frame.begin(), frame.end());
        ASSERT_TRUE(server.sends(bytes));
        EXPECT_TRUE(server.receivesText(ready));
        EXPECT_EQ(before, transport.removed) << "it stays secure";
        server.readsText(false);
        expectJoin(server);
        server.readsText(true);
    }
}

TEST_F(Tunnel, AServerMayAskForPlainAndLosesWhatItSentBefore) {
    asksServer();
    const int before = transport.removed;
    ASSERT_TRUE(server.sendsText("HTTP/1.0 200 OK\r\npLorMUX_Encrypt: false\r\n\r\nleft over"));
    EXPECT_TRUE(server.receivesText(ready));
    EXPECT_EQ(before + 1, transport.removed);
    server.readsText(false);
    ASSERT_TRUE(server.saysHello());
    expectJoin(server);
}

// ---- Requests that are not sent, or not whole ----

TEST_F(Tunnel, ARequestThatIsTooLongGoesOutAsAnEndOfHeaders) {
    const std::string fits(693, 'i'), not_(694, 'i');
    ASSERT_TRUE(callsServer(0, fits) && server.picksUp());
    EXPECT_TRUE(server.receivesText(serverRequest(fits)));
    ann.leaves();
    ASSERT_TRUE(callsServer(0, not_) && server.picksUp());
    EXPECT_TRUE(server.receivesText(tooLong));
    EXPECT_TRUE(server.rest().empty());
    ann.leaves();

    const struct {
        std::size_t remote, word;
        bool fits;
    } cases[] = {{897, 0, true}, {898, 0, false}, {1, 420, true}, {1, 421, false}};
    for (const auto &row : cases) {
        const std::string remote(row.remote, 'r'), word(row.word, 'a');
        const std::string credentials = word.empty()
                                            ? ""
                                            : "Proxy-authorization: Basic " + word +
                                                  "\r\nAuthorization: Basic " + word + "\r\n";
        ASSERT_TRUE(callsThroughProxy(word, 0, remote, 1) && server.picksUp());
        EXPECT_TRUE(server.receivesText(
            row.fits ? proxyRequest(remote, 1, server.port(), credentials) : tooLong));
        ann.leaves();
    }
}

TEST_F(Tunnel, AServerIsNotAskedInTheOpen) {
    LogFile log;
    transport.connectsByName = false;
    EXPECT_FALSE(callsServer());
    EXPECT_TRUE(log.has("sf_sendHttpRequest: secureConnect FAILED"));
    EXPECT_TRUE(log.has("sf_sendHttpRequest FAILED"));
    EXPECT_TRUE(log.has("placeCall spam HTTP remote failed"));
    ASSERT_TRUE(server.picksUp() && server.seesTheEnd());
    EXPECT_TRUE(server.rest().empty());
    EXPECT_THAT(ann.events, IsEmpty());

    ASSERT_TRUE(callsThroughProxy() && server.picksUp()) << "nothing is left of the first call";
    ASSERT_TRUE(server.receivesText(proxyRequest("mux.example", 40000, server.port())));
    ASSERT_TRUE(server.sendsText(ok));
    EXPECT_TRUE(server.seesTheEnd());
    EXPECT_THAT(ann.events, ElementsAre("response 200", "noAnswer mux.example"));
}

TEST_F(Tunnel, AConnectionThatIsSecureAlreadyIsNotSecuredAgain) {
    transport.connectsUnnamed = true;
    asksServer();
    EXPECT_THAT(transport.names, IsEmpty());
    ASSERT_TRUE(server.sendsText(ok));
    expectCall(server);
}

// ---- Answers ----

struct Answer {
    std::string reply;
    unsigned retries;
    std::vector<std::string> events; // "X" stands for the name that was called
    bool goodbye;                    // whether the server gets a TCP_hangup
};

const std::string basic = "\r\nProxy-Authenticate: Basic\r\nWWW-Authenticate: Basic\r\n\r\n";
const std::string away = "\r\nLocation: http://other.example:81/x\r\n\r\n";

const Answer answers[] = {
    {"HTTP/1.0 207 X\r\n\r\n", 0, {"response 207", "noAnswer X"}, true},
    {"HTTP/1.0 403 X\r\n\r\n", 3, {"response 403", "noAnswer X"}, true},
    {"HTTP/1.0 505 X\r\n\r\n", 0, {"response 505", "response 505"}, true},
    {"HTTP/1.0 506 X\r\n\r\n", 0, {"response 506", "noAnswer X"}, true},
    {"hello\r\n\r\n", 0, {"response 0", "noAnswer X"}, true},
    {"HTTP/1.0 200 but no end\r\n", 0, {"response 0", "noAnswer X"}, true},
    {"HTTP/1.0 401 X" + basic, 1, {"response 401", "noAnswer X"}, false},
    {"HTTP/1.0 401 X" + basic, 2, {"response 401", "proxy X 1"}, false},
    {"HTTP/1.0 407 X" + basic, 3, {"response 407", "proxy X 2"}, false},
    {"HTTP/1.0 407 X\r\nProxy-Authenticate: Digest\r\n\r\n",
     3,
     {"response 403", "noAnswer X"},
     true},
    {"HTTP/1.0 302 X\r\nLocation: /x\r\n\r\n", 3, {"response 302"}, true},
    {"HTTP/1.0 302 X" + away, 0, {"response 302", "noAnswer X"}, true},
    {"HTTP/1.0 302 X" + away, 1, {"response 302", "redirect other.example:81"}, true},
};

// Whoever gives it: the server, a proxy, or the server behind a proxy that has let the call
// through.
TEST_F(Tunnel, EachAnswerEndsTheCallInItsWay) {
    ann.decidesOnRedirects();
    enum Giver { direct, proxy, behindProxy };
    for (const Answer &row : answers) {
        for (const Giver giver : {direct, proxy, behindProxy}) {
            SCOPED_TRACE(row.reply + " of giver " + number(giver));
            ann.forgets();
            const std::string called = giver != direct ? "mux.example" : "127.0.0.1";
            ASSERT_TRUE(giver != direct ? callsThroughProxy("", row.retries)
                                        : callsServer(row.retries));
            ASSERT_TRUE(server.picksUp());
            ASSERT_TRUE(server.receivesText(
                giver != direct ? proxyRequest(called, 40000, server.port()) : serverRequest()));
            std::vector<std::string> expected = row.events;
            if (giver == behindProxy) {
                ASSERT_TRUE(server.sendsText(ok));
                ASSERT_TRUE(server.receivesText(
                    muxRequest(called, 40000, "127.0.0.1:" + number(server.port()))));
                expected.insert(expected.begin(), "response 200");
            }
            ASSERT_TRUE(server.sendsText(row.reply));
            EXPECT_TRUE(server.seesTheEnd());
            for (std::string &event : expected)
                if (const auto at = event.find('X'); at != std::string::npos)
                    event.replace(at, 1, called);
            EXPECT_EQ(expected, ann.events);
            Bytes rest = server.rest();
            const auto last = WireFrame::take(rest);
            EXPECT_EQ(row.goodbye, last.has_value() && last->id == id::hangup);
            EXPECT_TRUE(rest.empty());
        }
    }
}

TEST_F(Tunnel, AReplyHas4095BytesAtMost) {
    for (const std::size_t size : {4095u, 4096u}) {
        SCOPED_TRACE(size);
        asksServer();
        std::string reply = "HTTP/1.0 200 OK\r\nX: ";
        reply += std::string(size - reply.size() - 4, 'x') + "\r\n\r\n";
        ASSERT_TRUE(server.sendsText(reply));
        if (size == 4095) {
            expectCall(server);
            server.readsText(true);
        } else {
            EXPECT_TRUE(server.seesTheEnd());
            EXPECT_THAT(ann.events, ElementsAre("response 0", "noAnswer 127.0.0.1"));
        }
    }
}

// The reader does not wait for the rest, wherever the cut is.
TEST_F(Tunnel, AReplyInPiecesIsNone) {
    const std::string reply = "HTTP/1.0 200 OK\r\n\r\n";
    for (const std::size_t cut : {std::size_t{1}, std::size_t{16}, reply.size() - 1}) {
        SCOPED_TRACE(cut);
        asksServer();
        ASSERT_TRUE(server.sendsText(reply.substr(0, cut)));
        ASSERT_TRUE(ann.isTold("noAnswer 127.0.0.1"));
        EXPECT_THAT(ann.events, ElementsAre("response 0", "noAnswer 127.0.0.1"));
    }
}

// ---- Redirection ----

class Redirected : public Tunnel {
protected:
    Redirected() {
        other.readsText(true);
        EXPECT_TRUE(other.listens());
    }
    std::string to(const WirePeer &peer) const {
        return "HTTP/1.0 302 X\r\nLocation: https://127.0.0.1:" + number(peer.port()) + "/\r\n\r\n";
    }
    WirePeer other{meeting, "Other"};
};

TEST_F(Redirected, TheLibraryCallsWhereItIsSent) {
    asksServer(1);
    ASSERT_TRUE(server.sendsText(to(other)) && other.picksUp());
    EXPECT_TRUE(other.receivesText(muxRequest("127.0.0.1", other.port(), ":80")));
    EXPECT_TRUE(ann->isMUXRedirected());
    EXPECT_TRUE(server.seesTheEnd());
    ASSERT_TRUE(other.sendsText(ok));
    expectCall(other);
    EXPECT_THAT(ann.told("noAnswer 127.0.0.1"), 0);
    EXPECT_FALSE(ann->isMUXRedirected()) << "until the meeting is left";
}

TEST_F(Redirected, ADirectCallStaysDirect) {
    ASSERT_TRUE(
        ann->placeCall("127.0.0.1", server.port(), "127.0.0.1", server.port(), "talk", "", 1));
    ASSERT_TRUE(server.picksUp() && server.sendsText(to(other)) && other.picksUp());
    EXPECT_TRUE(other.receivesText(
        muxRequest("127.0.0.1", other.port(), "127.0.0.1:" + number(other.port()))));
}

TEST_F(Redirected, OnlyTheFirstIsFree) {
    for (const unsigned retries : {1u, 2u}) {
        SCOPED_TRACE(retries);
        asksServer(retries);
        ASSERT_TRUE(server.sendsText(to(other)) && other.picksUp());
        ASSERT_TRUE(other.receivesText(muxRequest("127.0.0.1", other.port(), ":80")));
        ASSERT_TRUE(other.sendsText(to(server)) && other.seesTheEnd());
        if (retries == 1) {
            EXPECT_THAT(ann.events,
                        ElementsAre("response 302", "response 302", "noAnswer 127.0.0.1"));
        } else {
            ASSERT_TRUE(server.picksUp() && server.receivesText(serverRequest()));
            ASSERT_TRUE(server.sendsText(to(other)) && server.seesTheEnd());
            EXPECT_EQ(1, ann.told("noAnswer 127.0.0.1")) << "no third one";
        }
        ann.leaves();
    }
}

// ---- Servers that go ----

TEST_F(Tunnel, AServerMayGoAtEveryStep) {
    ASSERT_TRUE(callsThroughProxy() && server.picksUp());
    server.closes();
    EXPECT_TRUE(ann.isTold("noAnswer mux.example"));
    EXPECT_THAT(ann.events, ElementsAre("response 0", "noAnswer mux.example"));

    ann.forgets();
    ASSERT_TRUE(callsThroughProxy() && server.picksUp());
    ASSERT_TRUE(server.receivesText(proxyRequest("mux.example", 40000, server.port())));
    ASSERT_TRUE(server.sendsText(ok));
    ASSERT_TRUE(server.receivesText(
        muxRequest("mux.example", 40000, "127.0.0.1:" + number(server.port()))));
    server.closes();
    EXPECT_TRUE(ann.isTold("noAnswer mux.example"));
    EXPECT_THAT(ann.events, ElementsAre("response 200", "response 0", "noAnswer mux.example"));

    asksServer();
    ASSERT_TRUE(server.sendsText(ok) && server.receivesText(ready));
    server.closes();
    EXPECT_TRUE(ann.isTold("noAnswer 127.0.0.1"));
    EXPECT_THAT(ann.events, ElementsAre("response 200", "noAnswer 127.0.0.1"));
}

} // namespace
} // namespace vintok::test
