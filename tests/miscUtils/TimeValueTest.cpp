#include "miscUtils/TimeValue.h"

#include <cstdint>
#include <limits>

#include <gtest/gtest.h>
#include <time.h>

using miscUtils::getMonotonicRawSysclockTime;
using miscUtils::TimeValue;

namespace {

TimeValue rawClock()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return static_cast<TimeValue>(now.tv_sec) * 1'000'000'000 + static_cast<TimeValue>(now.tv_nsec);
}

} // namespace

TEST(TimeValue, IsTheMonotonicRawClockInNanoseconds)
{
    for (int i = 0; i < 1000; ++i) {
        const TimeValue before = rawClock();
        const TimeValue now = getMonotonicRawSysclockTime();
        const TimeValue after = rawClock();
        ASSERT_LE(before, now);
        ASSERT_LE(now, after);
    }
}

TEST(TimeValue, NoTimeIsTheLargestValue)
{
    EXPECT_EQ(miscUtils::NoTimeValue, std::numeric_limits<std::uint64_t>::max());
}

TEST(TimeValue, DifferencesAreSigned)
{
    static_assert(std::numeric_limits<miscUtils::TimeValueDelta>::is_signed);
    EXPECT_EQ(static_cast<miscUtils::TimeValueDelta>(TimeValue{5} - TimeValue{8}), -3);
}
