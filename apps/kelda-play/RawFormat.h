#pragma once

#include <string>

#include "SampleLayout.h"

namespace keldaPlay {

/// How interleaved PCM without a header is to be read.
struct RawFormat
{
    unsigned int rate = 0; ///< Hz
    unsigned int numChannels = 0;
    audioUtils::PcmFormat format = audioUtils::S16LE;

    [[nodiscard]] FrameLayout layout() const { return {*layoutOf(format), numChannels}; }
};

/// "48000:2:S16LE".
///
/// Throws UsageError when it is not understood, or can't be played.
[[nodiscard]] RawFormat parseRawFormat(const std::string& text);

/// The file name that stands for standard input.
constexpr const char* standardInput = "-";

} // namespace keldaPlay
