#pragma once

#include <string>

#include "SyncStatistics.h"

namespace keldaPlay {

using Statistics = keldaSync::SyncStatistics;

/// The lines at the end of playing.
/// @param isColored whether what was lost, and a verdict that is not good, stand out
[[nodiscard]] std::string summaryOf(const Statistics& statistics, bool isColored = false);

/// What was not heard of the audio, in a line without a stop at its end; empty if all was.
[[nodiscard]] std::string lossOf(const Statistics& statistics);

} // namespace keldaPlay
