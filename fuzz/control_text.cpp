// What an application and its control process say to each other: whatever comes is taken or
// complained about, and what is written of any values is read as those values.
#include "Fuzz.h"

#include "ControlParser.h"
#include "vintok/ControlLines.h"

using namespace vintok;
using control::Field;
using control::ParseError;
using fuzz::require;

namespace {

constexpr std::size_t longestComplaint = 500;

ParseError parse(control::Direction direction, std::string_view body, control::Text &text) {
    std::string complaint;
    const ParseError error = control::parse(direction, body, text, complaint);
    require(complaint.empty() == (error == ParseError::none), "a complaint for each error");
    require(complaint.size() <= longestComplaint, "a short one");
    require(std::all_of(complaint.begin(), complaint.end(),
                        [](char c) { return c >= ' ' && c <= '~'; }),
            "that can be printed");
    return error;
}

void read(control::Direction direction, std::string_view body) {
    control::Text text;
    if (parse(direction, body, text) != ParseError::none)
        return;
    require(words::find(direction, text.word()) != nullptr, "a word that is known");
    static_cast<void>(text.person().toString(false));
    text.hideAddress("hidden");
}

std::string line(fuzz::Input &input) {
    std::string text = input.text();
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\0'; }, '.');
    return text;
}

void readBack(const std::string &written, control::Text &text) {
    require(parse(control::Direction::request, written + '\0', text) == ParseError::none,
            "what is written can be read");
}

void write(fuzz::Input &input) {
    const std::string machine = line(input);
    const std::string proxy = line(input);
    const std::string meeting = line(input);
    const unsigned port = input.word();
    const unsigned tries = input.word();
    using words::Direction;
    const words::Word &call = *words::find(Direction::request, "placeCall");
    const std::string lines =
        ControlValues(machine, proxy, meeting, line(input), port, port, tries).text(call);
    if (lines.empty())
        return;
    control::Text text;
    readBack(lines, text);
    require(text.value(Field::machineName) == machine, "the machine");
    require(text.number(Field::port) == port, "the port");
    require(text.value(Field::meetingID) == meeting, "the meeting");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view body = fuzz::textOf(data, size);
    read(control::Direction::request, body);
    read(control::Direction::notification, body);
    std::string plain(body);
    plain.erase(std::remove(plain.begin(), plain.end(), '\0'), plain.end());
    static_cast<void>(decodeText(plain));
    fuzz::Input input(data, size);
    write(input);
    return 0;
}
