#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>

namespace resampleKit {

/// The modified Bessel function of the first kind, of order 0: its power series
/// Σ ((x / 2)^k / k!)², to the precision of a double.
inline double besselI0(double x)
{
    double sum = 1;
    double term = 1;
    for (int k = 1; term > sum * 1e-17; ++k) {
        const double factor = x / 2 / k;
        term *= factor * factor;
        sum += term;
    }
    return sum;
}

/// Kaiser's window over [0, 1], 1 at 0.
inline double kaiser(double position, double beta)
{
    return besselI0(beta * std::sqrt(std::max(0.0, 1 - position * position))) / besselI0(beta);
}

/// The impulse response of an ideal low-pass filter.
/// @param t      in samples
/// @param cutoff as a fraction of the sampling rate
inline double lowPass(double t, double cutoff)
{
    return t == 0 ? 2 * cutoff
                  : std::sin(2 * std::numbers::pi * cutoff * t) / (std::numbers::pi * t);
}

} // namespace resampleKit
