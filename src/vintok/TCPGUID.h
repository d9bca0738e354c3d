// The identifier that says what a message's body is, and the identifiers of the system.
#ifndef VINTOK_TCPGUID_H
#define VINTOK_TCPGUID_H

#include "vintok/Export.h"

#include <cstdint>
#include <cstring>
#include <string_view>

namespace vintok {

class BufferManager;

// A plain value of 16 bytes. On the wire the three numbers are big-endian and the bytes follow as
// they are.
struct VINTOK_API TCPGUID {
    // In host byte order.

    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];

    // By all 16 bytes.
    bool operator==(const TCPGUID &other) const {
        return std::memcmp(this, &other, sizeof(TCPGUID)) == 0;
    }

    // Return the bytes moved; anything but 16 is a failure. Fields after one that did not fit are
    // still tried.
    std::uint64_t read(BufferManager &cursor);
    std::uint64_t write(BufferManager &cursor) const;
};

static_assert(sizeof(TCPGUID) == 16, "an identifier is compared as the 16 bytes that it is");

// `read` and `write` with a failure passed over in silence.
VINTOK_API BufferManager &operator>>(BufferManager &cursor, TCPGUID &identifier);
VINTOK_API BufferManager &operator<<(BufferManager &cursor, const TCPGUID &identifier);

// What a message carries.
enum class MessageBody : unsigned char {
    controlText,
    broadcast, // the application's bytes
    entry,     // a party
    answer,    // one byte: not 0 is yes
    nothing,   // a byte that says nothing
    fileBegin,
    fileData,
    fileEnd,
    fileAck,
    echoRequest32,
    echoReply32,
    echoRequest,
    echoReply,
    privateMessage,
    privateAnswer,
    fileRefusal,
    turnedAway,
    elsewhere,
    reserved, // nobody sends it
};

// What is known of an identifier.
struct MessageKind {
    std::uint16_t number;  // Data2 of the identifier
    std::string_view name; // as below
    MessageBody body;      // of its messages
};

// A row for each identifier that has a name of its own.
inline constexpr MessageKind messageKinds[] = {
    {0x0010, "TCP_conferenceControlRequest", MessageBody::controlText},
    {0x0011, "TCP_conferenceControlReply", MessageBody::controlText},
    {0x0012, "TCP_broadcastMessage", MessageBody::broadcast},
    {0x0013, "TCP_joinRequest", MessageBody::entry},
    {0x0014, "TCP_joinReply", MessageBody::answer},
    {0x0029, "TCP_joinNotify", MessageBody::reserved},
    {0x0030, "TCP_leaveNotify", MessageBody::entry},
    {0x0017, "TCP_rosterRequest", MessageBody::nothing},
    {0x0018, "TCP_rosterReply", MessageBody::entry},
    {0x0019, "TCP_rosterEntry", MessageBody::entry},
    {0x0043, "TCP_colorIndex", MessageBody::reserved},
    {0x0045, "TCP_peerColorIndex", MessageBody::reserved},
    {0x0015, "TCP_leadRequest", MessageBody::entry},
    {0x0016, "TCP_leadChangeNotify", MessageBody::entry},
    {0x0031, "TCP_leadReply", MessageBody::answer},
    {0x0023, "TCP_hangup", MessageBody::nothing},
    {0x0024, "TCP_stopLeadRequest", MessageBody::nothing},
    {0x0025, "TCP_keepAlive", MessageBody::nothing},
    {0x0026, "TCP_fileTransferBegin", MessageBody::fileBegin},
    {0x0027, "TCP_fileTransferData", MessageBody::fileData},
    {0x0028, "TCP_fileTransferEnd", MessageBody::fileEnd},
    {0x0044, "TCP_fileTransferAck", MessageBody::fileAck},
    {0x0032, "TCP_echoRequest32", MessageBody::echoRequest32},
    {0x0033, "TCP_echoReply32", MessageBody::echoReply32},
    {0x0020, "TCP_echoRequest", MessageBody::echoRequest},
    {0x0021, "TCP_echoReply", MessageBody::echoReply},
    {0x0022, "TCP_RECYCLE_ME_1", MessageBody::fileRefusal},
    {0x0034, "TCP_RECYCLE_ME_2", MessageBody::turnedAway},
    {0x0035, "TCP_RECYCLE_ME_3", MessageBody::elsewhere},
    {0x0036, "TCP_RECYCLE_ME_4", MessageBody::reserved},
    {0x0037, "TCP_RECYCLE_ME_5", MessageBody::reserved},
    {0x0038, "TCP_RECYCLE_ME_6", MessageBody::reserved},
    {0x0039, "TCP_RECYCLE_ME_7", MessageBody::reserved},
    {0x0040, "TCP_RECYCLE_ME_8", MessageBody::reserved},
    {0x0041, "TCP_RECYCLE_ME_9", MessageBody::reserved},
    {0x0042, "TCP_RECYCLE_ME_10", MessageBody::reserved},
    {0x0046, "TCP_messageID_46", MessageBody::privateMessage},
    {0x0047, "TCP_messageID_47", MessageBody::privateAnswer},
};

