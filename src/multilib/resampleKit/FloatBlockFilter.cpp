#include "resampleKit/FloatBlockFilter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "nonstd/FormerName.h"
#include "resampleKit/InstructionSets.h"

#ifndef KELDA_FLOAT_BLOCK
#define KELDA_FLOAT_BLOCK
namespace resampleKit {

// Rows that a table has before the first and behind the last, for weights just across.
constexpr std::size_t guardRows = 192;
// Of rows that a parabola is laid through: its error stays below 2e-7.
constexpr double largestSpacing = 19;

/// A block to be filtered.
struct Block
{
    const float* const* x;
    float* const* y;
    double step;
    float scale;
    double startTime;
    double endTime;
};

} // namespace resampleKit
#endif

// From here to HWY_ONCE this file is compiled once for each instruction set.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "resampleKit/FloatBlockFilter.cpp"
#include <hwy/foreach_target.h> // must come before highway.h
#include <hwy/highway.h>

#include "resampleKit/SumsOfLanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace resampleKit::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

// At most 16, to which the table's rows are aligned.
using Floats = hn::CappedTag<float, 16>;
using Integers = hn::RebindToUnsigned<Floats>;
using Vector = hn::Vec<Floats>;

/// Up to eight channels that are summed side by side, from one reading of the weights.
template<std::size_t numChannels>
class Sums
{
public:
    HWY_INLINE Sums()
    {
        KELDA_UNROLL
        for (std::size_t c = 0; c < 4 * numGroups; ++c) {
            m_sums[c / 4][c % 4] = hn::Zero(Floats());
        }
    }

    HWY_INLINE void add(const float* const* x, std::ptrdiff_t at, Vector weights)
    {
        KELDA_UNROLL
        for (std::size_t c = 0; c < numChannels; ++c) {
            Vector& sum = m_sums[c / 4][c % 4];
            sum = hn::MulAdd(weights, hn::LoadU(Floats(), x[c] + at), sum);
        }
    }

    HWY_INLINE void store(float* const* y, std::size_t frame, float scale) const
    {
        float sums[numGroups][4];
        KELDA_UNROLL
        for (std::size_t group = 0; group < numGroups; ++group) {
            sumsOf4(Floats(), m_sums[group], sums[group]);
        }
        KELDA_UNROLL
        for (std::size_t c = 0; c < numChannels; ++c) {
            y[c][frame] = scale * sums[c / 4][c % 4];
        }
    }

private:
    static constexpr std::size_t numGroups = (numChannels + 3) / 4;

    Vector m_sums[numGroups][4];
};

/// Calls a function for groups of 8, 4, 2 and 1 channels, with the first one's number and their
/// count.
template<typename Function>
HWY_INLINE void forEachGroup(std::size_t numChannels, Function function)
{
    std::size_t channel = 0;
    for (; channel + 8 <= numChannels; channel += 8) {
        function(channel, std::integral_constant<std::size_t, 8>());
    }
    for (; channel + 4 <= numChannels; channel += 4) {
        function(channel, std::integral_constant<std::size_t, 4>());
    }
    for (; channel + 2 <= numChannels; channel += 2) {
        function(channel, std::integral_constant<std::size_t, 2>());
    }
    for (; channel < numChannels; ++channel) {
        function(channel, std::integral_constant<std::size_t, 1>());
    }
}

/// The filter as it was designed: each frame weighs with two neighbouring rows.
template<std::size_t numChannels>
std::size_t upsample(const PhaseTable<float>& table, const Block& block)
{
    const Floats d;
    const std::size_t width = table.width();
    const auto reach = static_cast<std::ptrdiff_t>(table.halfWidth()) - 1;
    const auto entries = static_cast<double>(table.entriesPerSample());
    std::size_t frame = 0;
    for (double t = block.startTime; t < block.endTime; t += block.step) {
        const auto whole = static_cast<std::ptrdiff_t>(t);
        const double position = (t - static_cast<double>(whole)) * entries;
        const auto phase = static_cast<std::size_t>(position);
        const Vector fraction =
            hn::Set(d, static_cast<float>(position - static_cast<double>(phase)));
        const float* const row = table.row(phase);
        const float* const next = row + width;
        Sums<numChannels> sums;
        for (std::size_t i = 0; i < width; i += hn::Lanes(d)) {
            const Vector weight = hn::Load(d, row + i);
            const Vector nextWeight = hn::Load(d, next + i);
            sums.add(block.x, whole - reach + static_cast<std::ptrdiff_t>(i),
                     hn::MulAdd(fraction, hn::Sub(nextWeight, weight), weight));
        }
        sums.store(block.y, frame++, block.scale);
    }
    return frame;
}

