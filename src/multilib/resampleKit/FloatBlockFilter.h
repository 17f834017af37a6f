#pragma once

#include <cstddef>

#include "miscUtils/Export.h"
#include "nonstd/span.hpp"
#include "resampleKit/PhaseTable.h"
#include "resampleKit/WingPolynomials.h"

namespace resampleKit {

/// What the functions of FloatFilterKit.h weigh, for whole blocks and all channels at once: the
/// weights of an output frame are worked out once, with the widest vectors that the processor has.
/// Results agree with the plain functions to 2e-6 of full scale.
class KELDA_EXPORT FloatBlockFilter
{
public:
    /// @param wing designed by lrsLpFilter() with 4096 entries a sample
    explicit FloatBlockFilter(nonstd::span<const float> wing);

    /// For t from `startTime` while t < `startTime` + `count`, in steps of `step` input samples,
    /// writes the signal at t to `y`: as srcUpsample() does where step is below 1, else as
    /// srcUpOrDownsample().
    ///
    /// The signal must reach 8 samples for each zero crossing of the wing, and 18 more, to either
    /// side of every t.
    ///
    /// @param x           one row of samples for each channel
    /// @param y           one row for each channel, with room for count / step + 1 frames
    /// @param numChannels rows of `x` and of `y`
    /// @param step        0.125 to 8
    /// @param scale       of every output sample
    /// @param startTime   of the first frame written, in samples from x[c][0] on
    /// @param count       input samples to go over
    /// @return frames written
    [[nodiscard]] std::size_t process(const float* const* x, float* const* y,
                                      std::size_t numChannels, double step, float scale,
                                      double startTime, int count) const;

    /// Bytes of memory that the tables take.
    [[nodiscard]] std::size_t bytes() const { return m_table.bytes() + m_polynomials.bytes(); }

private:
    PhaseTable<float> m_table;
    WingPolynomials m_polynomials; // for the stretched filter
};

} // namespace resampleKit
