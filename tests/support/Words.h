#ifndef VINTOK_TESTS_SUPPORT_WORDS_H
#define VINTOK_TESTS_SUPPORT_WORDS_H

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace vintok::test {

// What stands between the blanks of a text.
inline std::vector<std::string> wordsOf(const std::string &text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

} // namespace vintok::test

#endif
