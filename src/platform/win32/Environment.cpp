#include "platform/Environment.h"

#include <cstdlib>

namespace vintok::platform {

bool setEnvironment(const std::string &name, const std::string &value) {
    // The runtime's own call, so that `std::getenv` sees the change; it tells the system as well.
    return name.find('=') == std::string::npos && _putenv_s(name.c_str(), value.c_str()) == 0;
}

bool unsetEnvironment(const std::string &name) {
    return setEnvironment(name, "");
}

} // namespace vintok::platform
