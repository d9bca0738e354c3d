#include "vintok/ConferenceRosterEntry.h"
#include "vintok/TempRosterEntry.h"

#include "support/Addresses.h"
#include "support/Hex.h"

#include <gmock/gmock.h>

namespace vintok {
namespace {

using namespace test;

constexpr const char *annWire = "00000004 'Ann' 00"   // first name
                                "00000001 00"         // last name
                                "00000003 'Dr' 00"    // title
                                "00000006 'ann@x' 00" // e-mail
                                "00000002 '7' 00";    // phone

UserInfo ann() {
    UserInfo user;
    user.setFirstName("Ann");
    user.setTitle("Dr");
    user.setEmail("ann@x");
    user.setPhone("7");
    return user;
}

RosterBase annAt(const std::string &ip, std::uint16_t port) {
    RosterBase party(ann());
    party = nameOnly(ip, port);
    party.setMajorVersion(4);
    party.setMinorVersion(1);
    party.setColorIndex(3);
    return party;
}

std::string baseWire() {
    return std::string("0000000000000000000000000a000001 00000001 1e61 0000") + annWire +
           "0004 0001 0003";
}

ConferenceRosterEntry annInMeeting() {
    ConferenceRosterEntry entry(annAt("10.0.0.1", 7777));
    entry.setMeeting(true);
    entry.setHidingIPsRequired(true);
    EXPECT_TRUE(entry.setMeetingName("Plan"));
    EXPECT_TRUE(entry.setMeetingID("#1"));
    return entry;
}

std::string entryWire() {
    return baseWire() + "00400001" + "00000005 'Plan' 00" + "00000003 '#1' 00";
}

template <typename Record>
Bytes written(const Record &record) {
    Bytes bytes(record.size());
    EXPECT_EQ(record.write(bytes.data(), bytes.size()), bytes.size());
    return bytes;
}

// A record and its wire form in both directions, cut at every length, and with every string's
// length turned into one that cannot be.
template <typename Record>
void expectWireForm(const Record &record, const std::string &wireText,
                    const std::vector<std::size_t> &strings) {
    const Bytes wire = hex(wireText);
    EXPECT_EQ(record.size(), wire.size());
    EXPECT_EQ(written(record), wire);
    EXPECT_EQ(record.write(nullptr, wire.size()), 0U);

    Bytes longer = wire;
    longer.resize(wire.size() + 3, 0xEE);
    Record read;
    EXPECT_EQ(read.read(longer.data(), longer.size()), wire.size());
    EXPECT_EQ(written(read), wire);

    for (std::size_t length = 0; length < wire.size(); ++length) {
        SCOPED_TRACE(testing::Message() << "cut at " << length);
        const Bytes cut = cutAt(wire, length);
        Bytes room(length);
        EXPECT_EQ(record.write(room.data(), room.size()), 0U);
        Record target = record;
        EXPECT_EQ(target.read(cut.data(), cut.size()), 0U);
        Record smaller = record;
        EXPECT_EQ(smaller.read(nullptr, 1000), 0U);
        EXPECT_EQ(written(smaller), written(Record()));
    }
    for (const std::size_t place : strings) {
        const std::uint32_t left = static_cast<std::uint32_t>(wire.size() - place - 4);
        for (const std::uint32_t count : {0U, left + 1, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
            SCOPED_TRACE(testing::Message() << "a string of " << count << " at " << place);
            Bytes hostile = wire;
            for (std::size_t i = 0; i < 4; ++i)
                hostile[place + i] = static_cast<unsigned char>(count >> (24 - 8 * i));
            Record target = record;
            EXPECT_EQ(target.read(hostile.data(), hostile.size()), 0U);
            EXPECT_LE(target.size(), wire.size()) << "takes no more than there is";
        }
    }
}

TEST(Wire, ofAUserIsFiveStrings) {
    expectWireForm(ann(), annWire, {0, 8, 13, 20, 30});
    expectWireForm(UserInfo(), "00000001 00 00000001 00 00000001 00 00000001 00 00000001 00",
                   {0, 5, 10, 15, 20});
}

TEST(Wire, ofAPartyIsAddressUserVersionsAndColour) {
    expectWireForm(annAt("10.0.0.1", 7777), baseWire(), {24, 32, 37, 44, 54});
}

TEST(Wire, ofAnEntryIsPartyStateAndMeeting) {
    expectWireForm(annInMeeting(), entryWire(), {24, 32, 37, 44, 54, 70, 79});
}

TEST(Reading, keepsTheFieldsBeforeABadOneAndEmptiesTheRest) {
    Bytes wire = hex(entryWire());
    wire[40] = 0; // the title, behind two good names
    ConferenceRosterEntry entry = annInMeeting();
    entry.setTitle("old");
    entry.setPhone("old");
    EXPECT_EQ(entry.read(wire.data(), wire.size()), 0U);
    EXPECT_EQ(text(entry), "10.0.0.1");
    EXPECT_EQ(entry.firstName(), "Ann");
    EXPECT_EQ(entry.title(), "");
    EXPECT_EQ(entry.phone(), "");
    EXPECT_EQ(entry.colorIndex(), 65535);
    EXPECT_FALSE(entry.isMeeting());
    EXPECT_EQ(entry.meetingName(), "");

    wire = hex(entryWire());
    wire[82] = 0xFF; // the meeting's identifier
    EXPECT_EQ(entry.read(wire.data(), wire.size()), 0U);
    EXPECT_EQ(entry.meetingName(), "Plan");
    EXPECT_EQ(entry.meetingID(), "");
}

TEST(Reading, leavesAloneWhatIsKnownAtThisEndOnly) {
    const Bytes wire = hex(entryWire());
    for (const std::size_t length : {wire.size(), wire.size() - 1, std::size_t{0}}) {
        ConferenceRosterEntry entry(12);
        EXPECT_TRUE(entry.setProxyName("proxy"));
        entry.setDoBroadcast(true);
        entry.setEnabled(false);
        entry.setBadRead(true);
        EXPECT_EQ(entry.read(wire.data(), length), length == wire.size() ? length : 0U);
        EXPECT_EQ(entry.descriptor(), 12);
        EXPECT_EQ(entry.proxyName(), "proxy");
        EXPECT_TRUE(entry.doBroadcast());
        EXPECT_FALSE(entry.enabled());
        EXPECT_EQ(entry.numBadReads(), 1U);
    }
}

// Bits that nobody has a name for pass through.
TEST(State, isTakenAndGivenAsItStands) {
    Bytes wire = written(ConferenceRosterEntry());
    for (std::size_t i = 55; i < 59; ++i)
        wire[i] = 0xFF;
    ConferenceRosterEntry entry;
    EXPECT_EQ(entry.read(wire.data(), wire.size()), wire.size());
    EXPECT_EQ(written(entry), wire);
}

TEST(User, isEmptyAndEqualByAllFiveTexts) {
    void (UserInfo::*const setters[])(const std::string &) = {
        &UserInfo::setFirstName, &UserInfo::setLastName, &UserInfo::setTitle, &UserInfo::setEmail,
        &UserInfo::setPhone};
    for (const auto set : setters) {
        UserInfo user;
        EXPECT_TRUE(user.empty());
        (user.*set)("x");
        EXPECT_FALSE(user.empty());
        EXPECT_FALSE(user == UserInfo());
        UserInfo other = ann();
        (other.*set)("x");
        EXPECT_FALSE(other == ann());
        other.clear();
        EXPECT_TRUE(other == UserInfo());
    }
    EXPECT_TRUE(ann() == ann());
}

TEST(Party, isKnownByItsAddressAlone) {
    RosterBase party = annAt("10.0.0.1", 7777);
    const RosterBase stranger(nameOnly("10.0.0.1", 7777));
    const TCPAddress address = nameOnly("10.0.0.1", 7777);
    const ConferenceRosterEntry entry(stranger);
    EXPECT_TRUE(party == stranger);
    EXPECT_TRUE(party == address);
    EXPECT_TRUE(address == party);
    EXPECT_TRUE(entry == party);
    EXPECT_TRUE(entry == address);
    EXPECT_TRUE(entry == annInMeeting());
    EXPECT_TRUE(party != annAt("10.0.0.1", 7778));
    EXPECT_FALSE(party == RosterBase(ann()));
    // Sides do not trade places: only a path on the right is compared by name.
    RosterBase path(unixPath("/a"));
    EXPECT_FALSE(literal("::") == path);
    EXPECT_TRUE(path == literal("::"));
}

TEST(Party, isEmptyWithoutAddressPortColourAndUser) {
    RosterBase party;
    party.setMajorVersion(4);
    EXPECT_TRUE(party.empty());
    party.setName("a name alone");
    EXPECT_TRUE(party.empty());
    party.setColorIndex(7);
    EXPECT_FALSE(party.empty());
    party.clear();
    EXPECT_TRUE(party.empty());
    EXPECT_EQ(party.majorVersion(), 0);
    party.setPort(1);
    EXPECT_FALSE(party.empty());
    EXPECT_FALSE(RosterBase(ann()).empty());
    EXPECT_FALSE(RosterBase(literal("::")).empty());

    TCPAddress &seenAsAddress = party = annAt("10.0.0.1", 1);
    seenAsAddress.clear();
    EXPECT_TRUE(party.empty()) << "clearing goes for the whole party";
}

TEST(Party, takesAnAddressOrAUserAlone) {
    ConferenceRosterEntry entry = annInMeeting();
    entry = nameOnly("10.0.0.2", 1);
    EXPECT_EQ(text(entry), "10.0.0.2");
    EXPECT_EQ(entry.firstName(), "Ann");
    EXPECT_EQ(entry.colorIndex(), 3);
    entry = UserInfo();
    EXPECT_EQ(entry.firstName(), "");
    EXPECT_EQ(text(entry), "10.0.0.2");
    entry = annAt("10.0.0.3", 1);
    EXPECT_EQ(entry.firstName(), "Ann");
    EXPECT_EQ(entry.meetingName(), "Plan");
    EXPECT_TRUE(entry.isMeeting());
    EXPECT_TRUE(ConferenceRosterEntry(ann()).RosterBase::UserInfo::operator==(ann()));
    EXPECT_EQ(text(ConferenceRosterEntry(literal("10.0.0.4"))), "10.0.0.4");
}

TEST(Entry, isCopiedWithoutItsBadReadsAndAssignedWithoutItsFlags) {
    ConferenceRosterEntry source = annInMeeting();
    source.setDescriptor(12);
    EXPECT_TRUE(source.setProxyName("proxy"));
    source.setDoBroadcast(true);
    source.setEnabled(false);
    source.setBadRead(true);
    source.setBadRead(true);
    source.setBadReadKeepAliveTime(99);

    const ConferenceRosterEntry copy(source);
    EXPECT_EQ(written(copy), written(source));
    EXPECT_EQ(copy.descriptor(), 12);
    EXPECT_EQ(copy.proxyName(), "proxy");
    EXPECT_TRUE(copy.doBroadcast());
    EXPECT_FALSE(copy.enabled());
    EXPECT_EQ(copy.numBadReads(), 0U);
    EXPECT_EQ(copy.totalBadReads(), 0U);
    EXPECT_EQ(copy.getBadReadKeepAliveTime(), 0U);

    ConferenceRosterEntry assigned;
    EXPECT_EQ(assigned.descriptor(), -1);
    EXPECT_TRUE(assigned.enabled());
    EXPECT_FALSE(assigned.doBroadcast());
    assigned.setBadRead(true);
    assigned.setBadReadKeepAliveTime(5);
    assigned = source;
    EXPECT_EQ(written(assigned), written(source));
    EXPECT_EQ(assigned.descriptor(), 12);
    EXPECT_EQ(assigned.proxyName(), "proxy");
    EXPECT_FALSE(assigned.doBroadcast());
    EXPECT_TRUE(assigned.enabled());
    EXPECT_EQ(assigned.numBadReads(), 1U);
    EXPECT_EQ(assigned.totalBadReads(), 1U);
    EXPECT_EQ(assigned.getBadReadKeepAliveTime(), 5U);
}

TEST(Entry, countsBadReadsInARowAndInAll) {
    ConferenceRosterEntry entry;
    entry.setBadRead(true);
    entry.setBadRead(true);
    EXPECT_EQ(entry.numBadReads(), 2U);
    entry.setBadRead(false);
    EXPECT_EQ(entry.numBadReads(), 0U);
    entry.setBadRead(true);
    EXPECT_EQ(entry.numBadReads(), 1U);
    EXPECT_EQ(entry.totalBadReads(), 3U);
}

TEST(Entry, takesItsOwnTexts) {
    ConferenceRosterEntry entry = annInMeeting();
    EXPECT_TRUE(entry.setMeetingName(entry.meetingName()));
    EXPECT_EQ(entry.meetingName(), "Plan");
}

TEST(Text, hidesTheAddressButNotThePort) {
    const std::string user =
        "First Name:  Ann\nLast Name:  \nTitle:  Dr\nEmail:  ann@x\nPhone:  7\n";
    const std::string rest = "Major:  4\nMinor:  1\nColor Index:  3\n";
    EXPECT_EQ(ann().toString(), user);
    const RosterBase party = annAt("10.0.0.1", 65535);
    EXPECT_EQ(party.toString(false), "IP:  10.0.0.1\nPort:  65535\n" + user + rest);
    EXPECT_EQ(party.toString(true), "IP:  hidden\nPort:  65535\n" + user + rest);

    ConferenceRosterEntry entry = annInMeeting();
    entry.setSSLOnly(true);
    EXPECT_TRUE(entry.setProxyName("proxy"));
    EXPECT_EQ(entry.toString(), "IP:  hidden\nPort:  7777\n" + user + rest +
                                    "State:  0xC00001\nMeeting Name:  Plan\nMeeting ID:  #1\n"
                                    "Proxy:  proxy\n");
    EXPECT_THAT(ConferenceRosterEntry().toString(),
                testing::AllOf(testing::StartsWith("IP:  0.0.0.0\nPort:  0\n"),
                               testing::HasSubstr("Color Index:  65535\nState:  0x0\n")));
}

TEST(OutgoingCall, isAssignedWithoutItsProxysName) {
    TempRosterEntry source("10.0.0.1", "10.9.9.9");
    source.setHostByteOrderPort(7777);
    source.setProxyHostByteOrderPort(80);
    source.setAuthentication("secret");
    source.setMeetingID("#1");
    source.setAssociatedDescriptor(12);
    EXPECT_EQ(source.connectAddress().port(), source.proxyPort());

    const TempRosterEntry copy(source);
    TempRosterEntry assigned("10.0.0.2", "");
    EXPECT_EQ(assigned.associatedDescriptor(), -1);
    assigned = source;
    for (const TempRosterEntry *each : {&copy, static_cast<const TempRosterEntry *>(&assigned)}) {
        EXPECT_EQ(each->remoteName(), "10.0.0.1");
        EXPECT_EQ(each->hostByteOrderPort(), 7777);
        EXPECT_EQ(each->proxyHostByteOrderPort(), 80);
        EXPECT_EQ(each->authentication(), "secret");
        EXPECT_EQ(each->meetingID(), "#1");
        EXPECT_EQ(each->associatedDescriptor(), 12);
    }
    EXPECT_EQ(copy.proxyName(), "10.9.9.9");
    EXPECT_EQ(text(copy.connectAddress()), "10.9.9.9");
    EXPECT_EQ(assigned.proxyName(), "");
    EXPECT_EQ(&assigned.connectAddress(), &static_cast<const TCPAddress &>(assigned));
}

} // namespace
} // namespace vintok
