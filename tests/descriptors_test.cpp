#include "platform/Socket.h"
#include "support/LogFile.h"
#include "support/MemoryTransport.h"
#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPMutexBase.h"

#include <gmock/gmock.h>
#include <thread>

using namespace vintok;
using namespace vintok::test;
using testing::ElementsAre;

namespace {

constexpr int unknownDescriptor = 54321;

class Descriptors : public testing::Test {
protected:
    Descriptors() {
        init();
        socket = platform::openSocket(platform::FAMILY_IPV4);
        other = platform::openSocket(platform::FAMILY_IPV4);
        setLastError(TCP_ERROR_NO_ERROR, "untouched");
    }
    ~Descriptors() override {
        closeDescriptor(socket);
        closeDescriptor(other);
        fini();
    }

    // The last error is this one, and is forgotten.
    static void expectError(TCPError code, const std::string &text) {
        EXPECT_EQ(code, lastError()) << text;
        EXPECT_EQ(text, lastErrorString());
        setLastError(TCP_ERROR_NO_ERROR, "untouched");
    }
    static void expectNoError() { EXPECT_EQ("untouched", lastErrorString()); }

    int socket = -1;
    int other = -1;
};

TEST_F(Descriptors, AreWhatTheFirstFlagSays) {
    struct Case {
        bool secure, ipv4, ipv6, local;
        std::uint32_t flags;
    };
    const Case cases[] = {
        {false, false, false, false, 0},
        {true, false, false, false, DESC_SECURE},
        {false, true, true, true, DESC_BOUND_IPV4},
        {false, false, true, true, DESC_BOUND_IPV6},
        {true, false, false, true, DESC_BOUND_UNIX}, // a listener is never secure
    };
    for (const Case &each : cases) {
        ASSERT_TRUE(addDescriptor(socket, each.secure, each.ipv4, each.ipv6, each.local));
        const DescriptorState state(socket);
        EXPECT_TRUE(state.known);
        EXPECT_FALSE(state.closed);
        EXPECT_EQ(each.flags == DESC_SECURE, state.secure);
        EXPECT_EQ(each.flags == DESC_BOUND_IPV4, state.boundIPv4);
        EXPECT_EQ(each.flags == DESC_BOUND_IPV6, state.boundIPv6);
        EXPECT_EQ(each.flags == DESC_BOUND_UNIX, state.boundUnix);
        EXPECT_TRUE(removeDescriptor(socket));
    }
    expectNoError();
}

TEST_F(Descriptors, StayWhatTheyAreWhenAddedAgain) {
    ASSERT_TRUE(addDescriptor(socket, false, false, true, false));
    EXPECT_TRUE(addDescriptor(socket, false, true, false, false));
    const DescriptorState state(socket);
    EXPECT_FALSE(state.boundIPv4);
    EXPECT_TRUE(state.boundIPv6);
    EXPECT_TRUE(removeDescriptor(socket));
    EXPECT_FALSE(removeDescriptor(socket)) << "there was one row";
}

TEST_F(Descriptors, BecomeSecureWithoutATouchOfTheirBuffers) {
    ASSERT_TRUE(addDescriptor(socket, false, false, false, false));
    platform::setReceiveBuffer(socket, 9000);
    int before = 0;
    int after = 0;
    platform::receiveBuffer(socket, before);
    EXPECT_TRUE(addDescriptor(socket, true, false, false, false));
    platform::receiveBuffer(socket, after);
    EXPECT_TRUE(DescriptorState(socket).secure);
    EXPECT_EQ(before, after);
}

TEST_F(Descriptors, ThatDoNotExistAreRefused) {
    EXPECT_FALSE(addDescriptor(-1, true, false, false, false));
    expectError(TCP_ERROR_SSL_TRANSPORT, "vintok::addDescriptor ADD_DESCRIPTOR");
    for (const int fd : {-1, unknownDescriptor}) {
        EXPECT_FALSE(addDescriptor(fd, false, false, false, false));
        expectError(TCP_ERROR_STREAM_BUFFER, "vintok::addDescriptor");
        EXPECT_FALSE(DescriptorState(fd).known);
    }
}

TEST_F(Descriptors, ZeroCanBeAskedForButNotChanged) {
    for (const int fd : {0, -7, unknownDescriptor}) {
        EXPECT_FALSE(removeDescriptor(fd));
        expectError(TCP_ERROR_BAD_FILE_DESCRIPTOR, "vintok::removeDescriptor");
        EXPECT_FALSE(setSecure(fd, true));
        expectError(TCP_ERROR_BAD_FILE_DESCRIPTOR, "vintok::setSecure");
    }
    EXPECT_FALSE(setClosed(0));
    expectError(TCP_ERROR_BAD_FILE_DESCRIPTOR, "vintok::setClosed");
    EXPECT_FALSE(setClosed(unknownDescriptor));
    expectNoError();
    DescriptorState state(0);
    expectNoError();
}

TEST_F(Descriptors, TellClosedFromUnknown) {
    bool secure = true;
    bool closed = true;
    bool boundIPv4 = true;
    bool boundIPv6 = true;
    bool boundUnix = true;
    EXPECT_FALSE(
        descriptorState(unknownDescriptor, secure, closed, boundIPv4, boundIPv6, boundUnix));
    EXPECT_TRUE(secure && closed && boundIPv4 && boundIPv6 && boundUnix) << "none is written";

    ASSERT_TRUE(addDescriptor(socket, true, false, false, false));
    EXPECT_TRUE(setClosed(socket));
    EXPECT_FALSE(descriptorState(socket, secure, closed, boundIPv4, boundIPv6, boundUnix));
    EXPECT_TRUE(secure && closed);
    EXPECT_FALSE(boundIPv4 || boundIPv6 || boundUnix);
    EXPECT_TRUE(addDescriptor(socket, false, false, false, false));
    EXPECT_TRUE(DescriptorState(socket).closed) << "nothing takes the mark back";
    EXPECT_TRUE(removeDescriptor(socket));
    EXPECT_TRUE(addDescriptor(socket, false, false, false, false));
    EXPECT_FALSE(DescriptorState(socket).closed) << "a new row";
}

TEST_F(Descriptors, StayWhenAnotherGoes) {
    const int third = platform::openSocket(platform::FAMILY_IPV4);
    for (const int fd : {third, socket, other})
        ASSERT_TRUE(addDescriptor(fd, false, false, false, false));
    EXPECT_TRUE(closeDescriptor(third));
    std::vector<int> rows;
    for (const auto &[fd, entry] : s_globals.load()->m_descriptors)
        rows.push_back(entry.fd);
    EXPECT_THAT(rows, testing::UnorderedElementsAre(socket, other));
    std::size_t waiting = 0;
    EXPECT_FALSE(platform::bytesWaiting(third, waiting)) << "the socket is closed too";
}

TEST_F(Descriptors, TellTheTransportOnceForEachChange) {
    MemoryTransport memory;
    setTransport(&memory);
    const std::string fd = std::to_string(socket);
    ASSERT_TRUE(addDescriptor(socket, false, false, false, false));
    EXPECT_TRUE(setSecure(socket, false));
    EXPECT_TRUE(setSecure(socket, true));
    EXPECT_TRUE(setSecure(socket, true));
    EXPECT_TRUE(addDescriptor(socket, true, false, false, false));
    EXPECT_TRUE(setSecure(socket, false));
    EXPECT_TRUE(addDescriptor(socket, true, false, false, false));
    setClosed(socket);
    EXPECT_TRUE(removeDescriptor(socket));
    EXPECT_THAT(memory.calls,
                ElementsAre("add " + fd, "remove " + fd, "add " + fd, "remove " + fd));
    setTransport(nullptr);
}

TEST_F(Descriptors, StayPlainWhenTheTransportRefuses) {
    MemoryTransport memory;
    memory.takesDescriptors = false;
    setTransport(&memory);
    EXPECT_FALSE(addDescriptor(socket, true, false, false, false));
    expectError(TCP_ERROR_SSL_TRANSPORT, "vintok::addDescriptor ADD_DESCRIPTOR");
    EXPECT_FALSE(DescriptorState(socket).known);
    ASSERT_TRUE(addDescriptor(socket, false, false, false, false));
    EXPECT_FALSE(addDescriptor(socket, true, false, false, false));
    expectError(TCP_ERROR_SSL_TRANSPORT, "vintok::addDescriptor ADD_DESCRIPTOR");
    EXPECT_FALSE(setSecure(socket, true));
    expectNoError(); // that one is the transport's to set
    EXPECT_FALSE(DescriptorState(socket).secure);

    memory.takesDescriptors = true;
    memory.givesDescriptorsBack = false;
    EXPECT_TRUE(setSecure(socket, true));
    EXPECT_FALSE(setSecure(socket, false));
    expectError(TCP_ERROR_SSL_TRANSPORT, "vintok::setSecure");
    EXPECT_FALSE(DescriptorState(socket).secure) << "plain all the same";
    setTransport(nullptr);
}

TEST_F(Descriptors, TheTransportIsToldWhenASecureSocketCannotBeSized) {
    MemoryTransport memory;
    setTransport(&memory);
    EXPECT_FALSE(addDescriptor(unknownDescriptor, true, false, false, false));
    expectError(TCP_ERROR_STREAM_BUFFER, "vintok::addDescriptor");
    EXPECT_THAT(memory.descriptors, testing::IsEmpty());
    EXPECT_EQ(2U, memory.calls.size());
    setTransport(nullptr);
}

TEST_F(Descriptors, OnlyConnectionsCarryFrames) {
    EXPECT_FALSE(bufferFrames(unknownDescriptor));
    ASSERT_TRUE(addDescriptor(socket, false, true, false, false));
    EXPECT_FALSE(bufferFrames(socket)) << "a listener";
    ASSERT_TRUE(addDescriptor(other, false, false, false, false));
    setClosed(other);
    EXPECT_TRUE(bufferFrames(other));
    EXPECT_TRUE(bufferOf(other)->ready()) << "its owner is to learn of the end";
    expectNoError();
}

TEST_F(Descriptors, SayThatTheLockFailed) {
    const LogFile log(LOG_ERROR);
    TCPMutexBase base;
    for (const int index : {1, 2}) // refuses this thread every lock behind them
        ASSERT_EQ(0, base._mutexLock(index, true));
    const std::string fd = std::to_string(socket);
    EXPECT_FALSE(addDescriptor(socket, false, false, false, false));
    expectError(TCP_ERROR_LOCK_FAILED, "vintok::addDescriptor");
    EXPECT_FALSE(removeDescriptor(socket));
    expectError(TCP_ERROR_LOCK_FAILED, "vintok::removeDescriptor");
    EXPECT_FALSE(setSecure(socket, true));
    expectError(TCP_ERROR_LOCK_FAILED, "vintok::setSecure");
    EXPECT_FALSE(setClosed(socket));
    expectError(TCP_ERROR_LOCK_FAILED, "vintok::setClosed (" + fd + ") lock failed.");
    DescriptorState state(socket);
    expectError(TCP_ERROR_LOCK_FAILED, "vintok::descriptorState (" + fd + ") lock failed.");
    EXPECT_FALSE(addTime(1));
    expectError(TCP_ERROR_LOCK_FAILED, "vintok::addTime");
    EXPECT_FALSE(setTransport(nullptr));
    expectError(TCP_ERROR_LOCK_FAILED, "vintok::setTransport");
    EXPECT_FALSE(init());
    expectError(TCP_ERROR_LOCK_FAILED, "vintok::init");
    EXPECT_FALSE(fini());
    expectError(TCP_ERROR_LOCK_FAILED, "vintok::fini");
    for (const int index : {1, 2})
        EXPECT_EQ(0, base._mutexUnlock(index, true));
    EXPECT_TRUE(addDescriptor(socket, false, false, false, false));
}

TEST_F(Descriptors, CanBeAddedAndRemovedByManyThreads) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([] {
            const int fd = platform::openSocket(platform::FAMILY_IPV4);
            for (int n = 0; n < 50; n++) {
                EXPECT_TRUE(addDescriptor(fd, false, false, false, false));
                EXPECT_TRUE(DescriptorState(fd).known);
                EXPECT_TRUE(removeDescriptor(fd));
            }
            platform::closeSocket(fd);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_TRUE(s_globals.load()->m_descriptors.empty());
}

} // namespace
