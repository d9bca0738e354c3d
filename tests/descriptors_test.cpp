#include "platform/Socket.h"
#include "support/MemoryTransport.h"
#include "support/Stream.h"
#include "support/Threads.h"
#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"

using namespace vintok;
using namespace vintok::test;
using testing::ElementsAre;

namespace {

class Descriptors : public Library {
protected:
    Descriptors() {
        socket = platform::openSocket(platform::FAMILY_IPV4);
        other = platform::openSocket(platform::FAMILY_IPV4);
        forgetError();
    }
    ~Descriptors() override {
        closeDescriptor(socket);
        closeDescriptor(other);
        setTransport(nullptr);
    }
    // As a connection that is not secure.
    static bool add(int fd) { return addDescriptor(fd, false, false, false, false); }
    static bool addSecure(int fd) { return addDescriptor(fd, true, false, false, false); }

    MemoryTransport memory;
    int socket = -1, other = -1;
};

TEST_F(Descriptors, AreWhatTheFirstFlagSays) {
    const struct {
        bool secure, ipv4, ipv6, local;
        bool DescriptorState::*kind; // the only one
    } cases[] = {
        {false, false, false, false, nullptr},
        {true, false, false, false, &DescriptorState::secure},
        {false, true, true, true, &DescriptorState::boundIPv4},
        {false, false, true, true, &DescriptorState::boundIPv6},
        {true, false, false, true, &DescriptorState::boundUnix}, // a listener is never secure
    };
    for (const auto &each : cases) {
        ASSERT_TRUE(addDescriptor(socket, each.secure, each.ipv4, each.ipv6, each.local));
        const DescriptorState state(socket);
        EXPECT_TRUE(state.known && !state.closed);
        for (const auto kind : {&DescriptorState::secure, &DescriptorState::boundIPv4,
                                &DescriptorState::boundIPv6, &DescriptorState::boundUnix})
            EXPECT_EQ(each.kind == kind, state.*kind);
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
    ASSERT_TRUE(add(socket));
    platform::setReceiveBuffer(socket, 9000);
    int before = 0, after = 0;
    platform::receiveBuffer(socket, before);
    EXPECT_TRUE(addSecure(socket));
    platform::receiveBuffer(socket, after);
    EXPECT_TRUE(DescriptorState(socket).secure);
    EXPECT_EQ(before, after);
}

TEST_F(Descriptors, ThatDoNotExistAreRefused) {
    EXPECT_FALSE(addSecure(-1));
    expectError(TCP_ERROR_SSL_TRANSPORT, "vintok::addDescriptor ADD_DESCRIPTOR");
    for (const int fd : {-1, unknownDescriptor}) {
        EXPECT_FALSE(add(fd));
        expectError(TCP_ERROR_STREAM_BUFFER, "vintok::addDescriptor");
        EXPECT_FALSE(DescriptorState(fd).known);
    }
}

TEST_F(Descriptors, TellClosedFromUnknown) {
    bool secure = true, closed = true, boundIPv4 = true, boundIPv6 = true, boundUnix = true;
    EXPECT_FALSE(
        descriptorState(unknownDescriptor, secure, closed, boundIPv4, boundIPv6, boundUnix));
    EXPECT_TRUE(secure && closed && boundIPv4 && boundIPv6 && boundUnix) << "none is written";

    ASSERT_TRUE(addSecure(socket));
    EXPECT_TRUE(setClosed(socket));
    EXPECT_FALSE(descriptorState(socket, secure, closed, boundIPv4, boundIPv6, boundUnix));
    EXPECT_TRUE(secure && closed);
    EXPECT_FALSE(boundIPv4 || boundIPv6 || boundUnix);
    EXPECT_TRUE(add(socket));
    EXPECT_TRUE(DescriptorState(socket).closed) << "nothing takes the mark back";
    EXPECT_TRUE(removeDescriptor(socket));
    EXPECT_TRUE(add(socket));
    EXPECT_FALSE(DescriptorState(socket).closed) << "a new row";
}

TEST_F(Descriptors, StayWhenAnotherGoes) {
    const int third = platform::openSocket(platform::FAMILY_IPV4);
    for (const int fd : {third, socket, other})
        ASSERT_TRUE(add(fd));
    EXPECT_TRUE(closeDescriptor(third));
    std::vector<int> rows;
    for (const auto &[fd, entry] : s_globals.load()->m_descriptors)
        rows.push_back(entry.fd);
    EXPECT_THAT(rows, testing::UnorderedElementsAre(socket, other));
    std::size_t waiting = 0;
    EXPECT_FALSE(platform::bytesWaiting(third, waiting)) << "the socket is closed too";
}

TEST_F(Descriptors, TellTheTransportOnceForEachChange) {
    setTransport(&memory);
    const std::string fd = std::to_string(socket);
    ASSERT_TRUE(add(socket));
    EXPECT_TRUE(setSecure(socket, false));
    EXPECT_TRUE(setSecure(socket, true));
    EXPECT_TRUE(setSecure(socket, true));
    EXPECT_TRUE(addSecure(socket));
    EXPECT_TRUE(setSecure(socket, false));
    EXPECT_TRUE(addSecure(socket));
    setClosed(socket);
    EXPECT_TRUE(removeDescriptor(socket));
    EXPECT_THAT(memory.calls,
                ElementsAre("add " + fd, "remove " + fd, "add " + fd, "remove " + fd));
}

TEST_F(Descriptors, StayPlainWhenTheTransportRefuses) {
    memory.takesDescriptors = false;
    setTransport(&memory);
    EXPECT_FALSE(addSecure(socket));
    expectError(TCP_ERROR_SSL_TRANSPORT, "vintok::addDescriptor ADD_DESCRIPTOR");
    EXPECT_FALSE(DescriptorState(socket).known);
    ASSERT_TRUE(add(socket));
    EXPECT_FALSE(addSecure(socket));
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
}

TEST_F(Descriptors, TheTransportIsToldWhenASecureSocketCannotBeSized) {
    setTransport(&memory);
    EXPECT_FALSE(addSecure(unknownDescriptor));
    expectError(TCP_ERROR_STREAM_BUFFER, "vintok::addDescriptor");
    EXPECT_THAT(memory.descriptors, testing::IsEmpty());
    EXPECT_EQ(2U, memory.calls.size());
}

TEST_F(Descriptors, ThatAreClosedHaveBuffersAllTheSame) {
    ASSERT_TRUE(add(other));
    setClosed(other);
    EXPECT_TRUE(bufferFrames(other));
    EXPECT_TRUE(bufferOf(other)->ready()) << "its owner is to learn of the end";
    expectNoError();
}

TEST_F(Descriptors, CanBeAddedAndRemovedByManyThreads) {
    onThreads(4, [] {
        const int fd = platform::openSocket(platform::FAMILY_IPV4);
        for (int n = 0; n < 50; n++) {
            EXPECT_TRUE(add(fd));
            EXPECT_TRUE(DescriptorState(fd).known);
            EXPECT_TRUE(removeDescriptor(fd));
        }
        platform::closeSocket(fd);
    });
    EXPECT_TRUE(s_globals.load()->m_descriptors.empty());
}

} // namespace
