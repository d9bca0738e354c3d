#include "vintok/TCPMessage.h"

namespace vintok {

TCPMessage::TCPMessage(int socket) : TCPMessageBase(socket, s_majorVersion, s_minorVersion) {}

} // namespace vintok
