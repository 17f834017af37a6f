#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace keldaSync {

/// Sizes of any magnitude, of which percentiles can be told to a thousandth of their value: as
/// small after a day as after a second.
class SizeHistogram
{
public:
    void add(double size);
    [[nodiscard]] std::uint64_t count() const { return m_count; }

    /// Of nothing these are 0.
    [[nodiscard]] double rms() const;
    [[nodiscard]] double percentile(double part) const;
    [[nodiscard]] double worst() const { return m_worst; }

private:
    static constexpr int leastExponent = -8; // all below 0.004 is one
    static constexpr int octaves = 48;
    static constexpr std::size_t binsPerOctave = 512;

    static std::size_t binOf(double size);
    static double middleOf(std::size_t bin);

    std::vector<std::uint32_t> m_bins = std::vector<std::uint32_t>(octaves * binsPerOctave);
    std::uint64_t m_count = 0;
    double m_sumOfSquares = 0;
    double m_worst = 0;
};

} // namespace keldaSync
