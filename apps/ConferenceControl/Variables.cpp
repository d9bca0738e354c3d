#include "Variables.h"

#include <cstdlib>
#include <map>

namespace control {

bool setVariable(const std::string &name, const std::string &value) {
    // Some systems keep the text that they are given instead of copying it.
    static std::map<std::string, std::string> texts;
    std::string text = name + "=" + value;
    if (putenv(text.data()) != 0)
        return false;
    std::string &kept = texts[name];
    kept.swap(text);
    return putenv(kept.data()) == 0;
}

} // namespace control
