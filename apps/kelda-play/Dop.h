#pragma once

#include <cstdint>

namespace keldaPlay::dop {

// DSD over PCM: a frame carries 16 one-bit samples of each channel, the oldest highest, below a
// marker byte that alternates from frame to frame.
constexpr unsigned int bitsPerFrame = 16;
constexpr std::uint8_t markers[] = {0x05, 0xFA};
constexpr std::uint8_t idleByte = 0x69; ///< as many ones as zeros: silence
constexpr std::uint16_t idleBits = 0x6969;

/// A marker and 16 bits as a sample that uses the whole range of 32 bits.
[[nodiscard]] constexpr std::int32_t sample(std::uint8_t marker, std::uint16_t bits)
{
    return static_cast<std::int32_t>(std::uint32_t{marker} << 24 | std::uint32_t{bits} << 8);
}

/// The marker of a sample; 0 in silence that is no DSD.
[[nodiscard]] constexpr std::uint8_t markerOf(std::int32_t sample)
{
    return static_cast<std::uint8_t>(static_cast<std::uint32_t>(sample) >> 24);
}

[[nodiscard]] constexpr std::uint16_t bitsOf(std::int32_t sample)
{
    return static_cast<std::uint16_t>(static_cast<std::uint32_t>(sample) >> 8);
}

} // namespace keldaPlay::dop
