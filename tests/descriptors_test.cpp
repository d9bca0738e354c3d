#include "platform/Socket.h"
#include "support/MemoryTransport.h"
#include "support/Stream.h"
#include "support/Threads.h"
#include "vintok/StreamInternal.h"

using namespace vintok;
using namespace vintok::test;

namespace {

class Descriptors : public Library {
protected:
    Descriptors() {
        socket = platform::openSocket(platform::FAMILY_IPV4);
        forgetError();
    }
    ~Descriptors() override {
        closeDescriptor(socket);
        setTransport(nullptr);
    }
    // As a connection that is not secure.
    static bool add(int fd) { return addDescriptor(fd, false, false, false, false); }
    static bool addSecure(int fd) { return addDescriptor(fd, true, false, false, false); }

    MemoryTransport memory;
    int socket = -1;
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
