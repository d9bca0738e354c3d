// Reads the texts by which an application and its control process talk: the counterpart of the
// library's `request...` and `replyNotify...` functions, which write them.
//
//     control::Text text;
//     std::string complaint;
//     if (control::parse(message, text, complaint) != control::ParseError::none)
//         ... // `complaint` is a line for a log
//     else if (text.word() == "placeCall")
//         call(text.value(control::Field::machineName), text.number(control::Field::port));
//
// Which fields each word takes is the library's table (ControlWords.h). Fields may come in any
// order. What is not in the table, comes twice, has no value or one out of range is an error and
// never a guess: the lines carry no lengths, so that behind something unknown nothing can be told
// apart.
//
// Nothing here blocks, resolves names or throws, but for std::bad_alloc; a text takes at most about
// the memory of its body once more.
#ifndef VINTOK_APP_CONTROL_PARSER_H
#define VINTOK_APP_CONTROL_PARSER_H

#include <vintok/ControlWords.h>
#include <vintok/RosterBase.h>
#include <vintok/TCPAddress.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vintok {
class TCPMessageBase;
}

namespace control {

using vintok::words::Direction;
using vintok::words::Field;

enum class ParseError : unsigned char {
    none,
    notControl,      // the message is neither a request nor a notification
    tooLong,         // more than maxBody bytes
    notTerminated,   // no zero byte at the end
    bytesBehindZero, // something other than zero bytes follows the zero byte
    empty,           // no line at all
    noLineFeed,      // the last line has no end
    unknownWord,     // in this direction
    unknownKeyword,  // for this word
    repeatedKeyword,
    missingValue, // the text ends where a value should stand
    badValue,     // no number, out of range, no IP address, none of the words it may be
    missingField, // one that the word always has
};

// The longest body that is looked at. No text of the library comes near it unless a value does.
inline constexpr std::size_t maxBody = 1 << 20;

class Text {
public:
    const std::string &word() const { return m_word; }
    Direction direction() const { return m_direction; }

    // Whether the text has this field, which for a flag is its value. An empty value is one.
    bool has(Field field) const { return m_values[index(field)].has_value(); }
    // Empty for a field that is not there. A number is in the digits that came.
    const std::string &value(Field field) const;
    // 0 for a field that is not there or is no number; otherwise within the range of its field.
    std::int64_t number(Field field) const;
    // Whether the outcome is "true".
    bool succeeded() const { return value(Field::outcome) == "true"; }

    // The composites. Without an address in the text that part stays empty.
    vintok::TCPAddress address() const;
    vintok::RosterBase person() const;

    // Puts a word in the place of the address, where there is one: it is nobody's to see.
    void hideAddress(const std::string &word);

private:
    friend class Parser;
    static std::size_t index(Field field) { return static_cast<std::size_t>(field); }

    std::string m_word;
    Direction m_direction = Direction::request;
    std::array<std::optional<std::string>, std::size(vintok::words::fieldRows)> m_values;
};

// Reads a body: a text and its zero byte. After an error `text` holds what was understood before it
// and `complaint` says what is wrong, in one printable line of bounded length that quotes the text.
ParseError parse(Direction direction, std::string_view body, Text &text, std::string &complaint);
// The same for a message, whose identifier says the direction.
ParseError parse(const vintok::TCPMessageBase &message, Text &text, std::string &complaint);

// The error in words, without a full stop.
const char *describe(ParseError error);

// A text from outside as a log can take it: cut to `most` bytes, with dots for what does not print.
std::string quote(std::string_view text, std::size_t most = 60);

} // namespace control

#endif
