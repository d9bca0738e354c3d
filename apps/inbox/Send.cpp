#include "Send.h"

#include <vintok/ConferenceParticipant.h>
#include <vintok/TCPMessage.h>

#include <algorithm>

namespace app {

bool sendMessage(int descriptor, const vintok::TCPGUID &identifier, const std::string &body) {
    vintok::TCPMessage message(descriptor);
    message.setMessageMajorVersion(vintok::ConferenceParticipant::majorVersion());
    message.setMessageMinorVersion(vintok::ConferenceParticipant::minorVersion());
    message.setMessageID(identifier);
    if (!message.allocateMessageBuffer(body.size()))
        return false;
    std::copy(body.begin(), body.end(), message.messageBuffer());
    return message.write(-1, nullptr);
}

bool sendHangup(int descriptor) {
    return sendMessage(descriptor, vintok::TCP_hangup, std::string(1, '\0'));
}

} // namespace app
