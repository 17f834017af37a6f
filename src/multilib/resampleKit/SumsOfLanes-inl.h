// Several sums over the lanes of vectors at once. Included by the block filters for each
// instruction set, like the headers of the SIMD library.

#if defined(KELDA_SUMS_OF_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef KELDA_SUMS_OF_LANES_INL_H
#undef KELDA_SUMS_OF_LANES_INL_H
#else
#define KELDA_SUMS_OF_LANES_INL_H
#endif

#include <hwy/highway.h>

// Before a loop over channels: their sums stay in registers only when it is unrolled.
#ifndef KELDA_UNROLL
#define KELDA_UNROLL _Pragma("GCC unroll 8")
#endif

HWY_BEFORE_NAMESPACE();
namespace resampleKit::HWY_NAMESPACE {

#if HWY_TARGET == HWY_SCALAR

template<class D, class V, typename T = hwy::HWY_NAMESPACE::TFromD<D>>
HWY_INLINE void sumsOf4(D /*d*/, const V (&v)[4], T (&sums)[4])
{
    for (int i = 0; i < 4; ++i) {
        sums[i] = hwy::HWY_NAMESPACE::GetLane(v[i]);
    }
}

#else

/// Adds up the 128-bit blocks of a vector.
template<class D, class V>
HWY_INLINE auto sumOfBlocks(D /*d*/, V vector)
{
    namespace hn = hwy::HWY_NAMESPACE;
    if constexpr (hn::MaxLanes(D()) <= 4) {
        return vector;
    } else {
        const hn::Half<D> half;
        return sumOfBlocks(half, hn::Add(hn::LowerHalf(half, vector), hn::UpperHalf(half, vector)));
    }
}

/// The sums of four vectors of 32-bit lanes: much less work than one after the other.
template<class D, class V, typename T = hwy::HWY_NAMESPACE::TFromD<D>>
HWY_INLINE void sumsOf4(D d, const V (&v)[4], T (&sums)[4])
{
    namespace hn = hwy::HWY_NAMESPACE;
    const hn::Repartition<std::uint64_t, D> d64;
    const auto fold = [d](V a, V b) HWY_ATTR {
        return hn::Add(hn::InterleaveLower(d, a, b), hn::InterleaveUpper(d, a, b));
    };
    const auto ab = hn::BitCast(d64, fold(v[0], v[1]));
    const auto ce = hn::BitCast(d64, fold(v[2], v[3]));
    const V all = hn::Add(hn::BitCast(d, hn::InterleaveLower(d64, ab, ce)),
                          hn::BitCast(d, hn::InterleaveUpper(d64, ab, ce)));
    hn::StoreU(sumOfBlocks(d, all), hn::Full128<T>(), sums);
}

#endif

} // namespace resampleKit::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
