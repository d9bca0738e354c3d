// Messages that the program itself puts on a connection.
#ifndef VINTOK_APP_SEND_H
#define VINTOK_APP_SEND_H

#include <vintok/TCPGUID.h>

#include <string>

namespace app {

// In the version that a participant speaks. Blocks until the peer's side has taken it; false when
// the connection is gone or there is no memory for the message.
bool sendMessage(int descriptor, const vintok::TCPGUID &identifier, const std::string &body);

// Says that this side hangs up. Whoever keeps the connection open until the peer has closed it
// loses nothing of what was sent before; closing at once can, since what the peer still sends then
// breaks the connection under the lines that it has not read yet.
bool sendHangup(int descriptor);

} // namespace app

#endif
