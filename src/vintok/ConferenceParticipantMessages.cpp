#include "vintok/ConferenceParticipantMessages.h"

#include "vintok/BufferManager.h"
#include "vintok/ConferenceParticipant.h"
#include "vintok/FrameLayout.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPStream.h"

namespace vintok {

bool openMessage(TCPMessageBase &message, const TCPGUID &identifier, std::uint64_t length) {
    message.setMessageID(identifier);
    message.setMessageMajorVersion(ConferenceParticipant::s_majorVersion);
    message.setMessageMinorVersion(ConferenceParticipant::s_minorVersion);
    return message.allocateMessageBuffer(length);
}

bool openMessage(TCPMessageBase &message, const TCPGUID &identifier,
                 const ConferenceRosterEntry &entry) {
    return openMessage(message, identifier, entry.size()) &&
           entry.write(message.messageBuffer(), message.messageBufferLength()) != 0;
}

bool sendByte(int descriptor, const TCPGUID &identifier, unsigned char value) {
    TCPMessage message(descriptor);
    if (!openMessage(message, identifier, 1))
        return false;
    message.messageBuffer()[0] = value;
    return message.write(-1, nullptr);
}

TCPGUID identifierOf(const unsigned char *frame) {
    TCPGUID identifier{};
    BufferManager cursor(const_cast<unsigned char *>(frame) + layout::identifier,
                         sizeof(identifier));
    identifier.read(cursor);
    return identifier;
}

std::size_t headerSizeOf(const unsigned char *frame) {
    const bool isIPv4 = frame[layout::majorVersion] == 0 && frame[layout::majorVersion + 1] == 1;
    return isIPv4 ? layout::sizeIPv4 : layout::sizeLong;
}

void takeEntry(ConferenceRosterEntry &known, const ConferenceRosterEntry &received) {
    const int descriptor = known.descriptor();
    const bool shadow = known.isShadow();
    const bool proxyPending = known.isProxyPending();
    const bool multiplexerPending = known.isMUXPending();
    known = received;
    known.setDescriptor(descriptor);
    known.setShadow(shadow);
    known.setProxyPending(proxyPending);
    known.setMUXPending(multiplexerPending);
}

std::string logText(const ConferenceRosterEntry &entry) {
    ConferenceRosterEntry shown(entry);
    static_cast<UserInfo &>(shown) = entry.visible();
    shown.setMeetingName(visibleText(entry.meetingName()));
    shown.setMeetingID(visibleText(entry.meetingID()));
    shown.setProxyName(visibleText(entry.proxyName()));
    return shown.toString();
}

} // namespace vintok
