// Child processes. A child gets the three standard streams and no other descriptor of ours, a
// process group of its own (a Ctrl-C at our terminal does not reach it), and every signal at its
// default.
#ifndef VINTOK_PLATFORM_PROCESS_H
#define VINTOK_PLATFORM_PROCESS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vintok::platform {

// What a standard stream of the child is joined to: the null device, ours, or a pipe to us.
enum class ChildStream { null, ours, pipe };

// A console window of the child's own, where the system has such things.
struct ConsoleWindow {
    std::uint32_t columns = 80;
    std::uint32_t lines = 25;
    std::uint32_t attribute = 7; // colour of text and background
    bool visible = true;
};

struct ProcessStart {
    // The first is the program: a path, or a name that is looked up where the shell looks.
    std::vector<std::string> arguments;
    // Where a program gets one text and no arguments: exactly this. Empty: the arguments, quoted.
    std::string commandLine;
    // Changes to our own environment; no value takes the variable away.
    std::vector<std::pair<std::string, std::optional<std::string>>> environment;
    ChildStream input = ChildStream::null;
    ChildStream output = ChildStream::null;
    ChildStream error = ChildStream::null;
    // Cut off from our terminal, in a session of the child's own. With a window its standard
    // streams are the window's, whatever is said above, and the program is a path.
    std::optional<ConsoleWindow> ownConsole;
    bool raisedPriority = false; // tried; not having the right to it is no failure
};

// A child and our ends of its pipes, -1 for none. `closeProcess` gives all of it back.
struct Process {
    std::uint32_t id = 0; // 0: none
    std::intptr_t handle = -1;
    std::intptr_t input = -1;
    std::intptr_t output = -1;
    std::intptr_t error = -1;
    bool ended = false;
    int exitCode = -1; // once it has ended; 128 + n where a signal n ended it
};

// False, with the reason in words, when the program could not be started.
bool startProcess(const ProcessStart &start, Process &process, std::string &failure);

// What the name of a program's file ends in: ".exe" or nothing.
const char *programSuffix();

// Waits at most so long until the child has started up, where the system can tell.
void settleProcess(Process &process, std::uint32_t milliseconds);

// Waits at most so long for the end of the child. True once it has ended, `exitCode` then stands
// and nothing of the child is left in the system's process table.
bool waitProcess(Process &process, std::uint32_t milliseconds);

// Asks the child to end, as Ctrl-C does. False where the system cannot do it.
bool interruptProcess(Process &process);

// Ends the child at once, unasked; what it started itself goes with it where the system has process
// groups. The end still has to be waited for.
bool terminateProcess(Process &process);

// Closes our ends and forgets the child. One that still runs goes on without us.
void closeProcess(Process &process);

// Both return the count; 0 is the end of the pipe, -1 a failure. The read waits at most so long and
// returns no value when nothing arrived. The write blocks while the pipe is full and raises no
// signal when nobody reads.
std::optional<std::int64_t> readPipe(std::intptr_t pipe, char *buffer, std::size_t length,
                                     std::uint32_t milliseconds);
std::int64_t writePipe(std::intptr_t pipe, const char *buffer, std::size_t length);
void closePipe(std::intptr_t &pipe);

} // namespace vintok::platform

#endif
