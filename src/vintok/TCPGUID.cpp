#include "vintok/TCPGUID.h"

#include "vintok/BufferManager.h"

namespace vintok {

namespace {

// All identifiers of the system are alike but for the low byte of Data2.
constexpr TCPGUID identifier(std::uint16_t data2) {
    return {0x98153543, data2, 0x0929, {0x00, 0x00, 0x08, 0x00, 0x09, 0x83, 0x5D, 0x5A}};
}

// That of the row of this name; a name without a row does not compile.
consteval TCPGUID named(std::string_view name) {
    const auto *row = messageKinds;
    while (row->name != name)
        ++row;
    return identifier(row->number);
}

} // namespace

const MessageKind *findMessageKind(const TCPGUID &wanted) {
    for (const MessageKind &row : messageKinds)
        if (identifier(row.number) == wanted)
            return &row;
    return nullptr;
}

std::uint64_t TCPGUID::read(BufferManager &cursor) {
    std::uint64_t count = cursor.read(Data1);
    count += cursor.read(Data2);
    count += cursor.read(Data3);
    return count + cursor.read(Data4, sizeof(Data4));
}

std::uint64_t TCPGUID::write(BufferManager &cursor) const {
    std::uint64_t count = cursor.write(Data1);
    count += cursor.write(Data2);
    count += cursor.write(Data3);
    return count + cursor.write(Data4, sizeof(Data4));
}

BufferManager &operator>>(BufferManager &cursor, TCPGUID &value) {
    value.read(cursor);
    return cursor;
}

BufferManager &operator<<(BufferManager &cursor, const TCPGUID &value) {
    value.write(cursor);
    return cursor;
}

constinit const TCPGUID TCP_conferenceControlRequest = named("TCP_conferenceControlRequest");
constinit const TCPGUID TCP_conferenceControlReply = named("TCP_conferenceControlReply");
constinit const TCPGUID TCP_broadcastMessage = named("TCP_broadcastMessage");
constinit const TCPGUID TCP_joinRequest = named("TCP_joinRequest");
constinit const TCPGUID TCP_joinReply = named("TCP_joinReply");
constinit const TCPGUID TCP_joinNotify = named("TCP_joinNotify");
constinit const TCPGUID TCP_leaveNotify = named("TCP_leaveNotify");
constinit const TCPGUID TCP_rosterRequest = named("TCP_rosterRequest");
constinit const TCPGUID TCP_rosterReply = named("TCP_rosterReply");
constinit const TCPGUID TCP_rosterEntry = named("TCP_rosterEntry");
constinit const TCPGUID TCP_colorIndex = named("TCP_colorIndex");
constinit const TCPGUID TCP_peerColorIndex = named("TCP_peerColorIndex");
constinit const TCPGUID TCP_leadRequest = named("TCP_leadRequest");
constinit const TCPGUID TCP_leadChangeNotify = named("TCP_leadChangeNotify");
constinit const TCPGUID TCP_leadReply = named("TCP_leadReply");
constinit const TCPGUID TCP_hangup = named("TCP_hangup");
constinit const TCPGUID TCP_stopLeadRequest = named("TCP_stopLeadRequest");
constinit const TCPGUID TCP_keepAlive = named("TCP_keepAlive");
constinit const TCPGUID TCP_fileTransferBegin = named("TCP_fileTransferBegin");
constinit const TCPGUID TCP_fileTransferData = named("TCP_fileTransferData");
constinit const TCPGUID TCP_fileTransferEnd = named("TCP_fileTransferEnd");
constinit const TCPGUID TCP_fileTransferAck = named("TCP_fileTransferAck");
constinit const TCPGUID TCP_echoRequest32 = named("TCP_echoRequest32");
constinit const TCPGUID TCP_echoReply32 = named("TCP_echoReply32");
constinit const TCPGUID TCP_echoRequest = named("TCP_echoRequest");
constinit const TCPGUID TCP_echoReply = named("TCP_echoReply");

constinit const TCPGUID TCP_RECYCLE_ME_1 = named("TCP_RECYCLE_ME_1");
constinit const TCPGUID TCP_RECYCLE_ME_2 = named("TCP_RECYCLE_ME_2");
constinit const TCPGUID TCP_RECYCLE_ME_3 = named("TCP_RECYCLE_ME_3");
constinit const TCPGUID TCP_RECYCLE_ME_4 = named("TCP_RECYCLE_ME_4");
constinit const TCPGUID TCP_RECYCLE_ME_5 = named("TCP_RECYCLE_ME_5");
constinit const TCPGUID TCP_RECYCLE_ME_6 = named("TCP_RECYCLE_ME_6");
constinit const TCPGUID TCP_RECYCLE_ME_7 = named("TCP_RECYCLE_ME_7");
constinit const TCPGUID TCP_RECYCLE_ME_8 = named("TCP_RECYCLE_ME_8");
constinit const TCPGUID TCP_RECYCLE_ME_9 = named("TCP_RECYCLE_ME_9");
constinit const TCPGUID TCP_RECYCLE_ME_10 = named("TCP_RECYCLE_ME_10");

constinit const TCPGUID TCP_messageID_46 = named("TCP_messageID_46");
constinit const TCPGUID TCP_messageID_47 = named("TCP_messageID_47");
constinit const TCPGUID TCP_messageID_48 = identifier(0x0048);
constinit const TCPGUID TCP_messageID_49 = identifier(0x0049);
constinit const TCPGUID TCP_messageID_50 = identifier(0x0050);
constinit const TCPGUID TCP_messageID_51 = identifier(0x0051);
constinit const TCPGUID TCP_messageID_52 = identifier(0x0052);
constinit const TCPGUID TCP_messageID_53 = identifier(0x0053);
constinit const TCPGUID TCP_messageID_54 = identifier(0x0054);
constinit const TCPGUID TCP_messageID_55 = identifier(0x0055);
constinit const TCPGUID TCP_messageID_56 = identifier(0x0056);
constinit const TCPGUID TCP_messageID_57 = identifier(0x0057);
constinit const TCPGUID TCP_messageID_58 = identifier(0x0058);
constinit const TCPGUID TCP_messageID_59 = identifier(0x0059);
constinit const TCPGUID TCP_messageID_60 = identifier(0x0060);
constinit const TCPGUID TCP_messageID_61 = identifier(0x0061);
constinit const TCPGUID TCP_messageID_62 = identifier(0x0062);
constinit const TCPGUID TCP_messageID_63 = identifier(0x0063);
constinit const TCPGUID TCP_messageID_64 = identifier(0x0064);
constinit const TCPGUID TCP_messageID_65 = identifier(0x0065);
constinit const TCPGUID TCP_messageID_66 = identifier(0x0066);
constinit const TCPGUID TCP_messageID_67 = identifier(0x0067);
constinit const TCPGUID TCP_messageID_68 = identifier(0x0068);
constinit const TCPGUID TCP_messageID_69 = identifier(0x0069);
constinit const TCPGUID TCP_messageID_70 = identifier(0x0070);
constinit const TCPGUID TCP_messageID_71 = identifier(0x0071);
constinit const TCPGUID TCP_messageID_72 = identifier(0x0072);
constinit const TCPGUID TCP_messageID_73 = identifier(0x0073);
constinit const TCPGUID TCP_messageID_74 = identifier(0x0074);
constinit const TCPGUID TCP_messageID_75 = identifier(0x0075);
constinit const TCPGUID TCP_messageID_76 = identifier(0x0076);
constinit const TCPGUID TCP_messageID_77 = identifier(0x0077);
constinit const TCPGUID TCP_messageID_78 = identifier(0x0078);
constinit const TCPGUID TCP_messageID_79 = identifier(0x0079);
constinit const TCPGUID TCP_messageID_80 = identifier(0x0080);
constinit const TCPGUID TCP_messageID_81 = identifier(0x0081);
constinit const TCPGUID TCP_messageID_82 = identifier(0x0082);
constinit const TCPGUID TCP_messageID_83 = identifier(0x0083);
constinit const TCPGUID TCP_messageID_84 = identifier(0x0084);
constinit const TCPGUID TCP_messageID_85 = identifier(0x0085);
constinit const TCPGUID TCP_messageID_86 = identifier(0x0086);
constinit const TCPGUID TCP_messageID_87 = identifier(0x0087);
constinit const TCPGUID TCP_messageID_88 = identifier(0x0088);
constinit const TCPGUID TCP_messageID_89 = identifier(0x0089);
constinit const TCPGUID TCP_messageID_90 = identifier(0x0090);
constinit const TCPGUID TCP_messageID_91 = identifier(0x0091);
constinit const TCPGUID TCP_messageID_92 = identifier(0x0092);
constinit const TCPGUID TCP_messageID_93 = identifier(0x0093);
constinit const TCPGUID TCP_messageID_94 = identifier(0x0094);
constinit const TCPGUID TCP_messageID_95 = identifier(0x0095);
constinit const TCPGUID TCP_messageID_96 = identifier(0x0096);
constinit const TCPGUID TCP_messageID_97 = identifier(0x0097);
constinit const TCPGUID TCP_messageID_98 = identifier(0x0098);
constinit const TCPGUID TCP_messageID_99 = identifier(0x0099);

} // namespace vintok
