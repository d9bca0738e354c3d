// How a call reaches its party: straight, or by way of a multiplexer, and perhaps through an HTTP
// proxy on the way to that.
#ifndef VINTOK_APP_TUNNELOPTIONS_H
#define VINTOK_APP_TUNNELOPTIONS_H

#include "Target.h"

#include <string>

namespace app {

struct TunnelOptions {
    Target multiplexer; // no host: straight to the party
    Target proxy;       // no host: straight to the multiplexer
    std::string meetingID;
    std::string credentials; // USER:PASSWORD for whoever asks on the way; empty for none

    bool wanted() const { return !multiplexer.host.empty(); }
};

} // namespace app

#endif
