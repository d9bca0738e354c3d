#include "platform/Socket.h"
#include "support/LogFile.h"
#include "support/ScriptedPlatform.h"
#include "support/SocketPair.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPStatusCallback.h"

#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <numeric>
#include <thread>

using namespace vintok;
using namespace vintok::test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr int unknownDescriptor = 54321;
constexpr int lostErrors[] = {10050, 10051, 10052, 10053, 10054, 10057, 10058, 10061, 10064, 10065};

// What a loop tells, and what the test has it do.
class Progress : public TCPStatusCallback {
public:
    enum class Wish { asItIs, stop, goOn };
    struct Step {
        std::size_t done;
        std::size_t remaining;
        bool keepGoing;
        bool operator==(const Step &) const = default;
    };

    explicit Progress(Wish wish = Wish::asItIs) : m_wish(wish) {}

    std::vector<Step> reads;
    std::vector<Step> writes;

    void messageRead(int, bool, const TCPGUID &, std::size_t, std::size_t, bool *) override {}
    void messageWrite(int, bool, const TCPGUID &, std::size_t, std::size_t, bool *) override {}
    void byteRead(int, bool secure, std::size_t done, std::size_t remaining,
                  bool *keepGoing) override {
        EXPECT_FALSE(secure);
        note(reads, {done, remaining, *keepGoing}, keepGoing);
    }
    void byteWrite(int, bool secure, std::size_t done, std::size_t remaining,
                   bool *keepGoing) override {
        EXPECT_FALSE(secure);
        note(writes, {done, remaining, *keepGoing}, keepGoing);
    }

private:
    void note(std::vector<Step> &steps, const Step &step, bool *keepGoing) const {
        steps.push_back(step);
        if (m_wish != Wish::asItIs)
            *keepGoing = m_wish == Wish::goOn;
    }

    Wish m_wish;
};

std::ostream &operator<<(std::ostream &out, const Progress::Step &step) {
    return out << step.done << "+" << step.remaining << (step.keepGoing ? "" : " ending");
}

// A connection of which `fd` is one end.
class Bytes : public testing::Test {
protected:
    Bytes() {
        init();
        renew();
    }
    ~Bytes() override {
        pair.reset();
        fini();
    }

    // A fresh connection and no error.
    void renew() {
        pair = std::make_unique<SocketPair>();
        fd = pair->mine();
        setLastError(TCP_ERROR_NO_ERROR, "untouched");
    }
    static void expectError(TCPError code, const std::string &text) {
        EXPECT_EQ(code, lastError()) << text;
        EXPECT_EQ(text, lastErrorString());
        setLastError(TCP_ERROR_NO_ERROR, "untouched");
    }
    static void expectNoError() { EXPECT_EQ("untouched", lastErrorString()); }
    bool closed() const { return DescriptorState(fd).closed; }

    std::unique_ptr<SocketPair> pair;
    int fd = -1;
    unsigned char buffer[10] = {};
};

// ---- The loops, call by call ----

struct LoopCase {
    const char *what;
    std::deque<Answer> answers; // of the socket; the transfer is of 10 bytes
    std::int64_t result;
    TCPError code; // TCP_ERROR_NO_ERROR: the error is not touched
    int row;       // what the system text shows
    std::vector<std::uint32_t> sleeps;
    bool closed;
};

class Loops : public Bytes {
protected:
    void expect(const LoopCase &each, std::int64_t result, const std::string &name) {
        EXPECT_EQ(each.result, result) << each.what;
        EXPECT_EQ(each.sleeps, script.sleeps) << each.what;
        EXPECT_EQ(each.closed, closed()) << each.what;
        if (each.code == TCP_ERROR_NO_ERROR)
            expectNoError();
        else
            expectError(each.code, name + "\n" + sysErrorString(each.row));
        script.sleeps.clear();
        renew();
    }
    std::int64_t receive(std::deque<Answer> answers, bool wait = true,
                         TCPStatusCallback *status = nullptr) {
        script.waiting = {gives(1)};
        script.receive = std::move(answers);
        const std::int64_t result = rawReadBytes(fd, buffer, sizeof buffer, wait, status);
        EXPECT_THAT(script.receive, IsEmpty()) << "not all answers were used";
        return result;
    }
    std::int64_t send(std::deque<Answer> answers, bool wait = true,
                      TCPStatusCallback *status = nullptr) {
        script.send = std::move(answers);
        const std::int64_t result = rawWriteBytes(fd, buffer, sizeof buffer, wait, status);
        EXPECT_THAT(script.send, IsEmpty()) << "not all answers were used";
        return result;
    }

