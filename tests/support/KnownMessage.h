// One message and its bytes in both forms of the frame, written by hand.
#ifndef VINTOK_TESTS_SUPPORT_KNOWNMESSAGE_H
#define VINTOK_TESTS_SUPPORT_KNOWNMESSAGE_H

#include "support/Addresses.h"
#include "support/Hex.h"
#include "vintok/TCPMessageBase.h"

#include <algorithm>

namespace vintok::test {

inline constexpr const char *longFrame =
    "0000003e 0002 0000 0102030405060708" // length, version, time
    "98153543 0025 0929 0000080009835d5a 0004 0001"
    "000000000000000000000000 0a010203 00000001 1e61 0000 'hi'";
inline constexpr const char *shortFrame =
    "00000026 0001 0003 0a010203 05060708" // length, version, origin, low half of the time
    "98153543 0025 0929 0000080009835d5a 0004 0001 'hi'";

// Makes the message what both frames are.
inline void makeKnown(TCPMessageBase &message) {
    TCPAddress origin;
    origin.setIPv4(networkIPv4({10, 1, 2, 3}));
    origin.setHostByteOrderPort(7777);
    message.setMessageID(TCP_keepAlive);
    message.setMessageMajorVersion(4);
    message.setMessageMinorVersion(1);
    ASSERT_TRUE(message.setOriginAddress(origin));
    ASSERT_TRUE(message.allocateMessageBuffer(2));
    message.setTimeStamp(0x0102030405060708);
    std::copy_n("hi", 2, message.messageBuffer());
}

} // namespace vintok::test

#endif
