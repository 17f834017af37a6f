#pragma once

#include <string>

#include <sndfile.h>

namespace keldaResample {

/// The format of a sound file by the ending of its name ("song.wav"), with samples as near to the
/// input's as it can hold: whole ones of as many bits, or the next more; else floats; else the most
/// bits, or what else there is.
///
/// Throws UsageError when no sound file has this ending.
/// @return a format of libsndfile's
[[nodiscard]] int outputFormat(const std::string& path, const SF_INFO& input);

} // namespace keldaResample
