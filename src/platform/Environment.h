// The environment of this process, as `std::getenv` and children see it.
#ifndef VINTOK_PLATFORM_ENVIRONMENT_H
#define VINTOK_PLATFORM_ENVIRONMENT_H

#include <string>

namespace vintok::platform {

// Both replace what stood there and are false for a name that is empty or holds '='. Not to be
// called while another thread reads the environment. Where the system knows no empty variables, an
// empty `value` removes the variable.
bool setEnvironment(const std::string &name, const std::string &value);
bool unsetEnvironment(const std::string &name);

} // namespace vintok::platform

#endif
