// The environment of this process, as the library and children see it.
#ifndef VINTOK_APP_VARIABLES_H
#define VINTOK_APP_VARIABLES_H

#include <string>

namespace app {

// Replaces what stood there. An empty value empties the variable, or where the system knows no
// empty ones removes it. False when the system refuses. Not while another thread reads the
// environment.
bool setVariable(const std::string &name, const std::string &value);

// Empty when there is none.
std::string variable(const std::string &name);

} // namespace app

#endif
