#include "support/MemoryTransport.h"
#include "support/SocketPair.h"
#include "support/Stream.h"
#include "vintok/StreamInternal.h"

#include <memory>
#include <numeric>

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

TEST_F(Secure, BytesTravelHiddenBothWays) {
    shakeHands();
    EXPECT_EQ(5, writes(mine, "hello"));
    ASSERT_TRUE(awaitBytes(peer, MemoryTransport::record("hello").size()));
    EXPECT_EQ("hello", reads(peer, 5));
    EXPECT_EQ(3, writes(peer, "you"));
    EXPECT_EQ("you", reads(mine, 3));

    EXPECT_EQ(4, writes(mine, "wire"));
    ASSERT_TRUE(setSecure(peer, false));
    const std::string raw = MemoryTransport::record("wire");
    EXPECT_EQ(raw, reads(peer, raw.size()));
}

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
    EXPECT_FALSE(secureAccept(mine));
    expectError(TCP_ERROR_SSL_TRANSPORT, "vintok::secureAccept");
    EXPECT_TRUE(DescriptorState(mine).known);
    EXPECT_FALSE(DescriptorState(mine).secure);
    EXPECT_FALSE(secureConnect(-1, ""));
    expectError(TCP_ERROR_SSL_TRANSPORT, "vintok::addDescriptor ADD_DESCRIPTOR");
}

TEST_F(Secure, NoHandshakeForWhatTheTransportWillNotTake) {
    memory.takesDescriptors = false;
    EXPECT_FALSE(secureConnect(mine, ""));
    expectError(TCP_ERROR_SSL_TRANSPORT, "vintok::addDescriptor ADD_DESCRIPTOR");
    EXPECT_EQ(1U, memory.calls.size()) << "never asked to connect";
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
    EXPECT_EQ(99, secureBytesPending(mine));
    EXPECT_EQ(before + 2, memory.pendingCalls) << "the socket needs no second question";
}

TEST_F(Secure, RawBytesAreTakenInBeforeTheyArePending) {
    shakeHandsUnheard();
    EXPECT_EQ(0, bytesPending(mine));
    EXPECT_EQ(1U, memory.pendingCalls) << "there is nothing to take in";
    const std::string record = MemoryTransport::record("abc");
    ASSERT_TRUE(pair->peerSends(record.substr(0, 4)));
    EXPECT_EQ(0, bytesPending(mine)) << "half a record is no byte";
    EXPECT_EQ(3U, memory.pendingCalls);
    ASSERT_TRUE(pair->peerSends(record.substr(4)));
    EXPECT_EQ(3, bytesPending(mine));
}

TEST_F(Secure, AGreetingIsNoByteToRead) {
    shakeHands();
    ASSERT_TRUE(awaitBytes(mine, 1));
    EXPECT_EQ(0, bytesPending(mine));
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

TEST_F(Secure, ClearingGoesThroughTheTransport) {
    shakeHandsUnheard();
    writes(peer, std::string(50, 'x') + "y");
    ASSERT_TRUE(awaitBytes(mine, 53));
    EXPECT_EQ(50, clearSocket(mine, 50));
    EXPECT_EQ("y", reads(mine, 1));
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

TEST_F(Secure, ManyRecordsArriveWhole) {
    memory.recordSize = 7;
    shakeHands();
    std::string sent(3000, '\0');
    std::iota(sent.begin(), sent.end(), '\0');
    EXPECT_EQ(3000, writes(mine, sent));
    std::string got;
    for (std::string part; got.size() < sent.size() && !(part = reads(peer, 400)).empty();)
        got += part;
    EXPECT_EQ(sent, got) << lastErrorString();
}

TEST_F(Secure, TheEndOfThePeerIsFound) {
    shakeHands();
    pair->shutDownPeer();
    EXPECT_EQ("", reads(mine, 1));
    EXPECT_EQ(TCP_ERROR_CONNECTION_RESET, lastError());
    EXPECT_TRUE(DescriptorState(mine).closed);
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

TEST(CertInfo, IsEmptyUntilAnyFieldIsSetAndAgainWhenCleared) {
    EXPECT_TRUE(TCPCertInfo().empty());
    for (std::string TCPCertInfo::*field : {&TCPCertInfo::m_text1, &TCPCertInfo::m_text2,
                                            &TCPCertInfo::m_text3, &TCPCertInfo::m_text4}) {
        TCPCertInfo info;
        info.*field = "x";
        EXPECT_FALSE(info.empty());
        info.clear();
        EXPECT_TRUE(info.empty());
    }
    TCPCertInfo info;
    info.m_status = 1;
    const TCPCertInfo copy(info);
    EXPECT_FALSE(copy.empty());
}

} // namespace