    ScriptedPlatform script;
};

TEST_F(Loops, ReceiveByItsRules) {
    const LoopCase cases[] = {
        {"in one piece", {gives(10)}, 10, TCP_ERROR_NO_ERROR, 0, {}, false},
        {"in three", {gives(4), gives(5), gives(1)}, 10, TCP_ERROR_NO_ERROR, 0, {}, false},
        {"blocked longer and longer, and the error stays",
         {fails(10035), gives(3), fails(10035), fails(4), gives(7)},
         10,
         TCP_ERROR_WOULD_BLOCK,
         10004,
         {100, 200, 300},
         false},
        {"no memory: at once again",
         {fails(12), fails(22), gives(10)},
         10,
         TCP_ERROR_OUT_OF_MEMORY,
         10022,
         {},
         false},
        {"any error ends it, after a second",
         {gives(4), fails(10060)},
         4,
         TCP_ERROR_SYSTEM_ERROR,
         10060,
         {1000},
         false},
        {"with nothing to show", {fails(10060)}, -1, TCP_ERROR_SYSTEM_ERROR, 10060, {1000}, false},
        {"the end of the stream has no name",
         {gives(4), ends()},
         4,
         TCP_ERROR_SYSTEM_ERROR,
         0,
         {1000},
         false},
        {"a bad descriptor",
         {gives(4), fails(9)},
         4,
         TCP_ERROR_BAD_FILE_DESCRIPTOR,
         10009,
         {},
         true},
        {"not a socket", {fails(10038)}, -1, TCP_ERROR_BAD_FILE_DESCRIPTOR, 10038, {}, true},
    };
    for (const LoopCase &each : cases)
        expect(each, receive(each.answers), "sf_socketRecv");
}

TEST_F(Loops, SendByTheirOwnRules) {
    const LoopCase cases[] = {
        {"in one piece", {gives(10)}, 10, TCP_ERROR_NO_ERROR, 0, {}, false},
        {"in three", {gives(4), gives(5), gives(1)}, 10, TCP_ERROR_NO_ERROR, 0, {}, false},
        {"blocked longer and longer, and the error stays",
         {fails(10035), gives(3), fails(4), fails(10035), gives(7)},
         10,
         TCP_ERROR_WOULD_BLOCK,
         10035,
         {100, 200, 300},
         false},
        {"any error is tried again, later and later",
         {fails(10055), fails(9), fails(12), gives(10)},
         10,
         TCP_ERROR_UNSPECIFIED_ERROR,
         8,
         {10, 20, 30},
         false},
        {"nothing taken is a failure without an error",
         {ends(), ends(), gives(10)},
         10,
         TCP_ERROR_NO_ERROR,
         0,
         {10, 20},
         false},
        {"bytes in between forgive",
         {fails(10060), gives(4), fails(10060), gives(6)},
         10,
         TCP_ERROR_UNSPECIFIED_ERROR,
         10060,
         {10, 10},
         false},
        {"blocking forgives too",
         {fails(10060), fails(4), fails(10060), gives(10)},
         10,
         TCP_ERROR_UNSPECIFIED_ERROR,
         10060,
         {10, 100, 10},
         false},
        {"not a socket is a lost peer",
         {gives(4), fails(10038)},
         4,
         TCP_ERROR_CONNECTION_RESET,
         10038,
         {},
         true},
        {"lost after a failure still pauses",
         {fails(10060), fails(10054)},
         -1,
         TCP_ERROR_CONNECTION_RESET,
         10054,
         {10, 10},
         true},
    };
    for (const LoopCase &each : cases)
        expect(each, send(each.answers), "sf_socketSend");
}

