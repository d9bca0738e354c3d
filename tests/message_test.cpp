// Messages over sockets: the bytes against bytes written by hand, and every way in which a read or
// a write can be cut short.

#include "platform/Socket.h"
#include "platform/TestSockets.h"
#include "platform/Thread.h"
#include "support/Addresses.h"
#include "support/KnownMessage.h"
#include "support/ScriptedPlatform.h"
#include "support/SocketPair.h"
#include "support/Stream.h"
#include "support/StubTransport.h"
#include "support/TemporaryFolder.h"
#include "support/Watcher.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPMessage_1_3.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <deque>
#include <limits>
#include <memory>
#include <string>
#include <thread>

namespace vintok::test {

namespace {

std::string textOf(const Bytes &bytes) {
    return std::string(bytes.begin(), bytes.end());
}

Bytes received(int fd, std::size_t count) {
    const std::string text = count != 0 ? test::reads(fd, count) : "";
    EXPECT_EQ(count, text.size());
    return Bytes(text.begin(), text.end());
}

Bytes wholeFrame(const TCPMessageBase &message) {
    return Bytes(message.rawBuffer(), message.rawBuffer() + message.rawBufferLength());
}

// A frame of `length` bytes in all, of a kind that nobody knows.
Bytes frameOf(std::size_t length) {
    return test::WireFrame{.body = Bytes(length - 60, 'b')}.encode();
}

class Messages : public test::Library {
protected:
    // At the this end, of what the peer has sent.
    bool reads() { return message.read(-1, nullptr); }
    bool sends(const Bytes &bytes) { return pair.peerSends(textOf(bytes)); }

