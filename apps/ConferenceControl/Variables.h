// The environment of this process, for what the application sets in it.
#ifndef VINTOK_CONTROL_VARIABLES_H
#define VINTOK_CONTROL_VARIABLES_H

#include <string>

namespace control {

// Replaces what stood there. An empty value empties the variable, or where the system knows no
// empty ones removes it. False when the system refuses. Not while another thread reads the
// environment.
bool setVariable(const std::string &name, const std::string &value);

} // namespace control

#endif
