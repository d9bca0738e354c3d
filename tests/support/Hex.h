// Bytes as a test writes them down.
#ifndef VINTOK_TESTS_SUPPORT_HEX_H
#define VINTOK_TESTS_SUPPORT_HEX_H

#include "support/Wire.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace vintok::test {

// Pairs of hexadecimal digits, text between apostrophes, and blanks that mean nothing:
// hex("0000 0004 'Ann' 00").
inline Bytes hex(std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    Bytes bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ' ')
            continue;
        if (text[i] == '\'') {
            const std::size_t end = text.find('\'', i + 1);
            bytes.insert(bytes.end(), text.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                         text.begin() + static_cast<std::ptrdiff_t>(end));
            i = end;
            continue;
        }
        const std::size_t high = digits.find(text.at(i));
        const std::size_t low = digits.find(text.at(++i));
        if (high == std::string_view::npos || low == std::string_view::npos)
            throw std::invalid_argument("not hexadecimal: " + std::string(text));
        bytes.push_back(static_cast<unsigned char>(high << 4 | low));
    }
    return bytes;
}

// The first `count` bytes in memory of exactly that size, so that a sanitizer sees a step beyond
// it.
inline Bytes cutAt(const Bytes &bytes, std::size_t count) {
    return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
}

} // namespace vintok::test

#endif