/// A ratio that is nearly a whole number n: n (1 + some 1000 ppm) at most.
///
/// The tap k n - j (j = 0 ... n - 1) of a frame with the fraction f needs, in column k, row
///
///     (f + j) 4096 / step + k drift        with drift = 4096 (1 - n / step)
///
/// so for each j the rows of neighbouring columns move on in a straight line, and a parabola
/// through three rows gives the weights of a whole vector. Where the rows lie `spacing` apart its
/// error is below (π spacing / 4096)³ / 15.
class NearlyWholeRatio
{
public:
    explicit NearlyWholeRatio(double step)
        : m_whole(static_cast<std::ptrdiff_t>(step + 0.5)),
          m_rowsPerSample(4096 / step),
          m_drift(4096 * (1 - static_cast<double>(m_whole) / step)),
          m_span(m_drift * static_cast<double>(hn::Lanes(Floats()) - 1) / 2),
          m_spacing(static_cast<std::ptrdiff_t>(std::abs(m_span)) + 2)
    {
    }

    /// Whether the step is near enough, and the signal reaches as far as the taps of whole vectors.
    [[nodiscard]] bool holds(const PhaseTable<float>& table, std::size_t numColumns) const
    {
        const auto needed = static_cast<std::size_t>(m_whole) * (table.halfWidth() + 1);
        return m_whole >= 1 && static_cast<double>(m_spacing) <= largestSpacing &&
               std::abs(m_drift) * 32 + 24 <= guardRows && needed <= 8 * numColumns + 18;
    }

    /// @param x where the samples of each j lie, one behind the other: x[j][channel] is that of
    /// column 0
    template<std::size_t numChannels>
    HWY_INLINE void addFrame(const PhaseTable<float>& table, double fraction,
                             const float* const (*x)[numChannels], Sums<numChannels>& sums) const
    {
        const Floats d;
        const auto width = static_cast<std::ptrdiff_t>(table.width());
        const std::ptrdiff_t firstColumn = 1 - static_cast<std::ptrdiff_t>(table.halfWidth());
        const auto lanes = static_cast<std::ptrdiff_t>(hn::Lanes(d));
        const std::ptrdiff_t apart = m_spacing * width;
        const double perSpacing = 1.0 / static_cast<double>(m_spacing);
        const Vector ramp =
            hn::Mul(hn::Iota(d, 0), hn::Set(d, static_cast<float>(m_drift * perSpacing)));
        const Vector half = hn::Set(d, 0.5F);
        for (std::ptrdiff_t j = 0; j < m_whole; ++j) {
            double first = (fraction + static_cast<double>(j)) * m_rowsPerSample +
                           static_cast<double>(firstColumn) * m_drift;
            for (std::ptrdiff_t i = 0; i < width; i += lanes) {
                const auto centre = static_cast<std::ptrdiff_t>(first + m_span + 4096) - 4096;
                const float* const row = table.row(0) + centre * width + i;
                const Vector u = hn::Add(
                    ramp, hn::Set(d, static_cast<float>((first - static_cast<double>(centre)) *
                                                        perSpacing)));
                const Vector before = hn::Load(d, row - apart);
                const Vector here = hn::Load(d, row);
                const Vector after = hn::Load(d, row + apart);
                // here + u (after - before) / 2 + u² ((after + before) / 2 - here)
                const Vector slope = hn::Mul(half, hn::Sub(after, before));
                const Vector bend = hn::MulSub(half, hn::Add(after, before), here);
                sums.add(x[j], firstColumn + i, hn::MulAdd(u, hn::MulAdd(u, bend, slope), here));
                first += m_drift * static_cast<double>(lanes);
            }
        }
    }

    [[nodiscard]] std::ptrdiff_t whole() const { return m_whole; }

private:
    std::ptrdiff_t m_whole;
    double m_rowsPerSample;
    double m_drift;
    double m_span; // from a vector's first row to its middle
    std::ptrdiff_t m_spacing;
};

/// A piece of a signal, every n-th sample side by side.
template<std::size_t numChannels>
class Deinterleaved
{
public:
    static constexpr std::ptrdiff_t size = 1600; // for all that a resampler has at a time
    static_assert(size % 8 == 0);

    /// @param first, count of the piece, in x; at most `size` samples
    HWY_INLINE void take(const float* const* x, std::ptrdiff_t first, std::ptrdiff_t count,
                         std::ptrdiff_t n)
    {
        m_first = first;
        m_n = n;
        m_rowSize = size / n;
        for (std::size_t c = 0; c < numChannels; ++c) {
            for (std::ptrdiff_t q = 0; q < n; ++q) {
                float* const row = m_samples[c] + q * m_rowSize;
                const float* const from = x[c] + first + q;
                for (std::ptrdiff_t i = 0; i * n + q < count; ++i) {
                    row[i] = from[i * n];
                }
            }
        }
    }

