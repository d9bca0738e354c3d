// What a person types: a line that is said, or a command that begins with a slash. "//" at the
// front says a line that begins with one slash.
#ifndef VINTOK_APP_COMMAND_H
#define VINTOK_APP_COMMAND_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace app {

enum class CommandKind {
    nothing,
    say,
    who,
    lead,
    give,
    keep,
    accept,
    reject,
    send,
    time,
    cluster,
    drain,
    leave,
    help,
    unknown
};

struct Command {
    CommandKind kind = CommandKind::nothing;
    // The line that is said, the argument of the command, or the unknown command with its slash.
    std::string text;
};

// The first word and what follows it, without the white space around both.
std::pair<std::string, std::string> splitCommand(std::string_view line);

// White space around the line and around the argument does not count.
Command parseCommand(std::string_view line);

// How a command is typed and what it does, for /help.
struct CommandHelp {
    std::string usage;
    std::string meaning;
};
std::vector<CommandHelp> commandHelp();

} // namespace app

#endif
