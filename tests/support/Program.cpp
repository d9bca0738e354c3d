#include "support/Program.h"

#include <algorithm>

namespace vintok::test {

namespace {

// What the machine's owner may have set for runs by hand.
const ChildProcess::Environment cleanEnvironment = {{"VINTOK_ERROR_LOG_LEVEL", std::nullopt},
                                                    {"VINTOK_ERROR_LOG_FILE", std::nullopt},
                                                    {"VINTOK_ERROR_PRINT", std::nullopt},
                                                    {"CONFERENCE_PARTICIPANT_DEBUG", std::nullopt},
                                                    {"CONFERENCE_ROSTER_DEBUG", std::nullopt},
                                                    {"QOR_INSTALL", std::nullopt},
                                                    {"PROOT", std::nullopt},
                                                    {"CONFERENCE_CONTROL_DEBUG", std::nullopt},
                                                    {"NO_COLOR", std::nullopt}};

std::vector<std::string> command(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), VINTOK_PROGRAM);
    return arguments;
}

std::vector<std::string> quiet(std::vector<std::string> arguments) {
    arguments.push_back("--json");
    if (arguments[0].find("relay-") != 0 && arguments[0] != "control")
        arguments.push_back("--local");
    return command(std::move(arguments));
}

} // namespace

Program::Program(std::vector<std::string> arguments)
    : ChildProcess(quiet(std::move(arguments)), cleanEnvironment) {}

ChildProcess Program::plain(std::vector<std::string> arguments) {
    return ChildProcess(command(std::move(arguments)), cleanEnvironment);
}

bool Program::tells(const std::string &event, const std::vector<EventField> &fields,
                    std::string *line) {
    return printed(
        [&](const std::string &one) {
            return one.find("{\"event\":\"" + event + "\"") == 0 &&
                   std::all_of(fields.begin(), fields.end(), [&](const EventField &field) {
                       return one.find('"' + field.first + "\":" + field.second) !=
                              std::string::npos;
                   });
        },
        line);
}

std::string Program::target() {
    std::string line;
    if (!tells("port", {}, &line))
        return "";
    const std::string key = "\"port\":";
    const std::size_t begin = line.rfind(key) + key.size();
    return "127.0.0.1:" + line.substr(begin, line.find('}') - begin);
}

} // namespace vintok::test
