// What the library says about a failure, in the words of one line.
#ifndef VINTOK_APP_FAILURE_H
#define VINTOK_APP_FAILURE_H

#include <string>

namespace app {

// `text`, and behind a colon the headline of the system's message, if the library's last failure on
// this thread was one of the system.
std::string withLastFailure(const std::string &text);

// Whether it was a port that somebody else has.
bool lastFailureIsTakenPort();

} // namespace app

#endif
