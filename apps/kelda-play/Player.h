#pragma once

#include "Options.h"

namespace keldaPlay {

/// Plays the files to their end, or until SIGINT or SIGTERM; tells how it goes, and what went
/// wrong.
///
/// Throws std::runtime_error with one clear line when there is nothing to describe.
/// @return the status to exit with
[[nodiscard]] int play(const Options& options);

} // namespace keldaPlay
