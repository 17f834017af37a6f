#pragma once

#include "Options.h"

namespace keldaPlay {

/// Plays the files to their end, or until SIGINT or SIGTERM; prints how it goes.
///
/// Throws std::runtime_error with one clear line when something can't be opened.
/// @return the status to exit with
[[nodiscard]] int play(const Options& options);

} // namespace keldaPlay
