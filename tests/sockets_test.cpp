#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "support/Meeting.h"
#include "support/MemoryTransport.h"
#include "support/ScriptedPlatform.h"
#include "support/SocketPair.h"
#include "support/Stream.h"
#include "support/TemporaryFolder.h"
#include "vintok/StreamInternal.h"

using namespace vintok;
using namespace vintok::test;

namespace {

bool canOpen(platform::Family family) {
    const int fd = platform::openSocket(family);
    if (fd != -1)
        platform::closeSocket(fd);
    return fd != -1;
}

TCPAddress loopbackAt(unsigned short port) {
    TCPAddress address;
    address.setLoopbackIPv4();
    address.setHostByteOrderPort(port);
    return address;
}

bool canReceiveAfterShutdown() {
    SocketPair pair;
    unsigned char byte = 0;
    return pair.peerSends("x") && platform::shutdownBoth(pair.mine()) &&
           platform::receive(pair.mine(), &byte, 1) == 1;
}

// Listens at the address, or at one of so many ports behind it.
int listensAt(TCPAddress &address, std::size_t tries,
              TCPAddress::IPType type = TCPAddress::IPTYPE_NONE) {
    return createBoundSocket(address, 0, tries, false, type);
}

class Sockets : public Library {
protected:
    ~Sockets() override {
        for (const int fd : opened)
            closeDescriptor(fd);
    }

    // To be closed with the test.
    int keep(int fd) {
        if (fd != -1)
            opened.push_back(fd);
        return fd;
    }
    // What the system adds to a text is left out.
    static void expectError(TCPError code, const std::string &text) {
        test::expectError(code, StartsWith(text));
    }
    // Connects to the listener, which accepts.
    void expectReachable(int listener, const TCPAddress &address) {
        const int connected = keep(connectToBoundSocket(address));
        EXPECT_NE(-1, connected) << lastErrorString();
        EXPECT_TRUE(connected == -1 || keep(acceptBoundSocket(listener)) != -1)
            << lastErrorString();
    }

