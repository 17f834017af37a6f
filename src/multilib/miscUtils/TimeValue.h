#pragma once

#include "miscUtils/Export.h"

namespace miscUtils {

/// An absolute time on the monotonic raw clock, or a duration, in nanoseconds.
using TimeValue = unsigned long;

/// A signed difference of two TimeValues, in nanoseconds.
using TimeValueDelta = long;

static_assert(sizeof(TimeValue) == 8 && sizeof(TimeValueDelta) == 8,
              "times are 64-bit nanoseconds");

/// The marker for "no time is known": the largest TimeValue, which no clock reading or duration
/// reaches. Compare with it, store it, return it; never calculate with it.
KELDA_EXPORT extern const TimeValue NoTimeValue;

/// The system's raw monotonic clock (CLOCK_MONOTONIC_RAW), which no time adjustment slews.
///
/// Every timestamp that the libraries take or hand out is on this clock. Note that it drifts
/// against CLOCK_MONOTONIC by what NTP corrects: never mix the two.
///
/// @return nanoseconds since an unspecified start. Safe to call from any thread.
[[nodiscard]] KELDA_EXPORT TimeValue getMonotonicRawSysclockTime();

} // namespace miscUtils
