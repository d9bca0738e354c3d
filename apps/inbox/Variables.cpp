#include "Variables.h"

#include <cstdlib>
#include <map>
#include <memory>

namespace app {

bool setVariable(const std::string &name, const std::string &value) {
    // Some systems keep the text that they are given instead of copying it: it lives until the next
    // one of that name has taken its place.
    static std::map<std::string, std::unique_ptr<std::string>> texts;
    auto text = std::make_unique<std::string>(name + '=' + value);
    if (name.empty() || name.find('=') != std::string::npos || putenv(text->data()) != 0)
        return false;
    texts[name] = std::move(text);
    return true;
}

std::string variable(const std::string &name) {
    const char *value = std::getenv(name.c_str());
    return value ? value : "";
}

} // namespace app
