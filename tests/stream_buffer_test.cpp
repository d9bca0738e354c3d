// A connection with buffers: the order of what leaves, what counts as there, and what ends it.
#include "platform/Socket.h"
#include "support/MemoryTransport.h"
#include "support/SocketPair.h"
#include "support/Stream.h"
#include "support/Wire.h"
#include "vintok/RawBuffer.h"
#include "vintok/StreamBuffer.h"
#include "vintok/StreamInternal.h"
#include "vintok/StreamLoop.h"
#include "vintok/TCPMessage.h"

#include <thread>

namespace vintok::test {
namespace {

std::string frameOf(std::size_t size) {
    const Bytes bytes = WireFrame{.id = id::broadcast, .body = Bytes(size, 'x')}.encode();
    return {bytes.begin(), bytes.end()};
}

Span spanOf(const std::string &text) {
    return copyToChunk(bytesOf(text), text.size());
}

class Buffered : public Library {
protected:
    void SetUp() override {
        ASSERT_TRUE(bufferFrames(connection.mine()));
        buffer = bufferOf(connection.mine());
    }

    bool writes(const std::string &text) {
        const std::int64_t count = test::writes(connection.mine(), text);
        return count == static_cast<std::int64_t>(text.size());
    }
    // The next frame, which has come.
    std::string takes() {
        RawBuffer frame;
        EXPECT_EQ(StreamBuffer::Taken::frame, buffer->take(frame));
        return std::string(frame.data(), frame.data() + frame.size());
    }
    void fillUntilReady() {
        while (!buffer->ready())
            buffer->fill();
    }

    std::size_t inSocket() const {
        std::size_t count = 0;
        EXPECT_TRUE(platform::bytesWaiting(connection.mine(), count));
        return count;
    }

