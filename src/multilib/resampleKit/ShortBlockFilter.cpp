#include "resampleKit/ShortBlockFilter.h"

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "nonstd/FormerName.h"
#include "resampleKit/InstructionSets.h"
#include "resampleKit/ShortArithmetic.h"

#ifndef KELDA_SHORT_BLOCK
#define KELDA_SHORT_BLOCK
namespace resampleKit {

/// A block to be filtered.
struct ShortBlock
{
    const short* const* x;
    short* const* y;
    ShortBlockFilter::Times times;
    std::int32_t scale;
};

/// An output sample out of its two wings.
inline short outputOf(std::int32_t left, std::int32_t right, std::int32_t scale)
{
    const std::int32_t scaled = ((left + right) >> 2) * scale;
    return static_cast<short>(std::clamp((scaled + (1 << 12)) >> 13, -32768, 32767));
}

} // namespace resampleKit
#endif

// From here to HWY_ONCE this file is compiled once for each instruction set.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "resampleKit/ShortBlockFilter.cpp"
#include <hwy/foreach_target.h> // must come before highway.h
#include <hwy/highway.h>

#include "resampleKit/SumsOfLanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace resampleKit::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

// At most 16, to which the table's rows are aligned.
using Shorts = hn::CappedTag<std::int16_t, 16>;
using Products = hn::RepartitionToWide<Shorts>;
using Vector = hn::Vec<Shorts>;
using ProductVector = hn::Vec<Products>;

/// A sum of products of shorts that fits into 32 bits, in whatever order.
class ProductSum
{
public:
    HWY_INLINE ProductSum() : m_sum(hn::Zero(Products())), m_rest(hn::Zero(Products())) {}

    HWY_INLINE void add(Vector weights, Vector samples)
    {
        m_sum = hn::ReorderWidenMulAccumulate(Products(), weights, samples, m_sum, m_rest);
    }

    [[nodiscard]] HWY_INLINE ProductVector lanes() const { return hn::Add(m_sum, m_rest); }

private:
    ProductVector m_sum;
    ProductVector m_rest;
};

/// The two wings of one channel, each weighed with a row and with the next one.
class Wings
{
public:
    HWY_INLINE Wings() {} // written out, or it would not be compiled for the instruction set

    HWY_INLINE void addLeft(Vector weights, Vector nextWeights, const short* samples)
    {
        const Vector x = hn::LoadU(Shorts(), samples);
        m_left.add(weights, x);
        m_leftNext.add(nextWeights, x);
    }

    HWY_INLINE void addRight(Vector weights, Vector nextWeights, const short* samples)
    {
        const Vector x = hn::LoadU(Shorts(), samples);
        m_right.add(weights, x);
        m_rightNext.add(nextWeights, x);
    }

    [[nodiscard]] HWY_INLINE short output(std::int64_t fraction, std::int32_t scale) const
    {
        const ProductVector lanes[4] = {m_left.lanes(), m_leftNext.lanes(), m_right.lanes(),
                                        m_rightNext.lanes()};
        std::int32_t sums[4];
        sumsOf4(Products(), lanes, sums);
        const auto wing = [fraction](std::int64_t sum, std::int64_t next) {
            return rounded(sum * fractionOne + (next - sum) * fraction);
        };
        return outputOf(wing(sums[0], sums[1]), wing(sums[2], sums[3]), scale);
    }

private:
    ProductSum m_left;
    ProductSum m_leftNext;
    ProductSum m_right;
    ProductSum m_rightNext;
};

template<std::size_t numChannels>
std::size_t upsampleChannels(const PhaseTable<short>& table, const ShortBlock& block)
{
    const Shorts d;
    const std::size_t half = table.halfWidth();
    std::size_t frame = 0;
    for (std::uint32_t time = block.times.start; time < block.times.end; time += block.times.step) {
        const auto whole = static_cast<std::size_t>(time >> phaseBits);
        const std::uint32_t phase = time & ((1U << phaseBits) - 1);
        const std::int64_t fraction = phase & (fractionOne - 1);
        const short* const row = table.row(phase >> fractionBits);
        const short* const next = row + table.width();
        Wings wings[numChannels];
        for (std::size_t i = 0; i < half; i += hn::Lanes(d)) {
            const Vector leftWeights = hn::Load(d, row + i);
            const Vector leftNext = hn::Load(d, next + i);
            const Vector rightWeights = hn::Load(d, row + half + i);
            const Vector rightNext = hn::Load(d, next + half + i);
            KELDA_UNROLL
            for (std::size_t c = 0; c < numChannels; ++c) {
                const short* const x = block.x[c] + whole + 1 + i;
                wings[c].addLeft(leftWeights, leftNext, x - half);
                wings[c].addRight(rightWeights, rightNext, x);
            }
        }
        KELDA_UNROLL
        for (std::size_t c = 0; c < numChannels; ++c) {
            block.y[c][frame] = wings[c].output(fraction, block.scale);
        }
        ++frame;
    }
    return frame;
}

