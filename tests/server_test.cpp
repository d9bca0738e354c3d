// The relay, seen by its clients; who misbehaves, dies or crowds it; and its three programs.

#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "platform/Wait.h"
#include "support/Addresses.h"
#include "support/ChildProcess.h"
#include "support/LogFile.h"
#include "support/SocketPair.h"
#include "support/WirePeer.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPServer.h"

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace vintok::test {

namespace {

constexpr bool exactPort = true;
constexpr bool localOnly = true;

class Server : public TCPServer {
public:
    using TCPServer::mf_broadcastMessage;
    using TCPServer::mf_handleHangup;
    using TCPServer::TCPServer;

    std::vector<int> froms; // of every message, the client's descriptor

protected:
    void mf_handleMessage(TCPMessage &message) override {
        froms.push_back(message.socketDescriptor());
        TCPServer::mf_handleMessage(message);
    }
};

class Relay : public testing::Test {
protected:
    Relay() : server(std::in_place, test::freshPort(), !exactPort, localOnly) {}

    void SetUp() override {
        ASSERT_NE(0, server->port());
        listeners = select.numDescriptors();
        for (WirePeer *peer : {&ann, &bob, &cem})
            ASSERT_TRUE(connects(*peer));
    }

    // Connects and waits until the server has taken the connection.
    testing::AssertionResult connects(WirePeer &peer) {
        const int before = clients();
        const auto connected = peer.connects(server->port());
        return connected ? meeting.until([&] { return clients() == before + 1; }, "no accept")
                         : connected;
    }

    int clients() const { return select.numDescriptors() - listeners; }

    // The server's end of the peer's connection.
    int endOf(WirePeer &peer) {
        const std::size_t before = server->froms.size();
        peer.sends(id::keepAlive);
        EXPECT_TRUE(meeting.until([&] { return server->froms.size() > before; }, "keep-alive"));
        return server->froms.empty() ? -1 : server->froms.back();
    }

    // Everybody but the speaker hears it, and hears it next.
    void speaks(WirePeer &speaker, const std::string &text) {
        ASSERT_TRUE(speaker.sends(id::broadcast, letters(text)));
        for (WirePeer *peer : {&ann, &bob, &cem}) {
            WireFrame frame;
            if (peer == &speaker || !peer->connected() || peer->ended())
                continue;
            ASSERT_TRUE(peer->receives(id::broadcast, &frame)) << text;
            EXPECT_EQ(letters(text), frame.body);
        }
    }

    Meeting meeting;
    TCPSelect select; // the thread's table, to look at
    int listeners = 0;
    std::optional<Server> server;
    WirePeer ann{meeting, "Ann"};
    WirePeer bob{meeting, "Bob"};
    WirePeer cem{meeting, "Cem"};
};

// ---- Relaying ----

TEST_F(Relay, PassesABroadcastOnToEverybodyElseAsItCame) {
    const WireFrame sent = {.time = 0x0102030405060708,
                            .id = id::broadcast,
                            .origin = test::WireAddress::ipv4(0x0A010203, 7777),
                            .body = letters("hello")};
    ASSERT_TRUE(ann.sends(sent.encode()));
    for (WirePeer *peer : {&bob, &cem}) {
        WireFrame heard;
        ASSERT_TRUE(peer->receives(id::broadcast, &heard));
        EXPECT_EQ(sent.encode(), heard.encode());
    }
    // Ann hears what Bob says, and nothing of her own before it.
    speaks(bob, "hello Ann");
}

TEST_F(Relay, GivesTheBodyToItsOwnerThoughNobodyElseIsThere) {
    static std::vector<std::pair<TCPServer *, std::string>> heard;
    heard.clear();
    server->setDataCB([](TCPServer *relay, unsigned char *body, std::uint64_t length) {
        heard.emplace_back(relay, std::string(body, body + length));
    });
    bob.closes();
    cem.closes();
    ASSERT_TRUE(meeting.until([&] { return clients() == 1; }, "two leave"));
    ASSERT_TRUE(ann.sends(id::keepAlive, letters("not this")));
    ASSERT_TRUE(ann.sends(id::broadcast, letters("to myself")));
    ASSERT_TRUE(meeting.until([] { return !heard.empty(); }, "the body"));
    EXPECT_THAT(heard,
                testing::ElementsAre(std::pair<TCPServer *, std::string>(&*server, "to myself")));
}

TEST_F(Relay, WritesInOrderOfConnectionAndTellsWhetherAllHeard) {
    const int annsEnd = endOf(ann);
    const int bobsEnd = endOf(bob);
    TCPMessage message;
    message.setMessageID(TCP_broadcastMessage);
    ASSERT_TRUE(message.allocateMessageBuffer(1));
    EXPECT_TRUE(server->mf_broadcastMessage(message));
    setClosed(bobsEnd);
    EXPECT_FALSE(server->mf_broadcastMessage(message));
    for (WirePeer *peer : {&ann, &cem}) {
        EXPECT_TRUE(peer->receives(id::broadcast));
        EXPECT_TRUE(peer->receives(id::broadcast)) << "a failure stops nobody else's";
    }
    ASSERT_TRUE(bob.seesTheEnd()) << "who cannot be written to is dropped";

    server->mf_handleHangup(endOf(cem));
    message.setSocketDescriptor(annsEnd);
    EXPECT_TRUE(server->mf_broadcastMessage(message)) << "nobody to write to";
    EXPECT_EQ(1, clients());
    server->mf_handleHangup(-1);
    server->mf_handleHangup(999);
    EXPECT_EQ(1, clients());
}

// ---- Leaving and dying ----

TEST_F(Relay, LosesAClientThatHangsUpResetsOrEnds) {
    const std::pair<const char *, std::function<void(WirePeer &)>> ways[] = {
        {"a hang-up", [](WirePeer &peer) { peer.sends(id::hangup); }},
        {"an end of the stream", [](WirePeer &peer) { peer.closes(); }},
        {"a reset", [](WirePeer &peer) { peer.resets(); }},
        // It goes on reading, and its descriptor stays readable for ever.
        {"half an end", [](WirePeer &peer) { peer.halfCloses(); }},
        {"an end behind a whole message",
         [](WirePeer &peer) {
             peer.sends(id::keepAlive);
             peer.halfCloses();
         }},
    };
    for (const auto &[what, leave] : ways) {
        WirePeer dora(meeting, "Dora");
        ASSERT_TRUE(connects(dora));
        leave(dora);
        EXPECT_TRUE(meeting.until([&] { return clients() == 3; }, what));
        EXPECT_TRUE(!dora.connected() || dora.seesTheEnd()) << what;
        speaks(ann, std::string("after ") + what);
    }
}

TEST_F(Relay, ReadsOnAfterAMalformedMessage) {
    test::LogFile log(LOG_ERROR);
    const int end = endOf(ann);
    Bytes malformed = {0, 0, 0, 10};
    malformed.resize(36, 0);
    ASSERT_TRUE(ann.sends(malformed));
    ASSERT_TRUE(test::awaitBytes(end, malformed.size()));
    ASSERT_TRUE(meeting.until([&] { return rawBytesPending(end) == 0; }, "the bytes taken"));
    EXPECT_EQ(3, clients());
    speaks(ann, "well formed");
    EXPECT_EQ("", log.text());
}

TEST_F(Relay, MayEndInItsOwnCallback) {
    static std::function<void()> end;
    end = [this] { server.reset(); };
    server->setDataCB([](TCPServer *, unsigned char *, std::uint64_t) { end(); });
    ASSERT_TRUE(ann.sends(id::broadcast, letters("the last words")));
    server->run();
    EXPECT_FALSE(server.has_value());
    EXPECT_TRUE(bob.receives(id::broadcast)) << "it was passed on first";
    for (WirePeer *peer : {&ann, &bob, &cem})
        EXPECT_TRUE(peer->seesTheEnd());
    EXPECT_EQ(0, select.numDescriptors());
}

TEST_F(Relay, SharesItsConnectionsWithACopy) {
    std::optional<Server> copy(server);
    EXPECT_EQ(server->port(), copy->port());
    copy->setVersion(4, 1);
    EXPECT_EQ(4, copy->majorVersion());
    EXPECT_EQ(0, server->majorVersion());
    copy.reset();
    for (WirePeer *peer : {&ann, &bob, &cem})
        EXPECT_TRUE(peer->seesTheEnd()) << "whichever goes first closes them for both";
    server.reset();
    EXPECT_EQ(0, select.numDescriptors());
}

// ---- Ports ----

TEST(Ports, ThatAreTakenAreWalkedPastByBothFamiliesUnlessThePortIsExact) {
    const Meeting starts;
    const LogFile log(LOG_ERROR);
    for (const bool local : {localOnly, !localOnly}) {
        unsigned short port = 0;
        const int listener = listenSomewhere(port);
        unsigned short same = port;
        const int other = createLocalIPv6Socket(same, 0, 1, false);
        const TCPServer server(port, !exactPort, local);
        EXPECT_GT(server.port(), port);
        for (const char *literal : {"127.0.0.1", "::1"}) {
            const TCPAddress address = nameOnly(literal, server.port());
            const int caller = connectToBoundSocket(address);
            EXPECT_EQ(other != -1 || address.isIPv4(), caller != -1) << literal;
            closeDescriptor(caller);
        }
        if (other == -1)
            GTEST_SKIP() << "no IPv6 here";
        TCPServer none(port, exactPort, local);
        EXPECT_EQ(0, none.port());
        none.run();
        EXPECT_FALSE(none.running());
        none.interrupt();
        closeDescriptor(listener);
        closeDescriptor(other);
    }
    EXPECT_EQ(2, log.entries("TCPServer could not create socket"));
}

// ---- The programs ----

// A relay that listens and tells of each connection; it takes the port that it is given or none.
std::unique_ptr<ChildProcess> startRelay(std::string &port) {
    const ChildProcess::Environment telling = {{"VINTOK_ERROR_LOG_LEVEL", "INFO"}};
    for (int attempt = 0; attempt < 100; ++attempt) {
        port = std::to_string(test::freshPort());
        auto relay = std::make_unique<ChildProcess>(
            std::vector<std::string>{TEST_SERVER, "-port", port}, telling);
        std::string line;
        if (relay->printed("PORT: ", &line) && line == "PORT: " + port)
            return relay;
    }
    return nullptr;
}

bool hasSignals() {
    const bool has = platform::startInterrupting();
    platform::stopInterrupting();
    return has;
}

// Ends the program as a person does, where the system allows it; else by force.
void expectItEndsWhenInterrupted(ChildProcess &child, int exitCode) {
    if (!hasSignals())
        child.kill();
    else if (child.interrupt())
        EXPECT_EQ(exitCode, child.exitCode()) << child.story();
    else
        ADD_FAILURE() << child.story();
}

TEST(ServerPrograms, CarryLinesFromOneClientToTheOthers) {
    std::string port;
    const auto relay = startRelay(port);
    ASSERT_NE(nullptr, relay);
    ChildProcess first({TEST_RECV, "-port", port});
    ChildProcess second({TEST_RECV, "what", "-host", "127.0.0.1", "-port", port});
    ChildProcess sender({TEST_SEND, "-host", "127.0.0.1", "-port", port});
    for (int connection = 0; connection < 3; ++connection)
        ASSERT_TRUE(relay->complained("Connection accepted"));
    const std::string longLine(3000, 'x');
    ASSERT_TRUE(sender.type("one"));
    ASSERT_TRUE(sender.type(longLine));
    ASSERT_TRUE(sender.type("two"));
    sender.endInput();
    EXPECT_TRUE(sender.ends(0));
    for (ChildProcess *receiver : {&first, &second}) {
        std::string line;
        EXPECT_TRUE(receiver->printed("", &line));
        EXPECT_EQ("one", line);
        EXPECT_TRUE(receiver->printed("xxx", &line));
        EXPECT_EQ(longLine, line) << "it came in pieces of 1023 bytes";
        EXPECT_TRUE(receiver->printed("two", &line));
    }
    expectItEndsWhenInterrupted(first, 1);
    expectItEndsWhenInterrupted(*relay, 0);
    EXPECT_EQ(1, second.exitCode()) << "its connection has ended\n" << second.story();
}

TEST(ServerPrograms, TraceWhatTheEnvironmentAsksFor) {
    Meeting meeting;
    const std::pair<const char *, bool> cases[] = {{"True", true}, {"true", false}};
    for (const auto &[value, traces] : cases) {
        WirePeer server(meeting, "server");
        ASSERT_TRUE(server.listens());
        ChildProcess sender({TEST_SEND, "-port", std::to_string(server.port())},
                            {{"TCP_MESSAGE_DEBUG", value}});
        ASSERT_TRUE(server.picksUp());
        ASSERT_TRUE(sender.type("a line"));
        ASSERT_TRUE(server.receives(id::broadcast));
        sender.endInput();
        EXPECT_EQ(0, sender.exitCode());
        EXPECT_EQ(traces ? 1 : 0, test::occurrences(sender.errors(), ") wrote 1084"))
            << sender.story();
    }
}

} // namespace
} // namespace vintok::test
