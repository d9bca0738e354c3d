#include "support/MemoryTransport.h"
#include "support/SocketPair.h"
#include "support/Stream.h"
#include "vintok/StreamInternal.h"

#include <memory>

using namespace vintok;
using namespace vintok::test;
using testing::ElementsAre;

namespace {

// Two connected ends in one process, so one transport serves both.
class Secure : public Library {
protected:
    Secure() {
        setTransport(&memory);
        pair = std::make_unique<SocketPair>();
        mine = pair->mine();
        peer = pair->peer();
        number = std::to_string(mine);
        forgetError();
    }
    ~Secure() override {
        pair.reset();
        setTransport(nullptr);
    }

    void shakeHands() {
        ASSERT_TRUE(secureConnect(mine, "peer.example"));
        ASSERT_TRUE(secureAccept(peer));
    }
    // Without a word on the wire.
    void shakeHandsUnheard() {
        memory.handshake = MemoryTransport::Handshake::isAbsent;
        shakeHands();
    }

    MemoryTransport memory;
    std::unique_ptr<SocketPair> pair;
    int mine = -1, peer = -1;
    std::string number; // mine
};

// ---- Handshakes ----

TEST_F(Secure, HandshakeTellsTheNameOnlyWhenThereIsOne) {
    EXPECT_TRUE(secureConnect(mine, "peer.example"));
    EXPECT_TRUE(secureConnect(mine, ""));
    EXPECT_THAT(memory.calls, ElementsAre("add " + number, "connect " + number + " peer.example",
                                          "connect " + number + " (nobody)"));
}

TEST_F(Secure, AFailedHandshakeLeavesAPlainDescriptor) {
    memory.handshake = MemoryTransport::Handshake::isRefused;
    EXPECT_FALSE(secureAccept(mine));
    expectError(TCP_ERROR_SSL_TRANSPORT, "handshake refused"); // the transport's own words
    EXPECT_FALSE(DescriptorState(mine).secure);
    EXPECT_THAT(memory.descriptors, testing::IsEmpty());
    ASSERT_TRUE(pair->peerSends("plain"));
    EXPECT_EQ("plain", reads(mine, 5));

    memory.handshake = MemoryTransport::Handshake::breaks;
    EXPECT_FALSE(secureConnect(mine, ""));
    expectError(TCP_ERROR_SSL_TRANSPORT, "handshake broken");
    EXPECT_TRUE(DescriptorState(mine).known);
    EXPECT_FALSE(DescriptorState(mine).secure);
}

TEST_F(Secure, NothingIsSecuredWithoutATransport) {
    setTransport(nullptr);
    EXPECT_FALSE(secureConnect(mine, "peer.example"));
    expectError(TCP_ERROR_SSL_TRANSPORT, "vintok::secureConnect");
    EXPECT_TRUE(DescriptorState(mine).known);
    EXPECT_FALSE(DescriptorState(mine).secure);
}

// ---- Bytes ----

// What the transport has opened is pending although a wait on the socket would not see it.
TEST_F(Secure, OpenedBytesArePendingWhenTheSocketIsEmpty) {
    shakeHandsUnheard();
    memory.recordSize = 40;
    writes(peer, std::string(100, 'x'));
    ASSERT_TRUE(awaitBytes(mine, 106));
    EXPECT_EQ("x", reads(mine, 1)) << "takes in all three records";
    EXPECT_EQ(0, rawBytesPending(mine));
    const unsigned before = memory.pendingCalls;
    EXPECT_EQ(99, bytesPending(mine));
    EXPECT_EQ(before + 1, memory.pendingCalls) << "the socket needs no second question";
}

TEST_F(Secure, APeekGetsAllOrNothing) {
    shakeHands();
    writes(peer, "abc");
    ASSERT_TRUE(awaitBytes(mine, MemoryTransport::record("abc").size()));
    EXPECT_EQ("abc", peeks(mine, 3));
    EXPECT_EQ("ab", peeks(mine, 2));
    EXPECT_EQ("", peeks(mine, 4));
    expectError(TCP_ERROR_WOULD_BLOCK, "sf_securePeek");
    EXPECT_EQ("abc", reads(mine, 3)) << "still there";
}

TEST_F(Secure, ATransportThatFailsToCountSaysSo) {
    shakeHands();
    memory.answersPending = false;
    const std::string text = "sf_secureBytesPending transport returned false";
    EXPECT_EQ(-1, bytesPending(mine));
    expectError(TCP_ERROR_SSL_TRANSPORT, text);
    EXPECT_EQ("", peeks(mine, 1));
    expectError(TCP_ERROR_SSL_TRANSPORT, text);
}

TEST_F(Secure, WithoutItsTransportASecureDescriptorMovesNothing) {
    ASSERT_TRUE(setSecure(mine, true));
    setTransport(nullptr);
    unsigned char byte = 'x';
    EXPECT_EQ(0, readBytes(mine, &byte, 1, nullptr)) << "0, and not -1";
    expectError(TCP_ERROR_SSL_TRANSPORT, "sf_secureRecv (s_globals && s_globals->m_transport)");
    EXPECT_EQ(0, writeBytes(mine, &byte, 1, nullptr));
    expectError(TCP_ERROR_SSL_TRANSPORT, "sf_secureSend (s_globals && s_globals->m_transport)");
    const std::string pending = "sf_secureBytesPending (s_globals && s_globals->m_transport)";
    EXPECT_EQ(-1, peekBytes(mine, &byte, 1));
    expectError(TCP_ERROR_SSL_TRANSPORT, pending);
    EXPECT_EQ(-1, secureBytesPending(mine));
    expectError(TCP_ERROR_SSL_TRANSPORT, pending);
}

// ---- Questions ----

TEST_F(Secure, QuestionsAreAnsweredForSecureDescriptorsOnly) {
    std::size_t value = 1;
    std::string text = "kept";
    TCPCertInfo info;
    info.m_text2 = "kept";

    EXPECT_TRUE(secureStatus(mine, value, text)) << "true, but with an error";
    expectError(TCP_ERROR_BAD_FILE_DESCRIPTOR,
                "vintok::secureStatus (" + number +
                    ") Attempt to get secure status from non secure descriptor");
    EXPECT_TRUE(certificateInfo(mine, info));
    EXPECT_EQ(SECURE_ERROR_NOT_SECURE, lastSecureError(mine));
    expectNoError();
    EXPECT_EQ("kept", text);
    EXPECT_EQ(0U, info.m_status);

    ASSERT_TRUE(setSecure(mine, true));
    EXPECT_TRUE(secureStatus(mine, value, text));
    EXPECT_EQ(128U, value);
    EXPECT_TRUE(certificateInfo(mine, info));
    EXPECT_EQ(static_cast<std::uint32_t>(mine), info.m_status);
    memory.error = static_cast<SecureError>(77);
    EXPECT_EQ(77U, lastSecureError(mine));
    expectNoError();

    setTransport(nullptr);
    EXPECT_TRUE(secureStatus(mine, value, text));
    expectError(TCP_ERROR_SSL_TRANSPORT, "vintok::secureStatus (" + number + ") no transport");
    EXPECT_TRUE(certificateInfo(mine, info));
    EXPECT_EQ(SECURE_ERROR_NO_TRANSPORT, lastSecureError(mine));
    expectError(TCP_ERROR_SSL_TRANSPORT, "vintok::lastSecureError");
}

} // namespace
