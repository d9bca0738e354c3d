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

std::string formatUShort(unsigned short value) {
    return formatText("%hu\n", value);
}

std::string formatUInt(unsigned int value) {
    return formatText("%u\n", value);
}

std::string formatColor(unsigned short value) {
    return "colorIndex\n" + formatUShort(value);
}

std::string formatAddress(const TCPAddress &address) {
    std::string ip;
    if (!address.ipString(ip))
        return std::string();
    return controlField("address", ip) + "port\n" + formatUShort(address.hostByteOrderPort());
}

std::string formatUserInfo(const UserInfo &user) {
    return optionalField("firstName", user.firstName()) +
           optionalField("lastName", user.lastName()) + optionalField("title", user.title()) +
           optionalField("email", user.email()) + optionalField("phoneNumber", user.phone());
}

std::string formatRosterBase(const RosterBase &entry) {
    return formatAddress(entry) + formatUserInfo(entry) + formatColor(entry.colorIndex());
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
