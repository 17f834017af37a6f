#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "audioUtils/PcmDataStructures.h"

namespace keldaPlay {

/// How a sample format lies in memory: all that tells the formats apart for packing.
struct SampleLayout
{
    int bytes = 0; ///< of the container
    int bits = 0;  ///< that carry the sample, at the container's low end
    bool isFloat = false;
    bool isBigEndian = false;
};

/// How interleaved frames lie in memory.
struct FrameLayout
{
    SampleLayout sample;
    std::size_t numChannels = 0;

    [[nodiscard]] std::size_t bytes() const
    {
        return static_cast<std::size_t>(sample.bytes) * numChannels;
    }
};

/// The layout of a format; none for 64-bit floats, whose 8 bytes the library counts as 4.
[[nodiscard]] std::optional<SampleLayout> layoutOf(audioUtils::PcmFormat format);

/// Writes a sample that uses the whole range of 32 bits (full scale is 2³¹) into the container,
/// rounded to the layout's bits and sign-extended.
void packInteger(const SampleLayout& layout, std::int32_t sample, unsigned char* out);
/// The reverse of packInteger(); exact.
[[nodiscard]] std::int32_t unpackInteger(const SampleLayout& layout, const unsigned char* in);

/// Writes a sample (full scale is 1).
void packFloat(const SampleLayout& layout, float sample, unsigned char* out);
[[nodiscard]] float unpackFloat(const SampleLayout& layout, const unsigned char* in);

/// A floating-point sample as one that uses the whole range of 32 bits; clipped at full scale.
[[nodiscard]] std::int32_t toFullRange(double sample);

} // namespace keldaPlay
