#include "vintok/TCPAddress.h"

#include "support/Addresses.h"
#include "support/Words.h"

#include <gmock/gmock.h>

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
    const struct {
        TCPAddress address;
        const char *text;
    } rows[] = {
        {TCPAddress(), "0.0.0.0"},
        {nameOnly("somewhere"), "0.0.0.0"},
        {literal("10.0.255.1"), "10.0.255.1"},
        {literal("2001:db8::"), "2001:db8:0:0:0:0:0:"},
        {literal("::1"), "0:0:0:0:0:0:0:1"},
        {literal("ff02::1000"), "ff02:0:0:0:0:0:0:1000"},
        {network("10.0.0.0/8"), "10.0.0.0/8"},
        {network("2001:db8::/32"), "2001:0db8:0000:0000:0000:0000:0000:0000/32"},
    };
    for (const auto &row : rows) {
        std::string result = "old";
        EXPECT_TRUE(row.address.ipString(result, true));
        EXPECT_EQ(result, row.text);
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
} // namespace vintok
