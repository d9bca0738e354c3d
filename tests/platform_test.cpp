#include "platform/File.h"
#include "platform/Resolve.h"
#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "platform/Thread.h"
#include "platform/Wait.h"
#include "support/ChildProcess.h"
#include "support/Eventually.h"
#include "support/TemporaryFolder.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

using namespace vintok::platform;
using testing::AnyOf;
using namespace vintok::test;

namespace {

// The error of an operation; 0 where it succeeded, which it must not.
int errorOf(bool succeeded) {
    return succeeded ? 0 : socketError();
}

Endpoint loopback() {
    Endpoint endpoint;
    const unsigned char bytes[] = {127, 0, 0, 1};
    std::copy(bytes, bytes + 4, reinterpret_cast<unsigned char *>(&endpoint.ipv4));
    return endpoint;
}

// Closes itself.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : m_number(number) {}
    Descriptor(Descriptor &&other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(m_number, other.m_number);
        return *this;
    }
    ~Descriptor() { close(); }
    void close() {
        if (m_number != -1)
            closeSocket(std::exchange(m_number, -1));
    }
    operator int() const { return m_number; }

private:
    int m_number;
};

class PlatformTest : public testing::Test {
protected:
    void SetUp() override {
        std::uint16_t granted = 0;
        ASSERT_TRUE(startSockets(0x0202, granted));
        EXPECT_EQ(0x0202, granted);
    }
    void TearDown() override { stopSockets(); }
};

// Listens at the address, whose port is filled in.
Descriptor listenAt(Endpoint &address) {
    Descriptor listener(openSocket(FAMILY_IPV4));
    EXPECT_TRUE(setExclusiveAddress(listener));
    EXPECT_TRUE(bindSocket(listener, address)) << socketError();
    EXPECT_TRUE(listenSocket(listener, 0x7FFFFFFF));
    EXPECT_TRUE(boundEndpoint(listener, FAMILY_IPV4, address));
    return listener;
}

// A listener, and connections to it.
class PlatformSockets : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        listener = listenAt(address);
        ASSERT_NE(0, address.port);
        connect();
    }

    void TearDown() override {
        for (Descriptor *each : {&near, &far, &listener})
            each->close();
        PlatformTest::TearDown();
    }

    void connect() {
        near = Descriptor(openSocket(FAMILY_IPV4));
        ASSERT_TRUE(connectSocket(near, address)) << socketError();
        Endpoint peer;
        far = Descriptor(acceptSocket(listener, FAMILY_IPV4, peer));
        ASSERT_NE(-1, far) << socketError();
        Endpoint own;
        ASSERT_TRUE(boundEndpoint(near, FAMILY_IPV4, own));
        EXPECT_EQ(own.port, peer.port);
        EXPECT_EQ(address.ipv4, peer.ipv4);
    }

    // Sends from near to far, and waits until all of it is there.
    void arrive(std::size_t count) {
        const std::vector<unsigned char> bytes(count, 'x');
        std::size_t before = 0, waiting = 0;
        ASSERT_TRUE(bytesWaiting(far, before));
        ASSERT_EQ(static_cast<std::int64_t>(count), send(near, bytes.data(), count));
        ASSERT_TRUE(
            eventually([&] { return bytesWaiting(far, waiting) && waiting == before + count; }));
    }

    unsigned char buffer[100] = {};
    Endpoint address = loopback();
    Descriptor listener, near, far;
};

TEST_F(PlatformSockets, ErrorsAreRowsOfTheSystemErrorTable) {
    unsigned char byte = 0;
    Descriptor unconnected(openSocket(FAMILY_IPV4));
    EXPECT_EQ(10057, errorOf(receive(unconnected, &byte, 1) != -1));
    EXPECT_EQ(10057, errorOf(shutdownBoth(unconnected)));

    EXPECT_EQ(10048, errorOf(bindSocket(unconnected, address)));

    Endpoint elsewhere = loopback();
    elsewhere.ipv4 = 0x010200C0; // 192.0.2.1, which is nobody's
    EXPECT_EQ(10049, errorOf(bindSocket(unconnected, elsewhere)));

    listener.close();
    EXPECT_EQ(10061, errorOf(connectSocket(unconnected, address)));

    const int closed = near;
    near.close();
    std::size_t waiting = 0;
    EXPECT_THAT(errorOf(bytesWaiting(closed, waiting)), AnyOf(9, 10038));
}

