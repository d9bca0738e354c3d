// Internal. The two kinds of field that control texts are put together from.
#ifndef VINTOK_CONTROLLINES_H
#define VINTOK_CONTROLLINES_H

#include <string>

namespace vintok {

inline std::string controlField(const char *keyword, const std::string &value) {
    return std::string(keyword) + "\n" + value + "\n";
}

// Left out with its keyword when the value is empty.
inline std::string optionalField(const char *keyword, const std::string &value) {
    return value.empty() ? std::string() : controlField(keyword, value);
}

} // namespace vintok

#endif
