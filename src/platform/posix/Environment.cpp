#include "platform/Environment.h"

#include <cstdlib>

namespace vintok::platform {

bool setEnvironment(const std::string &name, const std::string &value) {
    return setenv(name.c_str(), value.c_str(), 1) == 0;
}

bool unsetEnvironment(const std::string &name) {
    return unsetenv(name.c_str()) == 0;
}

} // namespace vintok::platform
