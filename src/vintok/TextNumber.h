// Internal. Numbers in texts that others wrote, converted without overflow.
#ifndef VINTOK_TEXTNUMBER_H
#define VINTOK_TEXTNUMBER_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vintok {

// The value of a digit in lower case, 16 or more for anything else.
inline unsigned digitValue(char c) {
    if (c >= '0' && c <= '9')
        return static_cast<unsigned>(c - '0');
    return c >= 'a' && c <= 'f' ? static_cast<unsigned>(c - 'a') + 10 : 16;
}

// The low 16 bits of the number that `text` begins with. False without a digit.
inline bool leadingNumber(std::string_view text, unsigned base, std::uint16_t &number) {
    if (text.empty() || digitValue(text.front()) >= base)
        return false;
    unsigned value = 0;
    for (std::size_t i = 0; i < text.size() && digitValue(text[i]) < base; ++i)
        value = (value * base + digitValue(text[i])) & 0xFFFF;
    number = static_cast<std::uint16_t>(value);
    return true;
}

} // namespace vintok

#endif
