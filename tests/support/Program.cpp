#include "support/Program.h"

#include <algorithm>

namespace vintok::test {

namespace {

Arguments quiet(Arguments arguments) {
    arguments.push_back("--json");
    if (arguments[0].find("relay-") != 0 && arguments[0] != "control")
        arguments.push_back("--local");
    return with({VINTOK_PROGRAM}, arguments);
}

} // namespace

Program::Program(const Arguments &arguments) : ChildProcess(quiet(arguments)) {}

ChildProcess Program::plain(const Arguments &arguments) {
    return ChildProcess(with({VINTOK_PROGRAM}, arguments));
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
