#include "platform/Socket.h"
#include "platform/Thread.h"
#include "support/LogFile.h"
#include "support/SocketPair.h"
#include "support/StubTransport.h"
#include "support/TemporaryFolder.h"
#include "vintok/StreamInternal.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <new>
#include <optional>
#include <thread>
#include <vector>

using namespace vintok;
using namespace vintok::test;
using testing::StartsWith;

namespace {

std::atomic<int> allocations{0};
std::atomic<int> refuseFrom{INT_MAX}; // the number of an allocation
std::atomic<bool> refuseOneOnly{false};

} // namespace

void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
    const int number = ++allocations;
    const bool refused = refuseOneOnly ? number == refuseFrom : number >= refuseFrom;
    return refused ? nullptr : std::malloc(size);
}

void *operator new(std::size_t size) {
    void *memory = operator new(size, std::nothrow);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void operator delete(void *memory) noexcept {
    std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

// Does it with the `nth` allocation failing, that one only or all that follow too. False when there
// were fewer; `action` is done in full then.
bool withoutMemory(int nth, bool oneOnly, const std::function<void()> &action) {
    allocations = 0;
    refuseOneOnly = oneOnly;
    refuseFrom = nth;
    action();
    refuseFrom = INT_MAX;
    return allocations >= nth;
}

struct GreedyTransport : StubTransport {
    static bool take() { return std::string(100, 'x').size() == 100; }
    bool secureConnect(int, const char *) override { return take(); }
    bool addSecureDescriptor(int) override { return take(); }
    bool removeSecureDescriptor(int) override { return take(); }
};

bool closed(int fd) {
    if (fd != -1)
        closeDescriptor(fd);
    return fd != -1;
}

struct Operation {
    const char *name;
    std::function<bool()> run;
    bool reports = true; // operations of addresses set no error
};

// Whatever allocation fails: no exception, no lock held, no descriptor lost, and an error.
void expectOneToSurvive(const Operation &operation) {
    operation.run();
    int next = platform::openSocket(platform::FAMILY_IPV4);
    platform::closeSocket(next);
    bool refused = true;
    bool again = false;
    for (int n = 2; refused; n++) {
        SCOPED_TRACE(operation.name + (" " + std::to_string(n / 2)) + (n % 2 == 0 ? "" : " on"));
        setLastError(TCP_ERROR_NO_ERROR, "");
        bool worked = false;
        bool threw = false;
        refused = withoutMemory(n / 2, n % 2 == 0, [&] {
            try {
                worked = operation.run();
            } catch (const std::bad_alloc &) {
                threw = true;
            }
        });
        ASSERT_FALSE(threw);
        EXPECT_TRUE(worked || !operation.reports || lastError() != TCP_ERROR_NO_ERROR);
        for (const int id : {LOCK_DESCRIPTORS, LOCK_TRANSPORT, LOCK_LOCAL_ADDRESS, LOCK_START_UP}) {
            TCPMutex mutex(id);
            ASSERT_EQ(0, mutex.trylock()) << "lock " << id;
            mutex.unlock();
        }
        const int free = platform::openSocket(platform::FAMILY_IPV4);
        platform::closeSocket(free);
        // The system may have opened something for good. What is lost is lost each time.
        ASSERT_TRUE(next == free || !again) << "a descriptor was lost";
        again = next != free;
        n -= again ? 1 : 0;
        refused = refused || again;
        next = free;
    }
}

class NoMemory : public testing::Test {
protected:
    NoMemory() {
        init();
        setTransport(&transport);
    }
    ~NoMemory() override {
        pair.reset();
        fini();
    }
    // With and without the decoration of errors.
    static void expectToSurvive(const std::vector<Operation> &operations) {
        for (const LogLevel level : {LOG_NONE, LOG_TRACE}) {
            const LogFile log(level);
            std::for_each(operations.begin(), operations.end(), expectOneToSurvive);
        }
    }

    const std::string literal = "1111:2222:3333:4444:5555:6666:7777:8888";
    static constexpr int none = 54321;
    GreedyTransport transport;
    std::optional<SocketPair> pair{std::in_place};
    int fd = pair->mine();
    unsigned char byte = 'x';
};

TEST_F(NoMemory, FailsAnOperationOnDescriptorsAndNothingElse) {
    const int socket = platform::openSocket(platform::FAMILY_IPV4);
    expectToSurvive({
        {"addDescriptor",
         [=] {
             const bool added = addDescriptor(socket, true, false, false, false);
             const TCPError error = lastError();
             removeDescriptor(socket);
             setLastError(error, "");
             return added;
         }},
        {"addDescriptor of no socket",
         [] { return addDescriptor(none, false, false, false, false); }},
        {"setSecure", [&] { return setSecure(fd, true) && setSecure(fd, false); }},
        {"secureConnect", [&] { return secureConnect(fd, "somebody") && setSecure(fd, false); }},
        {"readBytes", [&] { return readBytes(none, &byte, 1, nullptr) == 1; }},
        {"writeBytes", [&] { return writeBytes(fd, &byte, 1, nullptr) == 1; }},
        {"rawReadBytes", [&] { return rawReadBytes(none, &byte, 1, true, nullptr) == 1; }},
    });
    platform::closeSocket(socket);
}

TEST_F(NoMemory, FailsAnOperationThatMakesASocketAndNothingElse) {
    const TemporaryFolder folder;
    const std::string path = folder.path("a socket");
    unsigned short taken = 0;
    const int listener = listenSomewhere(taken);
    expectToSurvive({
        {"connectLocal", [=] { return closed(connectLocal(taken)); }},
        {"connectUnix", [=] { return closed(connectUnix(path)); }},
        {"createUnixSocket",
         [=] {
             std::remove(path.c_str());
             return closed(createUnixSocket(path, 0, false));
         }},
    });
    closeDescriptor(listener);
}

TEST_F(NoMemory, FailsAnOperationOfAddressesAndNothingElse) {
    TCPAddress named;
    named.setName(literal);
    TCPAddress network;
    network.setNetwork(literal + "/100");
    std::vector<TCPAddress> all;
    TCPAddress own;
    std::string text;
    expectToSurvive({
        {"setLocalAddress", [=] { return setLocalAddress(named); }},
        {"localAddress", [&] { return own.clear(), localAddress(own); }},
        {"resolve", [&] { return TCPAddress().resolve(literal); }, false},
        {"resolveNetName", [] { return TCPAddress().resolveNetName("localhost"); }, false},
        {"lookup", [&] { return TCPAddress::lookup(literal, all, TCPAddress::IPTYPE_NONE); },
         false},
        {"setNetwork", [&] { return TCPAddress().setNetwork(literal); }, false},
        {"maskString", [&] { return text.clear(), network.maskString(text); }, false},
    });
}

// Without the memory for its record the library runs without it.
TEST_F(NoMemory, FailsAStartAndNothingElse) {
    expectOneToSurvive({"init",
                        [] {
                            while (fini()) {
                            }
                            return init();
                        },
                        false});
}

TEST(LastError, IsOfTheThreadAndNeedsNoInit) {
    ASSERT_TRUE(setLastError(TCP_ERROR_WOULD_BLOCK, "here"));
    std::thread([] {
        EXPECT_EQ(TCP_ERROR_NO_ERROR, lastError());
        EXPECT_EQ("", lastErrorString());
        EXPECT_TRUE(setLastError(TCP_ERROR_INTERRUPT, "there"));
        EXPECT_EQ("there", lastErrorString());
    }).join();
    EXPECT_EQ(TCP_ERROR_WOULD_BLOCK, lastError());
    EXPECT_EQ("here", lastErrorString());
}

class ErrorDebug : public testing::Test {
protected:
    void SetUp() override {
        init();
        setErrorDebug(true);
    }
    void TearDown() override {
        setErrorDebug(false);
        fini();
    }
};

TEST_F(ErrorDebug, PrintsEveryErrorAtErrorAndItsClearingAtDebug) {
    const LogFile log(LOG_DEBUG);
    setLastError(TCP_ERROR_STREAM_BUFFER, "100% %s of it");
    setLastError(TCP_ERROR_NO_ERROR, "x");
    EXPECT_TRUE(log.has("lastError (TCP_ERROR_STREAM_BUFFER)\n100% %s of it\n"));
    EXPECT_TRUE(log.has("lastError (TCP_ERROR_NO_ERROR)\nx\n"));
    EXPECT_THAT(log.text(), StartsWith("Error:"));
    EXPECT_THAT(log.text(), testing::HasSubstr("\nDebug:"));
}

TEST_F(ErrorDebug, DoesNotKnowCodesBeyondTheLast) {
    const LogFile log(LOG_ERROR);
    setLastError(static_cast<TCPError>(18), "left out");
    setLastError(TCP_ERROR_SYSTEM_ERROR, "the last");
    EXPECT_TRUE(log.has("lastError (?"
                        "?)\n\n"));
    EXPECT_TRUE(log.has("lastError (TCP_ERROR_SYSTEM_ERROR)\nthe last\n"));
    EXPECT_EQ("the last", lastErrorString());
}

TEST(SystemErrors, AreFoundByTheirNumber) {
    const std::pair<int, const char *> cases[] = {
        {6, "Specified event object handle is invalid.\n\t"},
        {10035, "Resource temporarily unavailable.\n\t"},
        {11031, "Reserved policy QoS element type.\n\t"},
    };
    for (const auto &[code, headline] : cases)
        EXPECT_THAT(sysErrorString(code), StartsWith(headline));
    for (const int code : {0, 4, 10000, 11032, -1})
        EXPECT_STREQ("Unknown Error", sysErrorString(code)) << code;
}

TEST(SystemErrors, ShowTheLikeNamedRowForPlainNumbersInAContext) {
    const std::pair<int, int> cases[] = {{4, 10004},  {9, 10009},     {12, 8}, {22, 10022},
                                         {24, 10024}, {10054, 10054}, {0, 0},  {124, 124}};
    for (const auto &[plain, row] : cases) {
        const std::string text = "what\n" + std::string(sysErrorString(row));
        EXPECT_EQ(text, withSystemText("what", plain).text());
        platform::setSocketError(plain);
        EXPECT_EQ(text, withSystemText("what").text());
    }
}

} // namespace
