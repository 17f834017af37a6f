#pragma once

#include "miscUtils/Export.h"

namespace audioUtils {

/// A first-order low pass: the bilinear transform of a one-pole filter (see, for example,
/// A. V. Oppenheim, R. W. Schafer: Discrete-Time Signal Processing, 7.1).
///
///     y[n] = b (x[n] + x[n−1]) + a y[n−1],   b = w / (w + 2),  a = (2 − w) / (w + 2)
///
/// with the cut-off w = 2π alpha / 15, in radians a sample. An alpha of 1, as after construction,
/// passes everything unchanged. The first sample counts as if the input had always been so. One
/// thread at a time; results are the same to the last bit on every machine.
class KELDA_EXPORT LowPassFilter
{
public:
    /// Passes everything unchanged.
    LowPassFilter() = default;
    virtual ~LowPassFilter();
    /// A copy goes on from the same state.
    LowPassFilter(const LowPassFilter&) = default;
    /// A copy goes on from the same state.
    LowPassFilter& operator=(const LowPassFilter&) = default;

    /// Lets the next sample be the first.
    virtual void reset();

    /// Sets the cut-off; what the filter remembers stays.
    /// @param alpha in (0, 1]
    void setAlpha(double alpha);

    /// One step.
    /// @return the smoothed sample
    [[nodiscard]] double filter(double sample);

private:
    double m_b0 = 1;
    double m_b1 = 0;
    double m_a1 = 0;
    double m_previousInput = 0;
    double m_previousOutput = 0;
    bool m_first = true;
    double m_alpha = 1;
};

} // namespace audioUtils
