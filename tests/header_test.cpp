#include "vintok/TCPHeader.h"

#include "support/KnownMessage.h"

#include <utility>

namespace vintok::test {
namespace {

// What derived classes see.
class Header : public TCPHeader {
public:
    using TCPHeader::TCPHeader;
    using TCPHeader::operator=;
};

// A message around a frame that came from somewhere.
Header holding(const Bytes &frame) {
    Header header(2, 0);
    EXPECT_TRUE(header.allocateRawBuffer(frame.size()));
    std::copy(frame.begin(), frame.end(), header.rawBuffer());
    return header;
}

Bytes bytesOf(const TCPHeader &header) {
    return Bytes(header.rawBuffer(), header.rawBuffer() + header.rawBufferLength());
}

struct FrameCase {
    const char *what, *wire;
    std::uint16_t major, minor;
    TCPAddress origin;
    std::int64_t timeStamp;
    TCPGUID messageID;
    std::uint16_t messageMajor, messageMinor;
    const char *body;
};

std::vector<FrameCase> frameCases() {
    TCPAddress ipv6 = nameOnly("2001:db8::1", 7777);
    ipv6.setNetMask(std::uint16_t{64});
    return {
        {"an IPv4 frame", shortFrame, 1, 3, literal("10.1.2.3"), 0x05060708, TCP_keepAlive, 4, 1,
         "'hi'"},
        {"an IPv4 frame with a loopback origin, a late time and no body",
         "00000024 0001 0000 7f000001 fffffffe"
         "98153543 0013 0929 0000080009835d5a 0004 0000",
         1, 0, literal("127.0.0.1"), 0xFFFFFFFE, TCP_joinRequest, 4, 0, ""},
        {"a long frame with an IPv6 origin",
         "0000003f 0002 0001 0000000112345678"
         "98153543 0012 0929 0000080009835d5a 0004 0002"
         "20010db8000000000000000000000001 00000002 1e61 0040 'abc'",
         2, 1, ipv6, 0x112345678, TCP_broadcastMessage, 4, 2, "'abc'"},
        {"a long frame of another format, with nothing known of its origin, from before the epoch",
         "0000003c fffe ffff ffffffffffffffff"
         "00000000 0000 0000 0000000000000000 0000 ffff"
         "00000000000000000000000000000000 00000000 0000 0000",
         0xFFFE, 0xFFFF, TCPAddress(), -1, TCPHeader::s_zeroID, 0, 0xFFFF, ""},
    };
}

TEST(Frame, isTheSameBytesInBothDirections) {
    for (const FrameCase &each : frameCases()) {
        SCOPED_TRACE(each.what);
        const Bytes wire = hex(each.wire);
        const Bytes body = hex(each.body);

        Header written(each.origin, each.major, each.minor);
        EXPECT_TRUE(written.setMessageID(each.messageID));
        ASSERT_TRUE(written.allocateMessageBuffer(body.size()));
        ASSERT_EQ(written.rawBufferLength(), wire.size());
        std::copy(body.begin(), body.end(), written.messageBuffer());
        EXPECT_TRUE(written.setTimeStamp(each.timeStamp));
        EXPECT_TRUE(written.setMessageMajorVersion(each.messageMajor));
        EXPECT_TRUE(written.setMessageMinorVersion(each.messageMinor));
        EXPECT_TRUE(written.write());
        EXPECT_EQ(bytesOf(written), wire);

        Header read = holding(wire);
        read.setName("an origin's name");
        ASSERT_TRUE(read.read());
        EXPECT_TRUE(read.majorVersion() == each.major && read.minorVersion() == each.minor);
        EXPECT_EQ(stored(read), stored(each.origin));
        EXPECT_EQ(read.timeStamp(), each.timeStamp);
        EXPECT_TRUE(read.messageID() == each.messageID);
        EXPECT_EQ(read.messageMajorVersion(), each.messageMajor);
        EXPECT_EQ(read.messageMinorVersion(), each.messageMinor);
        EXPECT_EQ(read.messageBufferLength(), body.size());
        EXPECT_EQ(Bytes(read.messageBuffer(), read.messageBuffer() + body.size()), body);
        EXPECT_TRUE(read.write()); // in the form that was read
        EXPECT_EQ(bytesOf(read), wire);
    }
}

TEST(Frame, isRefusedWhenItIsCutWithinItsHeader) {
    for (const FrameCase &each : frameCases()) {
        const Bytes wire = hex(each.wire);
        const std::size_t header = wire.size() - hex(each.body).size();
        for (std::size_t length = 0; length < header; ++length)
            EXPECT_FALSE(holding(cutAt(wire, length)).read()) << each.what << " cut at " << length;
    }
}

TEST(Frame, thatClaimsLessThanItsHeaderHasNoBody) {
    const std::pair<const char *, bool> rows[] = {
        {"00000024 0001", true}, {"00000023 0001", false}, {"00000000 0001", false},
        {"0000003c 0002", true}, {"0000003b 0002", false}, {"00000024 0002", false},
    };
    for (const auto &[begin, accepted] : rows) {
        Bytes wire = hex(begin);
        wire.resize(60);
        Header header = holding(wire);
        EXPECT_EQ(header.read(), accepted) << begin;
        EXPECT_EQ(header.messageBufferLength(), 0U) << begin;
    }
}

TEST(Frame, ofTheOldFormTakesNoOtherThanAnIPv4Origin) {
    Header ipv6(literal("::1"), 1, 0);
    EXPECT_FALSE(ipv6.allocateMessageBuffer(4));
    Header path(unixPath("/a"), 1, 0);
    EXPECT_FALSE(path.allocateMessageBuffer(4));
    Header nobody(1, 0);
    EXPECT_TRUE(nobody.allocateMessageBuffer(4));
    EXPECT_EQ(cutAt(bytesOf(nobody), 12), hex("00000028 0001 0000 00000000"));
    nobody = literal("10.0.0.1");
    EXPECT_EQ(cutAt(bytesOf(nobody), 12), hex("00000028 0001 0000 0a000001"));
}

// The application may write to the bytes.
TEST(Setters, keepWhatTheBytesSay) {
    Header header(2, 0);
    EXPECT_TRUE(header.allocateMessageBuffer(1));
    header.rawBuffer()[33] = 9; // message major version
    EXPECT_TRUE(header.setMessageMinorVersion(7));
    EXPECT_EQ(header.messageMajorVersion(), 9);
    EXPECT_EQ(header.rawBuffer()[33], 9);
}

TEST(Copies, haveBytesOfTheirOwn) {
    Header source(literal("10.0.0.1"), 2, 0);
    EXPECT_TRUE(source.allocateMessageBuffer(3));
    source.messageBuffer()[0] = 'a';
    Header copy(source);
    Header assigned(literal("::1"), 1, 0);
    assigned.allocateMessageBuffer(100);
    assigned = source;
    assigned = std::as_const(assigned);
    source.messageBuffer()[0] = 'b';
    EXPECT_TRUE(source.setMessageID(TCP_hangup));
    for (const Header *each : {&copy, &assigned}) {
        EXPECT_EQ(each->rawBufferLength(), 63U);
        EXPECT_EQ(each->messageBuffer(), each->rawBuffer() + 60);
        EXPECT_EQ(each->messageBufferLength(), 3U);
        EXPECT_EQ(each->messageBuffer()[0], 'a');
        EXPECT_TRUE(each->messageID() == TCPHeader::s_zeroID);
        EXPECT_EQ(text(*each), "10.0.0.1");
    }
    Header bodiless(2, 0);
    EXPECT_TRUE(bodiless.allocateMessageBuffer(0));
    const Header other(bodiless);
    EXPECT_EQ(other.messageBuffer(), other.rawBuffer() + 60);
}

TEST(RawBytes, areZeroAgainHoweverMuchOfThemWasUsed) {
    for (const std::size_t size : {std::size_t{100}, std::size_t{65536}, std::size_t{1} << 20}) {
        Header header(2, 0);
        EXPECT_TRUE(header.allocateRawBuffer(size));
        std::fill_n(header.rawBuffer(), size, static_cast<unsigned char>(0xEE));
        EXPECT_TRUE(header.allocateRawBuffer(36));
        EXPECT_TRUE(header.allocateRawBuffer(size));
        Bytes expected(size);
        std::fill_n(expected.begin(), 36, static_cast<unsigned char>(0xEE));
        EXPECT_TRUE(bytesOf(header) == expected) << size;
    }
}

TEST(RawBytes, fitIn32Bits) {
    Header header(2, 0);
    EXPECT_TRUE(header.allocateMessageBuffer(3));
    EXPECT_FALSE(header.allocateRawBuffer(std::uint64_t{1} << 32));
    EXPECT_EQ(header.rawBufferLength(), 63U);
    EXPECT_EQ(header.messageBufferLength(), 3U);
    EXPECT_FALSE(header.allocateMessageBuffer((std::uint64_t{1} << 32) - 60));
    EXPECT_FALSE(header.allocateMessageBuffer(std::uint64_t{0} - 30)); // the sum would be 30
    EXPECT_EQ(header.messageBufferLength(), 0U);
    EXPECT_EQ(header.messageBuffer(), nullptr);
}

} // namespace
} // namespace vintok::test
