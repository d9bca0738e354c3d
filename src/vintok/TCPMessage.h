// The current message: the long frame, version 2.0.
//
// To send: construct, set identifier, versions and origin, `allocateMessageBuffer`, fill
// `messageBuffer()`, `write`. To receive: construct, `read`, look at `messageID()` and the body.
#ifndef VINTOK_TCPMESSAGE_H
#define VINTOK_TCPMESSAGE_H

#include "vintok/TCPMessageBase.h"

namespace vintok {

class VINTOK_API TCPMessage : public TCPMessageBase {
public:
    // Of the frame's format.
    static constexpr std::uint16_t s_majorVersion = 2;
    static constexpr std::uint16_t s_minorVersion = 0;

    // `socket` is what `read` and `write` use by default; it is not owned.
    explicit TCPMessage(int socket = -1);
};

} // namespace vintok

#endif
