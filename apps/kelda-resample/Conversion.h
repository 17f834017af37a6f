#pragma once

#include <string>

#include "RateConverter.h"

namespace keldaResample {

struct ConversionOptions
{
    std::string input;
    std::string output;
    unsigned int rate = 0; ///< Hz
    keldaPlay::ResamplerChoice resampler;
    double sweepPpm = 0; ///< how far the ratio swings, once in 10 s (not by GStreamer)
};

/// Converts a sound file to another sample rate; the output has the format that its name ends with
/// (see outputFormat()), starts where the input starts, and is as long to the frame. It gets its
/// name when it is complete. Prints a progress bar on a terminal.
///
/// Throws FileConflict, UsageError and std::runtime_error with one clear line when a file can't be
/// read or written.
void convert(const ConversionOptions& options);

} // namespace keldaResample