    SocketPair connection;
    std::shared_ptr<StreamBuffer> buffer;
};

TEST_F(Buffered, BytesLeaveInTheOrderOfTheCalls) {
    ASSERT_TRUE(buffer->queue(spanOf("first ")));
    ASSERT_TRUE(writes("second "));
    ASSERT_TRUE(buffer->queue(spanOf("third ")));
    ASSERT_TRUE(buffer->queue(spanOf("fourth")));
    EXPECT_EQ(StreamBuffer::Flushed::all, buffer->flush());
    EXPECT_EQ("first second third fourth", reads(connection.peer(), 25));
}

TEST_F(Buffered, PartOfAFrameCountsAsPendingAndNotAsReadable) {
    buffer->readAhead();
    const std::string frame = frameOf(100);
    ASSERT_TRUE(connection.peerSends(frame.substr(0, 50)));
    EXPECT_TRUE(buffer->fill());
    EXPECT_FALSE(buffer->ready());
    EXPECT_EQ(0U, inSocket());
    EXPECT_EQ(50, bytesPending(connection.mine()));
    ASSERT_TRUE(connection.peerSends("more"));
    EXPECT_EQ(54, rawBytesPending(connection.mine()));
    EXPECT_EQ(frame.substr(0, 50) + "more", peeks(connection.mine(), 54));
    EXPECT_EQ(54, clearSocket(connection.mine(), 100));
    EXPECT_EQ(0, bytesPending(connection.mine()));
}

// What follows may be for a transport, which cannot be given bytes back.
TEST_F(Buffered, NothingBeyondAFrameIsTakenBeforeTheConnectionReadsAhead) {
    const std::string frame = frameOf(100);
    ASSERT_TRUE(connection.peerSends(frame + "hello"));
    while (buffer->fill()) {
    }
    EXPECT_EQ(frame.size(), buffer->held());
    EXPECT_EQ(5U, inSocket());
    EXPECT_EQ(frame, takes());
    EXPECT_TRUE(setSecure(connection.mine(), true)) << "nothing is held";
    EXPECT_TRUE(DescriptorState(connection.mine()).known);
}

TEST_F(Buffered, BytesThatAreHeldBreakAConnectionThatTurnsSecure) {
    ASSERT_TRUE(connection.peerSends("0123456789"));
    EXPECT_TRUE(buffer->fill());
    setSecure(connection.mine(), true);
    EXPECT_TRUE(DescriptorState(connection.mine()).closed);
    EXPECT_TRUE(buffer->ready()) << "its owner is to learn of it";
}

TEST_F(Buffered, AFlushThatFailsClosesTheDescriptor) {
    connection.resetPeer();
    ASSERT_TRUE(awaitEnd(connection.mine()));
    while (buffer->queue(spanOf("lost")))
        buffer->flush();
    EXPECT_TRUE(DescriptorState(connection.mine()).closed);
    EXPECT_TRUE(buffer->ready());
    EXPECT_FALSE(writes("too late"));
    EXPECT_EQ(TCP_ERROR_CONNECTION_RESET, lastError());
}

TEST_F(Buffered, BuffersGoWithTheirDescriptor) {
    ASSERT_TRUE(buffer->queue(spanOf("never sent")));
    EXPECT_TRUE(removeDescriptor(connection.mine()));
    EXPECT_EQ(nullptr, bufferOf(connection.mine()));
    EXPECT_EQ(nullptr, buffer->loop().find(connection.mine()));
    EXPECT_NE(StreamBuffer::Flushed::all, buffer->flush());
    EXPECT_FALSE(buffer->queue(spanOf("nor this")));
}

// A peer that writes all it has before it reads anything stopped both for good.
TEST_F(Buffered, AWriteTakesInWhatArrivesWhileItWaitsForRoom) {
    buffer->readAhead();
    const std::string much = frameOf(4'000'000);
    std::string heard;
    std::thread peer([&] {
        setBlocking(connection.peer());
        test::writes(connection.peer(), much);
        heard = reads(connection.peer(), much.size());
    });
    EXPECT_TRUE(writes(much));
    peer.join();
    EXPECT_EQ(much, heard);
    fillUntilReady();
    EXPECT_EQ(much, takes());
}

TEST_F(Buffered, AMessageThatIsTooLongIsPassedOverAndTheNextComesWhole) {
    ASSERT_TRUE(bufferMessages(connection.mine(), 200, 0));
    const std::string tooLong = frameOf(20'000), good = frameOf(100);
    TCPMessage message(connection.mine());
    ASSERT_TRUE(connection.peerSends(tooLong.substr(0, 10'000)));
    fillUntilReady();
    EXPECT_FALSE(message.read(-1, nullptr));
    EXPECT_EQ(TCP_ERROR_CORRUPT_HEADER, lastError());
    EXPECT_EQ(0U, buffer->held());
    ASSERT_TRUE(connection.peerSends(tooLong.substr(10'000) + good));
    fillUntilReady();
    ASSERT_TRUE(message.read(-1, nullptr));
    EXPECT_EQ(good.size(), message.rawBufferLength());
}

TEST_F(Buffered, AWriteThatMayLieUnsentWaitsForNobody) {
    ASSERT_TRUE(bufferMessages(connection.mine(), 0, 16'000'000));
    std::string much(8'000'000, 'x');
    ASSERT_TRUE(writes(much)) << "the peer does not read";
    EXPECT_FALSE(awaitSent(connection.mine(), 0));
    much[0] = 'y'; // the bytes are no longer the caller's
    std::thread peer([&] {
        setBlocking(connection.peer());
        much = reads(connection.peer(), much.size());
    });
    EXPECT_TRUE(awaitSent(connection.mine(), 60'000));
    peer.join();
    EXPECT_EQ(std::string(8'000'000, 'x'), much);
}

TEST_F(Buffered, WhoWasNotServedIsNotSlow) {
    using namespace std::chrono_literals;
    buffer->setOutputLimits({100, 1'000, 4s});
    ASSERT_TRUE(buffer->queue(spanOf(std::string(900, 'x'))) &&
                buffer->queue(spanOf(std::string(900, 'y'))))
        << "the socket has room for it";
    auto now = StreamBuffer::Clock::now() + 60s;
    for (int looks = 0; looks < 4; ++looks, now += 1s) {
        EXPECT_FALSE(buffer->failed()) << looks;
        buffer->review(now);
    }
    EXPECT_EQ(StreamBuffer::Slow::behind, buffer->slow());
}

TEST_F(Buffered, AConnectionMayBeGivenUpWhileItsTransportSends) {
    class : public MemoryTransport {
        std::int64_t secureSend(int fd, const unsigned char *, std::size_t length) override {
            setClosed(fd);
            return static_cast<std::int64_t>(length);
        }
    } transport;
    setTransport(&transport);
    ASSERT_TRUE(setSecure(connection.mine(), true));
    ASSERT_TRUE(buffer->queue(spanOf("first")) && buffer->queue(spanOf("second")));
    EXPECT_EQ(StreamBuffer::Flushed::failed, buffer->flush());
    EXPECT_EQ(0U, buffer->queued());
    setTransport(nullptr);
}

// A message that shows received bytes has memory of its own once it changes its size.
TEST_F(Buffered, AMessageMayGrowWithoutTouchingItsNeighbour) {
    buffer->readAhead();
    const std::string frame = frameOf(10);
    ASSERT_TRUE(connection.peerSends(frame + frame));
    EXPECT_TRUE(buffer->fill());
    RawBuffer first, second;
    ASSERT_EQ(StreamBuffer::Taken::frame, buffer->take(first));
    ASSERT_TRUE(first.resize(frame.size() + 1));
    EXPECT_EQ(0, first.data()[frame.size()]);
    ASSERT_EQ(StreamBuffer::Taken::frame, buffer->take(second));
    EXPECT_EQ(frame, std::string(second.data(), second.data() + second.size()));
    EXPECT_EQ(frame, std::string(first.data(), first.data() + frame.size()));
}

} // namespace
} // namespace vintok::test
