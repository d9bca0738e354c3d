#include "platform/Signals.h"

#include <csignal>

namespace vintok::platform {

std::vector<int> endingSignals() {
    return {SIGINT, SIGTERM};
}

std::vector<int> hangupSignals() {
    return {SIGHUP};
}

void ignoreBrokenPipes() {
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace vintok::platform
