#include "vintok/TCPGUID.h"

#include "support/Hex.h"
#include "vintok/BufferManager.h"

#include <gmock/gmock.h>

#include <iterator>
#include <set>

namespace vintok {
namespace {

using test::Bytes;
using test::hex;

// In the order of their numbers.
const TCPGUID *const heldBack[] = {
    &TCP_messageID_46, &TCP_messageID_47, &TCP_messageID_48, &TCP_messageID_49, &TCP_messageID_50,
    &TCP_messageID_51, &TCP_messageID_52, &TCP_messageID_53, &TCP_messageID_54, &TCP_messageID_55,
    &TCP_messageID_56, &TCP_messageID_57, &TCP_messageID_58, &TCP_messageID_59, &TCP_messageID_60,
    &TCP_messageID_61, &TCP_messageID_62, &TCP_messageID_63, &TCP_messageID_64, &TCP_messageID_65,
    &TCP_messageID_66, &TCP_messageID_67, &TCP_messageID_68, &TCP_messageID_69, &TCP_messageID_70,
    &TCP_messageID_71, &TCP_messageID_72, &TCP_messageID_73, &TCP_messageID_74, &TCP_messageID_75,
    &TCP_messageID_76, &TCP_messageID_77, &TCP_messageID_78, &TCP_messageID_79, &TCP_messageID_80,
    &TCP_messageID_81, &TCP_messageID_82, &TCP_messageID_83, &TCP_messageID_84, &TCP_messageID_85,
    &TCP_messageID_86, &TCP_messageID_87, &TCP_messageID_88, &TCP_messageID_89, &TCP_messageID_90,
    &TCP_messageID_91, &TCP_messageID_92, &TCP_messageID_93, &TCP_messageID_94, &TCP_messageID_95,
    &TCP_messageID_96, &TCP_messageID_97, &TCP_messageID_98, &TCP_messageID_99};

const TCPGUID *const others[] = {&TCP_conferenceControlRequest,
                                 &TCP_conferenceControlReply,
                                 &TCP_broadcastMessage,
                                 &TCP_joinRequest,
                                 &TCP_joinReply,
                                 &TCP_joinNotify,
                                 &TCP_leaveNotify,
                                 &TCP_rosterRequest,
                                 &TCP_rosterReply,
                                 &TCP_rosterEntry,
                                 &TCP_colorIndex,
                                 &TCP_peerColorIndex,
                                 &TCP_leadRequest,
                                 &TCP_leadChangeNotify,
                                 &TCP_leadReply,
                                 &TCP_hangup,
                                 &TCP_stopLeadRequest,
                                 &TCP_keepAlive,
                                 &TCP_fileTransferBegin,
                                 &TCP_fileTransferData,
                                 &TCP_fileTransferEnd,
                                 &TCP_fileTransferAck,
                                 &TCP_echoRequest32,
                                 &TCP_echoReply32,
                                 &TCP_echoRequest,
                                 &TCP_echoReply,
                                 &TCP_RECYCLE_ME_1,
                                 &TCP_RECYCLE_ME_2,
                                 &TCP_RECYCLE_ME_3,
                                 &TCP_RECYCLE_ME_4,
                                 &TCP_RECYCLE_ME_5,
                                 &TCP_RECYCLE_ME_6,
                                 &TCP_RECYCLE_ME_7,
                                 &TCP_RECYCLE_ME_8,
                                 &TCP_RECYCLE_ME_9,
                                 &TCP_RECYCLE_ME_10};

TEST(Identifiers, differInOneByteWithTwoDecimalDigitsAndUseEachOnce) {
    std::set<int> numbers;
    for (const auto &table : {std::vector(std::begin(heldBack), std::end(heldBack)),
                              std::vector(std::begin(others), std::end(others))}) {
        for (const TCPGUID *each : table) {
            Bytes bytes(16);
            BufferManager cursor(bytes.data(), bytes.size());
            ASSERT_EQ(each->write(cursor), 16U);
            const int high = bytes[5] >> 4;
            const int low = bytes[5] & 0x0F;
            EXPECT_THAT(low, testing::Lt(10));
            EXPECT_TRUE(numbers.insert(10 * high + low).second) << high << low;
            bytes[5] = 0;
            EXPECT_EQ(bytes, hex("98153543 0000 0929 0000080009835d5a"));
        }
    }
    EXPECT_EQ(*numbers.begin(), 10);
    EXPECT_EQ(*numbers.rbegin(), 99);
    EXPECT_EQ(numbers.size(), 90U);
}

TEST(Identifiers, thatAreNumberedCarryTheirNumber) {
    for (std::size_t i = 0; i < std::size(heldBack); ++i) {
        const std::size_t number = 46 + i;
        EXPECT_EQ(heldBack[i]->Data2, 16 * (number / 10) + number % 10) << number;
    }
}

struct Row {
    const char *wire;
    TCPGUID identifier;
};

TEST(Identifiers, meanTheSameForBothEnds) {
    const Row rows[] = {
        {"98153543 0010 0929 0000080009835d5a", TCP_conferenceControlRequest},
        {"98153543 0012 0929 0000080009835d5a", TCP_broadcastMessage},
        {"98153543 0013 0929 0000080009835d5a", TCP_joinRequest},
        {"98153543 0014 0929 0000080009835d5a", TCP_joinReply},
        {"98153543 0015 0929 0000080009835d5a", TCP_leadRequest},
        {"98153543 0016 0929 0000080009835d5a", TCP_leadChangeNotify},
        {"98153543 0019 0929 0000080009835d5a", TCP_rosterEntry},
        {"98153543 0020 0929 0000080009835d5a", TCP_echoRequest},
        {"98153543 0023 0929 0000080009835d5a", TCP_hangup},
        {"98153543 0025 0929 0000080009835d5a", TCP_keepAlive},
        {"98153543 0028 0929 0000080009835d5a", TCP_fileTransferEnd},
        {"98153543 0030 0929 0000080009835d5a", TCP_leaveNotify},
        {"98153543 0032 0929 0000080009835d5a", TCP_echoRequest32},
        {"98153543 0040 0929 0000080009835d5a", TCP_RECYCLE_ME_8},
        {"98153543 0044 0929 0000080009835d5a", TCP_fileTransferAck},
        {"01020304 0506 0708 090a0b0c0d0e0f10",
         {0x01020304, 0x0506, 0x0708, {9, 10, 11, 12, 13, 14, 15, 16}}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.wire);
        Bytes bytes = hex(row.wire);
        TCPGUID read = {};
        BufferManager reader(bytes.data(), bytes.size());
        EXPECT_EQ(read.read(reader), 16U);
        EXPECT_TRUE(read == row.identifier);

        Bytes written(16);
        BufferManager writer(written.data(), written.size());
        writer << row.identifier;
        EXPECT_EQ(written, bytes);
    }
}

TEST(Identifiers, areDifferentWhenAnyByteIs) {
    const Bytes bytes = hex("98153543 0025 0929 0000080009835d5a");
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        Bytes changed = bytes;
        changed[i] ^= 1;
        TCPGUID read = {};
        BufferManager reader(changed.data(), changed.size());
        reader >> read;
        EXPECT_FALSE(read == TCP_keepAlive) << "byte " << i;
    }
}

// A field that does not fit is passed over, and the ones behind it are tried all the same.
TEST(Identifiers, thatAreCutGiveAndTakeTheFieldsThatFit) {
    const Bytes whole = hex("01020304 0506 0708 090a0b0c0d0e0f10");
    const TCPGUID identifier = {0x01020304, 0x0506, 0x0708, {9, 10, 11, 12, 13, 14, 15, 16}};
    const std::uint64_t moved[] = {0, 0, 2, 2, 4, 4, 6, 6, 8, 8, 8, 8, 8, 8, 8, 8, 16};
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        SCOPED_TRACE(length);
        Bytes cut = test::cutAt(whole, length);
        TCPGUID read = {};
        BufferManager reader(cut.data(), cut.size());
        EXPECT_EQ(read.read(reader), moved[length]);
        BufferManager writer(cut.data(), cut.size());
        EXPECT_EQ(identifier.write(writer), moved[length]);
        if (length == 10) {
            EXPECT_EQ(read.Data3, 0x0708);
            EXPECT_EQ(read.Data4[0], 0);
        }
    }
}

} // namespace
} // namespace vintok