// Null for an identifier without a name of its own.
VINTOK_API const MessageKind *findMessageKind(const TCPGUID &identifier);

// The identifiers differ in the low byte of Data2 alone. They are ready before any constructor
// runs; compare by value, never by address.
extern VINTOK_API const TCPGUID TCP_conferenceControlRequest; // control text to the control process
extern VINTOK_API const TCPGUID TCP_conferenceControlReply;   // control text from it
extern VINTOK_API const TCPGUID TCP_broadcastMessage; // the application's data for everybody
extern VINTOK_API const TCPGUID TCP_joinRequest;
extern VINTOK_API const TCPGUID TCP_joinReply;
extern VINTOK_API const TCPGUID TCP_joinNotify;  // reserved
extern VINTOK_API const TCPGUID TCP_leaveNotify; // a party has left
extern VINTOK_API const TCPGUID TCP_rosterRequest;
extern VINTOK_API const TCPGUID TCP_rosterReply;
extern VINTOK_API const TCPGUID TCP_rosterEntry;    // one entry, or a party's hello
extern VINTOK_API const TCPGUID TCP_colorIndex;     // reserved
extern VINTOK_API const TCPGUID TCP_peerColorIndex; // reserved
extern VINTOK_API const TCPGUID TCP_leadRequest;
extern VINTOK_API const TCPGUID TCP_leadChangeNotify;
extern VINTOK_API const TCPGUID TCP_leadReply;
extern VINTOK_API const TCPGUID TCP_hangup;
extern VINTOK_API const TCPGUID TCP_stopLeadRequest;
extern VINTOK_API const TCPGUID TCP_keepAlive;
extern VINTOK_API const TCPGUID TCP_fileTransferBegin;
extern VINTOK_API const TCPGUID TCP_fileTransferData;
extern VINTOK_API const TCPGUID TCP_fileTransferEnd;
extern VINTOK_API const TCPGUID TCP_fileTransferAck;
extern VINTOK_API const TCPGUID TCP_echoRequest32; // clock echo with 32-bit times
extern VINTOK_API const TCPGUID TCP_echoReply32;
extern VINTOK_API const TCPGUID TCP_echoRequest; // clock echo with 64-bit times
extern VINTOK_API const TCPGUID TCP_echoReply;

extern VINTOK_API const TCPGUID TCP_RECYCLE_ME_1; // a file is not wanted
extern VINTOK_API const TCPGUID TCP_RECYCLE_ME_2; // why a call is turned away
extern VINTOK_API const TCPGUID TCP_RECYCLE_ME_3; // where to call instead
// Held back for later use: no message carries them.
extern VINTOK_API const TCPGUID TCP_RECYCLE_ME_4;
extern VINTOK_API const TCPGUID TCP_RECYCLE_ME_5;
extern VINTOK_API const TCPGUID TCP_RECYCLE_ME_6;
extern VINTOK_API const TCPGUID TCP_RECYCLE_ME_7;
extern VINTOK_API const TCPGUID TCP_RECYCLE_ME_8;
extern VINTOK_API const TCPGUID TCP_RECYCLE_ME_9;
extern VINTOK_API const TCPGUID TCP_RECYCLE_ME_10;

