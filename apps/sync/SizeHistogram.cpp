#include "SizeHistogram.h"

#include <algorithm>
#include <cmath>

namespace keldaSync {

std::size_t SizeHistogram::binOf(double size)
{
    int exponent = 0;
    const double mantissa = std::frexp(size, &exponent); // 0.5 to 1
    if (size <= 0 || exponent < leastExponent) {
        return 0;
    }
    const auto octave = static_cast<std::size_t>(std::min(exponent - leastExponent, octaves - 1));
    const auto part = static_cast<std::size_t>((2 * mantissa - 1) * binsPerOctave);
    return octave * binsPerOctave + part;
}

double SizeHistogram::middleOf(std::size_t bin)
{
    const double part = (static_cast<double>(bin % binsPerOctave) + 0.5) / binsPerOctave;
    return std::ldexp((1 + part) / 2, leastExponent + static_cast<int>(bin / binsPerOctave));
}

void SizeHistogram::add(double size)
{
    ++m_bins[binOf(size)];
    ++m_count;
    m_sumOfSquares += size * size;
    m_worst = std::max(m_worst, size);
}

double SizeHistogram::rms() const
{
    return m_count == 0 ? 0 : std::sqrt(m_sumOfSquares / static_cast<double>(m_count));
}

double SizeHistogram::percentile(double part) const
{
    if (m_count == 0) {
        return 0;
    }
    auto left = static_cast<std::uint64_t>(part * static_cast<double>(m_count - 1));
    std::size_t bin = 0;
    while (left >= m_bins[bin]) {
        left -= m_bins[bin++];
    }
    return std::min(middleOf(bin), m_worst);
}

} // namespace keldaSync
