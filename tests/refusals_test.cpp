// Operations refuse descriptors that they cannot serve, and all that needs the library refuses
// while it is not started or cannot have its lock: each with an error of its own.
#include "support/LogFile.h"
#include "support/Party.h"
#include "support/SocketPair.h"
#include "support/Stream.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPMessage_1_3.h"
#include "vintok/TCPMutexBase.h"

#include <functional>

using namespace vintok;
using namespace vintok::test;

namespace {

// The error of a refusal. "%" stands for the descriptor; nothing is said where it is empty, and
// null stands for what is not refused.
using Text = const char *;

void expectRefusal(TCPError code, std::string text, int fd) {
    if (const std::size_t at = text.find('%'); at != std::string::npos)
        text.replace(at, 1, std::to_string(fd));
    text.empty() ? expectNoError() : expectError(code, text);
}

// ---- Of descriptors ----

struct Operation {
    std::function<std::int64_t(int)> call;
    std::int64_t refusal; // its result
    Text unknown, closed, bound;
    std::int64_t ofBound = refusal;
};

unsigned char byte = 'x';
std::string status;
std::size_t value = 0;
std::uint64_t count = 0;
TCPCertInfo info;

std::int64_t writeMessage(int fd) {
    TCPMessage message;
    return message.allocateMessageBuffer(1) && message.write(fd, nullptr);
}

const Operation operations[] = {
    {[](int fd) { return readBytes(fd, &byte, 1, nullptr); }, -1, "vintok::readBytes",
     "vintok::readBytes", "Attempt to read from bound socket vintok::readBytes"},
    {[](int fd) { return peekBytes(fd, &byte, 1); }, -1, "vintok::readBytes", "vintok::readBytes",
     "Attempt to read from bound socket vintok::readBytes"},
    {[](int fd) { return writeBytes(fd, &byte, 1, nullptr); }, -1,
     "vintok::writeBytes (%) descriptor bad.", "vintok::writeBytes (%) descriptor closed.",
     "vintok::writeBytes (%) Attempt to write from bound socket."},
    {bytesPending, -1, "vintok::bytesPending", "vintok::bytesPending",
     "Attempt to read from bound socket vintok::bytesPending"},
    {socketBytesPending, -1, "vintok::socketBytesPending", "vintok::socketBytesPending",
     "Attempt to read from bound socket vintok::secureBytesPending"},
    {secureBytesPending, -1, "vintok::secureBytesPending", "vintok::secureBytesPending",
     "Attempt to read from bound socket vintok::secureBytesPending"},
    {[](int fd) { return clearSocket(fd, 1); }, -1, "vintok::bytesPending", "vintok::bytesPending",
     "Attempt to read from bound socket vintok::bytesPending"},
    {[](int fd) { return TCPMessage_1_3::pendingBytes(fd, &count); }, 0, "vintok::bytesPending",
     "vintok::bytesPending", "Attempt to read from bound socket vintok::bytesPending"},
    {[](int fd) { return TCPMessage().read(fd, nullptr); }, 0, "TCPMessageBase::read",
     "TCPMessageBase::read", "TCPMessageBase::read attempt to read from bound descriptor"},
    {writeMessage, 0, "TCPMessageBase::write", "TCPMessageBase::write",
     "TCPMessageBase::write attempt to read from bound descriptor"},
    {[](int fd) { return secureStatus(fd, value, status); }, 0, "vintok::secureStatus",
     "vintok::secureStatus", "vintok::secureStatus (%) Attempt to read from bound socket.", 1},
    {lastSecureError, SECURE_ERROR_BAD_DESCRIPTOR, "vintok::lastSecureError",
     "vintok::lastSecureError", "vintok::lastSecureError (%) Get error on bound socket.",
     SECURE_ERROR_NOT_SECURE},
    {[](int fd) { return certificateInfo(fd, info); }, 0, "", "", "", 1},
    {[](int fd) { return acceptBoundSocket(fd); }, -1, "vintok::acceptBoundSocket",
     "Closed socket vintok::acceptBoundSocket", nullptr},
    {[](int fd) { return bufferFrames(fd); }, 0, "", nullptr, ""},
    {removeDescriptor, 0, "vintok::removeDescriptor", nullptr, nullptr},
    {[](int fd) { return setSecure(fd, true); }, 0, "vintok::setSecure", nullptr, nullptr},
};

class Refusals : public Library {
protected:
    static void expect(const Operation &operation, std::int64_t result, Text Operation::*refused,
                       TCPError code, int fd) {
        if (operation.*refused == nullptr)
            return;
        EXPECT_EQ(result, operation.call(fd)) << operation.*refused << fd;
        expectRefusal(code, operation.*refused, fd);
    }

