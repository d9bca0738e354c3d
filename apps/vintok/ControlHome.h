// Where the program of the control process is.
#ifndef VINTOK_APP_CONTROLHOME_H
#define VINTOK_APP_CONTROLHOME_H

#include <string>

namespace app {

// The library looks for the program in the folder that QOR_INSTALL names. This sets that variable:
// to `folder`; without one, and if neither QOR_INSTALL nor PROOT says anything, to the folder of
// this program, which was started as `program`, provided that ConferenceControl lies beside it.
void setControlHome(const std::string &folder, const std::string &program);

} // namespace app

#endif