    SocketPair pair;
    TCPMessage message{pair.mine()};
};

// ---- The frames ----

TEST_F(Messages, AreLongFramesOnTheWireAndThoseOfTheOlderClassShortOnes) {
    makeKnown(message);
    ASSERT_TRUE(message.write(-1, nullptr));
    EXPECT_EQ(hex(longFrame), received(pair.peer(), 62));
    TCPMessage_1_3 older(pair.mine());
    makeKnown(older);
    ASSERT_TRUE(older.write(-1, nullptr));
    EXPECT_EQ(hex(shortFrame), received(pair.peer(), 38));
}

TEST_F(Messages, TakeTheFormOfTheFrameThatArrivesAndWriteItFromThenOn) {
    ASSERT_TRUE(sends(hex(shortFrame)) && reads());
    EXPECT_EQ(1, message.majorVersion());
    EXPECT_EQ(0x05060708, message.timeStamp());
    message.setMessageMajorVersion(4);
    ASSERT_TRUE(message.write(-1, nullptr));
    EXPECT_EQ(hex(shortFrame), received(pair.peer(), 38));

    TCPMessage_1_3 older(pair.mine());
    ASSERT_TRUE(sends(hex(longFrame)) && older.read(-1, nullptr));
    EXPECT_EQ(0x0102030405060708, older.timeStamp());
    older.setMessageMajorVersion(4); // writes all fields anew
    ASSERT_TRUE(older.write(-1, nullptr));
    EXPECT_EQ(hex(longFrame), received(pair.peer(), 62));
}

// ---- Reads that do not deliver ----

TEST_F(Messages, AreNotBegunBefore36BytesHaveCome) {
    const Bytes frame = hex(longFrame);
    for (std::size_t cut = 0; cut < 36; ++cut) {
        SCOPED_TRACE(cut);
        ASSERT_TRUE(cut == 0 || sends(test::cutAt(frame, cut)));
        EXPECT_FALSE(reads());
        EXPECT_EQ(TCP_ERROR_WOULD_BLOCK, lastError());
        EXPECT_EQ(static_cast<std::int64_t>(cut), rawBytesPending(pair.mine()));

        ASSERT_TRUE(pair.peerSends(textOf(frame).substr(cut)));
        ASSERT_TRUE(test::awaitBytes(pair.mine(), frame.size()));
        EXPECT_TRUE(reads());
        EXPECT_EQ(2u, message.messageBufferLength());
    }
}

TEST_F(Messages, ThatAreMalformedAreDiscardedWithWhatWaitedBehindThem) {
    const struct {
        const char *what;
        std::uint32_t length;
        std::uint16_t version;
        std::size_t sent;
    } cases[] = {
        {"less than the length field itself", 3, 1, 60},
        {"one byte less than the smallest header", 35, 1, 36},
        {"a long frame one byte short", 59, 2, 59},
        {"version 0 is a long frame too", 59, 0, 59},
    };
    const Bytes good = hex(longFrame);
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        Bytes both;
        test::WireWriter writer(both);
        writer.number(row.length, 4);
        writer.number(row.version, 2);
        both.resize(row.sent, 0);
        both.insert(both.end(), good.begin(), good.end());
        ASSERT_TRUE(sends(both));
        EXPECT_FALSE(reads());
        EXPECT_EQ(TCP_ERROR_CORRUPT_HEADER, lastError());
        EXPECT_EQ(0, rawBytesPending(pair.mine()));
        test::forgetError();

        ASSERT_TRUE(sends(good));
        EXPECT_TRUE(reads()) << "the stream goes on";
    }
}

// ---- Peers that stall ----

TEST_F(Messages, WaitForTheRestOfAFrame) {
    const Bytes frame = frameOf(5000);
    ASSERT_TRUE(sends(test::cutAt(frame, 100)));
    std::thread rest([this, &frame] {
        // What has come is taken first, so the read is in the middle of the frame.
        while (rawBytesPending(pair.mine()) != 0)
            platform::sleepMilliseconds(1);
        for (std::size_t at = 100; at < frame.size(); at += 700)
            rawWriteBytes(pair.peer(), frame.data() + at, 700, true, nullptr);
    });
    EXPECT_TRUE(reads());
    rest.join();
    EXPECT_EQ(frame, wholeFrame(message));
}

TEST_F(Messages, TellAWatcherHowFarTheyAreAndEndWhenItSaysSo) {
    test::Watcher watcher;
    makeKnown(message);
    EXPECT_TRUE(message.write(-1, &watcher));
    EXPECT_EQ("62+0", watcher.messages.back());
    setNonBlocking(pair.mine());
    watcher.onByte = watcher.onMessage = [] { return false; };
    watcher.messages.clear();
    ASSERT_TRUE(message.allocateMessageBuffer(64 << 20));
    EXPECT_FALSE(message.write(-1, &watcher));
    EXPECT_EQ(1u, watcher.messages.size());
    watcher.messages.clear();
    ASSERT_TRUE(sends(test::cutAt(frameOf(200), 100)));
    EXPECT_FALSE(message.read(-1, &watcher));
    EXPECT_THAT(watcher.messages, testing::ElementsAre("100+100"));
}

TEST_F(Messages, FindTheirPeerGone) {
    ASSERT_TRUE(message.allocateMessageBuffer(1000));
    pair.resetPeer();
    ASSERT_TRUE(test::awaitEnd(pair.mine()));
    EXPECT_FALSE(message.write(-1, nullptr));
    EXPECT_EQ(TCP_ERROR_CONNECTION_RESET, lastError());
    EXPECT_FALSE(message.write(-1, nullptr));
    EXPECT_EQ("TCPMessageBase::write", lastErrorString()) << "refused as closed from now on";
}

// ---- Secure descriptors ----

// A channel whose every transfer the test decides.
class ScriptedTransport : public test::StubTransport {
public:
    std::int64_t secureRecv(int, unsigned char *buffer, std::size_t length) override {
        ++calls;
        if (received.empty())
            return 0; // as a channel does that has ended, without an error of its own
        const Bytes part = received.front();
        received.pop_front();
        if (part.empty()) {
            setLastError(TCP_ERROR_WOULD_BLOCK, "later");
            return -1;
        }
        EXPECT_LE(part.size(), length);
        std::copy(part.begin(), part.end(), buffer);
        return static_cast<std::int64_t>(part.size());
    }
    std::int64_t secureSend(int, const unsigned char *, std::size_t length) override {
        ++calls;
        return static_cast<std::int64_t>(std::min(length, std::size_t(7)));
    }
    bool secureBytesPending(int, std::size_t *pending, bool) override {
        *pending = 100;
        return true;
    }

