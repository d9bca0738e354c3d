#include "platform/Signals.h"

#include <csignal>

namespace vintok::platform {

std::vector<int> endingSignals() {
    return {SIGINT, SIGTERM, SIGBREAK};
}

std::vector<int> hangupSignals() {
    return {};
}

void ignoreBrokenPipes() {}

} // namespace vintok::platform
