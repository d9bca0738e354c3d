#include "support/LogFile.h"
#include "support/MemoryTransport.h"
#include "support/ScriptedPlatform.h"
#include "support/SocketPair.h"
#include "support/Stream.h"
#include "support/Watcher.h"
#include "vintok/StreamInternal.h"

#include <memory>

using namespace vintok;
using namespace vintok::test;
using testing::Each;
using testing::SizeIs;

namespace {

constexpr int lostErrors[] = {10050, 10051, 10052, 10053, 10054, 10057, 10058, 10061, 10064, 10065};

// An error of the system as the library tells it.
std::string systemText(const std::string &what, int row) {
    return what + "\n" + sysErrorString(row);
}

// A connection of which `fd` is one end.
class Bytes : public Library {
protected:
    Bytes() { renew(); }

    // A fresh connection and no error.
    void renew() {
        pair = std::make_unique<SocketPair>();
        fd = pair->mine();
        forgetError();
    }
    bool closed() const { return DescriptorState(fd).closed; }

    std::unique_ptr<SocketPair> pair;
    int fd = -1;
    unsigned char buffer[10] = {};
};

// ---- The loops, call by call ----

// A transfer of 10 bytes.
struct LoopCase {
    const char *what;
    const char *answers; // of the socket
    std::int64_t result;
    TCPError code = TCP_ERROR_NO_ERROR; // the error is not touched
    int row = 0;                        // what the system text shows
    const char *sleeps = "";
    bool closed = false;
};

class Loops : public Bytes {
protected:
    void expect(const LoopCase &each, std::int64_t result, const std::string &name) {
        SCOPED_TRACE(each.what);
        EXPECT_EQ(each.result, result);
        EXPECT_EQ(each.sleeps, takeSleeps());
        EXPECT_EQ(each.closed, closed());
        if (each.code == TCP_ERROR_NO_ERROR)
            expectNoError();
        else
            expectError(each.code, systemText(name, each.row));
        renew();
    }
    // "100 200": since it was asked last.
    std::string takeSleeps() {
        std::string text;
        for (const std::uint32_t sleep : std::exchange(script.sleeps, {}))
            text += (text.empty() ? "" : " ") + std::to_string(sleep);
        return text;
    }
    std::int64_t receive(const Answers &answers, bool wait = true,
                         TCPStatusCallback *status = nullptr) {
        script.waiting = "1";
        script.receive = answers;
        const std::int64_t result = rawReadBytes(fd, buffer, sizeof buffer, wait, status);
        EXPECT_THAT(script.receive, IsEmpty()) << "not all answers were used";
        return result;
    }
    std::int64_t send(const Answers &answers, bool wait = true,
                      TCPStatusCallback *status = nullptr) {
        script.send = answers;
        const std::int64_t result = rawWriteBytes(fd, buffer, sizeof buffer, wait, status);
        EXPECT_THAT(script.send, IsEmpty()) << "not all answers were used";
        return result;
    }

