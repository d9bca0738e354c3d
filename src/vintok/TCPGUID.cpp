#include "vintok/TCPGUID.h"

#include "vintok/BufferManager.h"

namespace vintok {

namespace {

// All identifiers of the system are alike but for the low byte of Data2.
constexpr TCPGUID identifier(std::uint16_t data2) {
    return {0x98153543, data2, 0x0929, {0x00, 0x00, 0x08, 0x00, 0x09, 0x83, 0x5D, 0x5A}};
}

} // namespace

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

constinit const TCPGUID TCP_conferenceControlRequest = identifier(0x0010);
constinit const TCPGUID TCP_conferenceControlReply = identifier(0x0011);
constinit const TCPGUID TCP_broadcastMessage = identifier(0x0012);
constinit const TCPGUID TCP_joinRequest = identifier(0x0013);
constinit const TCPGUID TCP_joinReply = identifier(0x0014);
constinit const TCPGUID TCP_joinNotify = identifier(0x0029);
constinit const TCPGUID TCP_leaveNotify = identifier(0x0030);
constinit const TCPGUID TCP_rosterRequest = identifier(0x0017);
constinit const TCPGUID TCP_rosterReply = identifier(0x0018);
constinit const TCPGUID TCP_rosterEntry = identifier(0x0019);
constinit const TCPGUID TCP_colorIndex = identifier(0x0043);
constinit const TCPGUID TCP_peerColorIndex = identifier(0x0045);
constinit const TCPGUID TCP_leadRequest = identifier(0x0015);
constinit const TCPGUID TCP_leadChangeNotify = identifier(0x0016);
constinit const TCPGUID TCP_leadReply = identifier(0x0031);
constinit const TCPGUID TCP_hangup = identifier(0x0023);
constinit const TCPGUID TCP_stopLeadRequest = identifier(0x0024);
constinit const TCPGUID TCP_keepAlive = identifier(0x0025);
constinit const TCPGUID TCP_fileTransferBegin = identifier(0x0026);
constinit const TCPGUID TCP_fileTransferData = identifier(0x0027);
constinit const TCPGUID TCP_fileTransferEnd = identifier(0x0028);
constinit const TCPGUID TCP_fileTransferAck = identifier(0x0044);
constinit const TCPGUID TCP_echoRequest32 = identifier(0x0032);
constinit const TCPGUID TCP_echoReply32 = identifier(0x0033);
constinit const TCPGUID TCP_echoRequest = identifier(0x0020);
constinit const TCPGUID TCP_echoReply = identifier(0x0021);

constinit const TCPGUID TCP_RECYCLE_ME_1 = identifier(0x0022);
constinit const TCPGUID TCP_RECYCLE_ME_2 = identifier(0x0034);
constinit const TCPGUID TCP_RECYCLE_ME_3 = identifier(0x0035);
constinit const TCPGUID TCP_RECYCLE_ME_4 = identifier(0x0036);
constinit const TCPGUID TCP_RECYCLE_ME_5 = identifier(0x0037);
constinit const TCPGUID TCP_RECYCLE_ME_6 = identifier(0x0038);
constinit const TCPGUID TCP_RECYCLE_ME_7 = identifier(0x0039);
constinit const TCPGUID TCP_RECYCLE_ME_8 = identifier(0x0040);
constinit const TCPGUID TCP_RECYCLE_ME_9 = identifier(0x0041);
constinit const TCPGUID TCP_RECYCLE_ME_10 = identifier(0x0042);

constinit const TCPGUID TCP_messageID_46 = identifier(0x0046);
constinit const TCPGUID TCP_messageID_47 = identifier(0x0047);
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
