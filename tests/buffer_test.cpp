#include "vintok/BufferManager.h"

#include "support/Hex.h"
#include "vintok/WireText.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <stdexcept>
#include <type_traits>

namespace vintok::test {
namespace {

static_assert(!std::is_copy_assignable_v<BufferManager>, "a cursor is not meant to be assigned");

// A value and its wire form, in both directions and with every number of bytes missing.
template <typename T>
void expectWireForm(T value, T other, const char *wire) {
    SCOPED_TRACE(wire);
    Bytes expected = hex(wire);
    ASSERT_EQ(expected.size(), sizeof(T));

    Bytes written(sizeof(T) + 1, 0xEE);
    BufferManager writer(written.data(), written.size());
    EXPECT_EQ(writer.write(value), sizeof(T));
    EXPECT_EQ(writer.tell(), sizeof(T));
    EXPECT_EQ(cutAt(written, sizeof(T)), expected);
    EXPECT_EQ(written.back(), 0xEE);

    BufferManager reader(expected.data(), expected.size());
    T target = other;
    EXPECT_EQ(reader.read(target), sizeof(T));
    EXPECT_EQ(target, value);
    target = other;
    reader >> target; // exhausted
    EXPECT_EQ(target, other);
    reader.rewind();
    reader >> target;
    EXPECT_EQ(target, value);

    for (std::size_t left = 0; left < sizeof(T); ++left) {
        Bytes cut = cutAt(expected, left);
        const Bytes before = cut;
        BufferManager shortOne(cut.data(), cut.size());
        target = other;
        EXPECT_EQ(shortOne.read(target), 0U);
        EXPECT_EQ(shortOne.write(value), 0U);
        shortOne << value;
        EXPECT_EQ(shortOne.tell(), 0U);
        EXPECT_EQ(target, other);
        EXPECT_EQ(cut, before);
    }
}

TEST(Values, travelMostSignificantByteFirst) {
    expectWireForm<signed char>(-2, 1, "fe");
    expectWireForm<short>(-2, 1, "fffe");
    expectWireForm<int>(-2, 1, "fffffffe");
    expectWireForm<std::int64_t>(-2, 1, "fffffffffffffffe");
    expectWireForm<unsigned long long>(0xF102030405060708, 1, "f102030405060708");
    expectWireForm<float>(-2.5F, 1, "c0200000");
    expectWireForm<double>(1.0, 2, "3ff0000000000000");
}

TEST(Position, movesRelativeToWhereItIsAndStaysInTheRange) {
    Bytes bytes(10);
    struct Step {
        std::uint64_t from;
        std::uint64_t offset;
        std::uint64_t result;
    };
    const Step steps[] = {
        {0, 4, 4},
        {0, 10, 10},
        {0, 11, 0},
        {6, std::uint64_t{0} - 6, 0}, // back to the start
        {6, std::uint64_t{0} - 7, 6}, // before it
        {10, std::numeric_limits<std::uint64_t>::max() / 2, 10},
    };
    for (const Step &step : steps) {
        BufferManager cursor(bytes.data(), bytes.size());
        EXPECT_EQ(cursor.seek(step.from), step.from);
        EXPECT_EQ(cursor.seek(step.offset), step.result) << step.from << " by " << step.offset;
        EXPECT_EQ(cursor.tell(), step.result);
        EXPECT_EQ(cursor.buffer(), bytes.data());
    }
}

TEST(Position, inANullBufferIsTheEndWhateverTheLength) {
    BufferManager cursor(nullptr, 100);
    unsigned char byte = 7;
    EXPECT_EQ(cursor.read(byte), 0U);
    EXPECT_EQ(cursor.write(byte), 0U);
}

TEST(Blocks, moveWholeOrNotAtAll) {
    Bytes bytes = hex("0102030405");
    BufferManager cursor(bytes.data(), bytes.size());
    Bytes target(5, 0xEE);
    EXPECT_EQ(cursor.read(target.data(), 0), 0U); // looks like a failure, and is meant to
    EXPECT_EQ(cursor.read(target.data(), 6), 0U);
    EXPECT_EQ(cursor.read(target.data(), 3), 3U);
    EXPECT_EQ(target, hex("010203eeee"));
    // Position and count add up to 1.
    EXPECT_EQ(cursor.read(target.data(), std::uint64_t{0} - 2), 0U);
    EXPECT_EQ(cursor.write(target.data(), std::uint64_t{0} - 2), 0U);
    EXPECT_EQ(cursor.write(target.data(), 0), 0U);
    EXPECT_EQ(cursor.write(target.data(), 3), 0U);
    EXPECT_EQ(cursor.write(target.data(), 2), 2U);
    EXPECT_EQ(bytes, hex("0102030102"));
}

struct StringCase {
    std::string text;
    const char *wire;
};

const StringCase stringCases[] = {
    {"", "00000001 00"},
    {"a", "00000002 'a' 00"},
    {"Ann", "00000004 'Ann' 00"},
    {std::string("a\0b", 3), "00000004 'a' 00 'b' 00"},
    {"\xC3\xA9", "00000003 c3a9 00"},
};

TEST(Strings, travelWithALengthThatCountsTheZeroByte) {
    for (const StringCase &each : stringCases) {
        SCOPED_TRACE(each.wire);
        Bytes expected = hex(each.wire);
        EXPECT_EQ(size(each.text), expected.size());

        Bytes written(expected.size());
        BufferManager writer(written.data(), written.size());
        EXPECT_EQ(writer.write(each.text), expected.size());
        EXPECT_EQ(written, expected);

        std::string text = "something longer that was there before";
        BufferManager reader(expected.data(), expected.size());
        EXPECT_EQ(reader.read(text), expected.size());
        EXPECT_EQ(text, each.text);
        EXPECT_EQ(reader.tell(), expected.size());
    }
}

TEST(Strings, leaveTheCursorWhereItWasWhenTheyAreCutAnywhere) {
    for (const StringCase &each : stringCases) {
        const Bytes whole = hex(each.wire);
        for (std::size_t length = 0; length < whole.size(); ++length) {
            SCOPED_TRACE(testing::Message() << each.wire << " cut at " << length);
            Bytes cut = cutAt(whole, length);
            BufferManager cursor(cut.data(), cut.size());
            std::string text = "old";
            EXPECT_EQ(cursor.read(text), 0U);
            EXPECT_EQ(cursor.tell(), 0U);
            EXPECT_EQ(readText(cursor, text), 0U);
            EXPECT_EQ(cursor.tell(), 0U);
            EXPECT_EQ(text, "");

            Bytes room(length, 0xEE);
            BufferManager writer(room.data(), room.size());
            EXPECT_EQ(writer.write(each.text), 0U);
            EXPECT_EQ(writer.tell(), 0U);
            Bytes stale(length, 0xEE);
            if (length >= 4) // the length itself was written
                std::copy_n(whole.begin(), 4, stale.begin());
            EXPECT_EQ(room, stale);
        }
    }
}

TEST(Strings, takeTheLengthThatIsClaimedBeforeTheyAreRefused) {
    Bytes bytes = hex("00001001 'ab' 00");
    BufferManager cursor(bytes.data(), bytes.size());
    std::string text = "old";
    EXPECT_EQ(cursor.read(text), 0U);
    EXPECT_EQ(cursor.tell(), 0U);
    EXPECT_EQ(text, "old" + std::string(0x1000 - 3, ' '));
}

TEST(Strings, thatClaimToHaveNoZeroByteThrow) {
    Bytes bytes = hex("00000000 'ab' 00");
    BufferManager cursor(bytes.data(), bytes.size());
    std::string text;
    EXPECT_THROW(cursor.read(text), std::length_error);
    EXPECT_EQ(cursor.tell(), 4U);
}

TEST(Strings, endWhereTheLengthSaysWhateverTheLastByteIs) {
    Bytes bytes = hex("00000003 'abc'");
    BufferManager cursor(bytes.data(), bytes.size());
    std::string text;
    EXPECT_EQ(cursor.read(text), 7U);
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(std::strlen(text.c_str()), 2U);
}

TEST(StringsFromStrangers, neverThrowAndNeverAllocateWhatIsOnlyClaimed) {
    for (const char *wire : {"00000000 'ab' 00", "ffffffff 'ab' 00", "80000000 'ab' 00",
                             "00000004 'ab' 00", "00000000", "00000001"}) {
        SCOPED_TRACE(wire);
        Bytes bytes = hex(wire);
        BufferManager cursor(bytes.data(), bytes.size());
        std::string text = "old";
        EXPECT_EQ(readText(cursor, text), 0U);
        EXPECT_EQ(cursor.tell(), 0U);
        EXPECT_EQ(text, "");
        EXPECT_LT(text.capacity(), 100U);
    }
    Bytes bytes = hex("00000003 'ab' 00");
    BufferManager cursor(bytes.data(), bytes.size());
    std::string text = "old";
    EXPECT_EQ(readText(cursor, text), 7U);
    EXPECT_EQ(text, "ab");
}

} // namespace
} // namespace vintok::test