TEST_F(Loops, TakeTheSameErrorsForTheLossOfThePeer) {
    for (const int error : lostErrors) {
        const LoopCase lost = {"", {}, 4, TCP_ERROR_CONNECTION_RESET, error, {}, true};
        expect(lost, receive({gives(4), fails(error)}), "sf_socketRecv");
        expect(lost, send({gives(4), fails(error)}), "sf_socketSend");
    }
}

TEST_F(Loops, ASendGivesUpAfterThirtyOneFailuresInARow) {
    const Answer kinds[] = {fails(10060), ends()};
    for (const Answer &kind : kinds) {
        EXPECT_EQ(-1, send(times(31, kind)));
        expectError(TCP_ERROR_CONNECTION_RESET, "sf_socketSend");
        EXPECT_TRUE(closed());
        EXPECT_THAT(script.sleeps, SizeIs(30));
        EXPECT_EQ(4650U, script.slept());
        script.sleeps.clear();
        renew();
    }
    EXPECT_EQ(10, send(times(30, fails(10060), {gives(10)}))) << "thirty are forgiven";
    EXPECT_FALSE(closed());
}

TEST_F(Loops, AReceiveGivesUpAfterThirtyOneFailuresThatACallbackWentThrough) {
    Progress progress(Progress::Wish::goOn);
    EXPECT_EQ(-1, receive(times(31, fails(10060)), true, &progress));
    EXPECT_TRUE(closed());
    EXPECT_EQ(30000U, script.slept());
    EXPECT_THAT(progress.reads, SizeIs(31));
    EXPECT_THAT(progress.reads, Each(Progress::Step{0, 10, false}));

    renew();
    EXPECT_EQ(10,
              receive(times(30, fails(10060), {gives(1), fails(10060), gives(9)}), true, &progress))
        << "bytes in between forgive";
    EXPECT_FALSE(closed());
}

TEST_F(Loops, TellACallbackEveryStepInsteadOfSleeping) {
    Progress progress;
    EXPECT_EQ(10, receive({gives(4), fails(10035), fails(4), gives(6)}, true, &progress));
    EXPECT_THAT(progress.reads,
                ElementsAre(Progress::Step{4, 6, true}, Progress::Step{4, 6, true},
                            Progress::Step{4, 6, true}, Progress::Step{10, 0, true}));
    EXPECT_EQ(10, send({fails(10035), gives(4), fails(4), gives(6)}, true, &progress));
    EXPECT_THAT(progress.writes,
                ElementsAre(Progress::Step{0, 10, true}, Progress::Step{4, 6, true},
                            Progress::Step{4, 6, true}, Progress::Step{10, 0, true}));
    EXPECT_THAT(script.sleeps, IsEmpty());
}

TEST_F(Loops, EndWhereACallbackSaysSo) {
    Progress progress(Progress::Wish::stop);
    EXPECT_EQ(4, receive({gives(4)}, true, &progress));
    EXPECT_EQ(4, send({gives(4)}, true, &progress));
    expectNoError();
    EXPECT_EQ(-1, receive({fails(10035)}, true, &progress));
    expectError(TCP_ERROR_WOULD_BLOCK, std::string("sf_socketRecv\n") + sysErrorString(10035));
    EXPECT_EQ(-1, send({fails(4)}, true, &progress));
    expectError(TCP_ERROR_INTERRUPT, std::string("sf_socketSend\n") + sysErrorString(10004));
    EXPECT_EQ(-1, send({fails(10055)}, true, &progress));
    expectError(TCP_ERROR_SYSTEM_ERROR, std::string("sf_socketSend\n") + sysErrorString(10055));
    EXPECT_FALSE(closed());
}

TEST_F(Loops, EndWithTheConnectionWhateverACallbackSays) {
    Progress progress(Progress::Wish::goOn);
    EXPECT_EQ(-1, receive({fails(10054)}, true, &progress));
    EXPECT_THAT(progress.reads, ElementsAre(Progress::Step{0, 10, false}));
    renew();
    EXPECT_EQ(-1, send({fails(10054)}, true, &progress));
    EXPECT_THAT(progress.writes, SizeIs(1));
    expectError(TCP_ERROR_CONNECTION_RESET, std::string("sf_socketSend\n") + sysErrorString(10054));
}

