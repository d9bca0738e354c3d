// The program `vintok`, run as a child: a party of a meeting, a relay or its client. Tests of it
// read its JSON events.
//
//     Program host({"host", "--name", "Ann"});
//     Program guest({"join", host.target(), "--name", "Bob"});
//     ASSERT_TRUE(host.tells("joined", {named("Bob")}));
#ifndef VINTOK_TESTS_PROGRAM_H
#define VINTOK_TESTS_PROGRAM_H

#include "support/ChildProcess.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace vintok::test {

// A field of an event, as JSON has it: {"name", "\"Ann\""}, {"colour", "1"}.
using EventField = std::pair<std::string, std::string>;

// Texts that need no escaping.
inline EventField text(const std::string &key, const std::string &value) {
    return {key, '"' + value + '"'};
}
inline EventField named(const std::string &name) {
    return text("name", name);
}
inline EventField colour(int index) {
    return {"colour", std::to_string(index)};
}

// What a program printed, with the line ends of every system the same.
inline std::string sameEnds(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

class Program : public ChildProcess {
public:
    // A run that is reachable from this machine only and prints JSON; `relay-...` and `join` get
    // their target as an argument.
    explicit Program(const Arguments &arguments);

    // A run with exactly these arguments.
    static ChildProcess plain(const Arguments &arguments);

    // Waits for an event of that kind with these fields, behind the last one that was waited for.
    testing::AssertionResult tells(const std::string &event,
                                   const std::vector<EventField> &fields = {},
                                   std::string *line = nullptr);

    // The same, once the line was typed.
    testing::AssertionResult answers(const std::string &typed, const std::string &event,
                                     const std::vector<EventField> &fields = {},
                                     std::string *line = nullptr);
    // The same, of a line that it does not understand or cannot obey.
    testing::AssertionResult refuses(const std::string &typed, const std::string &why);
    // Says a line: waits until the other one tells of it, with these fields.
    testing::AssertionResult isHeard(const std::string &typed, Program &other,
                                     std::vector<EventField> fields = {});

    // Where it listens, to be asked once; empty, and 0, when it does not come to that.
    std::string target();
    unsigned short port();
};

} // namespace vintok::test

#endif