    std::deque<Bytes> received; // an empty part blocks
    int calls = 0;
};

class SecureMessages : public Messages {
protected:
    SecureMessages() {
        setTransport(&transport);
        setSecure(pair.mine(), true);
    }
    ~SecureMessages() override {
        pair.shutDownMine();
        setTransport(nullptr);
    }

    bool isClosed() const { return DescriptorState(pair.mine()).closed; }

    ScriptedTransport transport;
    test::ScriptedPlatform platform; // nothing is slept
};

TEST_F(SecureMessages, ArePutTogetherFromWhatTheTransportGives) {
    const Bytes frame = hex(longFrame);
    for (std::size_t at = 0; at < frame.size(); at += 2) {
        transport.received.push_back({frame[at], frame[at + 1]});
        if (at == 30)
            transport.received.insert(transport.received.end(), 3, {}); // it stalls
    }
    ASSERT_TRUE(reads());
    EXPECT_THAT(platform.sleeps, testing::ElementsAre(100, 200, 300));
    EXPECT_EQ(2u, message.messageBufferLength());

    transport.calls = 0;
    EXPECT_TRUE(message.write(-1, nullptr));
    EXPECT_EQ(9, transport.calls) << "62 bytes, 7 at a time";
}

// A transport that answered 0 at the end of its channel left an older "would block" standing, and
// the reader waited for ever.
TEST_F(SecureMessages, GiveUpAfter31ReadsOfNothing) {
    const Bytes frame = hex(longFrame);
    transport.received = {test::cutAt(frame, 4), {}};
    EXPECT_FALSE(reads());
    EXPECT_EQ(1 + 1 + 31, transport.calls);
    EXPECT_EQ(100u + 30 * 10, platform.slept());
    EXPECT_TRUE(isClosed());
}

TEST_F(SecureMessages, WhoseLengthIsCutShortFailWithTheErrorThatCutIt) {
    transport.received = {{0, 0}};
    EXPECT_FALSE(reads());
    EXPECT_EQ("Partial read TCPMessageBase::mf_readSocket", lastErrorString());
    EXPECT_EQ(10, transport.calls - 1) << "ten attempts in all, and one of the clearing";
}

// ---- In files ----

class File {
public:
    std::FILE *open(const char *mode) {
        m_stream.reset(std::fopen(m_folder.path("records").c_str(), mode));
        return m_stream.get();
    }
    std::FILE *holding(const Bytes &bytes) {
        m_folder.holding("records", std::string(bytes.begin(), bytes.end()));
        return open("rb");
    }
    Bytes bytes() const {
        const std::string content = m_folder.content("records");
        return {content.begin(), content.end()};
    }

private:
    struct Close {
        void operator()(std::FILE *stream) const { std::fclose(stream); }
    };
    const test::TemporaryFolder m_folder;
    std::unique_ptr<std::FILE, Close> m_stream;
};

class Records : public test::Library {
protected:
    File file;
    TCPMessage message;
};

TEST_F(Records, LieBackToBackInAFile) {
    makeKnown(message);
    TCPMessage_1_3 older;
    makeKnown(older);
    std::FILE *const out = file.open("wb");
    EXPECT_TRUE(message.write(out));
    EXPECT_TRUE(older.write(out));
    EXPECT_TRUE(message.write(out));
    std::fflush(out);
    Bytes expected = hex(longFrame);
    for (const char *frame : {shortFrame, longFrame}) {
        const Bytes bytes = hex(frame);
        expected.insert(expected.end(), bytes.begin(), bytes.end());
    }
    EXPECT_EQ(expected, file.bytes());

    std::FILE *const in = file.open("rb");
    for (const int version : {2, 1, 2}) {
        setLastError(TCP_ERROR_SYSTEM_ERROR, "of before");
        ASSERT_TRUE(message.read(in));
        EXPECT_EQ(version, message.majorVersion());
        EXPECT_EQ(2u, message.messageBufferLength());
        expectError(TCP_ERROR_NO_ERROR, "reading file");
    }
    EXPECT_FALSE(message.read(in));
    expectError(TCP_ERROR_CORRUPT_HEADER, "Failed to read header size");
}

TEST_F(Records, CutShortFailAtEveryLength) {
    const Bytes frame = hex(longFrame);
    for (std::size_t cut = 0; cut < frame.size(); ++cut) {
        std::FILE *const in = file.holding(test::cutAt(frame, cut));
        errno = EIO; // the end of a file leaves it as it is
        EXPECT_FALSE(message.read(in)) << cut;
        EXPECT_EQ(cut < 4 ? TCP_ERROR_CORRUPT_HEADER : TCP_ERROR_BAD_FILE_DESCRIPTOR, lastError())
            << cut;
    }
}

TEST_F(Records, FailByWhatTheSystemSaid) {
    const std::pair<int, TCPError> cases[] = {
        {EINTR, TCP_ERROR_INTERRUPT},           {EAGAIN, TCP_ERROR_WOULD_BLOCK},
        {EIO, TCP_ERROR_BAD_FILE_DESCRIPTOR},   {ENXIO, TCP_ERROR_BAD_FILE_DESCRIPTOR},
        {EBADF, TCP_ERROR_BAD_FILE_DESCRIPTOR}, {ENOMEM, TCP_ERROR_OUT_OF_MEMORY},
        {ENOSPC, TCP_ERROR_UNSPECIFIED_ERROR},
    };
    for (const auto &[error, expected] : cases) {
        std::FILE *const in = file.holding(test::cutAt(hex(longFrame), 50));
        errno = error;
        EXPECT_FALSE(message.read(in)) << error;
        expectError(expected, "reading file");
    }
}

TEST_F(Records, ThatAreMalformedFail) {
    const struct {
        const char *bytes;
        TCPError error;
        const char *context;
    } cases[] = {
        {"00000000", TCP_ERROR_CORRUPT_HEADER, "size less than min header size"},
        {"00000023", TCP_ERROR_CORRUPT_HEADER, "size less than min header size"},
        // Long enough for the other form; nothing is said beyond the result.
        {"00000024 0002 0000 00000000 00000000 00000000 00000000 00000000 00000000 00000000",
         TCP_ERROR_NO_ERROR, "reading file"},
    };
    for (const auto &row : cases) {
        EXPECT_FALSE(message.read(file.holding(hex(row.bytes)))) << row.bytes;
        expectError(row.error, row.context);
    }
}

// ---- The older class ----

const auto createBoundSocketIPv4 = TCPMessage_1_3::createBoundSocketIPv4;
const std::uint32_t loopback = networkIPv4({127, 0, 0, 1});

class OlderMessages : public testing::Test {
protected:
    OlderMessages() { TCPMessage_1_3::callStartUp(); }
    ~OlderMessages() override { TCPMessage_1_3::callCleanUp(); }
};

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
    // The mode, and the address at which the listener is found.
    const std::pair<int, std::uint32_t> cases[] = {
        {1, loopback}, {7, loopback}, {0, own}, {-1, loopback}};
    for (const auto &[mode, reached] : cases) {
        SCOPED_TRACE(mode);
        unsigned short port = 0;
        const int taken = test::listenSomewhere(port);
        unsigned short next = port;
        unsigned int address = 0;
        const bool isFree = reached == own; // nobody has it at that address
        for (const int tries : {0, isFree ? 0 : 1, -1})
            EXPECT_EQ(-1, createBoundSocketIPv4(next, 0, mode, nullptr, tries)) << tries;
        EXPECT_EQ(port, next);
        const int listener = createBoundSocketIPv4(next, 0, mode, &address, 1000);
        ASSERT_NE(-1, listener);
        EXPECT_EQ(isFree, port == next);
        EXPECT_EQ(own, address) << "what others may call, whatever was bound";

        const int caller = TCPMessage_1_3::connectToBoundSocketIPv4(reached, next);
        const int accepted = TCPMessage_1_3::acceptBoundSocket(listener);
        for (const int descriptor : {caller, accepted, listener, taken}) {
            EXPECT_NE(-1, descriptor);
            EXPECT_TRUE(TCPMessage_1_3::shutdownSocket(descriptor));
        }
    }
}

} // namespace
} // namespace vintok::test
