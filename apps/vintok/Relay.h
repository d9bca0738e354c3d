// The generic relay and its two small clients. A relay knows no meeting: a line that one client
// sends comes out at all the others.
#ifndef VINTOK_APP_RELAY_H
#define VINTOK_APP_RELAY_H

#include "Options.h"
#include "Report.h"

namespace app {

// Each runs until it is interrupted, its input ends, or its relay is gone, and returns the exit
// code of the program.
int runRelay(const Options &options, Report &report);
int runRelayClient(const Options &options, Report &report);

} // namespace app

#endif
