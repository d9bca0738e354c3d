#include "support/Stream.h"

#include <ctime>
#include <limits>

using namespace vintok;
using namespace vintok::test;

namespace {

class Clock : public Library {
protected:
    // The library's clock must lie `offset` seconds from the system's.
    static void expectOffset(std::int64_t offset) {
        const std::int64_t before = std::time(nullptr);
        const std::int64_t now = getTime();
        const std::int64_t after = std::time(nullptr);
        EXPECT_LE(before + offset, now);
        EXPECT_GE(after + offset, now);
    }
};

TEST_F(Clock, KeepsTwoCountersByItsTwoRules) {
    struct Case {
        std::vector<std::int64_t> steps; // positive: added; negative: subtracted
        std::int64_t added;
        std::int64_t subtracted;
    };
    // An excess of added time stays whole, one of subtracted time is reduced; equal ones stay.
    const Case cases[] = {
        {{10}, 10, 0},       {{-10}, 0, 10},  {{10, -4}, 10, 0},
        {{3, -8}, 0, 5},     {{5, -5}, 5, 5}, {{5, -5, 1}, 6, 0},
        {{5, -5, -1}, 0, 1}, {{-8, 3}, 0, 5}, {{-8, 20}, 20, 0},
    };
    for (const Case &each : cases) {
        zeroTime();
        for (const std::int64_t step : each.steps)
            EXPECT_TRUE(step > 0 ? addTime(step) : subtractTime(-step));
        EXPECT_EQ(each.added, getAddTime());
        EXPECT_EQ(each.subtracted, getSubtractTime());
        expectOffset(each.added - each.subtracted);
    }
    zeroTime();
    expectOffset(0);
}

TEST_F(Clock, SurvivesAnyNumber) {
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
    for (const auto &[added, subtracted] :
         {std::pair{most, least}, std::pair{least, most}, std::pair{most, most}}) {
        EXPECT_TRUE(addTime(added));
        EXPECT_TRUE(subtractTime(subtracted));
        getTime();
    }
    zeroTime();
    expectOffset(0);
}

TEST_F(Clock, StartsAnewWithTheLibrary) {
    addTime(1000);
    fini();
    expectOffset(0);
    expectError(TCP_ERROR_NOT_INITIALIZED, "vintok::getTime");
    init();
    EXPECT_EQ(0, getAddTime());
    expectOffset(0);
}

} // namespace
