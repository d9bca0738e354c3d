// The older message and what it converts on the way to the stream functions.

#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "support/Addresses.h"
#include "support/SocketPair.h"
#include "vintok/TCPMessage_1_3.h"

#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace vintok {

using test::networkIPv4;
using test::SocketPair;

namespace {

const auto createBoundSocketIPv4 = TCPMessage_1_3::createBoundSocketIPv4;
const std::uint32_t loopback = networkIPv4({127, 0, 0, 1});

class OlderMessages : public testing::Test {
protected:
    OlderMessages() { TCPMessage_1_3::callStartUp(); }
    ~OlderMessages() override { TCPMessage_1_3::callCleanUp(); }
};

} // namespace

TEST_F(OlderMessages, CutTheirOwnTimeAndNotTheClocks) {
    TCPMessage_1_3 message;
    message.setTimeStamp(0x100000007);
    EXPECT_EQ(7u, message.timeStamp32());

    const auto now = static_cast<std::int64_t>(TCPMessage_1_3::getTime32());
    EXPECT_LE(std::abs(getTime() - now), 2);
    const std::int64_t beyond = std::int64_t{std::numeric_limits<std::uint32_t>::max()} + 1;
    ASSERT_TRUE(addTime(beyond));
    EXPECT_EQ(0u, TCPMessage_1_3::getTime32());
    EXPECT_EQ(0u, TCPMessage_1_3::getAddTime32());
    ASSERT_TRUE(TCPMessage_1_3::zeroTime());

    EXPECT_TRUE(TCPMessage_1_3::addTime32(std::numeric_limits<std::uint32_t>::max()));
    EXPECT_EQ(std::numeric_limits<std::uint32_t>::max(), TCPMessage_1_3::getAddTime32());
    ASSERT_TRUE(TCPMessage_1_3::zeroTime());
    // A clock before 1970 does not fit either.
    EXPECT_TRUE(TCPMessage_1_3::subtractTime32(std::numeric_limits<std::uint32_t>::max()));
    EXPECT_EQ(std::numeric_limits<std::uint32_t>::max(), TCPMessage_1_3::getSubtractTime32());
    EXPECT_EQ(0u, TCPMessage_1_3::getTime32());
}

TEST_F(OlderMessages, MoveAllBytesOrFail) {
    SocketPair pair;
    std::uint64_t pending = 99;
    EXPECT_FALSE(TCPMessage_1_3::pendingBytes(pair.mine(), nullptr));
    EXPECT_FALSE(TCPMessage_1_3::pendingBytes(-1, &pending));
    EXPECT_EQ(99u, pending);
    EXPECT_TRUE(TCPMessage_1_3::pendingBytes(pair.mine(), &pending));
    EXPECT_EQ(0u, pending);

    unsigned char buffer[10] = {};
    EXPECT_FALSE(TCPMessage_1_3::readBytes(pair.mine(), buffer, 0, nullptr));
    EXPECT_FALSE(TCPMessage_1_3::writeBytes(pair.mine(), nullptr, 10, nullptr));
    EXPECT_TRUE(TCPMessage_1_3::writeBytes(
        pair.peer(), reinterpret_cast<const unsigned char *>("0123456789"), 10, nullptr));
    EXPECT_TRUE(TCPMessage_1_3::readBytes(pair.mine(), buffer, 10, nullptr));
    EXPECT_EQ("0123456789", std::string(buffer, buffer + 10));

    ASSERT_TRUE(pair.peerSends("01234"));
    ASSERT_TRUE(platform::shutdownSending(pair.peer()));
    EXPECT_FALSE(TCPMessage_1_3::readBytes(pair.mine(), buffer, 10, nullptr)) << "five came";
}

TEST_F(OlderMessages, ListenWhereTheModeSaysAtAPortThatIsFree) {
    const std::uint32_t own = [] {
        std::uint32_t address = 0;
        TCPAddress host;
        return host.resolve(TCPAddress::IPTYPE_IPV4) && host.IPv4(address) ? address : 0;
    }();
    ASSERT_NE(0u, own) << "this machine has no address of its own";
    const struct {
        int mode;
        std::uint32_t reached; // the address at which it is found
    } cases[] = {{1, loopback}, {7, loopback}, {0, own}, {-1, loopback}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.mode);
        unsigned short port = 0;
        const int taken = test::listenSomewhere(port);
        unsigned short next = port;
        unsigned int address = 0;
        const bool isFree = row.reached == own; // nobody has it at that address
        for (const int tries : {0, isFree ? 0 : 1, -1})
            EXPECT_EQ(-1, createBoundSocketIPv4(next, 0, row.mode, nullptr, tries)) << tries;
        EXPECT_EQ(port, next);
        const int listener = createBoundSocketIPv4(next, 0, row.mode, &address, 1000);
        ASSERT_NE(-1, listener);
        EXPECT_EQ(isFree, port == next);
        EXPECT_EQ(own, address) << "what others may call, whatever was bound";

        const int caller = TCPMessage_1_3::connectToBoundSocketIPv4(row.reached, next);
        const int accepted = TCPMessage_1_3::acceptBoundSocket(listener);
        for (const int descriptor : {caller, accepted, listener, taken}) {
            EXPECT_NE(-1, descriptor);
            EXPECT_TRUE(TCPMessage_1_3::shutdownSocket(descriptor));
        }
    }
}

} // namespace vintok
