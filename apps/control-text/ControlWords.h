// Internal to the parser: the vocabulary as tables.
#ifndef VINTOK_APP_CONTROL_WORDS_H
#define VINTOK_APP_CONTROL_WORDS_H

#include "ControlParser.h"

#include <cstdint>
#include <string_view>

namespace control {

enum class Kind : unsigned char {
    text,
    flag,   // a keyword alone
    number, // from `least` to `most`
    ip,
    encoded, // pairs of hexadecimal digits
    choice,  // one of `choices`
};

struct FieldRow {
    Field field;
    Kind kind;
    std::string_view keyword; // empty: the value stands without one, directly behind the word
    std::int64_t least = 0;
    std::int64_t most = 0;
    std::array<std::string_view, 3> choices = {};
};

using FieldSet = std::uint32_t;
static_assert(FIELDS <= 32);

constexpr FieldSet bit(Field field) {
    return FieldSet{1} << static_cast<unsigned>(field);
}

struct WordRow {
    std::string_view word;
    Direction direction;
    FieldSet bare = 0;     // without keywords, in the order of the enumeration; always there, but
                           // for the line "NAME=value" of "putenv"
    FieldSet required = 0; // the library always writes them
    FieldSet optional = 0;
};

// Null when there is no such word in this direction.
const WordRow *findWord(Direction direction, std::string_view word);
// Null when there is no such keyword.
const FieldRow *findKeyword(std::string_view keyword);
const FieldRow &rowOf(Field field);

} // namespace control

#endif
