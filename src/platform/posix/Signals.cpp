#include "platform/Signals.h"

#include <csignal>

namespace vintok::platform {

std::vector<int> endingSignals() {
    return {SIGINT, SIGTERM};
}

std::vector<int> hangupSignals() {
    return {SIGHUP};
}

} // namespace vintok::platform
