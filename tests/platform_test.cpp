#include "platform/Environment.h"
#include "platform/File.h"
#include "platform/Resolve.h"
#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "platform/Thread.h"
#include "platform/Wait.h"
#include "support/Environment.h"
#include "support/Eventually.h"
#include "support/TemporaryFolder.h"

#include <atomic>
#include <cstdlib>
#include <future>
#include <gmock/gmock.h>
#include <random>
#include <set>
#include <thread>

using namespace vintok::platform;
using testing::AnyOf;
using testing::ElementsAre;
using vintok::test::eventually;
using vintok::test::TemporaryFolder;

namespace {

// What the byte layer takes for the loss of the peer.
bool isConnectionLost(int error) {
    return (error >= 10050 && error <= 10054) || error == 10057 || error == 10058 ||
           error == 10061 || error == 10064 || error == 10065;
}

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

    std::vector<int> readable(std::initializer_list<int> descriptors, bool immediate) {
        DescriptorSet set;
        for (const int each : descriptors)
            set.insert(each);
        const int count = waitReadable(set, immediate);
        EXPECT_EQ(std::max(count, 0), static_cast<int>(set.size()));
        return {set.begin(), set.end()};
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

TEST_F(PlatformSockets, ErrorOutlivesTheSuccessOfOtherCalls) {
    ASSERT_TRUE(setBlockingMode(far, false));
    EXPECT_EQ(-1, peek(far, buffer, sizeof buffer));
    ASSERT_TRUE(setBlockingMode(far, true));
    EXPECT_EQ(10035, socketError());
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

TEST_F(PlatformSockets, WriterFindsADeadPeerLostAndGetsNoSignal) {
    far.close();
    EXPECT_TRUE(eventually([&] { return send(near, buffer, sizeof buffer) == -1; }));
    EXPECT_PRED1(isConnectionLost, socketError());
    EXPECT_PRED1(isConnectionLost, errorOf(send(near, buffer, sizeof buffer) != -1));
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

TEST_F(PlatformSockets, ResetConnectionIsLost) {
    ASSERT_TRUE(resetOnClose(near));
    near.close();
    if (receive(far, buffer, sizeof buffer) == 0) {
        GTEST_SKIP() << "here a reset comes as an end";
    }
    EXPECT_EQ(10054, socketError());
}

TEST_F(PlatformSockets, NoChildInheritsAnything) {
    EXPECT_FALSE(isInherited(listener));
    EXPECT_FALSE(isInherited(near));
    EXPECT_FALSE(isInherited(far));
}

TEST_F(PlatformSockets, SecondListenerIsRefused) {
    const Descriptor second(openSocket(FAMILY_IPV4));
    for (const std::uint32_t where : {address.ipv4, 0u}) {
        address.ipv4 = where;
        ASSERT_TRUE(setExclusiveAddress(second));
        EXPECT_THAT(errorOf(bindSocket(second, address) && listenSocket(second, 5)),
                    AnyOf(10048, 10013));
    }
}

TEST_F(PlatformSockets, RestartedHostTakesItsPortBack) {
    for (int start = 0; start < 2; ++start) {
        far.close(); // the side that closes first waits out the connection on its port
        EXPECT_EQ(0, receive(near, buffer, sizeof buffer));
        near.close();
        listener.close();
        listener = listenAt(address);
        connect();
    }
}

TEST_F(PlatformSockets, WaitNamesThoseThatCanBeRead) {
    EXPECT_THAT(readable({listener, near, far}, true), ElementsAre());
    arrive(1);
    EXPECT_THAT(readable({listener, near, far}, true), ElementsAre(int(far)));
    EXPECT_THAT(readable({listener, near, far}, false), ElementsAre(int(far)));
    far.close();
    EXPECT_THAT(readable({listener, near}, false), ElementsAre(int(near)));
}

TEST_F(PlatformSockets, WaitReportsADescriptorThatIsNoneAnyMore) {
    const int closed = near;
    near.close();
    EXPECT_THAT(readable({listener, closed}, false), ElementsAre(closed));
}

TEST_F(PlatformSockets, WaitForNothingIsAnError) {
    DescriptorSet empty;
    EXPECT_THAT(errorOf(waitReadable(empty, false) != -1), AnyOf(22, 10022));
}

TEST_F(PlatformSockets, WaitTakesDescriptorsAbove1023) {
    constexpr std::size_t wanted = 2000;
    const std::size_t limit = descriptorLimit();
    if (limit != 0 && limit < wanted && !setDescriptorLimit(wanted)) {
        GTEST_SKIP() << "the system allows too few open files";
    }
    std::vector<Descriptor> filling;
    do {
        filling.emplace_back(openSocket(FAMILY_IPV4));
        ASSERT_NE(-1, filling.back()) << socketError();
    } while (filling.back() < 1100);
    const Descriptor low = std::move(far), lowPeer = std::move(near);
    connect();
    ASSERT_GT(far, 1023);
    arrive(1);
    EXPECT_THAT(readable({listener, low, far}, false), testing::Contains(int(far)));
}

TEST_F(PlatformSockets, SignalEndsTheWait) {
    if (!startInterrupting())
        GTEST_SKIP() << "no signal interrupts a wait here";
    DescriptorSet set;
    set.insert(far);
    std::promise<void> ended;
    // Ends the wait where the signal does not.
    std::thread rescue([this, end = ended.get_future()] {
        if (end.wait_for(std::chrono::seconds(10)) == std::future_status::timeout)
            near.close();
    });
    EXPECT_EQ(4, errorOf(waitReadable(set, false) != -1));
    EXPECT_EQ(0u, set.size());
    stopInterrupting();
    ended.set_value();
    rescue.join();
}

TEST_F(PlatformSockets, EndIsSeenBehindTheBytesBeforeIt) {
    arrive(5);
    EXPECT_FALSE(endArrived(far));
    ASSERT_TRUE(shutdownSending(near));
    for (int tries = 0; tries < 100 && !endArrived(far); ++tries)
        sleepMilliseconds(1);
    EXPECT_FALSE(endArrived(near));
    if (!endArrived(far)) {
        GTEST_SKIP() << "here bytes hide the end";
    }
}

// What a full socket leaves over is told, so that it can be sent later, and room for it ends a
// wait.
TEST_F(PlatformSockets, PiecesAreSentAsFarAsThereIsRoom) {
    const std::vector<unsigned char> bytes(1 << 20, 'x');
    const std::array<Piece, 2> pieces = {{{bytes.data(), bytes.size()}, {bytes.data(), 1}}};
    std::int64_t sent = 0;
    while (sendNow(near, pieces.data(), pieces.size()) > 0)
        ++sent;
    EXPECT_EQ(10035, socketError());
    EXPECT_GT(sent, 0);
    DescriptorSet readers, writers;
    writers.insert(near);
    EXPECT_EQ(0, waitReady(readers, writers, {0, nullptr}));
    std::vector<unsigned char> taken(bytes.size());
    while (receiveNow(far, taken.data(), taken.size()) > 0) {
    }
    writers.insert(near);
    EXPECT_EQ(1, waitReady(readers, writers, {5000, nullptr}));
    EXPECT_TRUE(writers.contains(near));
}

TEST_F(PlatformSockets, LocalSocketTakesPathsUpToItsLimit) {
    Endpoint endpoint;
    endpoint.family = FAMILY_LOCAL;
    Descriptor local(openSocket(FAMILY_LOCAL));
    if (local == -1) {
        GTEST_SKIP() << "no local sockets";
    }
    const TemporaryFolder folder;
    endpoint.path = folder.path("");
    ASSERT_LT(endpoint.path.size(), maxLocalPath);
    endpoint.path.resize(maxLocalPath, 's');
    EXPECT_TRUE(bindSocket(local, endpoint) && listenSocket(local, 1)) << socketError();
    Descriptor caller(openSocket(FAMILY_LOCAL));
    EXPECT_TRUE(connectSocket(caller, endpoint)) << socketError();
    Endpoint peer;
    const Descriptor callee(acceptSocket(local, FAMILY_LOCAL, peer));
    EXPECT_EQ(FAMILY_LOCAL, peer.family);
    EXPECT_EQ(7, send(caller, buffer, 7));
    EXPECT_EQ(7, receive(callee, buffer, sizeof buffer));

    Descriptor refused(openSocket(FAMILY_LOCAL));
    for (const std::string &path : {std::string(), std::string(maxLocalPath + 1, 's')}) {
        endpoint.path = path;
        EXPECT_EQ(10014, errorOf(bindSocket(refused, endpoint))) << path;
    }
}

TEST(PlatformSocketsDeathTest, SocketIsNoStandardStreamEvenWhenThoseAreClosed) {
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

TEST(PlatformDescriptorSet, BehavesAsAnOrderedSetOf1024) {
    DescriptorSet set;
    std::set<int> model;
    std::mt19937 random(7777);
    std::uniform_int_distribution<int> number(0, 3000);
    for (int step = 0; step < 20000; ++step) {
        const int descriptor = number(random);
        // Grows until it is full, then comes and goes.
        if (step < 3000 || step % 2 == 0) {
            const bool fits = model.size() < DescriptorSet::capacity;
            ASSERT_EQ(fits && model.insert(descriptor).second, set.insert(descriptor));
        } else {
            ASSERT_EQ(model.erase(descriptor) == 1, set.erase(descriptor));
        }
        ASSERT_EQ(model.count(descriptor) == 1, set.contains(descriptor));
    }
    EXPECT_EQ(std::vector<int>(model.begin(), model.end()),
              std::vector<int>(set.begin(), set.end()));
}

class PlatformResolve : public PlatformTest {
protected:
    std::vector<ResolvedAddress> result;
};

TEST_F(PlatformResolve, LocalhostIsLoopback) {
    ASSERT_TRUE(resolveHost("localhost", Lookup::ipv4, false, result));
    EXPECT_EQ(loopback().ipv4, result.front().endpoint.ipv4);
    EXPECT_FALSE(result.front().canonicalName.empty());
}

TEST_F(PlatformResolve, LiteralsNeedNoNameService) {
    ASSERT_TRUE(resolveHost("192.0.2.7", Lookup::any, true, result));
    ASSERT_EQ(1u, result.size());
    EXPECT_EQ(FAMILY_IPV4, result[0].endpoint.family);
    ASSERT_TRUE(resolveHost("2001:db8::7", Lookup::any, true, result));
    ASSERT_EQ(1u, result.size());
    EXPECT_EQ(FAMILY_IPV6, result[0].endpoint.family);
    EXPECT_FALSE(resolveHost("localhost", Lookup::any, true, result));
    EXPECT_TRUE(result.empty());
}

TEST_F(PlatformResolve, OnlyAnIPv4AddressInIPv6FormIsMapped) {
    for (const char *literal : {"::ffff:192.0.2.7", "2001:db8::7", "192.0.2.7"}) {
        ASSERT_TRUE(resolveHost(literal, Lookup::mapped, true, result)) << literal;
        EXPECT_EQ(literal[0] == ':', result.front().mappedIPv4) << literal;
    }
    ASSERT_TRUE(resolveHost("::ffff:192.0.2.7", Lookup::any, true, result));
    EXPECT_FALSE(result.front().mappedIPv4);
}

TEST_F(PlatformResolve, NameThatCannotBeIsRefused) {
    result.resize(1);
    EXPECT_FALSE(resolveHost(std::string(300, 'a'), Lookup::any, false, result));
    EXPECT_TRUE(result.empty());
}

TEST_F(PlatformResolve, OwnAddressIsOursAndNotLoopback) {
    std::string name;
    ASSERT_TRUE(hostName(name));
    EXPECT_FALSE(name.empty());
    for (const Family family : {FAMILY_IPV4, FAMILY_IPV6}) {
        Endpoint own;
        if (!interfaceAddress(family, own))
            continue;
        EXPECT_EQ(family, own.family);
        EXPECT_NE(loopback().ipv4, own.ipv4);
        Descriptor socket(openSocket(family));
        EXPECT_TRUE(bindSocket(socket, own)) << socketError();
    }
}

// A machine without a network still has itself to talk to.
TEST(PlatformResolveDeathTest, LocalhostResolvesWithoutANetwork) {
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

TEST(PlatformThread, LockIsRecursiveAndItsOwnersAlone) {
    RecursiveLock lock;
    ASSERT_TRUE(lock.valid());
    ASSERT_EQ(RecursiveLock::Wait::acquired, lock.acquire());
    ASSERT_EQ(RecursiveLock::Wait::acquired, lock.acquire());
    std::atomic<int> releases = 0;
    std::thread other([&] {
        EXPECT_FALSE(lock.release()) << "not its own";
        EXPECT_NE(0u, lastThreadError());
        EXPECT_EQ(RecursiveLock::Wait::acquired, lock.acquire());
        EXPECT_EQ(2, releases) << "taken while it was held";
        EXPECT_TRUE(lock.release());
    });
    sleepMilliseconds(20);
    releases = 1;
    EXPECT_TRUE(lock.release());
    sleepMilliseconds(20);
    releases = 2;
    EXPECT_TRUE(lock.release());
    other.join();
    EXPECT_FALSE(lock.release());
}

TEST(PlatformThread, SlotDestroysWhatAThreadLeavesInIt) {
    struct Value {
        int destroyed = 0;
    } own, others;
    ThreadSlot slot([](void *value) { ++static_cast<Value *>(value)->destroyed; });
    EXPECT_EQ(nullptr, slot.get());
    ASSERT_TRUE(slot.set(&own));
    std::thread([&] {
        EXPECT_EQ(nullptr, slot.get());
        EXPECT_TRUE(slot.set(&others));
    }).join();
    EXPECT_EQ(1, others.destroyed);
    EXPECT_EQ(&own, slot.get());
    EXPECT_EQ(0, own.destroyed);
    slot.release();
    EXPECT_EQ(1, own.destroyed);
    EXPECT_EQ(nullptr, slot.get());
    EXPECT_FALSE(slot.set(&own));
}

TEST(PlatformThread, IdsTellThreadsApart) {
    const std::uint64_t own = currentThreadId();
    EXPECT_NE(0u, own);
    EXPECT_EQ(own, currentThreadId());
    std::thread([own] { EXPECT_NE(own, currentThreadId()); }).join();
}

TEST(PlatformThread, AWaitEndsWithItsReasonOrItsTimeAndLeavesTheLastError) {
    const std::atomic<std::uint32_t> word{1};
    setSocketError(10035);
    EXPECT_TRUE(waitWhile(word, 0, 60'000)) << "it is another already";
    while (waitWhile(word, 1, 1)) { // which may end for no reason
    }
    wakeOne(word);
    EXPECT_EQ(10035, socketError());
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

TEST(PlatformFile, APrivateFileIsNewAndItsOwnersAlone) {
    namespace fs = std::filesystem;
    const TemporaryFolder folder;
    const std::string path = folder.path("f");
    std::FILE *file = createPrivateFile(path);
    ASSERT_NE(nullptr, file);
    EXPECT_FALSE(isInherited(file));
    std::fclose(file);
    EXPECT_EQ(nullptr, createPrivateFile(path));
    EXPECT_TRUE(pathSeparator() != '/' ||
                fs::status(path).permissions() == (fs::perms::owner_read | fs::perms::owner_write));
}

TEST(PlatformFile, LocalTimeIsTheRuntimesOwn) {
    std::tm result = {};
    const std::time_t now = std::time(nullptr);
    ASSERT_TRUE(localTime(now, result));
    EXPECT_EQ(now, std::mktime(&result));
}

TEST(PlatformEnvironment, ScopesNest) {
    constexpr const char *name = "VINTOK_PLATFORM_TEST";
    {
        vintok::test::ScopedEnvironment outer(name, "outer");
        {
            vintok::test::ScopedEnvironment removed(name);
            EXPECT_EQ(nullptr, std::getenv(name));
        }
        EXPECT_STREQ("outer", std::getenv(name));
    }
    EXPECT_EQ(nullptr, std::getenv(name));
    EXPECT_FALSE(setEnvironment("A=B", "c"));
    EXPECT_FALSE(setEnvironment("", "c"));
}

} // namespace
