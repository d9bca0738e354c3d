#include "vintok/messageUtil.h"

#include "vintok/BufferManager.h"
#include "vintok/ClockCorrection.h"
#include "vintok/Log.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"

#include <initializer_list>

namespace vintok {

namespace {

struct SendFailures {
    const char *allocation;
    const char *fill;
    const char *write;
};

constexpr SendFailures requestFailures = {
    "sendEchoRequest allocation failed for echo request",
    "sendEchoRequest write to buffer failed for echo request",
    "sendEchoRequest write failed for echo request",
};

constexpr SendFailures replyFailures = {
    "vintok::sendEchoReply allocation failed for echo reply",
    "vintok::sendEchoReply write to buffer failed for echo reply",
    "vintok::sendEchoReply write failed for echo reply",
};

bool writeTime(BufferManager &body, std::uint64_t time, bool use32) {
    return (use32 ? body.write(static_cast<std::uint32_t>(time)) : body.write(time)) != 0;
}

bool readTime(BufferManager &body, std::uint64_t &time, bool use32) {
    if (!use32)
        return body.read(time) != 0;
    std::uint32_t low = 0;
    if (body.read(low) == 0)
        return false;
    time = low;
    return true;
}

bool failed(const char *text, const SourcePlace &place = SourcePlace::caller()) {
    VINTOK_LOG_AT(place, SEVERITY_ERROR, text);
    return false;
}

bool sendTimes(TCPMessage &message, std::initializer_list<std::uint64_t> times, bool use32,
               const SendFailures &failures, const SourcePlace &place = SourcePlace::caller()) {
    const std::uint64_t length = times.size() * (use32 ? 4 : 8);
    if (!message.allocateMessageBuffer(length) || message.messageBuffer() == nullptr)
        return failed(failures.allocation, place);
    BufferManager body(message.messageBuffer(), length);
    for (const std::uint64_t time : times)
        if (!writeTime(body, time, use32))
            return failed(failures.fill, place);
    return message.write(-1, nullptr) || failed(failures.write, place);
}

TCPMessage echoMessage(int descriptor, unsigned short major, unsigned short minor,
                       const TCPGUID &identifier) {
    TCPMessage message(descriptor);
    message.setMessageMajorVersion(major);
    message.setMessageMinorVersion(minor);
    message.setMessageID(identifier);
    return message;
}

using LongLong = unsigned long long; // what %llu takes

} // namespace

ClockCorrection correctClock(std::uint64_t send, std::uint64_t receive, std::uint64_t remote) {
    ClockCorrection correction;
    const std::uint64_t roundTrip = send < receive ? receive - send : 0;
    const std::uint64_t half = roundTrip >> 1;
    const auto midpoint = [&](std::uint64_t time) {
        if (half < time)
            return time - half;
        ++correction.beforeEpoch;
        return std::uint64_t{0};
    };
    const std::uint64_t remoteMid = midpoint(remote);
    const std::uint64_t localMid = midpoint(receive);
    if (localMid > remoteMid)
        correction.subtract = localMid - remoteMid;
    else
        correction.add = remoteMid - localMid;
    return correction;
}

bool sendEchoRequest(int descriptor, unsigned short major, unsigned short minor, bool use32) {
    TCPMessage message =
        echoMessage(descriptor, major, minor, use32 ? TCP_echoRequest32 : TCP_echoRequest);
    const auto now = static_cast<std::uint64_t>(getTime());
    if (!sendTimes(message, {now}, use32, requestFailures))
        return false;
    VINTOK_LOG(SEVERITY_INFO,
               use32 ? formatText("Sent 32 bit Echo Request %u\n", static_cast<std::uint32_t>(now))
                     : formatText("Sent Echo Request %llu\n", LongLong{now}));
    return true;
}

bool sendEchoReply(int descriptor, std::uint64_t sendTime, unsigned short major,
                   unsigned short minor, bool use32) {
    TCPMessage message =
        echoMessage(descriptor, major, minor, use32 ? TCP_echoReply32 : TCP_echoReply);
    const auto now = static_cast<std::uint64_t>(getTime());
    if (!sendTimes(message, {sendTime, now}, use32, replyFailures))
        return false;
    VINTOK_LOG(SEVERITY_DEBUG,
               formatText("Sent Echo Reply %llu %llu\n", LongLong{sendTime}, LongLong{now}));
    return true;
}

bool decodeEchoRequest(unsigned char *body, std::uint64_t length, std::uint64_t &sendTime,
                       bool use32) {
    if (body == nullptr || length == 0)
        return failed("vintok::decodeEchoRequest bad parameters to decodeEchoRequest");
    BufferManager buffer(body, length);
    if (!readTime(buffer, sendTime, use32))
        return failed("vintok::decodeEchoRequest cannot decode echo request");
    VINTOK_LOG(SEVERITY_INFO,
               formatText("vintok::Received echo Request remote %llu\n", LongLong{sendTime}));
    return true;
}

bool decodeEchoReply(unsigned char *body, std::uint64_t length, bool use32) {
    return takeEchoReply(body, length, use32, 0);
}

bool takeEchoReply(unsigned char *body, std::uint64_t length, bool use32,
                   std::int64_t largestStep) {
    // Taken first: the time that decoding takes is not part of the round trip.
    const auto receive = static_cast<std::uint64_t>(getTime());
    if (body == nullptr || length == 0)
        return failed("vintok::decodeEchoReply bad parameters to decode echo reply");
    BufferManager buffer(body, length);
    std::uint64_t send = 0;
    if (!readTime(buffer, send, use32))
        return failed("vintok::decodeEchoReply cannot decode send time for echo reply");
    std::uint64_t remote = 0;
    if (!readTime(buffer, remote, use32))
        return failed("vintok::decodeEchoReply cannot decode remote time for echo reply");

    // The line knows 32-bit times only and shows 0 for the others, as its readers expect.
    const auto shown = [use32](std::uint64_t time) {
        return use32 ? static_cast<std::uint32_t>(time) : std::uint32_t{0};
    };
    VINTOK_LOG(SEVERITY_INFO, formatText("Received echo Reply send %u recieve %llu remote %u\n",
                                         shown(send), LongLong{receive}, shown(remote)));

    const ClockCorrection correction = correctClock(send, receive, remote);
    const std::uint64_t step = correction.add + correction.subtract; // one of them is 0
    if (largestStep > 0 && step > static_cast<std::uint64_t>(largestStep)) {
        VINTOK_LOG(SEVERITY_WARNING,
                   formatText("Refused to move the clock by %llu seconds", LongLong{step}));
        return false;
    }
    for (int i = 0; i < correction.beforeEpoch; ++i)
        failed("vintok::decodeEchoReply winging it with date before 1970");
    if (correction.subtract != 0)
        subtractTime(static_cast<std::int64_t>(correction.subtract));
    if (correction.add != 0)
        addTime(static_cast<std::int64_t>(correction.add));
    VINTOK_LOG(SEVERITY_INFO, formatText("Adjusted clock addTime %llu subtractTime %llu\n",
                                         LongLong{correction.add}, LongLong{correction.subtract}));
    return true;
}

} // namespace vintok