TEST_F(Loops, DifferInWhatNotWaitingMeans) {
    // A receive that has begun waits all the same.
    EXPECT_EQ(10, receive({fails(10035), gives(10)}, false));
    EXPECT_THAT(script.sleeps, ElementsAre(100));
    // A send gives up after the first pause, unless a callback goes on.
    EXPECT_EQ(4, send({gives(4), fails(10035)}, false));
    EXPECT_EQ(-1, send({fails(10035)}, false));
    expectError(TCP_ERROR_WOULD_BLOCK, std::string("sf_socketSend\n") + sysErrorString(10035));
    EXPECT_THAT(script.sleeps, ElementsAre(100, 100, 100));
    Progress progress(Progress::Wish::goOn);
    EXPECT_EQ(10, send({fails(10035), gives(10)}, false, &progress));
    EXPECT_EQ((Progress::Step{0, 10, false}), progress.writes.front());
    EXPECT_EQ(10, send({fails(4), gives(10)}, false)) << "an interruption is no blocking";
}

TEST_F(Loops, SayWhatTheyMoved) {
    const LogFile log(LOG_TRACE);
    receive({gives(4), fails(9)});
    send({gives(10)});
    const std::string text = log.text();
    const std::string number = std::to_string(fd);
    EXPECT_THAT(text, testing::HasSubstr("sf_socketRecv (" + number +
                                         ") read 4 of 10 pending = 1< vintok::sf_socketRecv >"));
    EXPECT_THAT(text, testing::HasSubstr("sf_socketSend (" + number +
                                         ") sent 10 of 10< vintok::sf_socketSend >"));
}

// ---- Peek, count and clear, call by call ----

TEST_F(Loops, APeekSortsItsErrors) {
    struct Case {
        std::deque<Answer> waiting, peek;
        std::int64_t result;
        TCPError code;
        int row;
        bool closed;
    };
    const Case cases[] = {
        {{gives(0)}, {fails(10035)}, -1, TCP_ERROR_WOULD_BLOCK, 10035, false},
        {{gives(5)}, {fails(12)}, -1, TCP_ERROR_OUT_OF_MEMORY, 8, false},
        {{gives(5)}, {fails(22)}, -1, TCP_ERROR_OUT_OF_MEMORY, 10022, false},
        {{gives(5)}, {fails(10060)}, -1, TCP_ERROR_SYSTEM_ERROR, 10060, false},
        {{gives(5)}, {fails(10038)}, -1, TCP_ERROR_BAD_FILE_DESCRIPTOR, 10038, true},
        {{gives(5)}, {fails(10058)}, -1, TCP_ERROR_CONNECTION_RESET, 10058, true},
        {times(3, gives(5)), times(3, fails(4)), -1, TCP_ERROR_WOULD_BLOCK, 10004, false},
        {times(3, gives(5)),
         {fails(4), fails(4), gives(5)},
         5,
         TCP_ERROR_WOULD_BLOCK,
         10004,
         false},
        {times(3, fails(4)), {}, -1, TCP_ERROR_WOULD_BLOCK, 10004, false},
        {{fails(4), gives(5)}, {gives(5)}, 5, TCP_ERROR_WOULD_BLOCK, 10004, false},
        {{fails(9)}, {}, -1, TCP_ERROR_BAD_FILE_DESCRIPTOR, 10009, true},
        {{fails(10054)}, {}, -1, TCP_ERROR_CONNECTION_RESET, 10054, true},
        {{fails(10035)}, {}, -1, TCP_ERROR_SYSTEM_ERROR, 10035, false},
        {{fails(12)}, {}, -1, TCP_ERROR_SYSTEM_ERROR, 8, false},
    };
    for (const Case &each : cases) {
        script.waiting = each.waiting;
        script.peek = each.peek;
        EXPECT_EQ(each.result, rawPeekBytes(fd, buffer, sizeof buffer));
        EXPECT_TRUE(script.waiting.empty() && script.peek.empty()) << each.row;
        EXPECT_EQ(each.closed, closed()) << each.row;
        expectError(each.code, std::string("sf_socketPeek\n") + sysErrorString(each.row));
        renew();
    }
}