TEST_F(PlatformSockets, EndOfStreamIsNotSomebodysOldError) {
    for (const bool peeking : {true, false}) {
        setSocketError(10035);
        near.close();
        EXPECT_EQ(0,
                  peeking ? peek(far, buffer, sizeof buffer) : receive(far, buffer, sizeof buffer));
        EXPECT_EQ(0, socketError());
    }
}

TEST_F(PlatformSockets, AWriterToADeadPeerGetsAnErrorAndNoSignal) {
    far.close();
    EXPECT_TRUE(eventually([&] { return send(near, buffer, sizeof buffer) == -1; }));
    EXPECT_EQ(-1, send(near, buffer, sizeof buffer));
}

// In the blocking mode that a socket begins with.
TEST_F(PlatformSockets, ATransferNowNeverWaits) {
    EXPECT_EQ(10035, errorOf(receiveNow(far, buffer, sizeof buffer) != -1));
    EXPECT_FALSE(awaitSocket(far, Await::readable, 0));
    arrive(3);
    EXPECT_TRUE(awaitSocket(far, Await::readable, -1));
    EXPECT_EQ(3, receiveNow(far, buffer, sizeof buffer));
    const std::vector<unsigned char> much(1 << 20, 'x');
    std::int64_t sent = 0;
    for (int i = 0; i < 1000 && sent >= 0; ++i) { // more than any buffers hold
        sent = sendNow(near, much.data(), much.size());
    }
    EXPECT_EQ(10035, errorOf(sent != -1));
    EXPECT_FALSE(awaitSocket(near, Await::writable, 0));
    far.close();
    EXPECT_TRUE(awaitSocket(near, Await::writable, -1));
}

TEST_F(PlatformSockets, NoChildInheritsAnything) {
    EXPECT_FALSE(isInherited(listener));
    EXPECT_FALSE(isInherited(near));
    EXPECT_FALSE(isInherited(far));
}

