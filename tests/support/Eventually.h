#ifndef VINTOK_TESTS_SUPPORT_EVENTUALLY_H
#define VINTOK_TESTS_SUPPORT_EVENTUALLY_H

#include "platform/Thread.h"
#include "support/Matchers.h"

#include <chrono>

namespace vintok::test {

// Waits until `condition` holds, for as long as a slow machine may need.
template <typename Condition>
testing::AssertionResult eventually(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return testing::AssertionFailure() << "it did not come";
        platform::sleepMilliseconds(1);
    }
    return testing::AssertionSuccess();
}

} // namespace vintok::test

#endif