TEST_F(Loops, AnEndWithAnErrorIsNoEnd) {
    script.peek = {{0, 10035}};
    EXPECT_EQ(0, rawPeekBytes(fd, buffer, 1));
    EXPECT_FALSE(closed());
    expectNoError();
}

TEST_F(Loops, ACountSortsItsErrors) {
    struct Case {
        std::deque<Answer> waiting;
        std::int64_t result;
        TCPError code;
        int row;
    };
    const Case cases[] = {
        {{fails(4), gives(7)}, 7, TCP_ERROR_INTERRUPT, 10004},
        {{fails(4), fails(4)}, 0, TCP_ERROR_INTERRUPT, 10004},
        {{fails(9)}, -1, TCP_ERROR_BAD_FILE_DESCRIPTOR, 10009},
        {{fails(22)}, -1, TCP_ERROR_BAD_FILE_DESCRIPTOR, 10022},
        {{fails(121)}, -1, TCP_ERROR_CONNECTION_RESET, 121},
        {{fails(10038)}, -1, TCP_ERROR_SYSTEM_ERROR, 10038},
        {{fails(10054)}, -1, TCP_ERROR_SYSTEM_ERROR, 10054},
    };
    for (const Case &each : cases) {
        script.waiting = each.waiting;
        EXPECT_EQ(each.result, rawBytesPending(fd)) << each.row;
        EXPECT_THAT(script.waiting, IsEmpty());
        expectError(each.code,
                    std::string("ioctl failed sf_socketBytesPending\n") + sysErrorString(each.row));
        EXPECT_FALSE(closed());
    }
}

TEST_F(Loops, ClearingStopsAfterItsPasses) {
    // 100000 bytes are 24 chunks and a part, and 10 more passes for good measure. What is taken at
    // a time never grows again.
    script.waiting = times(1, gives(1), times(33, gives(4096)));
    script.receive = times(34, gives(4096));
    EXPECT_EQ(34, rawClearSocket(fd, 100000));
    EXPECT_TRUE(script.waiting.empty() && script.receive.empty());
    // The checked one counts twice each pass.
    script.waiting = times(2, gives(1), times(66, gives(4096)));
    script.receive = times(34, gives(4096));
    EXPECT_EQ(34, clearSocket(fd, 100000));
    EXPECT_TRUE(script.waiting.empty() && script.receive.empty());
    expectNoError();
}

TEST_F(Loops, ClearingSortsItsErrors) {
    struct Case {
        std::deque<Answer> waiting, receive;
        std::int64_t result;
        TCPError code;
        std::string text;
    };
    const std::string counting = "sf_clearSocket ioctl failed\n";
    const std::string receiving = "recv failed vintok::rawClearSocket\n";
    const Case cases[] = {
        {{fails(4), gives(3), gives(0)},
         {gives(3)},
         3,
         TCP_ERROR_INTERRUPT,
         counting + sysErrorString(10004)},
        {{fails(9)}, {}, -1, TCP_ERROR_BAD_FILE_DESCRIPTOR, counting + sysErrorString(10009)},
        {{fails(10054)}, {}, -1, TCP_ERROR_SYSTEM_ERROR, counting + sysErrorString(10054)},
        {{gives(3), gives(3), gives(0)},
         {fails(4), gives(3)},
         3,
         TCP_ERROR_INTERRUPT,
         receiving + sysErrorString(10004)},
        {{gives(3), gives(3)},
         {gives(3), fails(9)},
         3,
         TCP_ERROR_BAD_FILE_DESCRIPTOR,
         receiving + sysErrorString(10009)},
        {{gives(3)}, {fails(10054)}, -1, TCP_ERROR_SYSTEM_ERROR, receiving + sysErrorString(10054)},
    };
    for (const Case &each : cases) {
        script.waiting = each.waiting;
        script.receive = each.receive;
        EXPECT_EQ(each.result, rawClearSocket(fd, 20)) << each.text;
        EXPECT_TRUE(script.waiting.empty() && script.receive.empty()) << each.text;
        expectError(each.code, each.text);
        EXPECT_FALSE(closed());
    }
}

// ---- Real connections ----

