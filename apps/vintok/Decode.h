// `vintok decode`: prints what a record file holds.
#ifndef VINTOK_APP_DECODE_H
#define VINTOK_APP_DECODE_H

#include "Options.h"
#include "Report.h"

namespace app {

// Prints each message of the file on the standard output, up to where the file stops making sense.
// Returns the exit code of the program: 0 only when it made sense to its end.
int runDecode(const Options &options, Report &report);

} // namespace app

#endif
