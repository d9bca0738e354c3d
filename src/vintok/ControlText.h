// The texts by which an application and its control process talk.
//
// A control message is a TCPMessage whose body is a text and one zero byte. A text is a run of
// lines, each ended by a line feed: first the word, then fields, which are a keyword line with a
// value line behind it, a keyword line alone (a flag), or the lines of an address, a person or a
// roster record. Nothing is escaped, so that a value with a line feed in it breaks the lines; the
// one value that strangers write is encoded (`encodeText`).
//
// Ports are in host byte order. Sending blocks until the peer has taken the message; a failure
// leaves the error of the write (`lastError`).
#ifndef VINTOK_CONTROLTEXT_H
#define VINTOK_CONTROLTEXT_H

#include "vintok/Export.h"
#include "vintok/RosterBase.h"
#include "vintok/TCPAddress.h"
#include "vintok/UserInfo.h"

#include <string>

namespace vintok {

// Send a text, up to its first zero byte, from the application to the control process and the other
// way. False, with nothing sent, for an empty text.
VINTOK_API bool writeRequestString(int descriptor, const std::string &text);
VINTOK_API bool writeReplyString(int descriptor, const std::string &text);

// Decimal digits and a line feed.
VINTOK_API std::string formatUShort(unsigned short value);
VINTOK_API std::string formatUInt(unsigned int value);

// The field for a party's colour, keyword and value; 65535 is none.
VINTOK_API std::string formatColor(unsigned short value);

// Empty for an address that has no text.
VINTOK_API std::string formatAddress(const TCPAddress &address);

// Fields that are empty are left out.
VINTOK_API std::string formatUserInfo(const UserInfo &user);

// Address, person and colour; the versions are not carried.
VINTOK_API std::string formatRosterBase(const RosterBase &entry);

// Each byte as hexadecimal digits: two of them, but four (ffnn) for a byte of 0x80 or above, as the
// programs on both sides have always had it.
VINTOK_API std::string encodeText(const std::string &text);

// Takes the digits in pairs: those of a byte above 0x7f give 0xff and the byte. Skips pairs that
// are not digits, zero bytes, and an odd last character.
VINTOK_API std::string decodeText(const std::string &text);

} // namespace vintok

#endif