    std::vector<int> opened;
    unsigned short port = 0;
};

// ---- Listening ----

TEST_F(Sockets, WalkOnFromABusyPort) {
    unsigned short busy = 0;
    ASSERT_NE(-1, keep(listenSomewhere(busy)));
    TCPAddress address = loopbackAt(busy);
    EXPECT_EQ(-1, listensAt(address, 1));
    expectError(TCP_ERROR_SYSTEM_ERROR,
                "bind vintok::createBoundSocket\nAddress already in use.\n");
    EXPECT_EQ(busy, address.hostByteOrderPort());

    const int listener = keep(listensAt(address, 255));
    ASSERT_NE(-1, listener);
    EXPECT_NE(busy, address.hostByteOrderPort());
    EXPECT_TRUE(address.isLoopback());
    expectReachable(listener, address);
    const DescriptorState state(listener);
    EXPECT_TRUE(state.known && state.boundIPv4 && !state.boundIPv6 && !state.boundUnix);
}

// Of two that have bound one port, one listens first.
TEST_F(Sockets, WalkOnFromAPortThatSomebodyElseListensOnMeanwhile) {
    ScriptedPlatform script;
    const unsigned short wanted = freshPort();
    TCPAddress address = loopbackAt(wanted);
    script.listen = "!10048";
    ASSERT_NE(-1, keep(listensAt(address, 255)));
    EXPECT_NE(wanted, address.hostByteOrderPort());
    forgetError();

    address.setHostByteOrderPort(wanted);
    script.listen = "!10048";
    EXPECT_EQ(-1, listensAt(address, 1));
    expectError(TCP_ERROR_SYSTEM_ERROR,
                "bind vintok::createBoundSocket\nAddress already in use.\n");
    script.listen = "!10045";
    EXPECT_EQ(-1, listensAt(address, 255));
    EXPECT_NE(-1, keep(listensAt(address, 1))) << "nobody is left on it";
}

TEST_F(Sockets, ThatCannotBeBoundLeaveNothingAndNoError) {
    const int free = platform::openSocket(platform::FAMILY_IPV4);
    platform::closeSocket(free);
    TCPAddress address = loopbackAt(freshPort());
    EXPECT_EQ(-1, listensAt(address, 0)) << "no tries";
    EXPECT_EQ(-1, listensAt(address, 5, TCPAddress::IPTYPE_UNIX)) << "no path";
    const int next = platform::openSocket(platform::FAMILY_IPV4);
    EXPECT_EQ(free, next) << "a descriptor was lost";
    platform::closeSocket(next);
}

TEST_F(Sockets, OnAllInterfacesTellAnAddressThatOthersCanCall) {
    TCPAddress address = loopbackAt(freshPort());
    const int listener = keep(createIPv4Socket(address, 0, 1000, false));
    ASSERT_NE(-1, listener) << lastErrorString();
    std::uint32_t ip = 0;
    EXPECT_TRUE(address.IPv4(ip));
    EXPECT_NE(0U, ip);
    EXPECT_NE(0, address.port());
    expectReachable(listener, address);
    expectReachable(listener, loopbackAt(address.hostByteOrderPort()));
}

TEST_F(Sockets, OfIPv6LeaveIPv4Alone) {
    port = freshPort();
    const int wildcard = keep(createIPv6Socket(port, 0, 1000, false));
    if (wildcard == -1)
        GTEST_SKIP() << "no IPv6 here";
    EXPECT_TRUE(DescriptorState(wildcard).boundIPv6);
    unsigned short same = port;
    EXPECT_NE(-1, keep(createIPv4Socket(same, 0, 1, false))) << "the port is free for IPv4";

    unsigned short local = freshPort();
    const int listener = keep(createLocalIPv6Socket(local, 0, 1000, false));
    ASSERT_NE(-1, listener);
    TCPAddress address;
    address.setLoopbackIPv6();
    address.setHostByteOrderPort(local);
    const int connected = keep(connectToBoundSocket(address));
    ASSERT_NE(-1, connected);
    TCPAddress peer;
    EXPECT_NE(-1, keep(acceptBoundSocket(listener, peer)));
    EXPECT_TRUE(peer.isIPv6() && peer.isLoopback());
    EXPECT_NE(0, peer.port());
}

TEST_F(Sockets, OfTheLocalFamilyTakePathsOf107Bytes) {
    if (!canOpen(platform::FAMILY_LOCAL))
        GTEST_SKIP() << "no local sockets here";
    const TemporaryFolder folder;
    std::string path = folder.path("s");
    path.resize(107, 's');

    EXPECT_EQ(-1, createUnixSocket(path + "s", 0, false));
    EXPECT_EQ(-1, createUnixSocket("", 0, false));
    EXPECT_EQ(-1, connectUnix(path + "s"));
    expectNoError();

    const int listener = keep(createUnixSocket(path, 0, false));
    ASSERT_NE(-1, listener) << lastErrorString();
    EXPECT_TRUE(DescriptorState(listener).boundUnix);
    EXPECT_EQ(-1, createUnixSocket(path, 0, false)) << "the path is taken";
    expectError(TCP_ERROR_SYSTEM_ERROR, "bind vintok::createBoundSocket\n");
    EXPECT_NE(-1, keep(connectUnix(path)));
    TCPAddress peer = loopbackAt(7);
    EXPECT_NE(-1, keep(acceptBoundSocket(listener, peer)));
    EXPECT_TRUE(peer == loopbackAt(7)) << "a local peer has no address";
}

// ---- Connecting ----

TEST_F(Sockets, ConnectToNobodyAndSayWhom) {
    const int listener = listenSomewhere(port);
    closeDescriptor(listener);
    EXPECT_EQ(-1, connectToBoundSocket(loopbackAt(port)));
    expectError(TCP_ERROR_CONNECTION_REFUSED,
                "connect vintok::connectToBoundSocket -- ( 127.0.0.1 )\nConnection refused.\n");
    TCPAddress nameOnly;
    nameOnly.setName("somewhere");
    EXPECT_EQ(-1, connectToBoundSocket(nameOnly));
    expectNoError();
}

TEST_F(Sockets, GiveUpAConnectThatNobodyAnswersInTime) {
    TCPAddress address = loopbackAt(freshPort());
    ASSERT_NE(-1, keep(createBoundSocket(address, 1, 50, false, TCPAddress::IPTYPE_NONE)));
    ASSERT_TRUE(setConnectTimeout(200));
    int connected = 0; // until the queue of the listener, which does not accept, is full
    for (int i = 0; i < 20 && connected != -1; ++i)
        connected = keep(connectToBoundSocket(address));
    EXPECT_EQ(-1, connected);
    expectError(TCP_ERROR_SYSTEM_ERROR,
                "connect vintok::connectToBoundSocket -- ( 127.0.0.1 )\nConnection timed out.\n");
    const TemporaryFolder folder;
    const int local = keep(createUnixSocket(folder.path("full"), 1, false));
    for (int i = connected = 0; local != -1 && i < 20 && connected != -1; ++i)
        connected = keep(connectUnix(folder.path("full")));
    if (local != -1) {
        EXPECT_EQ(-1, connected);
        EXPECT_THAT(lastErrorString(), testing::HasSubstr("Connection timed out."));
        forgetError();
    }
}

TEST_F(Sockets, SayThatThereAreTooMany) {
    const std::size_t limit = platform::descriptorLimit();
    const int probe = platform::openSocket(platform::FAMILY_IPV4);
    platform::closeSocket(probe);
    if (limit == 0 || !platform::setDescriptorLimit(static_cast<std::size_t>(probe)))
        GTEST_SKIP() << "the system sets no such limit";
    EXPECT_EQ(-1, connectToBoundSocket(loopbackAt(1)));
    expectError(TCP_ERROR_MAX_DESCRIPTORS,
                "socket vintok::connectToBoundSocket\nToo many open files.\n");
    TCPAddress address = loopbackAt(freshPort());
    EXPECT_EQ(-1, listensAt(address, 5));
    expectError(TCP_ERROR_SYSTEM_ERROR, "socket vintok::createBoundSocket\nToo many open files.\n");
    EXPECT_TRUE(platform::setDescriptorLimit(limit));
}

// ---- Accepting ----

TEST_F(Sockets, AcceptTellsWhoCame) {
    int listener = keep(listenSomewhere(port));
    const int connected = keep(connectLocal(port));
    TCPAddress peer;
    const int accepted = keep(acceptBoundSocket(listener, peer));
    ASSERT_NE(-1, accepted);
    EXPECT_TRUE(peer.isLoopback());
    platform::Endpoint end;
    ASSERT_TRUE(platform::boundEndpoint(connected, platform::FAMILY_IPV4, end));
    EXPECT_EQ(end.port, peer.port());
    const DescriptorState state(accepted);
    EXPECT_TRUE(state.known && !state.bound() && !state.secure);
}

TEST_F(Sockets, AcceptTriesOnceMoreAfterAnInterruption) {
    const int listener = keep(listenSomewhere(port));
    ASSERT_NE(-1, keep(connectLocal(port)));
    const struct {
        const char *failures;
        TCPError code;
        int row;
    } cases[] = {
        {"!4 !4", TCP_ERROR_INTERRUPT, 10004},
        {"!9", TCP_ERROR_BAD_FILE_DESCRIPTOR, 10009},
        {"!24", TCP_ERROR_SYSTEM_ERROR, 10024},
    };
    ScriptedPlatform script;
    for (const auto &each : cases) {
        script.accept = each.failures;
        EXPECT_EQ(-1, acceptBoundSocket(listener));
        EXPECT_TRUE(script.accept.empty());
        expectError(each.code,
                    std::string("vintok::acceptBoundSocket\n") + sysErrorString(each.row));
    }
    script.accept = "!4";
    EXPECT_NE(-1, keep(acceptBoundSocket(listener)));
}

// ---- Ending ----

TEST_F(Sockets, ShutDownAreForgottenAndClosed) {
    SocketPair pair;
    const int fd = pair.forgetMine();
    EXPECT_TRUE(shutdownSocket(fd));
    EXPECT_FALSE(DescriptorState(fd).known);
    unsigned char byte = 0;
    EXPECT_TRUE(awaitEnd(pair.peer()));
    EXPECT_EQ(0, platform::receive(pair.peer(), &byte, 1));
}

// What is left unread when a socket closes resets the connection, and what was sent last is lost.
TEST_F(Sockets, ShutDownWithUnreadBytesStillDeliverWhatWasSent) {
    if (!canReceiveAfterShutdown())
        GTEST_SKIP() << "here nothing can be drained any more";
    SocketPair pair;
    ASSERT_TRUE(pair.peerSends(std::string(10000, 'x')));
    const ScriptedPlatform noSleep;
    setNonBlocking(pair.mine());
    const std::string much(10000000, 'x');
    const std::int64_t sent =
        rawWriteBytes(pair.mine(), bytesOf(much), much.size(), false, nullptr);
    ASSERT_LT(0, sent) << "as much as fits";
    pair.shutDownMine();
    const auto count = static_cast<std::size_t>(sent);
    EXPECT_TRUE(much.substr(0, count) == reads(pair.peer(), count)) << lastErrorString();
}

TEST_F(Sockets, ThatAreClosedOrListenAreShutDownWithTheirRow) {
    SocketPair pair;
    const int closed = pair.forgetMine();
    setClosed(closed);
    EXPECT_FALSE(shutdownSocket(closed)) << "it was not open";
    EXPECT_FALSE(DescriptorState(closed).closed) << "the row is gone";
    const int listener = listenSomewhere(port);
    EXPECT_TRUE(shutdownSocket(listener));
    expectNoError(); // a shutdown of the socket would have failed
    EXPECT_EQ(-1, connectLocal(port));
}

// Says goodbye to the peer, as real ones do.
class PoliteTransport : public MemoryTransport {
public:
    bool removeSecureDescriptor(int fd) override {
        rawWriteBytes(fd, bytesOf("bye"), 3, true, nullptr);
        return MemoryTransport::removeSecureDescriptor(fd);
    }
};

TEST_F(Sockets, ThatAreSecureLeaveTheTransportWhileTheyStillWork) {
    PoliteTransport polite;
    setTransport(&polite);
    SocketPair pair;
    ASSERT_TRUE(setSecure(pair.mine(), true));
    EXPECT_TRUE(shutdownSocket(pair.forgetMine()));
    EXPECT_EQ(2U, polite.calls.size()) << "added and removed once";
    EXPECT_THAT(polite.descriptors, testing::IsEmpty());
    EXPECT_EQ("bye", reads(pair.peer(), 3));
    setTransport(nullptr);
}

// ---- Options ----

TEST_F(Sockets, BuffersAreAskedForWithinBounds) {
    const std::pair<std::size_t, int> cases[] = {{0, 32767}, {100, 4096}, {20000, 20000}};
    for (const auto &[size, asked] : cases) {
        const int fd = platform::openSocket(platform::FAMILY_IPV4);
        const int like = platform::openSocket(platform::FAMILY_IPV4);
        EXPECT_TRUE(setSystemBuffers(fd, size));
        // Systems give more than they are asked for, but the same to everybody.
        ASSERT_TRUE(platform::setReceiveBuffer(like, asked));
        ASSERT_TRUE(platform::setSendBuffer(like, asked));
        for (const auto get : {platform::receiveBuffer, platform::sendBuffer}) {
            int granted = 0, expected = 0;
            ASSERT_TRUE(get(fd, granted) && get(like, expected));
            EXPECT_EQ(expected, granted) << size;
        }
        platform::closeSocket(fd);
        platform::closeSocket(like);
    }
}

TEST_F(Sockets, TheOwnAddressKeepsNoPortAndTakesNone) {
    TCPAddress address;
    EXPECT_FALSE(setLocalAddress(address));
    expectError(TCP_ERROR_INVALID_ADDRESS, "vintok::setLocalAddress");
    EXPECT_TRUE(setLocalAddress(loopbackAt(99)));
    TCPAddress own;
    EXPECT_TRUE(localAddress(own));
    EXPECT_EQ(0, own.port());
    EXPECT_TRUE(own.isLoopback());
}

} // namespace
