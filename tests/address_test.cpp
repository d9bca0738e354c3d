#include "vintok/TCPAddress.h"

#include "support/Addresses.h"
#include "support/Hex.h"
#include "support/Words.h"

#include <random>

namespace vintok::test {
namespace {

// ---- Flags ----

TEST(Flags, followFromTheAddress) {
    const std::pair<const char *, std::uint32_t> rows[] = {
        {"10.0.0.1", 1},  {"127.0.0.1", 9}, {"127.0.0.2", 1}, {"255.255.255.255", 17},
        {"::1", 10},      {"::7f00:1", 2},  {"ff01::1", 18},  {"ff12::1", 2}, // transient multicast
        {"somewhere", 0},
    };
    for (const auto &[text, type] : rows) {
        const TCPAddress address = literal(text);
        EXPECT_EQ(address.ipType(), type) << text;
        EXPECT_EQ(address.isIPv4(), (type & 1) != 0) << text;
        EXPECT_EQ(address.isIPv6(), (type & 2) != 0) << text;
        EXPECT_EQ(address.isLoopback(), (type & 8) != 0) << text;
        EXPECT_EQ(address.isBroadcast(), (type & 16) != 0) << text;
        std::string name;
        EXPECT_TRUE(address.name(name));
        EXPECT_EQ(name, text);
    }
}

TEST(Flags, ofAPathLeaveNothingOfTheAddressBefore) {
    TCPAddress address = nameOnly("::1", 80);
    address.setUnix("/run/meeting");
    EXPECT_EQ(stored(address), hex("00000000000000000000000000000000 04000000 0050 0000"));
}

TEST(RawAddress, isGivenOnlyByTheFamilyThatItHas) {
    std::uint32_t ipv4 = 7;
    std::uint16_t words[8] = {};
    EXPECT_FALSE(literal("10.1.2.3").IPv6(words));
    const TCPAddress six = literal("1:2::3");
    EXPECT_FALSE(six.IPv4(ipv4));
    EXPECT_EQ(ipv4, 0U);
    EXPECT_TRUE(six.IPv6(words));
    EXPECT_THAT(words, testing::ElementsAreArray(networkIPv6({1, 2, 0, 0, 0, 0, 0, 3})));

    // A type that does not go with the bytes, as a stranger may send it.
    TCPAddress odd;
    TCPAddress::IPFormats data;
    TCPAddress::IPType type;
    EXPECT_TRUE(six.IPdata(data, type));
    odd.setIPdata(data, TCPAddress::IPTYPE_IPV4);
    EXPECT_FALSE(odd.IPv4(ipv4));
    EXPECT_EQ(ipv4, 0U);
    odd.setIPdata(data, TCPAddress::IPTYPE_BOTH);
    EXPECT_FALSE(odd.IPv4(ipv4));
    EXPECT_FALSE(odd.IPv6(words));
}

// ---- Comparison ----

TEST(Equality, doesNotTreatItsSidesAlike) {
    TCPAddress sameIP = literal("10.0.0.1");
    sameIP.setNetwork("10.0.0.1/8");
    const struct {
        const char *what;
        TCPAddress left, right;
        bool equal;
    } rows[] = {
        {"type, mask and name aside", literal("10.0.0.1"), sameIP, true},
        {"another address", literal("10.0.0.1"), literal("10.0.0.2"), false},
        {"another port", nameOnly("10.0.0.1", 1), nameOnly("10.0.0.1", 2), false},
        {"the same name", nameOnly("a", 1), nameOnly("a", 2), true},
        {"a name and an address with another name", nameOnly("a"), literal("::"), false},
        {"an address and a name", literal("::"), nameOnly("a"), false},
        {"the same path", unixPath("/a"), unixPath("/a"), true},
        {"a path and an address that is all zeros", unixPath("/a"), literal("::"), true},
        {"the same the other way round", literal("::"), unixPath("/a"), false},
        {"nothing and all zeros", TCPAddress(), literal("0.0.0.0"), true},
        {"nothing and a name", TCPAddress(), nameOnly("a"), false},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.left == row.right, row.equal) << row.what;
        EXPECT_EQ(row.left != row.right, !row.equal) << row.what;
    }
}

TEST(Order, isThatOfTheStoredBytes) {
    // Port 256 begins with a larger byte in memory than port 255.
    const TCPAddress ascending[] = {nameOnly("z"),
                                    literal("0.0.0.0"),
                                    literal("10.0.0.1"),
                                    nameOnly("10.0.0.1", 255),
                                    nameOnly("10.0.0.1", 256),
                                    literal("10.0.0.2"),
                                    literal("200.0.0.1"),
                                    literal("1::")};
    for (std::size_t i = 0; i < std::size(ascending); ++i) {
        for (std::size_t j = 0; j < std::size(ascending); ++j) {
            SCOPED_TRACE(testing::Message() << i << " and " << j);
            EXPECT_EQ(ascending[i] < ascending[j], i < j);
            EXPECT_EQ(ascending[i] > ascending[j], i > j);
            EXPECT_EQ(ascending[i] <= ascending[j], i <= j);
            EXPECT_EQ(ascending[i] >= ascending[j], i >= j);
        }
    }
    // Equal by name, whatever the bytes say.
    EXPECT_TRUE(nameOnly("a", 2) <= nameOnly("a", 1));
    EXPECT_FALSE(nameOnly("a", 2) < nameOnly("a", 1));
    EXPECT_TRUE(nameOnly("a", 1) >= nameOnly("a", 2));
}

// ---- Networks ----

TEST(Network, holdsTheAddressesThatItsMaskCovers) {
    const struct {
        const char *address, *network;
        bool inside;
    } rows[] = {
        {"10.1.2.3", "10.0.0.0/8", true},
        {"10.1.2.3", "10.1.2.4/32", false},
        {"10.1.2.4", "10.1.2.4", false}, // no mask
        {"192.168.7.255", "192.168.4.0/22", true},
        {"192.168.8.0", "192.168.4.0/22", false},
        {"128.0.0.0", "255.0.0.0/1", true},
        {"127.0.0.1", "255.0.0.0/1", false},
        {"::1", "2001:db8::/32", true}, // any IPv6 address, deliberately
        {"2001:db8::1", "2001:db8::", false},
        {"10.1.2.3", "2001:db8::/32", false},
        {"::1", "10.0.0.0/8", false},
    };
    for (const auto &row : rows)
        EXPECT_EQ(literal(row.address).isInNet(network(row.network)), row.inside)
            << row.address << " in " << row.network;

    TCPAddress host = literal("10.0.0.0");
    EXPECT_TRUE(host.setNetMask(std::uint16_t{8}));
    EXPECT_FALSE(literal("10.1.2.3").isInNet(host)) << "a host with a mask is no network";

    // A mask longer than the address, as it may come over the wire.
    TCPAddress::Storage storage;
    TCPAddress wide = network("10.1.2.3/32");
    wide.storage(storage);
    storage.maskBits = 65535;
    wide.setStorage(storage);
    EXPECT_TRUE(literal("10.1.2.3").isInNet(wide));
    EXPECT_FALSE(literal("10.1.2.2").isInNet(wide));
}

TEST(Network, takesItsMaskFromTheTextOrApart) {
    TCPAddress address;
    EXPECT_TRUE(address.setNetwork("10.0.0.0/8"));
    EXPECT_EQ(address.maskBits(), 8);
    EXPECT_TRUE(address.setNetwork("10.1.0.0"));
    EXPECT_EQ(address.maskBits(), 8) << "without a length the mask stays";
    EXPECT_TRUE(address.setNetwork("10.1.0.0", std::string("255.255.0.0")));
    EXPECT_EQ(address.maskBits(), 16);
    EXPECT_FALSE(address.setNetwork("10.1.0.0", std::uint16_t{33}));
    EXPECT_EQ(address.maskBits(), 16);
    EXPECT_TRUE(address.setNetwork("1::", std::uint16_t{128}));
    EXPECT_EQ(address.ipType(), 34U);
    EXPECT_FALSE(address.setNetwork("1::", std::uint16_t{129}));
    EXPECT_FALSE(address.setNetwork(""));
    const std::string before = text(address);
    for (const std::string other : {"somewhere", "10.0.0.0/33", "1::/129"}) {
        EXPECT_TRUE(address.setNetwork(other));
        EXPECT_EQ(text(address), before) << other << " is a name and nothing else";
        std::string name;
        EXPECT_TRUE(address.name(name));
        EXPECT_EQ(name, other);
    }
}

TEST(NetMask, countsTheBitsOfAText) {
    const std::pair<const char *, int> rows[] = {
        // -1: refused
        {"255.255.255.0", 24}, {"0.0.0.0", 0},
        {"128.0.0.0", 1},      {"255.255.254.0", 23},
        {"255.255.240.0", -1}, // this one byte is not among those that are known
        {"255.253.0.0", -1},   {"ffff:fffe::", 31},
        {"ffff:f000::", -1},   {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 128},
        {"somewhere", -1},     {"", -1},
    };
    for (const auto &[mask, bits] : rows) {
        TCPAddress address;
        EXPECT_TRUE(address.setNetMask(std::uint16_t{77}));
        EXPECT_EQ(address.setNetMask(std::string(mask)), bits >= 0) << mask;
        EXPECT_EQ(address.maskBits(), bits >= 0 ? bits : 77) << mask;
    }
    TCPAddress ipv4 = literal("10.0.0.1");
    EXPECT_FALSE(ipv4.setNetMask(std::string("ffff:ffff:8000::"))) << "33 bits are too many here";
    EXPECT_EQ(ipv4.maskBits(), 0);
}

TEST(MaskText, isAppended) {
    const std::pair<const char *, const char *> rows[] = {
        {"10.0.0.0", "0.0.0.0"},
        {"10.0.0.0/20", "255.255.240.0"},
        {"10.0.0.0/32", "255.255.255.255"},
        {"1::/19", "ffff:e000:0:0:0:0:0:0"},
        {"1::/128", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
    };
    for (const auto &[wide, text] : rows) {
        std::string mask = "mask ";
        EXPECT_TRUE(network(wide).maskString(mask));
        EXPECT_EQ(mask, std::string("mask ") + text) << wide;
    }
    std::string mask = "mask ";
    EXPECT_FALSE(literal("10.0.0.1").maskString(mask));
    EXPECT_FALSE(TCPAddress().maskString(mask));
    EXPECT_EQ(mask, "mask ");
}

// ---- Wire form ----

TEST(Wire, holdsEverythingButTheName) {
    TCPAddress host = nameOnly("10.0.0.1", 7777);
    TCPAddress wide = network("2001:db8::/32");
    wide.setHostByteOrderPort(443);
    const std::pair<TCPAddress, const char *> rows[] = {
        {TCPAddress(), "00000000000000000000000000000000 00000000 0000 0000"},
        {host, "0000000000000000000000000a000001 00000001 1e61 0000"},
        {literal("127.0.0.1"), "0000000000000000000000007f000001 00000009 0000 0000"},
        {wide, "20010db8000000000000000000000000 00000022 01bb 0020"},
    };
    for (const auto &[address, form] : rows) {
        SCOPED_TRACE(form);
        const Bytes wire = hex(form);
        Bytes written(25, 0xEE);
        EXPECT_EQ(address.write(written.data(), written.size()), 24U);
        EXPECT_EQ(cutAt(written, 24), wire);
        EXPECT_EQ(written[24], 0xEE);

        TCPAddress read = nameOnly("old", 1);
        EXPECT_EQ(read.read(wire.data(), wire.size()), 24U);
        EXPECT_EQ(stored(read), stored(address));
        std::string name;
        EXPECT_FALSE(read.name(name));

        for (std::size_t length = 0; length < wire.size(); ++length) {
            Bytes cut = cutAt(wire, length);
            TCPAddress untouched = nameOnly("old", 1);
            EXPECT_EQ(untouched.read(cut.data(), cut.size()), 0U);
            EXPECT_TRUE(untouched.name(name));
            EXPECT_EQ(untouched.hostByteOrderPort(), 1);
            Bytes room(length, 0xEE);
            EXPECT_EQ(address.write(room.data(), room.size()), 0U);
            EXPECT_THAT(room, testing::Each(0xEE));
        }
    }
}

TEST(Wire, takesTheTypeAsItComes) {
    const Bytes wire = hex("0102030405060708090a0b0c0d0e0f10 fffffffe abcd ffff");
    TCPAddress address;
    EXPECT_EQ(address.read(wire.data(), wire.size()), 24U);
    EXPECT_EQ(address.ipType(), 0xFFFFFFFEU);
    EXPECT_EQ(address.maskBits(), 0xFFFF);
    Bytes again(24);
    EXPECT_EQ(address.write(again.data(), again.size()), 24U);
    EXPECT_EQ(again, wire);
}

// ---- Texts ----

constexpr std::uint16_t untouched = 77; // what the caller had there

TEST(IPv4Text, isFourNumbersAndAnOptionalLength) {
    const struct {
        const char *text;
        Quad bytes;
        int bits = untouched;
    } rows[] = {
        {"1.2.3.4", {1, 2, 3, 4}},
        {"001.002.003.004", {1, 2, 3, 4}},
        {"1.2.3.4/", {1, 2, 3, 4}},
        {"1.2.3.4/32", {1, 2, 3, 4}, 32},
        {"1.2.3.4/65560", {1, 2, 3, 4}, 24},      // 16 bits are kept
        {"0001.002.003.004/08", {1, 2, 3, 4}, 8}, // 19 characters
    };
    std::uint32_t address = 1;
    std::uint16_t bits = untouched;
    for (const auto &row : rows) {
        bits = untouched;
        EXPECT_TRUE(TCPAddress::sf_parseIPv4(row.text, address, bits)) << row.text;
        EXPECT_EQ(address, networkIPv4(row.bytes)) << row.text;
        EXPECT_EQ(bits, row.bits) << row.text;
    }
    EXPECT_FALSE(TCPAddress::sf_parseIPv4("1.2.3.4/33", address, bits));
    EXPECT_EQ(address, networkIPv4({1, 2, 3, 4}));
    EXPECT_EQ(bits, 0);
}

TEST(IPv4Text, isRefusedWhenItIsAnythingElse) {
    std::vector<std::string> texts =
        wordsOf("1.2.3 1.2.3. .1.2.3 1..2.3 1.2.3.4. 1.2.3.4.5 256.1.1.1 1.1.1.256 1.2.3.a "
                "4294967297.1.1.1 1.2.3/4 1.2.3.4/1/1 1.2.3.4/8. 1.2.3.4/-1 +1.2.3.4 /8 "
                "0001.0002.003.004/08"); // 20 characters
    texts.insert(texts.end(), {"", " 1.2.3.4", "1.2.3.4 ", std::string("1.2.3.4\0", 8)});
    for (const std::string &text : texts) {
        std::uint32_t address = 1;
        std::uint16_t bits = untouched;
        EXPECT_FALSE(TCPAddress::sf_parseIPv4(text, address, bits)) << text;
        EXPECT_EQ(address, 0U) << text;
        EXPECT_EQ(bits, untouched) << text;
    }
}

TEST(IPv6Text, hasEightGroupsAGapAQuadAndALength) {
    const struct {
        const char *text;
        Words words;
        int bits = untouched;
    } rows[] = {
        {"1:2:3:4:5:6:7:8", {1, 2, 3, 4, 5, 6, 7, 8}},
        {"ABCD::1", {0xABCD, 0, 0, 0, 0, 0, 0, 1}},
        {"::", {}},
        {"1::", {1}},
        {"::2:3:4:5:6:7:8", {0, 2, 3, 4, 5, 6, 7, 8}},
        {"::ffff:1.2.3.4", {0, 0, 0, 0, 0, 0xFFFF, 0x0102, 0x0304}},
        {"1:2:3:4:5:6:1.2.3.4", {1, 2, 3, 4, 5, 6, 0x0102, 0x0304}},
        {"::255.0.0.255/96", {0, 0, 0, 0, 0, 0, 0xFF00, 0x00FF}, 96},
        {"1::/128", {1}, 128},
        {"::1/65600", {0, 0, 0, 0, 0, 0, 0, 1}, 64}, // 16 bits are kept
        {"::12345", {0, 0, 0, 0, 0, 0, 0, 0x2345}},
        {"::65537.2.3.4", {0, 0, 0, 0, 0, 0, 0x0102, 0x0304}},
        {"::1/6a", {0, 0, 0, 0, 0, 0, 0, 1}, 6}, // as far as there are digits
        {"000000000000:0:0:0:0:0000000:0000000000000000:1/1", {0, 0, 0, 0, 0, 0, 0, 1}, 1},
    };
    for (const auto &row : rows) {
        std::uint16_t words[8];
        std::uint16_t bits = untouched;
        EXPECT_TRUE(TCPAddress::sf_parseIPv6(row.text, words, bits)) << row.text;
        EXPECT_THAT(words, testing::ElementsAreArray(networkIPv6(row.words))) << row.text;
        EXPECT_EQ(bits, row.bits) << row.text;
    }
}

TEST(IPv6Text, isRefusedWhenItIsAnythingElse) {
    std::vector<std::string> texts =
        wordsOf(": ::: 1 1.2.3.4 1:2:3:4:5:6:7 1:2:3:4:5:6:7:8:9 :1:2:3:4:5:6:7 1:2:3:4:5:6:7: "
                "::1: :1::2 1:::2 1::2::3 ::2:: 1:2:3:4::5:6:7:8 g::1 ::1%1 [::1] ::1.2.3 "
                "::1.2.3.4.5 ::1.2.3.256 ::1.2..4 1.2.3.4:: ::1.2.3.4:1 :1.2.3.4 "
                "1:2:3:4:5:6:7:1.2.3.4 ::a.2.3.4 ::1/8/8 ::1/8:1 ::1/1.2.3.4 /64 . / ::/: "
                "000000000000:0:0:0:0:0000000:00000000000000000:1/1"); // 50 characters
    texts.insert(texts.end(), {"", " ::1"});
    std::uint16_t bits = untouched;
    for (const std::string &text : texts) {
        std::uint16_t words[8] = {1, 1, 1, 1, 1, 1, 1, 1};
        EXPECT_FALSE(TCPAddress::sf_parseIPv6(text, words, bits)) << text;
        EXPECT_THAT(words, testing::Each(0)) << text;
        EXPECT_EQ(bits, untouched) << text;
    }
    std::uint16_t words[8];
    EXPECT_FALSE(TCPAddress::sf_parseIPv6("::1/ff", words, bits));
    EXPECT_EQ(bits, untouched);
    EXPECT_FALSE(TCPAddress::sf_parseIPv6("::1/129", words, bits));
    EXPECT_EQ(bits, 0);
}

TEST(AnyText, isRefusedOrReadAsSomethingThatPrintsBackTheSame) {
    constexpr char alphabet[] = "0123456789abfF::::..//g";
    std::mt19937 random(20260102);
    int accepted = 0;
    for (int round = 0; round < 200000; ++round) {
        std::string garbage(1 + random() % 24, ' ');
        for (char &c : garbage)
            c = alphabet[random() % (sizeof(alphabet) - 1)];
        TCPAddress first;
        first.setNetwork(garbage);
        if (!first.isNetwork())
            continue;
        ++accepted;
        TCPAddress second;
        ASSERT_TRUE(second.setNetwork(text(first))) << garbage;
        ASSERT_EQ(stored(second), stored(first)) << garbage;
    }
    EXPECT_GT(accepted, 100);
}

TEST(AddressText, dropsLeadingZerosAndTheLastGroupOfZeros) {
    const std::pair<TCPAddress, const char *> rows[] = {
        {TCPAddress(), "0.0.0.0"},
        {nameOnly("somewhere"), "0.0.0.0"},
        {literal("10.0.255.1"), "10.0.255.1"},
        {literal("2001:db8::"), "2001:db8:0:0:0:0:0:"},
        {literal("::1"), "0:0:0:0:0:0:0:1"},
        {literal("ff02::1000"), "ff02:0:0:0:0:0:0:1000"},
        {network("10.0.0.0/8"), "10.0.0.0/8"},
        {network("2001:db8::/32"), "2001:0db8:0000:0000:0000:0000:0000:0000/32"},
    };
    for (const auto &[address, text] : rows) {
        std::string result = "old";
        EXPECT_TRUE(address.ipString(result, true));
        EXPECT_EQ(result, text);
    }
    TCPAddress::Storage storage{};
    for (const std::uint32_t type : {3U, 8U, 0x80000001U}) {
        storage.type = static_cast<TCPAddress::IPType>(type);
        TCPAddress odd;
        odd.setStorage(storage);
        std::string result;
        EXPECT_FALSE(odd.ipString(result, false));
        EXPECT_EQ(result, "Internal Error");
    }
}

} // namespace
} // namespace vintok::test
