// Text that came from somebody else. Nothing of it reaches a terminal as it is: a name or a line
// could otherwise move the cursor, rewrite what stands above, or answer for the person at the
// keyboard.
#ifndef VINTOK_APP_TEXT_H
#define VINTOK_APP_TEXT_H

#include <charconv>
#include <cstddef>
#include <string>
#include <string_view>
#include <system_error>

namespace app {

// What `nextCharacter` returns for bytes that are no UTF-8.
inline constexpr char32_t malformedCharacter = 0xFFFFFFFF;

// Decodes the character at `position`, which must be inside the text, and moves behind it.
// Malformed bytes are passed over as one for each that a decoder has to replace: a broken character
// once, the bytes of an overlong form, a surrogate or a value above U+10FFFF one by one.
char32_t nextCharacter(std::string_view text, std::size_t &position);

// True for what a terminal acts on instead of showing it: control characters of both sets, line and
// paragraph separators, marks that turn the direction of writing, invisible tags.
bool isHostileToTerminals(char32_t character);

// The text as one line that can be printed: hostile characters and bytes that are no UTF-8 stand as
// "\x1b" or "\u202e". What is longer than `limit` characters is cut and ends in "...".
std::string printable(std::string_view text, std::size_t limit = 100000);

// Without what stands around it of `blanks`.
std::string_view trimmed(std::string_view text, std::string_view blanks = " \t\r");

// The letters of ASCII in lower case.
std::string lowered(std::string_view text);

// A number of decimal digits alone, of a signed type also with a minus before them. False, changing
// nothing, for anything else.
template <class Number>
bool parseNumber(std::string_view text, Number &number) {
    const char *end = text.data() + text.size();
    Number parsed = 0;
    const auto [stop, error] = std::from_chars(text.data(), end, parsed);
    const bool good = error == std::errc() && stop == end;
    number = good ? parsed : number;
    return good;
}

} // namespace app

#endif