std::size_t upsampleBlock(const PhaseTable<short>& table, ShortBlock block, std::size_t numChannels)
{
    std::size_t frames = 0;
    for (std::size_t left = numChannels; left > 0;) {
        const std::size_t side = left >= 2 ? 2 : 1;
        frames = side == 2 ? upsampleChannels<2>(table, block) : upsampleChannels<1>(table, block);
        block.x += side;
        block.y += side;
        left -= side;
    }
    return frames;
}

/// The stretched filter's weights for one frame, gathered from the table.
class StretchedShortWeights
{
public:
    /// @param pairs an entry in the low 16 bits, its difference in the high ones; behind the last
    /// of
    ///              `wingSize` stands a 0
    StretchedShortWeights(const std::int32_t* pairs, std::size_t wingSize, std::uint32_t dhb)
        : m_pairs(pairs), m_wingSize(static_cast<std::uint32_t>(wingSize)), m_step(dhb)
    {
    }

    /// @param phase of the frame, in 1/32768 of a sample
    void gather(std::uint32_t phase)
    {
        const std::uint32_t mirrored = ((1U << phaseBits) - phase) & ((1U << phaseBits) - 1);
        m_left = gatherWing<true>(startOf(phase, -1, m_step));
        m_right = gatherWing<false>(startOf(mirrored, +1, m_step));
    }

    /// @param x the sample behind the frame's own
    [[nodiscard]] short output(const short* x, std::int32_t scale) const
    {
        const Sum left = weigh(-m_left, 0, x);
        const Sum right = weigh(0, m_right, x);
        const ProductVector lanes[4] = {left.high, left.low, right.high, right.low};
        const ProductVector fractionLanes[4] = {left.fraction, right.fraction, hn::Zero(Products()),
                                                hn::Zero(Products())};
        std::int32_t sums[4];
        std::int32_t fractions[4];
        sumsOf4(Products(), lanes, sums);
        sumsOf4(Products(), fractionLanes, fractions);
        const auto wing = [](std::int64_t high, std::int64_t low, std::int64_t fraction) {
            return rounded((high * 65536 + low) * fractionOne + fraction);
        };
        return outputOf(wing(sums[0], sums[1], fractions[0]), wing(sums[2], sums[3], fractions[1]),
                        scale);
    }

private:
    static constexpr std::ptrdiff_t middle = 288; // 8 times the 32 taps of a wing, and two vectors

    /// Stores the weights of a wing before or behind the middle, an even number of vectors, so that
    /// vectors of shorts are filled.
    /// @return their number
    template<bool isLeft>
    std::ptrdiff_t gatherWing(std::uint32_t start)
    {
        const Products d;
        const auto lanes = static_cast<std::uint32_t>(hn::Lanes(d));
        const auto set = [d](std::uint32_t value)
                             HWY_ATTR { return hn::Set(d, static_cast<std::int32_t>(value)); };
        ProductVector position = hn::Add(set(start), hn::Mul(hn::Iota(d, 0), set(m_step)));
        const std::uint32_t end = m_wingSize << fractionBits;
        std::ptrdiff_t count = 0;
        for (std::uint32_t first = start; first < end; first += 2 * lanes * m_step) {
            for (int i = 0; i < 2; ++i) {
                const ProductVector entry =
                    hn::Min(hn::ShiftRight<fractionBits>(position), set(m_wingSize));
                const ProductVector pair = hn::GatherIndex(d, m_pairs, entry);
                const ProductVector fraction = hn::And(position, set(fractionOne - 1));
                const ProductVector change = hn::Mul(hn::ShiftRight<16>(pair), fraction);
                const ProductVector weight = hn::ShiftRight<16>(hn::ShiftLeft<16>(pair));
                store<isLeft>(m_weights, count,
                              hn::Add(weight, hn::ShiftRight<fractionBits>(change)));
                store<isLeft>(m_fractions, count, hn::And(change, set(fractionOne - 1)));
                count += lanes;
                position = hn::Add(position, set(lanes * m_step));
            }
        }
        return count;
    }

    template<bool isLeft>
    static HWY_INLINE void store(short* to, std::ptrdiff_t count, ProductVector weights)
    {
        const hn::Rebind<std::int16_t, Products> d;
        if (isLeft) {
            const auto lanes = static_cast<std::ptrdiff_t>(hn::Lanes(d));
            hn::Store(hn::DemoteTo(d, hn::Reverse(Products(), weights)), d,
                      to + middle - count - lanes);
        } else {
            hn::Store(hn::DemoteTo(d, weights), d, to + middle + count);
        }
    }