    /// Where the sample `at` of x lies.
    HWY_INLINE void find(std::ptrdiff_t at, const float* (&x)[numChannels]) const
    {
        const std::ptrdiff_t offset = at - m_first;
        for (std::size_t c = 0; c < numChannels; ++c) {
            x[c] = m_samples[c] + offset % m_n * m_rowSize + offset / m_n;
        }
    }

private:
    std::ptrdiff_t m_first = 0;
    std::ptrdiff_t m_n = 1;
    std::ptrdiff_t m_rowSize = size;
    float m_samples[numChannels][size];
};

template<std::size_t numChannels>
std::size_t downsampleByNearlyWhole(const PhaseTable<float>& table, const NearlyWholeRatio& ratio,
                                    const Block& block)
{
    const std::ptrdiff_t n = ratio.whole();
    const auto reach = static_cast<std::ptrdiff_t>(table.halfWidth()) * n;
    std::size_t frame = 0;
    Deinterleaved<numChannels> piece;
    std::ptrdiff_t pieceEnd = 0; // frames before this are served by the piece
    for (double t = block.startTime; t < block.endTime; t += block.step) {
        const auto whole = static_cast<std::ptrdiff_t>(t);
        if (n > 1 && whole >= pieceEnd) {
            const std::ptrdiff_t first = whole - reach;
            const std::ptrdiff_t end = static_cast<std::ptrdiff_t>(block.endTime) + reach + 1;
            const std::ptrdiff_t count = std::min(piece.size, end - first);
            piece.take(block.x, first, count, n);
            pieceEnd = first + count - reach;
        }
        const float* x[8][numChannels];
        for (std::ptrdiff_t j = 0; j < n; ++j) {
            if (n > 1) {
                piece.find(whole - j, x[j]);
            } else {
                for (std::size_t c = 0; c < numChannels; ++c) {
                    x[j][c] = block.x[c] + whole;
                }
            }
        }
        Sums<numChannels> sums;
        ratio.addFrame(table, t - static_cast<double>(whole), x, sums);
        sums.store(block.y, frame++, block.scale);
    }
    return frame;
}

/// The stretched filter's weights for one frame.
///
/// Positions in the wing are counted in columns, with fixedBits of fraction: for far taps a float
/// would be too coarse.
class StretchedWeights
{
public:
    StretchedWeights(const WingPolynomials& wing, double step)
        : m_wing(wing),
          m_columnsPerSample(1 / step),
          m_step(toFixed(m_columnsPerSample)),
          m_end(static_cast<std::uint64_t>(wing.numColumns()) << fixedBits)
    {
    }

    /// @param fraction how far the frame lies behind its sample
    void calculate(double fraction)
    {
        const Floats d;
        const auto lanes = static_cast<std::ptrdiff_t>(hn::Lanes(d));
        m_left = m_right = 0;
        forEachVector(toFixed(fraction * m_columnsPerSample), [&](Vector weights) HWY_ATTR {
            m_left += lanes;
            hn::Store(hn::Reverse(d, weights), d, m_weights + middle - m_left);
        });
        forEachVector(toFixed((1 - fraction) * m_columnsPerSample), [&](Vector weights) HWY_ATTR {
            hn::Store(weights, d, m_weights + middle + m_right);
            m_right += lanes;
        });
    }

    /// Weights of the samples from -left() + 1 to right(), relative to the frame's sample.
    [[nodiscard]] const float* begin() const { return m_weights + middle - m_left; }
    [[nodiscard]] std::ptrdiff_t left() const { return m_left; }
    [[nodiscard]] std::ptrdiff_t right() const { return m_right; }

private:
    static constexpr int fixedBits = 26;
    static constexpr std::ptrdiff_t middle = 272; // 8 times the 32 taps of a wing, and a vector

    static std::uint32_t toFixed(double columns)
    {
        return static_cast<std::uint32_t>(columns * (1 << fixedBits) + 0.5);
    }

