// The three programs that show TCPServer at work, as functions that a main may call: each takes
// main's arguments and gives the exit status. "-port" is followed by a port number, "-host" by a
// name; other arguments are skipped.
#ifndef VINTOK_TESTTCPSERVER_H
#define VINTOK_TESTTCPSERVER_H

#include "vintok/Export.h"

namespace vintok {

// A relay on the port (0 or none: 8787) until the interrupt signal. Prints "PORT: " and the port. 1
// when it could not listen.
VINTOK_API int testTCPServer_server_main(int argc, char **argv);

// Connects to the port, on this machine unless a host is named, and prints each body that arrives,
// until the interrupt signal or the end of the connection. The result is always 1.
VINTOK_API int testTCPServer_client_recv_main(int argc, char **argv);

// Connects likewise and sends each line of the standard input as a broadcast message of 1024 bytes.
// 1 when the connection or a write failed.
VINTOK_API int testTCPServer_client_send_main(int argc, char **argv);

} // namespace vintok

#endif
