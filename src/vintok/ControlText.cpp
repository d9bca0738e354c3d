#include "vintok/ControlText.h"

#include "vintok/ControlLines.h"
#include "vintok/Log.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace vintok {

namespace {

bool writeText(int descriptor, const TCPGUID &identifier, const std::string &text) {
    if (text.empty())
        return false;
    const std::size_t length = std::strlen(text.c_str()); // a zero byte ends the text
    TCPMessage message;
    message.setMessageID(identifier);
    if (!message.allocateMessageBuffer(text.size() + 1) || message.messageBuffer() == nullptr)
        return false;
    std::copy_n(text.c_str(), length + 1, message.messageBuffer());
    return message.write(descriptor, nullptr);
}

// Scans one pair of digits as far as it goes: "4z" is 4, "z4" is nothing.
bool scanPair(const char *pair, unsigned &value) {
    const std::string digits(pair, 2);
    return std::sscanf(digits.c_str(), "%x", &value) == 1;
}

} // namespace

bool writeRequestString(int descriptor, const std::string &text) {
    return writeText(descriptor, TCP_conferenceControlRequest, text);
}

bool writeReplyString(int descriptor, const std::string &text) {
    return writeText(descriptor, TCP_conferenceControlReply, text);
}

std::string ControlValues::lines(const words::Parts &parts) const {
    std::string text;
    std::size_t next = 0;
    for (const auto &[field, use] : parts) {
        const words::FieldRow &row = words::rowOf(field);
        const std::string &value = m_values.at(next++);
        const bool isFlag = row.kind == words::Kind::flag;
        if (isFlag ? value != "true" : use == words::Use::ifAny && value.empty())
            continue;
        if (!row.bare)
            text.append(row.name) += '\n';
        if (!isFlag)
            text += (row.kind == words::Kind::encoded ? encodeText(value) : value) + '\n';
    }
    return text;
}

std::string ControlValues::text(const words::Word &row) const {
    auto value = m_values.begin();
    for (const words::Part &part : row.parts)
        if ((value++)->empty() && part.use == words::Use::needed)
            return std::string();
    return std::string(row.word) + '\n' + lines(row.parts);
}

void ControlValues::add(const TCPAddress &address) {
    std::string ip;
    const bool known = address.ipString(ip);
    add(known ? ip : "");
    add(known ? std::to_string(address.hostByteOrderPort()) : "");
}

void ControlValues::add(const UserInfo &user) {
    for (const std::string &value :
         {user.firstName(), user.lastName(), user.title(), user.email(), user.phone()})
        add(value);
}

void ControlValues::add(const RosterBase &entry) {
    add(static_cast<const TCPAddress &>(entry));
    add(static_cast<const UserInfo &>(entry));
    add(entry.colorIndex());
}

std::string formatUShort(unsigned short value) {
    return formatText("%hu\n", value);
}

std::string formatUInt(unsigned int value) {
    return formatText("%u\n", value);
}

std::string formatColor(unsigned short value) {
    return ControlValues(value).lines(words::colorParts);
}

std::string formatAddress(const TCPAddress &address) {
    return ControlValues(address).lines(words::addressParts);
}

std::string formatUserInfo(const UserInfo &user) {
    return ControlValues(user).lines(words::userParts);
}

std::string formatRosterBase(const RosterBase &entry) {
    return ControlValues(entry).lines(words::partyParts);
}

std::string encodeText(const std::string &text) {
    std::string result;
    for (const char c : text) {
        const auto widened = static_cast<unsigned short>(static_cast<signed char>(c));
        result += formatText("%02hx", widened);
    }
    return result;
}

std::string decodeText(const std::string &text) {
    std::string result;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        unsigned value = 0;
        if (scanPair(text.data() + i, value) && (value & 0xFF) != 0)
            result.push_back(static_cast<char>(value));
    }
    return result;
}

} // namespace vintok