    /// A wing's sum; of the whole weights in two halves, for 32 bits would not hold it.
    struct Sum
    {
        ProductVector high;
        ProductVector low;
        ProductVector fraction; ///< of the weights' fractions, in 1/128
    };

    [[nodiscard]] Sum weigh(std::ptrdiff_t begin, std::ptrdiff_t end, const short* x) const
    {
        const Shorts d;
        const ProductVector lowBits = hn::Set(Products(), 0xFFFF);
        const ProductVector zero = hn::Zero(Products());
        Sum sum{zero, zero, zero};
        ProductSum fractions;
        for (std::ptrdiff_t i = begin; i < end; i += static_cast<std::ptrdiff_t>(hn::Lanes(d))) {
            const Vector samples = hn::LoadU(d, x + i);
            ProductSum products;
            products.add(hn::Load(d, m_weights + middle + i), samples);
            fractions.add(hn::Load(d, m_fractions + middle + i), samples);
            sum.high = hn::Add(sum.high, hn::ShiftRight<16>(products.lanes()));
            sum.low = hn::Add(sum.low, hn::And(products.lanes(), lowBits));
        }
        sum.fraction = fractions.lanes();
        return sum;
    }

    const std::int32_t* m_pairs;
    std::uint32_t m_wingSize;
    std::uint32_t m_step;
    std::ptrdiff_t m_left = 0;
    std::ptrdiff_t m_right = 0;
    HWY_ALIGN short m_weights[2 * middle];   // whole
    HWY_ALIGN short m_fractions[2 * middle]; // in 1/128
};

std::size_t downsampleBlock(const std::int32_t* pairs, std::size_t wingSize, std::uint32_t dhb,
                            const ShortBlock& block, std::size_t numChannels)
{
    StretchedShortWeights weights(pairs, wingSize, dhb);
    std::size_t frame = 0;
    for (std::uint32_t time = block.times.start; time < block.times.end; time += block.times.step) {
        weights.gather(time & ((1U << phaseBits) - 1));
        const std::size_t whole = time >> phaseBits;
        for (std::size_t c = 0; c < numChannels; ++c) {
            const short* const x = block.x[c] + whole + 1;
            block.y[c][frame] = weights.output(x, block.scale);
        }
        ++frame;
    }
    return frame;
}

} // namespace resampleKit::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace resampleKit {

namespace {

// Both halves of a row begin where any vector may be loaded.
constexpr std::size_t alignment = 16;

HWY_EXPORT(upsampleBlock);
HWY_EXPORT(downsampleBlock);

std::vector<std::int32_t> pairsOf(nonstd::span<const short> wing)
{
    std::vector<std::int32_t> pairs(wing.size() + 1);
    for (std::size_t i = 0; i < wing.size(); ++i) {
        const int next = i + 1 < wing.size() ? wing[i + 1] : 0;
        const auto difference = static_cast<std::uint32_t>(next - wing[i]);
        pairs[i] =
            static_cast<std::int32_t>(difference << 16 | static_cast<std::uint16_t>(wing[i]));
    }
    return pairs;
}

} // namespace

ShortBlockFilter::ShortBlockFilter(nonstd::span<const short> wing)
    : m_table(wing, entriesPerSampleShort, alignment), m_pairs(pairsOf(wing))
{
}

std::size_t ShortBlockFilter::upsample(const short* const* x, short* const* y,
                                       std::size_t numChannels, const Times& times,
                                       unsigned short lpScl) const
{
    return HWY_DYNAMIC_DISPATCH(upsampleBlock)(m_table, {x, y, times, lpScl}, numChannels);
}

std::size_t ShortBlockFilter::downsample(const short* const* x, short* const* y,
                                         std::size_t numChannels, const Times& times,
                                         unsigned short lpScl, unsigned short dhb) const
{
    return HWY_DYNAMIC_DISPATCH(downsampleBlock)(m_pairs.data(), m_pairs.size() - 1, dhb,
                                                 {x, y, times, lpScl}, numChannels);
}

std::size_t ShortBlockFilter::bytes() const
{
    return m_table.bytes() + m_pairs.size() * sizeof(m_pairs[0]);
}

} // namespace resampleKit

KELDA_FORMER_NAME("_ZN11resampleKit16ShortBlockFilterC1E", "Ks", "");
KELDA_FORMER_NAME("_ZN11resampleKit16ShortBlockFilterC2E", "Ks", "");
#endif
