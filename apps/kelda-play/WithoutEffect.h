#pragma once

#include <span>

#include "Options.h"
#include "Track.h"

// An option that would change nothing is refused, for whoever gave it means something by it.

namespace keldaPlay {

/// As far as the command line alone tells.
///
/// Throws UsageError with the option and with what it lacks.
void refuseWithoutEffect(const Options& options);

/// As far as what is to be played tells: gaps behind its end, fades of DSD.
///
/// Throws UsageError.
/// @param tracks one stream, or several where there are no gaps
void refuseWithoutEffect(const Options& options, std::span<const Track> tracks);

} // namespace keldaPlay