TEST(PlatformDeathTest, SocketIsNoStandardStreamEvenWhenThoseAreClosed) {
    EXPECT_EXIT(
        {
            std::uint16_t granted = 0;
            startSockets(0x0202, granted);
            std::fclose(stdin);
            std::fclose(stdout);
            std::fclose(stderr);
            std::_Exit(openSocket(FAMILY_IPV4) > 2 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(PlatformDescriptorSet, HoldsEachOnceAndInOrder) {
    DescriptorSet set;
    for (const int descriptor : {7, 3, 7, 5})
        set.insert(descriptor);
    EXPECT_TRUE(set.erase(5));
    EXPECT_FALSE(set.erase(5));
    EXPECT_EQ(std::vector<int>({3, 7}), std::vector<int>(set.begin(), set.end()));
}

TEST(PlatformThread, SlotDestroysWhatAThreadLeavesInIt) {
    ThreadSlot slot([](void *value) { ++*static_cast<int *>(value); });
    int destroyed = 0;
    std::thread([&] { EXPECT_TRUE(slot.set(&destroyed)); }).join();
    EXPECT_EQ(1, destroyed);
    slot.release();
}

TEST_F(PlatformTest, OnlyAnIPv4AddressInIPv6FormIsMapped) {
    std::vector<ResolvedAddress> result;
    for (const char *literal : {"::ffff:192.0.2.7", "2001:db8::7", "192.0.2.7"}) {
        ASSERT_TRUE(resolveHost(literal, Lookup::mapped, true, result)) << literal;
        EXPECT_EQ(literal[0] == ':', result.front().mappedIPv4) << literal;
    }
    ASSERT_TRUE(resolveHost("::ffff:192.0.2.7", Lookup::any, true, result));
    EXPECT_FALSE(result.front().mappedIPv4);
}

// A machine without a network still has itself to talk to.
TEST(PlatformDeathTest, LocalhostResolvesWithoutANetwork) {
    constexpr int impossible = 77;
    const auto askWithoutNetwork = [] {
        if (!leaveNetwork())
            std::_Exit(impossible);
        std::vector<ResolvedAddress> found;
        Endpoint own;
        for (const Lookup lookup : {Lookup::any, Lookup::ipv4})
            if (!resolveHost("localhost", lookup, false, found))
                std::_Exit(1);
        std::_Exit(interfaceAddress(FAMILY_IPV4, own) ? 2 : 0);
    };
    EXPECT_EXIT(
        askWithoutNetwork(),
        [](int status) {
            return testing::ExitedWithCode(0)(status) ||
                   testing::ExitedWithCode(impossible)(status);
        },
        "");
}

TEST(PlatformFile, OpenedFileIsNotInherited) {
    const TemporaryFolder folder;
    const std::string path = folder.path("f");
    for (const char *mode : {"wb", "a", "rb"}) {
        std::FILE *file = openFile(path, mode);
        ASSERT_NE(nullptr, file) << mode;
        EXPECT_FALSE(isInherited(file)) << mode;
        EXPECT_EQ(mode[0] == 'r' ? 0u : 1u, std::fwrite("x", 1, 1, file)) << mode;
        std::fclose(file);
    }
    EXPECT_EQ("xx", folder.content("f"));
    EXPECT_EQ(nullptr, openFile(folder.path("none"), "rb"));
}

// ---- Child processes ----

TEST(Process, AChildWithAConsoleOfItsOwnRuns) {
    const TemporaryFolder folder;
    ProcessStart start;
    start.arguments = {VINTOK_TEST_CHILD, "write", folder.path("told"), "a", "b c"};
    start.commandLine =
        "\"" VINTOK_TEST_CHILD "\" write \"" + folder.path("told") + "\" \"a\" \"b c\"";
    start.ownConsole = {132, 9, 2, false};
    start.raisedPriority = true;
    Process child;
    std::string failure;
    ASSERT_TRUE(startProcess(start, child, failure)) << failure;
    EXPECT_TRUE(waitProcess(child, ChildProcess::patienceMs));
    EXPECT_EQ(0, child.exitCode);
    closeProcess(child);
    EXPECT_EQ("[a][b c]", folder.content("told"));
}

// A child that gets the writing end of another's input keeps that other one waiting for ever.
TEST(Process, AChildDoesNotInheritThePipesOfAnother) {
    ChildProcess first({VINTOK_TEST_CHILD, "echo"});
    ASSERT_TRUE(first.printed("ready"));
    ChildProcess second({VINTOK_TEST_CHILD, "echo"});
    ASSERT_TRUE(second.printed("ready"));
    first.endInput();
    EXPECT_TRUE(first.printed("end of input"));
    EXPECT_EQ(7, first.exitCode());
}

TEST(Process, AChildInheritsNoFileThatWeHaveOpen) {
    std::vector<std::unique_ptr<std::FILE, int (*)(std::FILE *)>> files;
    std::vector<std::string> command = {VINTOK_TEST_CHILD, "files"};
    for (int i = 0; i < 5; ++i) {
        files.emplace_back(std::tmpfile(), std::fclose);
        ASSERT_NE(nullptr, files.back());
        const std::intptr_t number = fileNumber(files.back().get());
        EXPECT_TRUE(isOpenFile(number));
        command.push_back(std::to_string(number));
    }
    ChildProcess child(command);
    EXPECT_TRUE(child.printed("has 0 of 5"));
}

} // namespace
