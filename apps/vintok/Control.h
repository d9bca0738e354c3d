// `vintok control`: a prompt at which a person holds meetings through a control process.
#ifndef VINTOK_APP_CONTROL_H
#define VINTOK_APP_CONTROL_H

#include "Options.h"
#include "Report.h"

namespace app {

// Starts the control process, or waits for one that somebody starts by hand, and runs until one of
// the two sides ends. Returns the exit code of the program.
int runControl(const Options &options, Report &report);

} // namespace app

#endif