    ScriptedPlatform script;
    Watcher watcher;
};

TEST_F(Loops, ReceiveByItsRules) {
    const LoopCase cases[] = {
        {"in three", "4 5 1", 10},
        {"blocked longer and longer, and the error stays", "!10035 3 !10035 !4 7", 10,
         TCP_ERROR_WOULD_BLOCK, 10004, "100 200 300"},
        {"no memory: at once again", "!12 !22 10", 10, TCP_ERROR_OUT_OF_MEMORY, 10022},
        {"any error ends it, after a second", "4 !10060", 4, TCP_ERROR_SYSTEM_ERROR, 10060, "1000"},
        {"with nothing to show", "!10060", -1, TCP_ERROR_SYSTEM_ERROR, 10060, "1000"},
        {"the end of the stream has no name", "4 0", 4, TCP_ERROR_SYSTEM_ERROR, 0, "1000"},
        {"not a socket", "!10038", -1, TCP_ERROR_BAD_FILE_DESCRIPTOR, 10038, "", true},
    };
    for (const LoopCase &each : cases)
        expect(each, receive(each.answers), "sf_socketRecv");
}

TEST_F(Loops, SendByTheirOwnRules) {
    const LoopCase cases[] = {
        {"in three", "4 5 1", 10},
        {"blocked longer and longer, and the error stays", "!10035 3 !4 !10035 7", 10,
         TCP_ERROR_WOULD_BLOCK, 10035, "100 200 300"},
        {"any error is tried again, later and later", "!10055 !9 !12 10", 10,
         TCP_ERROR_UNSPECIFIED_ERROR, 8, "10 20 30"},
        {"nothing taken is a failure without an error", "0 0 10", 10, TCP_ERROR_NO_ERROR, 0,
         "10 20"},
        {"bytes in between forgive", "!10060 4 !10060 6", 10, TCP_ERROR_UNSPECIFIED_ERROR, 10060,
         "10 10"},
        {"not a socket is a lost peer", "4 !10038", 4, TCP_ERROR_CONNECTION_RESET, 10038, "", true},
        {"lost after a failure still pauses", "!10060 !10054", -1, TCP_ERROR_CONNECTION_RESET,
         10054, "10 10", true},
    };
    for (const LoopCase &each : cases)
        expect(each, send(each.answers), "sf_socketSend");
}

TEST_F(Loops, TakeTheSameErrorsForTheLossOfThePeer) {
    for (const int error : lostErrors) {
        const std::string answers = "4 !" + std::to_string(error);
        const LoopCase lost = {"", "", 4, TCP_ERROR_CONNECTION_RESET, error, "", true};
        expect(lost, receive(answers), "sf_socketRecv");
        expect(lost, send(answers), "sf_socketSend");
    }
}

TEST_F(Loops, ASendGivesUpAfterThirtyOneFailuresInARow) {
    for (const char *failures : {"31*!10060", "31*0"}) {
        EXPECT_EQ(-1, send(failures));
        expectError(TCP_ERROR_CONNECTION_RESET, "sf_socketSend");
        EXPECT_TRUE(closed());
        EXPECT_THAT(script.sleeps, SizeIs(30));
        EXPECT_EQ(4650U, script.slept());
        script.sleeps.clear();
        renew();
    }
    EXPECT_EQ(10, send("30*!10060 10")) << "thirty are forgiven";
    EXPECT_FALSE(closed());
}

TEST_F(Loops, AReceiveGivesUpAfterThirtyOneFailuresThatACallbackWentThrough) {
    watcher.onByte = [] { return true; };
    EXPECT_EQ(-1, receive("31*!10060", true, &watcher));
    EXPECT_TRUE(closed());
    EXPECT_EQ(30000U, script.slept());
    EXPECT_THAT(watcher.reads, SizeIs(31));
    EXPECT_THAT(watcher.reads, Each("0+10!"));

    renew();
    EXPECT_EQ(10, receive("30*!10060 1 !10060 9", true, &watcher)) << "bytes in between forgive";
    EXPECT_FALSE(closed());
}

TEST_F(Loops, TellACallbackEveryStepInsteadOfSleeping) {
    EXPECT_EQ(10, receive("4 !10035 !4 6", true, &watcher));
    EXPECT_THAT(watcher.reads, ElementsAre("4+6", "4+6", "4+6", "10+0"));
    EXPECT_EQ(10, send("!10035 4 !4 6", true, &watcher));
    EXPECT_THAT(watcher.writes, ElementsAre("0+10", "4+6", "4+6", "10+0"));
    EXPECT_EQ("", takeSleeps());
}

TEST_F(Loops, EndWhereACallbackSaysSo) {
    watcher.onByte = [] { return false; };
    EXPECT_EQ(4, receive("4", true, &watcher));
    EXPECT_EQ(4, send("4", true, &watcher));
    expectNoError();
    EXPECT_EQ(-1, receive("!10035", true, &watcher));
    expectError(TCP_ERROR_WOULD_BLOCK, systemText("sf_socketRecv", 10035));
    EXPECT_EQ(-1, send("!4", true, &watcher));
    expectError(TCP_ERROR_INTERRUPT, systemText("sf_socketSend", 10004));
    EXPECT_EQ(-1, send("!10055", true, &watcher));
    expectError(TCP_ERROR_SYSTEM_ERROR, systemText("sf_socketSend", 10055));
    EXPECT_FALSE(closed());
}

TEST_F(Loops, EndWithTheConnectionWhateverACallbackSays) {
    watcher.onByte = [] { return true; };
    EXPECT_EQ(-1, receive("!10054", true, &watcher));
    EXPECT_THAT(watcher.reads, ElementsAre("0+10!"));
    renew();
    EXPECT_EQ(-1, send("!10054", true, &watcher));
    EXPECT_THAT(watcher.writes, SizeIs(1));
    expectError(TCP_ERROR_CONNECTION_RESET, systemText("sf_socketSend", 10054));
}

TEST_F(Loops, DifferInWhatNotWaitingMeans) {
    // A receive that has begun waits all the same.
    EXPECT_EQ(10, receive("!10035 10", false));
    EXPECT_EQ("100", takeSleeps());
    // A send gives up after the first pause, unless a callback goes on.
    EXPECT_EQ(4, send("4 !10035", false));
    EXPECT_EQ(-1, send("!10035", false));
    expectError(TCP_ERROR_WOULD_BLOCK, systemText("sf_socketSend", 10035));
    EXPECT_EQ("100 100", takeSleeps());
    watcher.onByte = [] { return true; };
    EXPECT_EQ(10, send("!10035 10", false, &watcher));
    EXPECT_EQ("0+10!", watcher.writes.front());
    EXPECT_EQ(10, send("!4 10", false)) << "an interruption is no blocking";
}

// ---- Peek, count and clear, call by call ----

TEST_F(Loops, EachLookAtASocketSortsItsErrors) {
    using Look = std::int64_t (*)(int);
    const Look peek = [](int socket) {
        unsigned char bytes[10];
        return rawPeekBytes(socket, bytes, sizeof bytes);
    };
    const Look count = rawBytesPending;
    const Look clear = [](int socket) { return rawClearSocket(socket, 20); };
    const char *const peeking = "sf_socketPeek";
    const char *const counting = "ioctl failed sf_socketBytesPending";
    const char *const clearing = "sf_clearSocket ioctl failed";
    const char *const receiving = "recv failed vintok::rawClearSocket";
    const struct {
        Look look;
        const char *waiting, *bytes;
        std::int64_t result;
        TCPError code;
        const char *text;
        int row;
        bool closed = false;
    } cases[] = {
        {peek, "0", "!10035", -1, TCP_ERROR_WOULD_BLOCK, peeking, 10035},
        {peek, "5", "!12", -1, TCP_ERROR_OUT_OF_MEMORY, peeking, 8},
        {peek, "5", "!10060", -1, TCP_ERROR_SYSTEM_ERROR, peeking, 10060},
        {peek, "5", "!10038", -1, TCP_ERROR_BAD_FILE_DESCRIPTOR, peeking, 10038, true},
        {peek, "5", "!10058", -1, TCP_ERROR_CONNECTION_RESET, peeking, 10058, true},
        {peek, "3*5", "3*!4", -1, TCP_ERROR_WOULD_BLOCK, peeking, 10004},
        {peek, "3*!4", "", -1, TCP_ERROR_WOULD_BLOCK, peeking, 10004},
        {peek, "!4 5", "5", 5, TCP_ERROR_WOULD_BLOCK, peeking, 10004},
        {peek, "!9", "", -1, TCP_ERROR_BAD_FILE_DESCRIPTOR, peeking, 10009, true},
        {peek, "!10035", "", -1, TCP_ERROR_SYSTEM_ERROR, peeking, 10035},
        {peek, "!12", "", -1, TCP_ERROR_SYSTEM_ERROR, peeking, 8},
        {count, "!4 7", "", 7, TCP_ERROR_INTERRUPT, counting, 10004},
        {count, "!9", "", -1, TCP_ERROR_BAD_FILE_DESCRIPTOR, counting, 10009},
        {count, "!121", "", -1, TCP_ERROR_CONNECTION_RESET, counting, 121},
        {count, "!10038", "", -1, TCP_ERROR_SYSTEM_ERROR, counting, 10038},
        {clear, "!4 3 0", "3", 3, TCP_ERROR_INTERRUPT, clearing, 10004},
        {clear, "!9", "", -1, TCP_ERROR_BAD_FILE_DESCRIPTOR, clearing, 10009},
        {clear, "3 3", "3 !9", 3, TCP_ERROR_BAD_FILE_DESCRIPTOR, receiving, 10009},
        {clear, "3", "!10054", -1, TCP_ERROR_SYSTEM_ERROR, receiving, 10054},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(systemText(each.text, each.row));
        script.waiting = each.waiting;
        (each.look == peek ? script.peek : script.receive) = each.bytes;
        EXPECT_EQ(each.result, each.look(fd));
        EXPECT_TRUE(script.waiting.empty() && script.peek.empty() && script.receive.empty());
        EXPECT_EQ(each.closed, closed());
        expectError(each.code, systemText(each.text, each.row));
        renew();
    }
}

TEST_F(Loops, AnEndWithAnErrorIsNoEnd) {
    script.peek = "0!10035";
    EXPECT_EQ(0, rawPeekBytes(fd, buffer, 1));
    EXPECT_FALSE(closed());
    expectNoError();
}

TEST_F(Loops, ClearingStopsAfterItsPasses) {
    // 100000 bytes are 24 chunks and a part, and 10 more passes for good measure. What is taken at
    // a time never grows again.
    script.waiting = "1 33*4096";
    script.receive = "34*4096";
    EXPECT_EQ(34, rawClearSocket(fd, 100000));
    EXPECT_TRUE(script.waiting.empty() && script.receive.empty());
    expectNoError();
}

// ---- Real connections ----

TEST_F(Bytes, NothingToMoveIsAFailure) {
    unsigned char *const nowhere = nullptr;
    for (const auto &[bytes, count] : {std::pair(buffer, 0U), std::pair(nowhere, 1U)}) {
        EXPECT_EQ(-1, readBytes(fd, bytes, count, nullptr));
        EXPECT_EQ(-1, writeBytes(fd, bytes, count, nullptr));
        EXPECT_EQ(-1, peekBytes(fd, bytes, count));
        expectNoError();
        EXPECT_EQ(-1, rawReadBytes(fd, bytes, count, true, nullptr));
        expectError(TCP_ERROR_INVALID_ARGUMENT, "sf_socketRecv");
        EXPECT_EQ(-1, rawWriteBytes(fd, bytes, count, true, nullptr));
        expectError(TCP_ERROR_INVALID_ARGUMENT, "sf_socketSend");
        EXPECT_EQ(-1, rawPeekBytes(fd, bytes, count));
        expectError(TCP_ERROR_INVALID_ARGUMENT, "sf_socketPeek");
    }
    EXPECT_EQ(-1, clearSocket(fd, 0));
    EXPECT_EQ(-1, rawClearSocket(fd, 0));
    expectNoError();
}

TEST_F(Bytes, ArePeekedAtCountedAndStillRead) {
    EXPECT_EQ(0, bytesPending(fd));
    setNonBlocking(fd);
    EXPECT_EQ(-1, peekBytes(fd, buffer, 1));
    expectError(TCP_ERROR_WOULD_BLOCK, systemText("sf_socketPeek", 10035));
    EXPECT_TRUE(pair->receiveWaits()) << "the peek leaves the socket blocking";
    EXPECT_EQ(-1, rawReadBytes(fd, buffer, 1, false, nullptr)) << "nothing there, not waiting";
    expectNoError();

    ASSERT_TRUE(pair->peerSends("abc"));
    EXPECT_EQ(3, bytesPending(fd));
    EXPECT_EQ(3, socketBytesPending(fd));
    EXPECT_EQ("ab", peeks(fd, 2));
    EXPECT_EQ("abc", peeks(fd, 10)) << "what there is";
    EXPECT_EQ(3, rawReadBytes(fd, buffer, 3, false, nullptr));
    EXPECT_EQ("abc", std::string(buffer, buffer + 3));
    expectNoError();
}

TEST_F(Bytes, ArePlainOrSecureToTheirCounters) {
    EXPECT_EQ(-1, secureBytesPending(fd));
    expectError(TCP_ERROR_BAD_FILE_DESCRIPTOR,
                "Attempt to read from non secure socket vintok::secureBytesPending");
    ASSERT_TRUE(setSecure(fd, true));
    EXPECT_EQ(-1, socketBytesPending(fd));
    expectError(TCP_ERROR_BAD_FILE_DESCRIPTOR,
                "Attempt to read from secure socket vintok::socketBytesPending");
    EXPECT_EQ(0, rawBytesPending(fd)) << "the raw one asks nobody";
}

TEST_F(Bytes, OnlyThePeekFindsACleanEnd) {
    ASSERT_TRUE(pair->peerSends("end"));
    pair->shutDownPeer();
    const LogFile log(LOG_WARNING);
    EXPECT_EQ("end", peeks(fd, 10)) << "first what was sent";
    EXPECT_EQ("end", reads(fd, 3));
    ASSERT_TRUE(awaitEnd(fd));
    EXPECT_EQ(0, bytesPending(fd));
    EXPECT_FALSE(closed());
    expectNoError();
    EXPECT_EQ(-1, peekBytes(fd, buffer, 1));
    expectError(TCP_ERROR_CONNECTION_RESET, "sf_socketPeek connection lost");
    EXPECT_TRUE(closed());
    EXPECT_TRUE(log.has("Remote connection lost without disconnect"));
    EXPECT_EQ(-1, readBytes(fd, buffer, 1, nullptr));
    expectError(TCP_ERROR_CONNECTION_RESET, "vintok::readBytes");
}

TEST_F(Bytes, AreClearedUpToACount) {
    ASSERT_TRUE(pair->peerSends(std::string(9000, 'x') + "rest"));
    EXPECT_EQ(5000, clearSocket(fd, 5000));
    EXPECT_EQ(4000, rawClearSocket(fd, 4000));
    EXPECT_EQ(4, clearSocket(fd, 100)) << "what there is";
    EXPECT_EQ(-1, clearSocket(fd, 100));
    EXPECT_EQ(-1, rawClearSocket(fd, 100));
}

// ---- Over a secure transport ----

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
