// Holds the library against docs/protocol.md: each block of bytes in it is what the library writes
// for the values that the document shows, and the numbers of its tables are those of the library.
#include "support/Addresses.h"
#include "support/Hex.h"
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
#include <map>
#include <set>
#include <string>
#include <vector>

namespace vintok::test {
namespace {

constexpr std::int64_t newYear = 1767225600; // 2026-01-01 00:00:00 UTC

std::vector<std::string> documentLines() {
    std::ifstream file(VINTOK_PROTOCOL_DOCUMENT);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

// The blocks that begin with "```hex name". Two blanks in a line begin its explanation.
std::map<std::string, Bytes> documentBlocks() {
    std::map<std::string, std::string> texts;
    std::string *open = nullptr;
    for (const std::string &line : documentLines()) {
        if (line.rfind("```", 0) == 0)
            open = line.rfind("```hex ", 0) == 0 ? &texts[line.substr(7)] : nullptr;
        else if (open != nullptr)
            *open += line.substr(0, line.find("  "));
    }
    std::map<std::string, Bytes> blocks;
    for (const auto &[name, text] : texts)
        blocks[name] = hex(text);
    return blocks;
}

// The numbers in the tables, by the name in backticks that stands in the same row and begins so.
std::map<std::string, unsigned> documentNumbers(const std::string &prefix) {
    std::map<std::string, unsigned> numbers;
    for (const std::string &line : documentLines()) {
        const std::size_t number = line.find("| 0x"), name = line.find("| `" + prefix);
        if (line[0] == '|' && number != std::string::npos && name != std::string::npos)
            numbers[line.substr(name + 3, line.find('`', name + 3) - name - 3)] =
                static_cast<unsigned>(std::stoul(line.substr(number + 2), nullptr, 16));
    }
    return numbers;
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
    entry = nameOnly("192.0.2.10", 7777);
    entry.setMajorVersion(4);
    entry.setColorIndex(0);
    entry.setMeeting(true);
    entry.setHost(true);
    entry.setLeader(true);
    entry.setMeetingName("Tuesday");
    return entry;
}

ConferenceRosterEntry benAsCaller() {
    ConferenceRosterEntry entry(nameOnly("192.0.2.20", 7778));
    entry.setFirstName("Ben");
    entry.setMajorVersion(4);
    return entry;
}

template <class Record>
Bytes written(const Record &record) {
    Bytes bytes(record.size());
    EXPECT_EQ(record.write(bytes.data(), bytes.size()), bytes.size());
    return bytes;
}

// Values one behind the other.
template <class... Values>
Bytes sequence(const Values &...values) {
    Bytes bytes(100);
    BufferManager cursor(bytes.data(), bytes.size());
    bytes.resize((cursor.write(values) + ...));
    return bytes;
}

Bytes identifier(const TCPGUID &value) {
    Bytes bytes(16);
    BufferManager cursor(bytes.data(), bytes.size());
    EXPECT_EQ(value.write(cursor), 16u);
    return bytes;
}

Bytes frame(TCPHeader header, const TCPGUID &identifier, const std::string &body,
            std::uint16_t messageMinor = 0) {
    header.setMessageID(identifier);
    header.setMessageMajorVersion(4);
    header.setMessageMinorVersion(messageMinor);
    EXPECT_TRUE(header.allocateMessageBuffer(body.size()));
    EXPECT_TRUE(header.setTimeStamp(newYear));
    std::memcpy(header.messageBuffer(), body.data(), body.size());
    return Bytes(header.rawBuffer(), header.rawBuffer() + header.rawBufferLength());
}

// What each block of the document shows, as the library writes it.
std::map<std::string, Bytes> libraryBlocks() {
    const TCPHeader today(2, 0);
    const std::string address = formatAddress(nameOnly("192.0.2.10", 7777)), zero(1, '\0');
    const std::string times("\x69\x55\xb8\xfd\x69\x55\xb9\0", 8);
    return {
        {"text", sequence(std::string("Ann"))},
        {"text-empty", sequence(std::string())},
        {"identifier", identifier(TCP_keepAlive)},
        {"address-ipv4", written(nameOnly("192.0.2.10", 7777))},
        {"address-ipv6", written(nameOnly("2001:db8::1", 7777))},
        {"address-network", written(network("192.0.2.0/24"))},
        {"user-info", written(annAsUser())},
        {"roster-entry", written(annAsHost())},
        {"join-request", written(benAsCaller())},
        {"frame-ipv4", frame(TCPHeader(nameOnly("192.0.2.10"), 1, 3), TCP_keepAlive, zero)},
        {"frame-long",
         frame(TCPHeader(nameOnly("192.0.2.10", 7777), 2, 0), TCP_broadcastMessage, "hello")},
        {"join-reply", frame(today, TCP_joinReply, "\1")},
        {"lead-reply", frame(today, TCP_leadReply, "\1")},
        {"file-begin", sequence(std::string("/srv/plans/roof.txt"), std::string("plans/roof.txt"))},
        {"file-end", sequence(std::uint32_t{2500})},
        {"echo-request", sequence(static_cast<std::uint32_t>(newYear))},
        {"echo-reply", frame(today, TCP_echoReply32, times, 4)},
        {"control-text", Bytes(address.c_str(), address.c_str() + address.size() + 1)},
        {"hangup", frame(today, TCP_hangup, zero)},
    };
}

TEST(ProtocolDocument, ShowsTheBytesThatTheLibraryWrites) {
    const std::map<std::string, Bytes> shown = documentBlocks();
    for (const auto &[name, bytes] : libraryBlocks()) {
        SCOPED_TRACE(name);
        ASSERT_EQ(shown.count(name), 1u) << "the document lacks this block";
        EXPECT_THAT(bytes, testing::ElementsAreArray(shown.at(name)));
    }
    EXPECT_EQ(shown.size(), libraryBlocks().size()) << "nobody checks one of them";
}

TEST(ProtocolDocument, NamesTheIdentifiersByTheirNumbers) {
    std::map<std::string, unsigned> wanted;
    for (const MessageKind &row : messageKinds)
        if (row.body != MessageBody::reserved)
            wanted.emplace(row.name, row.number);
    EXPECT_EQ(documentNumbers("TCP_"), wanted);
}

// ---- Identifiers ----

template <class Row, class... Rows>
std::vector<Row> listOf(const Row &first, const Rows &...more) {
    return {first, more...};
}

// In the order of the table of message kinds.
const auto named =
    listOf(TCP_conferenceControlRequest, TCP_conferenceControlReply, TCP_broadcastMessage,
           TCP_joinRequest, TCP_joinReply, TCP_joinNotify, TCP_leaveNotify, TCP_rosterRequest,
           TCP_rosterReply, TCP_rosterEntry, TCP_colorIndex, TCP_peerColorIndex, TCP_leadRequest,
           TCP_leadChangeNotify, TCP_leadReply, TCP_hangup, TCP_stopLeadRequest, TCP_keepAlive,
           TCP_fileTransferBegin, TCP_fileTransferData, TCP_fileTransferEnd, TCP_fileTransferAck,
           TCP_echoRequest32, TCP_echoReply32, TCP_echoRequest, TCP_echoReply, TCP_RECYCLE_ME_1,
           TCP_RECYCLE_ME_2, TCP_RECYCLE_ME_3, TCP_RECYCLE_ME_4, TCP_RECYCLE_ME_5, TCP_RECYCLE_ME_6,
           TCP_RECYCLE_ME_7, TCP_RECYCLE_ME_8, TCP_RECYCLE_ME_9, TCP_RECYCLE_ME_10);

// In the order of their numbers, from 46 on.
#define TEN(tens)                                                                                  \
    TCP_messageID_##tens##0, TCP_messageID_##tens##1, TCP_messageID_##tens##2,                     \
        TCP_messageID_##tens##3, TCP_messageID_##tens##4, TCP_messageID_##tens##5,                 \
        TCP_messageID_##tens##6, TCP_messageID_##tens##7, TCP_messageID_##tens##8,                 \
        TCP_messageID_##tens##9
const auto numbered = listOf(TCP_messageID_46, TCP_messageID_47, TCP_messageID_48, TCP_messageID_49,
                             TEN(5), TEN(6), TEN(7), TEN(8), TEN(9));
#undef TEN

// The sixth byte alone differs, and its digits are decimal.
TEST(Identifiers, CarryTheirNumbersAndUseEachOnce) {
    std::set<int> numbers;
    const auto expectNumber = [&](const TCPGUID &each, int digits) {
        Bytes wanted = hex("98153543 0000 0929 0000080009835d5a");
        wanted[5] = static_cast<unsigned char>(digits);
        EXPECT_EQ(identifier(each), wanted);
        EXPECT_LT(digits & 0x0F, 10);
        numbers.insert(digits);
    };
    ASSERT_EQ(named.size() + 2, std::size(messageKinds)); // the first of the numbered have bodies
    for (std::size_t i = 0; i < named.size(); ++i)
        expectNumber(named[i], messageKinds[i].number);
    for (std::size_t i = 0; i < numbered.size(); ++i) {
        const int number = 46 + static_cast<int>(i);
        expectNumber(numbered[i], 16 * (number / 10) + number % 10);
    }
    EXPECT_EQ(numbers.size(), 90u);
    EXPECT_EQ(*numbers.begin(), 0x10);
}

TEST(Identifiers, AreDifferentWhenAnyByteIs) {
    for (std::size_t i = 0; i < 16; ++i) {
        Bytes changed = identifier(TCP_keepAlive);
        changed[i] ^= 1;
        TCPGUID read = {};
        BufferManager reader(changed.data(), changed.size());
        reader >> read;
        EXPECT_FALSE(read == TCP_keepAlive) << "byte " << i;
    }
}

// ---- States ----

struct State {
    const char *name;
    bool (ConferenceRosterEntry::*is)() const;
    void (ConferenceRosterEntry::*set)(bool);
};

#define STATE(name)                                                                                \
    State {                                                                                        \
        "is" #name, &ConferenceRosterEntry::is##name, &ConferenceRosterEntry::set##name            \
    }
const auto states =
    listOf(STATE(Meeting), STATE(Host), STATE(Leader), STATE(Server), STATE(JoinPending),
           STATE(Shadow), STATE(LeadPending), STATE(Secure), STATE(SecureAble),
           STATE(SecureRequired), STATE(Proxy), STATE(ProxyPending), STATE(ProxyConnection),
           STATE(MUXPending), STATE(MUXEncrypt), STATE(SecurePreferred), STATE(MUXRedirected),
           STATE(FIPSSecureRequired), STATE(HidingIPsRequired), STATE(SSLOnly));
#undef STATE

// It stands behind the address, five empty texts and three numbers.
std::uint32_t stateOf(const ConferenceRosterEntry &entry) {
    std::uint32_t state = 0;
    Bytes bytes = written(entry);
    BufferManager(bytes.data() + 24 + 25 + 6, 4).read(state);
    return state;
}

TEST(ProtocolDocument, NamesTheStatesByTheirBits) {
    const std::map<std::string, unsigned> shown = documentNumbers("is");
    EXPECT_EQ(shown.size(), states.size());
    ConferenceRosterEntry all;
    std::uint32_t bits = 0;
    for (const State &row : states) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(shown.count(row.name), 1u);
        const std::uint32_t bit = shown.at(row.name);
        ConferenceRosterEntry one;
        EXPECT_FALSE((one.*row.is)());
        (one.*row.set)(true);
        EXPECT_TRUE((one.*row.is)());
        EXPECT_EQ(stateOf(one), bit);
        ConferenceRosterEntry read;
        EXPECT_NE(read.read(written(one).data(), one.size()), 0u);
        EXPECT_TRUE((read.*row.is)());
        (all.*row.set)(true);
        EXPECT_EQ(stateOf(all), bits |= bit);
    }
    for (const State &row : states) {
        (all.*row.set)(false);
        EXPECT_EQ(stateOf(all), bits &= ~shown.at(row.name));
    }
}

} // namespace
} // namespace vintok::test
