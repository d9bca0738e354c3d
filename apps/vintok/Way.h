// How a call reaches its party: straight, or by way of a multiplexer, and perhaps through an HTTP
// proxy on the way to that.
#ifndef VINTOK_APP_WAY_H
#define VINTOK_APP_WAY_H

#include "Target.h"

#include <string>
#include <string_view>

namespace app {

struct Way {
    Target multiplexer; // no host: straight to the party
    Target proxy;       // no host: straight to the multiplexer
    std::string meetingID;
    std::string credentials; // USER:PASSWORD for whoever asks on the way; empty for none

    bool isTunnelled() const { return !multiplexer.host.empty(); }
};

// Whether the text can stand in a line of a request: not empty, no control character, no blank at
// an end.
bool isHeaderText(std::string_view text);

// USER:PASSWORD (RFC 7617): the first colon divides, and no character is a control character.
bool areCredentials(std::string_view text);

} // namespace app

#endif
