#include "vintok/TCPAddress.h"

#include "support/Addresses.h"
#include "support/Words.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <random>

namespace vintok {
namespace {

using namespace test;

constexpr std::uint16_t untouched = 77; // what the caller had there

TEST(IPv4Text, isFourNumbersAndAnOptionalLength) {
    const struct {
        const char *text;
        Quad bytes;
        int bits = untouched;
    } rows[] = {
        {"1.2.3.4", {1, 2, 3, 4}},
        {"255.255.255.255", {255, 255, 255, 255}},
        {"001.002.003.004", {1, 2, 3, 4}},
        {"1.2.3.4/", {1, 2, 3, 4}},
        {"1.2.3.4/0", {1, 2, 3, 4}, 0},
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
        {"::1", {0, 0, 0, 0, 0, 0, 0, 1}},
        {"1::", {1}},
        {"1:2::7:8", {1, 2, 0, 0, 0, 0, 7, 8}},
        {"::2:3:4:5:6:7:8", {0, 2, 3, 4, 5, 6, 7, 8}},
        {"1:2:3:4:5:6:7::", {1, 2, 3, 4, 5, 6, 7, 0}},
        {"1:2:3::5:6:7:8", {1, 2, 3, 0, 5, 6, 7, 8}},
        {"::ffff:1.2.3.4", {0, 0, 0, 0, 0, 0xFFFF, 0x0102, 0x0304}},
        {"::1.2.3.4", {0, 0, 0, 0, 0, 0, 0x0102, 0x0304}},
        {"1::1.2.3.4", {1, 0, 0, 0, 0, 0, 0x0102, 0x0304}},
        {"1:2:3:4:5:6:1.2.3.4", {1, 2, 3, 4, 5, 6, 0x0102, 0x0304}},
        {"::255.0.0.255/96", {0, 0, 0, 0, 0, 0, 0xFF00, 0x00FF}, 96},
        {"2001:db8::/32", {0x2001, 0xDB8}, 32},
        {"::/0", {}, 0},
        {"::/", {}},
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

// Writes words in one of the many ways that mean them.
std::string writtenSomehow(const Words &words, std::mt19937 &random) {
    const bool quad = random() % 3 == 0;
    const std::size_t groups = quad ? 6 : 8;
    std::size_t gap = groups; // a gap stands for words that are zero
    std::size_t gapEnd = groups;
    const std::size_t start = random() % groups;
    if (words[start] == 0) {
        gap = start;
        for (gapEnd = gap; gapEnd < groups && words[gapEnd] == 0;)
            ++gapEnd;
    }
    std::string result;
    char part[32];
    for (std::size_t i = 0; i < groups; ++i) {
        if (i == gap) {
            result += "::";
            i = gapEnd - 1;
            continue;
        }
        if (!result.empty() && result.back() != ':')
            result += ':';
        const char *const formats[] = {"%x", "%X", "%04x"};
        std::snprintf(part, sizeof(part), formats[random() % 3], words[i]);
        result += part;
    }
    if (quad) {
        if (result.back() != ':')
            result += ':';
        std::snprintf(part, sizeof(part), "%u.%u.%u.%u", words[6] >> 8, words[6] & 0xFF,
                      words[7] >> 8, words[7] & 0xFF);
        result += part;
    }
    return result;
}

TEST(IPv6Text, meansTheSameHoweverItIsWritten) {
    std::mt19937 random(20260101);
    for (int round = 0; round < 20000; ++round) {
        Words words{};
        for (unsigned &word : words)
            word = random() % 2 == 0 ? 0
                                     : static_cast<unsigned>(random()) & (0xFFFFU >> random() % 16);
        const std::string written = writtenSomehow(words, random);
        std::uint16_t parsed[8];
        std::uint16_t bits = 0;
        ASSERT_TRUE(TCPAddress::sf_parseIPv6(written, parsed, bits)) << written;
        ASSERT_THAT(parsed, testing::ElementsAreArray(networkIPv6(words))) << written;
    }
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
    const struct {
        TCPAddress address;
        const char *text;
    } rows[] = {
        {TCPAddress(), "0.0.0.0"},
        {unixPath("/a"), "0.0.0.0"},
        {nameOnly("somewhere"), "0.0.0.0"},
        {literal("10.0.255.1"), "10.0.255.1"},
        {literal("2001:db8::"), "2001:db8:0:0:0:0:0:"},
        {literal("::"), "0:0:0:0:0:0:0:"},
        {literal("::1"), "0:0:0:0:0:0:0:1"},
        {literal("10:100:1000:1001:1010:101:1:0abc"), "10:100:1000:1001:1010:101:1:abc"},
        {literal("ff02::1000"), "ff02:0:0:0:0:0:0:1000"},
        {network("10.0.0.0/8"), "10.0.0.0/8"},
        {network("10.0.0.0"), "10.0.0.0/0"},
        {network("2001:db8::/32"), "2001:0db8:0000:0000:0000:0000:0000:0000/32"},
    };
    for (const auto &row : rows) {
        std::string result = "old";
        EXPECT_TRUE(row.address.ipString(result, true));
        EXPECT_EQ(result, row.text);
    }
    TCPAddress masked = literal("127.0.0.1");
    EXPECT_TRUE(masked.setNetMask(std::uint16_t{8}));
    EXPECT_EQ(text(masked), "127.0.0.1");

    TCPAddress::Storage storage{};
    for (const std::uint32_t type : {3U, 5U, 8U, 25U, 32U, 0x80000001U}) {
        storage.type = static_cast<TCPAddress::IPType>(type);
        TCPAddress odd;
        odd.setStorage(storage);
        std::string result;
        EXPECT_FALSE(odd.ipString(result, false));
        EXPECT_EQ(result, "Internal Error");
    }
}

TEST(Name, givesTheAddressTooWhenItIsALiteral) {
    TCPAddress address = literal("10.0.0.1");
    address.setName("");
    EXPECT_EQ(text(address), "10.0.0.1");
    address.setName("somewhere");
    EXPECT_EQ(text(address), "10.0.0.1");
    std::string name;
    EXPECT_TRUE(address.name(name));
    EXPECT_EQ(name, "somewhere");
    name = "kept";
    EXPECT_FALSE(TCPAddress().name(name));
    EXPECT_EQ(name, "kept");
}

TEST(Lower, changesAsciiLettersOnly) {
    for (int i = -128; i < 128; ++i) {
        const char before = static_cast<char>(i);
        char after = before;
        TCPAddress::sf_lower(after);
        const bool letter = i >= 'A' && i <= 'Z';
        EXPECT_EQ(after, letter ? static_cast<char>(i + 32) : before) << i;
    }
}

} // namespace
} // namespace vintok