TEST_F(Bytes, OnlyOpenConnectionsAreServed) {
    unsigned short port = 0;
    const int listener = listenSomewhere(port);
    setClosed(fd);
    struct Operation {
        std::function<std::int64_t(int)> call;
        std::string bound, closed, unknown; // "%" stands for the descriptor
    };
    const Operation operations[] = {
        {[&](int d) { return readBytes(d, buffer, 1, nullptr); },
         "Attempt to read from bound socket vintok::readBytes", "vintok::readBytes",
         "vintok::readBytes"},
        {[&](int d) { return peekBytes(d, buffer, 1); },
         "Attempt to read from bound socket vintok::readBytes", "vintok::readBytes",
         "vintok::readBytes"},
        {[&](int d) { return writeBytes(d, buffer, 1, nullptr); },
         "vintok::writeBytes (%) Attempt to write from bound socket.",
         "vintok::writeBytes (%) descriptor closed.", "vintok::writeBytes (%) descriptor bad."},
        {bytesPending, "Attempt to read from bound socket vintok::bytesPending",
         "vintok::bytesPending", "vintok::bytesPending"},
        {socketBytesPending, "Attempt to read from bound socket vintok::secureBytesPending",
         "vintok::socketBytesPending", "vintok::socketBytesPending"},
        {secureBytesPending, "Attempt to read from bound socket vintok::secureBytesPending",
         "vintok::secureBytesPending", "vintok::secureBytesPending"},
        {[](int d) { return clearSocket(d, 1); },
         "Attempt to read from bound socket vintok::bytesPending", "vintok::bytesPending",
         "vintok::bytesPending"},
    };
    const auto filled = [](std::string text, int d) {
        if (const std::size_t at = text.find('%'); at != std::string::npos)
            text.replace(at, 1, std::to_string(d));
        return text;
    };
    for (const Operation &operation : operations) {
        EXPECT_EQ(-1, operation.call(listener));
        expectError(TCP_ERROR_BAD_FILE_DESCRIPTOR, filled(operation.bound, listener));
        EXPECT_EQ(-1, operation.call(fd));
        expectError(TCP_ERROR_CONNECTION_RESET, filled(operation.closed, fd));
        EXPECT_EQ(-1, operation.call(unknownDescriptor));
        expectError(TCP_ERROR_BAD_FILE_DESCRIPTOR, filled(operation.unknown, unknownDescriptor));
    }
    closeDescriptor(listener);
}

TEST_F(Bytes, NothingToMoveIsAFailure) {
    EXPECT_EQ(-1, readBytes(fd, buffer, 0, nullptr));
    EXPECT_EQ(-1, readBytes(fd, nullptr, 1, nullptr));
    EXPECT_EQ(-1, writeBytes(fd, buffer, 0, nullptr));
    EXPECT_EQ(-1, writeBytes(fd, nullptr, 1, nullptr));
    EXPECT_EQ(-1, peekBytes(fd, buffer, 0));
    EXPECT_EQ(-1, peekBytes(fd, nullptr, 1));
    EXPECT_EQ(-1, clearSocket(fd, 0));
    EXPECT_EQ(-1, rawClearSocket(fd, 0));
    expectNoError();
    EXPECT_EQ(-1, rawReadBytes(fd, buffer, 0, true, nullptr));
    expectError(TCP_ERROR_INVALID_ARGUMENT, "sf_socketRecv");
    EXPECT_EQ(-1, rawWriteBytes(fd, nullptr, 1, true, nullptr));
    expectError(TCP_ERROR_INVALID_ARGUMENT, "sf_socketSend");
    EXPECT_EQ(-1, rawPeekBytes(fd, buffer, 0));
    expectError(TCP_ERROR_INVALID_ARGUMENT, "sf_socketPeek");
}

TEST_F(Bytes, OfAnyNumberArriveInOrder) {
    std::vector<unsigned char> sent(3000000);
    std::iota(sent.begin(), sent.end(), static_cast<unsigned char>(0));
    std::thread writer(
        [&] { EXPECT_EQ(3000000, writeBytes(pair->peer(), sent.data(), sent.size(), nullptr)); });
    std::vector<unsigned char> got(sent.size());
    EXPECT_EQ(3000000, readBytes(fd, got.data(), got.size(), nullptr));
    writer.join();
    EXPECT_TRUE(sent == got);
    expectNoError();
}

