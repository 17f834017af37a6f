#pragma once

#include <cstdint>
#include <limits>

namespace audioUtils::detail {

/// Multiplies by a fixed ratio: value × numerator / denominator, truncated, exact for every value.
///
/// The conversions between bytes, frames and nanoseconds run several times a block, and a division
/// costs more there than all the rest. So the ratio is kept as a binary fraction, rounded up:
///
///     scaled = ⌊numerator · 2⁶⁴ / denominator⌋ + 1
///
/// For values below 2³² the product then exceeds the true one by less than 2⁻³², while the true one
/// lies at least 1 / denominator > 2⁻³² below the next integer: truncation gives the same. Larger
/// values (and products, which exceed 64 bits after a day of nanoseconds) are divided in 128 bits.
class Scale
{
public:
    constexpr Scale() = default;

    /// @param numerator   below 2³²
    /// @param denominator below 2³²; with 0 there is no ratio, and every result is 0
    constexpr Scale(std::uint32_t numerator, std::uint32_t denominator)
        : m_scaled(denominator == 0 ? 0 : (static_cast<Wide>(numerator) << 64) / denominator + 1),
          m_numerator(numerator),
          m_denominator(denominator)
    {
    }

    /// A result beyond 64 bits is the largest value.
    [[nodiscard]] constexpr std::uint64_t operator()(std::uint64_t value) const
    {
        if (value <= std::numeric_limits<std::uint32_t>::max()) {
            return static_cast<std::uint64_t>((value * m_scaled) >> 64);
        }
        if (m_denominator == 0) {
            return 0;
        }
        constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
        const Wide quotient = static_cast<Wide>(value) * m_numerator / m_denominator;
        return quotient > largest ? largest : static_cast<std::uint64_t>(quotient);
    }

private:
    __extension__ using Wide = unsigned __int128;

    Wide m_scaled = 0;
    std::uint32_t m_numerator = 0;
    std::uint32_t m_denominator = 0;
};

} // namespace audioUtils::detail