    // Taps lie at most a column apart: those of a vector begin with the first one's column, and go
    // on through the next ones, some of which may come twice.
    template<typename Function>
    void forEachVector(std::uint32_t start, Function function) const
    {
        const Floats d;
        const Integers du;
        const hn::RebindToSigned<Integers> di;
        const std::uint64_t lanes = hn::Lanes(d);
        const auto offsets = hn::Mul(hn::Iota(du, 0), hn::Set(du, m_step));
        const auto fractionMask = hn::Set(du, (1U << fixedBits) - 1);
        const Vector toUnit = hn::Set(d, 2.0F / static_cast<float>(1 << fixedBits));
        const Vector one = hn::Set(d, 1.0F);
        for (std::uint64_t first = start; first < m_end; first += lanes * m_step) {
            const std::size_t column = first >> fixedBits;
            const auto inColumn = static_cast<std::uint32_t>(first) & ((1U << fixedBits) - 1);
            const auto position = hn::Add(hn::Set(du, inColumn), offsets);
            const auto indices =
                hn::IndicesFromVec(d, hn::BitCast(di, hn::ShiftRight<fixedBits>(position)));
            const Vector fraction =
                hn::ConvertTo(d, hn::BitCast(di, hn::And(position, fractionMask)));
            const Vector u = hn::MulSub(fraction, toUnit, one);
            Vector weights = hn::Zero(d);
            KELDA_UNROLL
            for (std::size_t i = 0; i < WingPolynomials::numCoefficients; ++i) {
                const std::size_t power = WingPolynomials::numCoefficients - 1 - i;
                const Vector coefficients = hn::LoadU(d, m_wing.coefficients(power, column));
                weights = hn::MulAdd(weights, u, hn::TableLookupLanes(coefficients, indices));
            }
            function(weights);
        }
    }

    const WingPolynomials& m_wing;
    double m_columnsPerSample;
    std::uint32_t m_step;
    std::uint64_t m_end;
    std::ptrdiff_t m_left = 0;
    std::ptrdiff_t m_right = 0;
    HWY_ALIGN float m_weights[2 * middle];
};

std::size_t downsample(const WingPolynomials& wing, const Block& block, std::size_t numChannels)
{
    const Floats d;
    StretchedWeights weights(wing, block.step);
    std::size_t frame = 0;
    for (double t = block.startTime; t < block.endTime; t += block.step) {
        const auto whole = static_cast<std::ptrdiff_t>(t);
        weights.calculate(t - static_cast<double>(whole));
        const std::ptrdiff_t first = whole + 1 - weights.left();
        const std::ptrdiff_t count = weights.left() + weights.right();
        const auto sum = [&]<std::size_t side>(std::size_t channel,
                                               std::integral_constant<std::size_t, side>) HWY_ATTR {
            Sums<side> sums;
            for (std::ptrdiff_t i = 0; i < count; i += static_cast<std::ptrdiff_t>(hn::Lanes(d))) {
                sums.add(block.x + channel, first + i, hn::Load(d, weights.begin() + i));
            }
            sums.store(block.y + channel, frame, block.scale);
        };
        forEachGroup(numChannels, sum);
        ++frame;
    }
    return frame;
}

std::size_t filterBlock(const PhaseTable<float>& table, const WingPolynomials& wing,
                        const Block& block, std::size_t numChannels)
{
    const NearlyWholeRatio ratio(block.step);
    if (block.step >= 1 && !ratio.holds(table, wing.numColumns())) {
        return downsample(wing, block, numChannels);
    }
    std::size_t frames = 0;
    forEachGroup(numChannels,
                 [&]<std::size_t side>(std::size_t channel,
                                       std::integral_constant<std::size_t, side>) HWY_ATTR {
                     Block group = block;
                     group.x += channel;
                     group.y += channel;
                     frames = block.step < 1 ? upsample<side>(table, group)
                                             : downsampleByNearlyWhole<side>(table, ratio, group);
                 });
    return frames;
}

} // namespace resampleKit::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace resampleKit {

namespace {

constexpr std::size_t halfAlignment = 8; // a row is twice as long, and as any vector

HWY_EXPORT(filterBlock);

} // namespace

FloatBlockFilter::FloatBlockFilter(nonstd::span<const float> wing)
    : m_table(wing, 4096, halfAlignment, guardRows), m_polynomials(wing, 4096)
{
}

std::size_t FloatBlockFilter::process(const float* const* x, float* const* y,
                                      std::size_t numChannels, double step, float scale,
                                      double startTime, int count) const
{
    return HWY_DYNAMIC_DISPATCH(filterBlock)(
        m_table, m_polynomials, {x, y, step, scale, startTime, startTime + count}, numChannels);
}

} // namespace resampleKit

KELDA_FORMER_NAME("_ZN11resampleKit16FloatBlockFilterC1E", "Kf", "");
KELDA_FORMER_NAME("_ZN11resampleKit16FloatBlockFilterC2E", "Kf", "");
#endif
