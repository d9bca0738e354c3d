// Internal. Arguments of the C interface.
#ifndef VINTOK_C_OPTIONS_H
#define VINTOK_C_OPTIONS_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

namespace vintok::c {

inline std::string textOf(const char *text) {
    return text != nullptr ? text : "";
}

// Fills `all` with what is given, and with zeros what an older program does not know. False for
// what only a newer one knows, unless that is zero.
template <class Options>
bool fillOptions(const Options *given, Options &all) {
    all = Options{};
    if (given == nullptr)
        return true;
    const auto *bytes = reinterpret_cast<const unsigned char *>(given);
    const std::size_t size = given->size;
    const std::size_t known = std::min(size, sizeof all);
    if (size < sizeof given->size ||
        std::any_of(bytes + known, bytes + size, [](unsigned char each) { return each != 0; }))
        return false;
    std::memcpy(&all, bytes, known);
    return true;
}

} // namespace vintok::c

#endif
