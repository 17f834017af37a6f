#pragma once

#include <cstdint>

// The fixed-point rules of the 16-bit kit, for the plain functions and the fast ones.

namespace resampleKit {

constexpr int entriesPerSampleShort = 256;
constexpr int fractionBits = 7; // of a table position
constexpr int phaseBits = 15;   // of a time
constexpr int fractionOne = 1 << fractionBits;

/// A wing's sum of products, divided by 2^13 and rounded. Its weights lie between table entries,
/// and have the fraction's bits, too: entry * fractionOne + difference * fraction.
constexpr std::int32_t rounded(std::int64_t sum)
{
    constexpr int shift = 13 + fractionBits;
    return static_cast<std::int32_t>((sum + (std::int64_t{1} << (shift - 1))) >> shift);
}

/// Where a wing begins, in table entries with fractionBits.
constexpr std::uint32_t startOf(std::uint32_t phase, int inc, std::uint32_t dhb)
{
    const std::uint32_t one = 1U << phaseBits;
    return ((inc > 0 && phase == 0 ? one : phase) * dhb) >> phaseBits;
}

} // namespace resampleKit
