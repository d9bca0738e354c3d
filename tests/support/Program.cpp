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

testing::AssertionResult Program::tells(const std::string &event,
                                        const std::vector<EventField> &fields, std::string *line) {
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

testing::AssertionResult Program::answers(const std::string &typed, const std::string &event,
                                          const std::vector<EventField> &fields,
                                          std::string *line) {
    type(typed);
    return tells(event, fields, line);
}

testing::AssertionResult Program::refuses(const std::string &typed, const std::string &why) {
    return answers(typed, "problem", {text("text", why)});
}

testing::AssertionResult Program::isHeard(const std::string &typed, Program &other,
                                          std::vector<EventField> fields) {
    type(typed);
    fields.push_back(text("text", typed));
    return other.tells("said", fields);
}

unsigned short Program::port() {
    std::string line;
    if (!tells("port", {}, &line))
        return 0;
    const std::string key = "\"port\":";
    return static_cast<unsigned short>(std::stoi(line.substr(line.rfind(key) + key.size())));
}

std::string Program::target() {
    const unsigned short listens = port();
    return listens == 0 ? "" : "127.0.0.1:" + std::to_string(listens);
}

} // namespace vintok::test
