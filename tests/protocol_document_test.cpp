// Holds docs/protocol.md against the library: every block of bytes in it is decoded, its values are
// compared with those that the document shows, and the same values are encoded again.
#include "vintok/BufferManager.h"
#include "vintok/ConferenceRosterEntry.h"
#include "vintok/ControlText.h"
#include "vintok/TCPAddress.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPHeader.h"
#include "vintok/UserInfo.h"
#include "vintok/messageUtil.h"

#include <cstring>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace vintok {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::int64_t newYear = 1767225600; // 2026-01-01 00:00:00 UTC

bool isHexPair(const std::string &line, std::size_t at) {
    return at + 2 <= line.size() && std::isxdigit(static_cast<unsigned char>(line[at])) &&
           std::isxdigit(static_cast<unsigned char>(line[at + 1])) &&
           (at + 2 == line.size() || line[at + 2] == ' ');
}

// The pairs in front; two blanks begin the explanation.
void appendBytes(const std::string &line, Bytes &bytes) {
    for (std::size_t at = 0; isHexPair(line, at); at += 3)
        bytes.push_back(static_cast<unsigned char>(std::stoi(line.substr(at, 2), nullptr, 16)));
}

std::vector<std::string> documentLines() {
    std::ifstream file(VINTOK_PROTOCOL_DOCUMENT);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

// The blocks that begin with "```hex name".
std::map<std::string, Bytes> documentBlocks() {
    std::map<std::string, Bytes> blocks;
    Bytes *open = nullptr;
    for (const std::string &line : documentLines())
        if (line.rfind("```hex ", 0) == 0)
            open = &blocks[line.substr(7)];
        else if (line.rfind("```", 0) == 0)
            open = nullptr;
        else if (open)
            appendBytes(line, *open);
    return blocks;
}

// The numbers in the tables, by the name in backticks that stands in the same row.
std::map<std::string, unsigned> documentNumbers() {
    std::map<std::string, unsigned> numbers;
    for (const std::string &line : documentLines()) {
        std::size_t number = line.find("| 0x"), name = line.find("| `");
        if (line[0] != '|' || number == std::string::npos || name == std::string::npos)
            continue;
        std::string text = line.substr(name + 3, line.find('`', name + 3) - name - 3);
        numbers[text] = static_cast<unsigned>(std::stoul(line.substr(number + 2), nullptr, 16));
    }
    return numbers;
}

TCPAddress ipv4(const std::string &text, std::uint16_t port) {
    TCPAddress address;
    std::uint32_t number = 0;
    std::uint16_t bits = 0;
    EXPECT_TRUE(TCPAddress::sf_parseIPv4(text, number, bits));
    address.setIPv4(number);
    address.setHostByteOrderPort(port);
    return address;
}

TCPAddress documentAddress() {
    TCPAddress address;
    std::uint16_t words[8] = {};
    const unsigned char bytes[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    std::memcpy(words, bytes, sizeof bytes);
    address.setIPv6(words);
    address.setHostByteOrderPort(7777);
    return address;
}

TCPAddress documentNetwork() {
    TCPAddress network;
    EXPECT_TRUE(network.setNetwork("192.0.2.0/24"));
    return network;
}

UserInfo annAsUser() {
    UserInfo user;
    user.setFirstName("Ann");
    user.setLastName("Lee");
    user.setTitle("Dr");
    user.setEmail("ann@example.org");
    return user;
}

ConferenceRosterEntry annAsHost() {
    ConferenceRosterEntry entry(annAsUser());
    entry = ipv4("192.0.2.10", 7777);
    entry.setMajorVersion(4);
    entry.setColorIndex(0);
    entry.setMeeting(true);
    entry.setHost(true);
    entry.setLeader(true);
    entry.setMeetingName("Tuesday");
    return entry;
}

ConferenceRosterEntry benAsCaller() {
    ConferenceRosterEntry entry(ipv4("192.0.2.20", 7778));
    entry.setFirstName("Ben");
    entry.setMajorVersion(4);
    return entry;
}

// Values that a record and its wire form have in common, addresses by their stored bytes.
void expectSame(const TCPAddress &got, const TCPAddress &wanted) {
    TCPAddress::Storage left, right;
    got.storage(left);
    wanted.storage(right);
    EXPECT_EQ(std::memcmp(&left, &right, sizeof left), 0);
}

void expectSame(const UserInfo &got, const UserInfo &wanted) {
    EXPECT_EQ(got.toString(), wanted.toString());
}

void expectSame(const ConferenceRosterEntry &got, const ConferenceRosterEntry &wanted) {
    EXPECT_EQ(got.toString(), wanted.toString());
    expectSame(static_cast<const TCPAddress &>(got), static_cast<const TCPAddress &>(wanted));
}

// Decodes, compares with `wanted`, and encodes `wanted`.
template <class Record>
Bytes record(const Bytes &bytes, const Record &wanted) {
    Record got;
    EXPECT_EQ(got.read(bytes.data(), bytes.size()), bytes.size());
    expectSame(got, wanted);
    Bytes encoded(wanted.size());
    EXPECT_EQ(wanted.write(encoded.data(), encoded.size()), encoded.size());
    return encoded;
}

Bytes text(Bytes bytes, const std::string &wanted) {
    std::string got;
    EXPECT_EQ(BufferManager(bytes.data(), bytes.size()).read(got), bytes.size());
    EXPECT_EQ(got, wanted);
    Bytes encoded(size(wanted));
    EXPECT_EQ(BufferManager(encoded.data(), encoded.size()).write(wanted), encoded.size());
    return encoded;
}

// Several texts, one behind the other.
Bytes texts(const Bytes &bytes, const std::vector<std::string> &wanted) {
    Bytes encoded;
    auto from = bytes.begin();
    for (const std::string &one : wanted) {
        auto to = from + std::min<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(size(one)),
                                                  bytes.end() - from);
        Bytes again = text(Bytes(from, to), one);
        encoded.insert(encoded.end(), again.begin(), again.end());
        from = to;
    }
    return encoded;
}

Bytes number(Bytes bytes, std::uint32_t wanted) {
    std::uint32_t got = 0;
    EXPECT_EQ(BufferManager(bytes.data(), bytes.size()).read(got), 4u);
    EXPECT_EQ(got, wanted);
    Bytes encoded(4);
    BufferManager(encoded.data(), encoded.size()).write(wanted);
    return encoded;
}

Bytes echoRequest(Bytes bytes) {
    std::uint64_t sendTime = 0;
    EXPECT_TRUE(decodeEchoRequest(bytes.data(), bytes.size(), sendTime, true));
    return number(bytes, static_cast<std::uint32_t>(sendTime));
}

Bytes controlText() {
    std::string lines = formatAddress(ipv4("192.0.2.10", 7777));
    return Bytes(lines.c_str(), lines.c_str() + lines.size() + 1);
}

Bytes identifier(Bytes bytes, const TCPGUID &wanted) {
    TCPGUID got = {};
    BufferManager from(bytes.data(), bytes.size());
    EXPECT_EQ(got.read(from), 16u);
    EXPECT_TRUE(got == wanted);
    Bytes encoded(16);
    BufferManager to(encoded.data(), encoded.size());
    EXPECT_EQ(wanted.write(to), 16u);
    return encoded;
}

struct Frame {
    std::uint16_t major, minor;
    TCPAddress origin;
    TCPGUID identifier;
    std::string body;
    std::uint16_t messageMinor = 0;
};

Bytes frame(const Bytes &bytes, const Frame &wanted) {
    TCPHeader got(0, 0);
    EXPECT_TRUE(got.allocateRawBuffer(bytes.size()));
    std::memcpy(got.rawBuffer(), bytes.data(), bytes.size());
    EXPECT_TRUE(got.read());
    EXPECT_EQ(got.majorVersion(), wanted.major);
    EXPECT_EQ(got.minorVersion(), wanted.minor);
    EXPECT_EQ(got.timeStamp(), newYear);
    EXPECT_TRUE(got.messageID() == wanted.identifier);
    EXPECT_EQ(got.messageMajorVersion(), 4);
    EXPECT_EQ(got.messageMinorVersion(), wanted.messageMinor);
    EXPECT_EQ(std::string(got.messageBuffer(), got.messageBuffer() + got.messageBufferLength()),
              wanted.body);
    expectSame(static_cast<const TCPAddress &>(got), wanted.origin);

    TCPHeader encoded(wanted.origin, wanted.major, wanted.minor);
    encoded.setMessageID(wanted.identifier);
    encoded.setMessageMajorVersion(4);
    encoded.setMessageMinorVersion(wanted.messageMinor);
    EXPECT_TRUE(encoded.allocateMessageBuffer(wanted.body.size()));
    EXPECT_TRUE(encoded.setTimeStamp(newYear));
    std::memcpy(encoded.messageBuffer(), wanted.body.data(), wanted.body.size());
    return Bytes(encoded.rawBuffer(), encoded.rawBuffer() + encoded.rawBufferLength());
}

// What each block of the document means: takes its bytes, returns those of the same values.
const std::map<std::string, std::function<Bytes(const Bytes &)>> &meanings() {
    static const std::map<std::string, std::function<Bytes(const Bytes &)>> table = {
        {"text", [](const Bytes &bytes) { return text(bytes, "Ann"); }},
        {"text-empty", [](const Bytes &bytes) { return text(bytes, ""); }},
        {"identifier", [](const Bytes &bytes) { return identifier(bytes, TCP_keepAlive); }},
        {"address-ipv4",
         [](const Bytes &bytes) { return record(bytes, ipv4("192.0.2.10", 7777)); }},
        {"address-ipv6", [](const Bytes &bytes) { return record(bytes, documentAddress()); }},
        {"address-network", [](const Bytes &bytes) { return record(bytes, documentNetwork()); }},
        {"user-info", [](const Bytes &bytes) { return record(bytes, annAsUser()); }},
        {"roster-entry", [](const Bytes &bytes) { return record(bytes, annAsHost()); }},
        {"join-request", [](const Bytes &bytes) { return record(bytes, benAsCaller()); }},
        {"frame-ipv4",
         [](const Bytes &bytes) {
             return frame(bytes,
                          {1, 3, ipv4("192.0.2.10", 0), TCP_keepAlive, std::string(1, '\0')});
         }},
        {"frame-long",
         [](const Bytes &bytes) {
             return frame(bytes, {2, 0, ipv4("192.0.2.10", 7777), TCP_broadcastMessage, "hello"});
         }},
        {"join-reply",
         [](const Bytes &bytes) {
             return frame(bytes, {2, 0, TCPAddress(), TCP_joinReply, std::string(1, '\1')});
         }},
        {"lead-reply",
         [](const Bytes &bytes) {
             return frame(bytes, {2, 0, TCPAddress(), TCP_leadReply, std::string(1, '\1')});
         }},
        {"file-begin",
         [](const Bytes &bytes) {
             return texts(bytes, {"/srv/plans/roof.txt", "plans/roof.txt"});
         }},
        {"file-end", [](const Bytes &bytes) { return number(bytes, 2500); }},
        {"echo-request", echoRequest},
        {"echo-reply",
         [](const Bytes &bytes) {
             const std::string times("\x69\x55\xb8\xfd\x69\x55\xb9\0", 8);
             return frame(bytes, {2, 0, TCPAddress(), TCP_echoReply32, times, 4});
         }},
        {"control-text", [](const Bytes &) { return controlText(); }},
        {"hangup",
         [](const Bytes &bytes) {
             return frame(bytes, {2, 0, TCPAddress(), TCP_hangup, std::string(1, '\0')});
         }},
    };
    return table;
}

TEST(ProtocolDocument, ShowsTheBytesThatTheLibraryWrites) {
    std::map<std::string, Bytes> blocks = documentBlocks();
    for (const auto &[name, meaning] : meanings())
        EXPECT_EQ(blocks.count(name), 1u) << "the document lacks the block " << name;
    for (const auto &[name, bytes] : blocks) {
        SCOPED_TRACE(name);
        auto meaning = meanings().find(name);
        ASSERT_NE(meaning, meanings().end()) << "nobody checks this block";
        EXPECT_THAT(meaning->second(bytes), testing::ElementsAreArray(bytes));
    }
}

TEST(ProtocolDocument, NamesTheIdentifiersByTheirNumbers) {
    std::map<std::string, unsigned> found;
    for (const auto &[name, number] : documentNumbers())
        if (name.rfind("TCP_", 0) == 0)
            found[name] = number;
    std::map<std::string, unsigned> wanted;
    for (const MessageKind &row : messageKinds)
        if (row.body != MessageBody::reserved)
            wanted.emplace(row.name, row.number);
    EXPECT_EQ(found, wanted);
}

TEST(ProtocolDocument, NamesTheStatesByTheirBits) {
    using Entry = ConferenceRosterEntry;
    const std::map<std::string, void (Entry::*)(bool)> setters = {
        {"isMeeting", &Entry::setMeeting},
        {"isHost", &Entry::setHost},
        {"isLeader", &Entry::setLeader},
        {"isServer", &Entry::setServer},
        {"isJoinPending", &Entry::setJoinPending},
        {"isShadow", &Entry::setShadow},
        {"isLeadPending", &Entry::setLeadPending},
        {"isSecure", &Entry::setSecure},
        {"isSecureAble", &Entry::setSecureAble},
        {"isSecureRequired", &Entry::setSecureRequired},
        {"isProxy", &Entry::setProxy},
        {"isProxyPending", &Entry::setProxyPending},
        {"isProxyConnection", &Entry::setProxyConnection},
        {"isMUXPending", &Entry::setMUXPending},
        {"isMUXEncrypt", &Entry::setMUXEncrypt},
        {"isSecurePreferred", &Entry::setSecurePreferred},
        {"isMUXRedirected", &Entry::setMUXRedirected},
        {"isFIPSSecureRequired", &Entry::setFIPSSecureRequired},
        {"isHidingIPsRequired", &Entry::setHidingIPsRequired},
        {"isSSLOnly", &Entry::setSSLOnly},
    };
    std::map<std::string, unsigned> found;
    for (const auto &[name, number] : documentNumbers())
        if (name.rfind("is", 0) == 0)
            found[name] = number;
    std::map<std::string, unsigned> wanted;
    for (const auto &[name, set] : setters) {
        Entry entry;
        (entry.*set)(true);
        Bytes bytes(entry.size());
        ASSERT_EQ(entry.write(bytes.data(), bytes.size()), bytes.size());
        // The state stands in front of two empty texts.
        unsigned state = 0;
        BufferManager(bytes.data() + bytes.size() - 14, 4).read(state);
        wanted[name] = state;
    }
    EXPECT_EQ(found, wanted);
}

} // namespace
} // namespace vintok
