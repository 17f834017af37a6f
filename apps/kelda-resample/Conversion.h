#pragma once

#include <string>

#include "RateConverter.h"

namespace keldaResample {

struct ConversionOptions
{
    std::string input;
    std::string output;
    unsigned int rate = 0;                ///< Hz
    keldaPlay::ResamplerChoice resampler; ///< not Short
    double sweepPpm = 0;                  ///< how far the ratio swings, once in 10 s (Float only)
};

/// Converts a sound file to another sample rate; the output has the input's format, starts where it
/// starts, and is as long to the frame. Prints a progress bar on a terminal.
///
/// Throws std::runtime_error with one clear line when a file can't be read or written.
void convert(const ConversionOptions& options);

} // namespace keldaResample
