// What a control process tells, in words.
#ifndef VINTOK_APP_CONTROLNOTICES_H
#define VINTOK_APP_CONTROLNOTICES_H

#include "ControlParser.h"
#include "Report.h"

#include <string>

namespace app {

// For a person a sentence; for a script an event named after the notification's word, with the
// fields of the text under their keywords. `hides`: addresses of parties are not shown.
Notice noticeOf(control::Text text, bool hides);

// How a party is spoken of: its name, or its e-mail, or its address.
std::string nameOfParty(const vintok::RosterBase &party, bool hides);

} // namespace app

#endif
