#include "miscUtils/TimeValue.h"

#include <ctime>
#include <limits>

namespace miscUtils {

const TimeValue NoTimeValue = std::numeric_limits<TimeValue>::max();

TimeValue getMonotonicRawSysclockTime()
{
    constexpr TimeValue nanosecondsPerSecond = 1'000'000'000;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return static_cast<TimeValue>(now.tv_sec) * nanosecondsPerSecond +
           static_cast<TimeValue>(now.tv_nsec);
}

} // namespace miscUtils