// The number stands in Data2 as its two decimal digits: 46 is 0x0046.
extern VINTOK_API const TCPGUID TCP_messageID_46; // data for one party
extern VINTOK_API const TCPGUID TCP_messageID_47; // what became of it
// Held back as well: the library sends none of them.
extern VINTOK_API const TCPGUID TCP_messageID_48;
extern VINTOK_API const TCPGUID TCP_messageID_49;
extern VINTOK_API const TCPGUID TCP_messageID_50;
extern VINTOK_API const TCPGUID TCP_messageID_51;
extern VINTOK_API const TCPGUID TCP_messageID_52;
extern VINTOK_API const TCPGUID TCP_messageID_53;
extern VINTOK_API const TCPGUID TCP_messageID_54;
extern VINTOK_API const TCPGUID TCP_messageID_55;
extern VINTOK_API const TCPGUID TCP_messageID_56;
extern VINTOK_API const TCPGUID TCP_messageID_57;
extern VINTOK_API const TCPGUID TCP_messageID_58;
extern VINTOK_API const TCPGUID TCP_messageID_59;
extern VINTOK_API const TCPGUID TCP_messageID_60;
extern VINTOK_API const TCPGUID TCP_messageID_61;
extern VINTOK_API const TCPGUID TCP_messageID_62;
extern VINTOK_API const TCPGUID TCP_messageID_63;
extern VINTOK_API const TCPGUID TCP_messageID_64;
extern VINTOK_API const TCPGUID TCP_messageID_65;
extern VINTOK_API const TCPGUID TCP_messageID_66;
extern VINTOK_API const TCPGUID TCP_messageID_67;
extern VINTOK_API const TCPGUID TCP_messageID_68;
extern VINTOK_API const TCPGUID TCP_messageID_69;
extern VINTOK_API const TCPGUID TCP_messageID_70;
extern VINTOK_API const TCPGUID TCP_messageID_71;
extern VINTOK_API const TCPGUID TCP_messageID_72;
extern VINTOK_API const TCPGUID TCP_messageID_73;
extern VINTOK_API const TCPGUID TCP_messageID_74;
extern VINTOK_API const TCPGUID TCP_messageID_75;
extern VINTOK_API const TCPGUID TCP_messageID_76;
extern VINTOK_API const TCPGUID TCP_messageID_77;
extern VINTOK_API const TCPGUID TCP_messageID_78;
extern VINTOK_API const TCPGUID TCP_messageID_79;
extern VINTOK_API const TCPGUID TCP_messageID_80;
extern VINTOK_API const TCPGUID TCP_messageID_81;
extern VINTOK_API const TCPGUID TCP_messageID_82;
extern VINTOK_API const TCPGUID TCP_messageID_83;
extern VINTOK_API const TCPGUID TCP_messageID_84;
extern VINTOK_API const TCPGUID TCP_messageID_85;
extern VINTOK_API const TCPGUID TCP_messageID_86;
extern VINTOK_API const TCPGUID TCP_messageID_87;
extern VINTOK_API const TCPGUID TCP_messageID_88;
extern VINTOK_API const TCPGUID TCP_messageID_89;
extern VINTOK_API const TCPGUID TCP_messageID_90;
extern VINTOK_API const TCPGUID TCP_messageID_91;
extern VINTOK_API const TCPGUID TCP_messageID_92;
extern VINTOK_API const TCPGUID TCP_messageID_93;
extern VINTOK_API const TCPGUID TCP_messageID_94;
extern VINTOK_API const TCPGUID TCP_messageID_95;
extern VINTOK_API const TCPGUID TCP_messageID_96;
extern VINTOK_API const TCPGUID TCP_messageID_97;
extern VINTOK_API const TCPGUID TCP_messageID_98;
extern VINTOK_API const TCPGUID TCP_messageID_99;

} // namespace vintok

#endif
