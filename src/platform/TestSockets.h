// What tests do to sockets and the library never does. Built into the tests only.
#ifndef VINTOK_PLATFORM_TESTSOCKETS_H
#define VINTOK_PLATFORM_TESTSOCKETS_H

#include <cstddef>

namespace vintok::platform {

// Ends our side of the stream; the peer's side stays open.
bool shutdownSending(int descriptor);

// Closing the descriptor then drops what is unsent and resets the connection.
bool resetOnClose(int descriptor);

// How many descriptors this process may have open, 0 when the system sets no such limit.
std::size_t descriptorLimit();

// False when the system sets no such limit, or `count` is above what it allows.
bool setDescriptorLimit(std::size_t count);

} // namespace vintok::platform

#endif
