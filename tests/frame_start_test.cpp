// The first bytes of a frame, as long as they are too few to begin with: what the stream layer does
// about them between two turns of a loop.
#include "vintok/Globals.h"

#include "platform/Socket.h"
#include "support/Meeting.h"
#include "support/SocketPair.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPSelect.h"

#include <gtest/gtest.h>
#include <string>

namespace vintok::test {
namespace {

std::string frame(unsigned char filling) {
    TCPMessage message;
    message.setMessageID(TCP_broadcastMessage);
    message.allocateMessageBuffer(1);
    message.messageBuffer()[0] = filling;
    return std::string(message.rawBuffer(), message.rawBuffer() + message.rawBufferLength());
}

// Reads frames as participants and servers do.
class FrameStart : public testing::Test {
protected:
    FrameStart() {
        m_select.addSocketCallback(connection.mine(), dataArrived, this, true, false);
        expectFrames(connection.mine());
    }

    static void dataArrived(int descriptor, void *data, bool) {
        auto &self = *static_cast<FrameStart *>(data);
        TCPMessage message(descriptor);
        if (message.read(-1, nullptr))
            self.read += static_cast<char>(message.messageBuffer()[0]);
        else if (++self.failedReads && streamEnded(descriptor))
            self.ended = true;
    }

    std::size_t waitingInSocket() const {
        std::size_t count = 0;
        EXPECT_TRUE(platform::bytesWaiting(connection.mine(), count));
        return count;
    }

    Meeting meeting; // starts the library, and turns this thread's loop
    SocketPair connection;
    std::string read; // a character of each frame
    unsigned failedReads = 0;
    bool ended = false;

private:
    TCPSelect m_select;
};

// A host stood still for ever, and filled its peers' connections with keep-alives: the peer sent as
// fast as it could, and the end of the receive window cut a frame after a few bytes. Those bytes
// kept the memory of all that had come with them, so that the window stayed closed.
TEST_F(FrameStart, AStreamAtFullSpeedIsReadToItsEnd) {
    constexpr std::size_t count = 6000;
    const std::string one = frame('x');
    setNonBlocking(connection.peer());
    std::size_t sent = 0;
    const auto send = [&] {
        while (sent < count * one.size()) {
            const std::size_t from = sent % one.size();
            const std::int64_t got = platform::send(
                connection.peer(), reinterpret_cast<const unsigned char *>(one.data()) + from,
                one.size() - from);
            if (got <= 0)
                break;
            sent += static_cast<std::size_t>(got);
        }
    };
    for (std::size_t goal = 1000; goal <= count; goal += 1000) {
        const auto arrived = [&] {
            send();
            return read.size() >= goal;
        };
        ASSERT_TRUE(meeting.until(arrived, std::to_string(goal) + " frames"));
    }
    EXPECT_EQ(read, std::string(count, 'x'));
}

TEST_F(FrameStart, ItsBytesStayInFrontOfWhatFollows) {
    const std::string whole = frame('a');
    ASSERT_TRUE(connection.peerSends(whole.substr(0, 10)));
    ASSERT_FALSE(streamEnded(connection.mine()));
    ASSERT_EQ(waitingInSocket(), 0u) << "they must not keep the window closed";
    EXPECT_EQ(rawBytesPending(connection.mine()), 10);
    unsigned char byte[20] = {};
    EXPECT_EQ(rawPeekBytes(connection.mine(), byte, sizeof byte), 10);
    EXPECT_EQ(byte[9], static_cast<unsigned char>(whole[9]));

    // A few more, and the same again.
    platform::send(connection.peer(), reinterpret_cast<const unsigned char *>(&whole[10]), 15);
    ASSERT_TRUE(meeting.until([&] { return waitingInSocket() == 15; }, "15 bytes more"));
    ASSERT_FALSE(streamEnded(connection.mine()));
    EXPECT_EQ(rawBytesPending(connection.mine()), 25);

    const std::string rest = whole.substr(25) + frame('b');
    platform::send(connection.peer(), reinterpret_cast<const unsigned char *>(rest.data()),
                   rest.size());
    ASSERT_TRUE(meeting.until([&] { return read.size() == 2; }, "two frames"));
    EXPECT_EQ(read, "ab");
}

// The mark on the socket counts what is held: the rest of a small frame is less than a frame.
TEST_F(FrameStart, TheRestOfAShortFrameIsNoticed) {
    const std::string whole = frame('a'); // 61 bytes
    ASSERT_TRUE(connection.peerSends(whole.substr(0, 30)));
    ASSERT_FALSE(streamEnded(connection.mine()));
    platform::send(connection.peer(), reinterpret_cast<const unsigned char *>(&whole[30]), 31);
    ASSERT_TRUE(meeting.until([&] { return read == "a"; }, "the frame"));
    // And is a whole frame's again: a single byte does not wake the loop.
    ASSERT_TRUE(connection.peerSends(whole.substr(0, 1)));
    const unsigned before = failedReads;
    for (int i = 0; i < 20; ++i)
        meeting.turn();
    EXPECT_LE(failedReads, before + 1);
}

TEST_F(FrameStart, AnEndBehindItIsAnEnd) {
    ASSERT_TRUE(connection.peerSends(frame('a').substr(0, 10)));
    ASSERT_FALSE(streamEnded(connection.mine()));
    connection.shutDownPeer();
    ASSERT_TRUE(meeting.until([&] { return ended; }, "the end"));
    EXPECT_EQ(lastError(), TCP_ERROR_CONNECTION_RESET);
}

TEST_F(FrameStart, IsForgottenWithItsDescriptor) {
    ASSERT_TRUE(connection.peerSends(frame('a').substr(0, 10)));
    ASSERT_FALSE(streamEnded(connection.mine()));
    ASSERT_TRUE(removeDescriptor(connection.mine()));
    EXPECT_EQ(rawBytesPending(connection.mine()), 0);
    addDescriptor(connection.mine(), false, false, false, false);
    EXPECT_EQ(rawBytesPending(connection.mine()), 0);
}

TEST_F(FrameStart, CanBeDiscarded) {
    ASSERT_TRUE(connection.peerSends(frame('a').substr(0, 10)));
    ASSERT_FALSE(streamEnded(connection.mine()));
    EXPECT_EQ(clearSocket(connection.mine(), 4), 4);
    EXPECT_EQ(rawBytesPending(connection.mine()), 6);
    EXPECT_EQ(rawClearSocket(connection.mine(), 100), 6);
    EXPECT_EQ(rawBytesPending(connection.mine()), 0);
}

} // namespace
} // namespace vintok::test