    SocketPair pair;
};

TEST_F(Refusals, OnlyOpenConnectionsAreServed) {
    unsigned short port = 0;
    const int listener = listenSomewhere(port);
    setClosed(pair.mine());
    forgetError();
    for (const Operation &each : operations) {
        for (const int fd : {-7, -1, 0, unknownDescriptor})
            expect(each, each.refusal, &Operation::unknown, TCP_ERROR_BAD_FILE_DESCRIPTOR, fd);
        expect(each, each.refusal, &Operation::closed, TCP_ERROR_CONNECTION_RESET, pair.mine());
        expect(each, each.ofBound, &Operation::bound, TCP_ERROR_BAD_FILE_DESCRIPTOR, listener);
    }
    EXPECT_EQ(-1, acceptBoundSocket(pair.peer()));
    expectError(TCP_ERROR_BAD_FILE_DESCRIPTOR, "Not a bound socket vintok::acceptBoundSocket");
    EXPECT_TRUE(info.empty());
    closeDescriptor(listener);
}

// ---- Of the library ----

TCPAddress loopback() {
    TCPAddress address;
    address.setLoopbackIPv4();
    return address;
}

struct Service {
    std::function<bool(int)> call; // false: refused
    Text unstarted, unlocked;
};

const Service services[] = {
    {[](int) { return getAddTime() != 0; }, "vintok::getAddTime", nullptr},
    {[](int) { return getSubtractTime() != 0; }, "vintok::getSubtractTime", nullptr},
    {[](int) { return getTime() <= 0; }, "vintok::getTime", nullptr},
    {[](int) { return addTime(1); }, "vintok::addTime", "vintok::addTime"},
    {[](int) { return subtractTime(1); }, "vintok::subtractTime", "vintok::subtractTime"},
    {[](int) { return zeroTime(); }, "vintok::zeroTime", "vintok::zeroTime"},
    {[](int fd) { return addDescriptor(fd, false, false, false, false); }, "vintok::addDescriptor",
     "vintok::addDescriptor"},
    {removeDescriptor, "vintok::removeDescriptor", "vintok::removeDescriptor"},
    {setClosed, "vintok::setClosed", "vintok::setClosed (%) lock failed."},
    {[](int fd) { return setSecure(fd, true); }, "vintok::setSecure", "vintok::setSecure"},
    {[](int fd) { return DescriptorState(fd).known; },
     "vintok::descriptorState (%) Not initialized.", "vintok::descriptorState (%) lock failed."},
    {[](int) { return setLocalAddress(loopback()); }, "vintok::setLocalAddress", nullptr},
    {[](int) { return setPeerTimeout(0); }, "vintok::setPeerTimeout", nullptr},
    {[](int) { return setConnectTimeout(0); }, "vintok::setConnectTimeout", nullptr},
    {[](int) { return setTransport(nullptr); }, "", "vintok::setTransport"},
    {[](int) { return init(); }, nullptr, "vintok::init"},
    {[](int) { return fini(); }, "vintok::fini", "vintok::fini"},
};

TEST(Unstarted, NothingWorksAndEverythingSaysWhy) {
    for (const Service &each : services) {
        if (each.unstarted == nullptr)
            continue;
        forgetError();
        EXPECT_FALSE(each.call(5)) << each.unstarted;
        expectRefusal(TCP_ERROR_NOT_INITIALIZED, each.unstarted, 5);
    }
    TCPAddress address;
    EXPECT_FALSE(localAddress(address));
    expectError(TCP_ERROR_NOT_INITIALIZED, "vintok::localAddress");
    EXPECT_FALSE(address.empty()) << "an address is found all the same";
}

TEST_F(Refusals, WhatCannotHaveItsLockSaysSo) {
    const LogFile log(LOG_ERROR);
    TCPMutexBase base;
    for (const int index : {1, 2}) // refuses this thread every lock behind them
        ASSERT_EQ(0, base._mutexLock(index, true));
    for (const Service &each : services) {
        if (each.unlocked == nullptr)
            continue;
        EXPECT_FALSE(each.call(pair.mine())) << each.unlocked;
        expectRefusal(TCP_ERROR_LOCK_FAILED, each.unlocked, pair.mine());
    }
    for (const int index : {1, 2})
        EXPECT_EQ(0, base._mutexUnlock(index, true));
    EXPECT_TRUE(DescriptorState(pair.mine()).known) << "nothing was done";
}

// ---- Of a participant ----

// Ann is alone; Bob is a guest of Cid's.
TEST(Reasons, AreLeftByEveryOperationThatIsRefused) {
    Meeting meeting;
    Party ann(meeting, "Ann"), bob(meeting, "Bob"), cid(meeting, "Cid");
    ASSERT_TRUE(cid.hosts("Reasons") && gather(cid, {&bob}));
    const unsigned char word[] = {'x'};
    const auto calls = [](Party &party, unsigned short port) {
        return party->placeCall(party.ip(), port, "", 0, "", "", 0);
    };
    constexpr TCPError notNow = TCP_ERROR_UNSPECIFIED_ERROR;
    const struct {
        TCPError code;
        const char *text;
        std::function<bool()> isDone;
    } rows[] = {
        {notNow, "hostMeeting: in a meeting already", [&] { return bob->hostMeeting("x"); }},
        {notNow, "setMeetingName: not the host", [&] { return bob->setMeetingName("x"); }},
        {notNow, "placeCall: in a meeting", [&] { return calls(bob, 1); }},
        {TCP_ERROR_INVALID_ADDRESS, "placeCall: the address is one's own",
         [&] { return calls(ann, ann.port()); }},
        {notNow, "is called, or known, already", [&] { return calls(cid, bob.port()); }},
        {TCP_ERROR_CONNECTION_REFUSED, "", [&] { return calls(ann, 1); }},
        {TCP_ERROR_INVALID_ADDRESS, "acceptCall: nobody of this address",
         [&] { return ann->acceptCall(TCPAddress()); }},
        {notNow, "acceptCall: this party does not wait",
         [&] { return cid->acceptCall(bob->address()); }},
        {TCP_ERROR_INVALID_ADDRESS, "rejectCall: nobody of this address",
         [&] { return ann->rejectCall(TCPAddress()); }},
        {notNow, "sendRoster: nobody", [&] { return ann->sendRoster(); }},
        {notNow, "requestRoster: no host", [&] { return ann->requestRoster(); }},
        {notNow, "requestStartLeading: in no", [&] { return ann->requestStartLeading(); }},
        {TCP_ERROR_INVALID_ADDRESS, "acceptLeadChange: nobody waits",
         [&] { return cid->acceptLeadChange(); }},
        {TCP_ERROR_INVALID_ADDRESS, "acceptLeadChange: there is no host",
         [&] { return ann->acceptLeadChange(); }},
        {TCP_ERROR_INVALID_ADDRESS, "rejectLeadChange", [&] { return cid->rejectLeadChange(); }},
        {notNow, "sendBroadcastData: nobody", [&] { return ann->sendBroadcastData(word, 1); }},
        {TCP_ERROR_INVALID_ARGUMENT, "sendBroadcastData: nothing",
         [&] { return bob->sendBroadcastData(word, 0); }},
        {notNow, "transferFile: nobody", [&] { return ann->transferFile("/no/file", "file"); }},
        {TCP_ERROR_INVALID_ARGUMENT, "transferFile: the relative path",
         [&] { return bob->transferFile("/no/file", "other"); }},
        {TCP_ERROR_SYSTEM_ERROR, "transferFile: the file cannot be opened",
         [&] { return bob->transferFile("/no/file", "file"); }},
        {TCP_ERROR_SSL_TRANSPORT, "setSecurePreferred: not secure-able",
         [&] { return ann->setSecurePreferred(true); }},
        {TCP_ERROR_INVALID_ADDRESS, "sendPrivateData: no such party",
         [&] { return ann->sendPrivateData(bob->address(), word, 1) != 0; }},
        {TCP_ERROR_INVALID_ARGUMENT, "sendMessage",
         [&] { return bob->sendMessage(TCP_hangup, word, 1); }},
    };
    for (const auto &row : rows) {
        forgetError();
        EXPECT_FALSE(row.isDone()) << row.text;
        expectError(row.code, HasSubstr(row.text));
    }
}

TEST(Reasons, HaveNamesAndTheLogGoesToAFunction) {
    init();
    EXPECT_STREQ("TCP_ERROR_SYSTEM_ERROR", errorName(TCP_ERROR_SYSTEM_ERROR));
    EXPECT_STREQ("??", errorName(static_cast<TCPError>(18)));
    std::string entries;
    setLogCallback(
        [](ErrSeverity severity, const char *message, void *data) {
            *static_cast<std::string *>(data) += std::to_string(severity) + message + ' ';
            logMessage("from inside", SEVERITY_FATAL); // as without the function
        },
        &entries);
    setLogLevel(LOG_ERROR);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(logMessage("one", SEVERITY_ERROR));
    EXPECT_FALSE(logMessage("two", SEVERITY_INFO));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("\n{\nfrom inside\n}\n"));
    EXPECT_EQ("2one ", entries);
    setLogCallback(nullptr, nullptr);
    fini();
}

} // namespace
