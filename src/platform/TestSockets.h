// What tests do to sockets and files, or ask of them, and the library never does. Built into the
// tests only.
#ifndef VINTOK_PLATFORM_TESTSOCKETS_H
#define VINTOK_PLATFORM_TESTSOCKETS_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace vintok::platform {

// Closing the descriptor then drops what is unsent and resets the connection.
bool resetOnClose(int descriptor);

// How many descriptors this process may have open, 0 when the system sets no such limit.
std::size_t descriptorLimit();

// False when the system sets no such limit, or `count` is above what it allows.
bool setDescriptorLimit(std::size_t count);

// From now on a file takes so many bytes and no more, as if the disk were full then; 0 takes the
// limit away again. False where there is no such limit.
bool limitFileSize(std::size_t bytes);

// A child that is started now would get it.
bool isInherited(int descriptor);
bool isInherited(std::FILE *file);

// The number under which a child would find the file, and what that child asks about it.
std::intptr_t fileNumber(std::FILE *file);
bool isOpenFile(std::intptr_t number);

// From now on a signal comes every few milliseconds and does nothing but interrupt what the system
// is doing for this process. False where there is no such thing.
bool startInterrupting();
void stopInterrupting();

// A signal comes once, after so long, and `handler` is called for it. The same.
bool interruptOnce(std::uint32_t microseconds, void (*handler)(int));

// Moves this process for good to a network that has a loopback interface and nothing else. False
// where that cannot be had. For a process with one thread.
bool leaveNetwork();

} // namespace vintok::platform

#endif