TEST_F(Bytes, ArePeekedAtCountedAndStillRead) {
    EXPECT_EQ(0, bytesPending(fd));
    EXPECT_EQ(-1, peekBytes(fd, buffer, 1));
    expectError(TCP_ERROR_WOULD_BLOCK, std::string("sf_socketPeek\n") + sysErrorString(10035));
    EXPECT_EQ(-1, rawReadBytes(fd, buffer, 1, false, nullptr)) << "nothing there, not waiting";
    expectNoError();

    ASSERT_TRUE(pair->peerSends("abc"));
    EXPECT_EQ(3, bytesPending(fd));
    EXPECT_EQ(3, socketBytesPending(fd));
    EXPECT_EQ(2, peekBytes(fd, buffer, 2));
    EXPECT_EQ(3, peekBytes(fd, buffer, sizeof buffer)) << "what there is";
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
    EXPECT_EQ(3, peekBytes(fd, buffer, sizeof buffer)) << "first what was sent";
    EXPECT_EQ(3, readBytes(fd, buffer, 3, nullptr));
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

TEST_F(Bytes, ThePeekLeavesTheSocketBlocking) {
    setNonBlocking(fd);
    EXPECT_EQ(-1, peekBytes(fd, buffer, 1));
    EXPECT_TRUE(pair->receiveWaits());
}

TEST_F(Bytes, AResetIsTheLossOfThePeer) {
    pair->resetPeer();
    ASSERT_TRUE(awaitEnd(fd));
    const ScriptedPlatform noSleep;
    EXPECT_EQ(-1, readBytes(fd, buffer, 1, nullptr));
    if (lastErrorString() == "sf_socketRecv\nUnknown Error")
        GTEST_SKIP() << "here a reset comes as an end";
    expectError(TCP_ERROR_CONNECTION_RESET, std::string("sf_socketRecv\n") + sysErrorString(10054));
    EXPECT_TRUE(closed());
}

// The first write after the peer has gone may still be taken; no signal must end the program.
TEST_F(Bytes, AWriterFindsAPeerThatIsGone) {
    pair->shutDownPeer();
    std::int64_t result = 1;
    for (int i = 0; i < 1000 && result == 1; i++)
        result = writeBytes(fd, buffer, 1, nullptr);
    EXPECT_EQ(-1, result);
    EXPECT_EQ(TCP_ERROR_CONNECTION_RESET, lastError());
    EXPECT_TRUE(closed());
}

TEST_F(Bytes, AWriterThatDoesNotWaitStopsAtAFullSocket) {
    const ScriptedPlatform noSleep;
    setNonBlocking(fd);
    const std::vector<unsigned char> much(30000000);
    const std::int64_t sent = rawWriteBytes(fd, much.data(), much.size(), false, nullptr);
    EXPECT_LT(0, sent);
    EXPECT_GT(30000000, sent);
    EXPECT_EQ(TCP_ERROR_WOULD_BLOCK, lastError());
    EXPECT_EQ(-1, rawWriteBytes(fd, much.data(), much.size(), false, nullptr));
    EXPECT_EQ(TCP_ERROR_WOULD_BLOCK, lastError());
    EXPECT_FALSE(closed());
}

TEST_F(Bytes, AreClearedUpToACount) {
    ASSERT_TRUE(pair->peerSends(std::string(9000, 'x') + "rest"));
    const LogFile log(LOG_INFO);
    const std::string number = std::to_string(fd);
    EXPECT_EQ(5000, clearSocket(fd, 5000));
    EXPECT_TRUE(log.has("vintok::clearSocket(" + number + ") --  discarded 4096 bytes  \n"));
    EXPECT_TRUE(log.has("vintok::clearSocket(" + number + ") --  discarded 904 bytes  \n"));
    EXPECT_EQ(4000, rawClearSocket(fd, 4000));
    EXPECT_TRUE(log.has("sf_clearSocket (" + number + ") --  discarded 0 bytes  \n"));
    EXPECT_EQ(4, clearSocket(fd, 100)) << "what there is";
    EXPECT_EQ(-1, clearSocket(fd, 100));
    EXPECT_EQ(-1, rawClearSocket(fd, 100));
}

} // namespace
