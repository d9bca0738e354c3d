#include "vintok/ConferenceRosterEntry.h"
#include "vintok/TempRosterEntry.h"

#include "support/Addresses.h"
#include "support/Hex.h"

namespace vintok::test {
namespace {

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

TEST(Party, isKnownByItsAddressAlone) {
    const RosterBase party = annAt("10.0.0.1", 7777);
    const TCPAddress address = nameOnly("10.0.0.1", 7777);
    EXPECT_TRUE(party == address && address == party);
    EXPECT_TRUE(ConferenceRosterEntry(RosterBase(address)) == annInMeeting());
    EXPECT_TRUE(party != annAt("10.0.0.1", 7778));
    // Sides do not trade places: only a path on the right is compared by name.
    RosterBase path(unixPath("/a"));
    EXPECT_FALSE(literal("::") == path);
    EXPECT_TRUE(path == literal("::"));
}

TEST(User, isEmptyAndEqualByAllFiveTexts) {
    for (const auto set : {&UserInfo::setFirstName, &UserInfo::setPhone}) {
        RosterBase user;
        EXPECT_TRUE(user.empty());
        (user.*set)("x");
        EXPECT_FALSE(user.empty() || static_cast<UserInfo &>(user) == UserInfo());
    }
    RosterBase party;
    party.setColorIndex(7);
    EXPECT_FALSE(party.empty());
}

TEST(Entry, isCopiedWithoutItsBadReadsAndAssignedWithoutItsFlags) {
    ConferenceRosterEntry source = annInMeeting();
    source.setDescriptor(12);
    source.setDoBroadcast(true);
    source.setEnabled(false);
    source.setBadRead(true);

    const ConferenceRosterEntry copy(source);
    ConferenceRosterEntry assigned;
    assigned.setBadRead(true);
    assigned = source;
    for (const ConferenceRosterEntry *each :
         std::initializer_list<const ConferenceRosterEntry *>{&copy, &assigned}) {
        EXPECT_EQ(written(*each), written(source));
        EXPECT_EQ(each->descriptor(), 12);
    }
    EXPECT_TRUE(copy.doBroadcast() && !copy.enabled());
    EXPECT_EQ(copy.numBadReads() + copy.totalBadReads(), 0U);
    EXPECT_TRUE(assigned.enabled() && !assigned.doBroadcast());
    EXPECT_EQ(assigned.numBadReads(), 1U);
    assigned.setBadRead(false);
    EXPECT_EQ(assigned.numBadReads(), 0U) << "in a row";
    EXPECT_EQ(assigned.totalBadReads(), 1U);
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
}

TEST(OutgoingCall, isAssignedWithoutItsProxysName) {
    TempRosterEntry source("10.0.0.1", "10.9.9.9");
    source.setProxyHostByteOrderPort(80);
    const TempRosterEntry copy(source);
    EXPECT_EQ(copy.proxyName(), "10.9.9.9");
    EXPECT_EQ(text(copy.connectAddress()), "10.9.9.9");
    TempRosterEntry assigned("10.0.0.2", "");
    assigned = source;
    EXPECT_EQ(assigned.remoteName(), "10.0.0.1");
    EXPECT_EQ(assigned.proxyHostByteOrderPort(), 80);
    EXPECT_EQ(assigned.proxyName(), "");
}

} // namespace
} // namespace vintok::test
