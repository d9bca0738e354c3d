#include "Command.h"

#include "Text.h"

namespace app {

namespace {

struct Word {
    std::string_view word;
    CommandKind kind;
    std::string_view argument; // as /help shows it; empty: takes none
    std::string_view meaning;
};

const Word words[] = {
    {"/who", CommandKind::who, "", "who is in the meeting, with colours"},
    {"/lead", CommandKind::lead, "", "ask for the lead"},
    {"/give", CommandKind::give, "", "give the lead to the party that asks for it"},
    {"/keep", CommandKind::keep, "", "do not give it"},
    {"/accept", CommandKind::accept, "[CALL]", "let a caller in, the one who waits longest first"},
    {"/reject", CommandKind::reject, "[CALL]", "turn a caller away"},
    {"/send", CommandKind::send, "FILE", "send a file to everybody"},
    {"/time", CommandKind::time, "", "the time by the meeting's clock"},
    {"/cluster", CommandKind::cluster, "", "the hosts of the meeting, where it has several"},
    {"/drain", CommandKind::drain, "", "send the guests of this host to the others"},
    {"/leave", CommandKind::leave, "", "leave the meeting and end"},
    {"/help", CommandKind::help, "", "this list"},
};

constexpr std::string_view blanks = " \t\r\n\v\f";

} // namespace

std::pair<std::string, std::string> splitCommand(std::string_view line) {
    line = trimmed(line, blanks);
    const std::string_view word = line.substr(0, line.find_first_of(blanks));
    return {std::string(word), std::string(trimmed(line.substr(word.size()), blanks))};
}

Command parseCommand(std::string_view line) {
    line = trimmed(line, blanks);
    if (line.empty())
        return {};
    if (line.front() != '/')
        return {CommandKind::say, std::string(line)};
    if (line.substr(0, 2) == "//")
        return {CommandKind::say, std::string(line.substr(1))};
    const auto [typed, argument] = splitCommand(line);
    for (const Word &word : words)
        if (word.word == typed && (argument.empty() || !word.argument.empty()))
            return {word.kind, argument};
    return {CommandKind::unknown, std::string(line)};
}

std::vector<CommandHelp> commandHelp() {
    std::vector<CommandHelp> help;
    for (const Word &word : words) {
        std::string usage(word.word);
        if (!word.argument.empty())
            usage.append(" ").append(word.argument);
        help.push_back({usage, std::string(word.meaning)});
    }
    help.push_back({"//TEXT", "say /TEXT"});
    return help;
}

} // namespace app
