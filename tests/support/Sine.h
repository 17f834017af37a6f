#pragma once

#include <cmath>
#include <vector>

namespace testSupport {

/// The sine of a known frequency that comes nearest to a signal (least squares), and what is left.
struct SineFit
{
    double amplitude = 0;
    double phase = 0; ///< of the first sample, radians: amplitude sin(phase)
    double snr = 0;   ///< of the sine against all else, dB

    /// @param frequency in turns a sample
    SineFit(const std::vector<double>& signal, double frequency)
    {
        double ss = 0, sc = 0, cc = 0, xs = 0, xc = 0;
        const double w = 2 * M_PI * frequency;
        for (std::size_t i = 0; i < signal.size(); ++i) {
            const double s = std::sin(w * static_cast<double>(i));
            const double c = std::cos(w * static_cast<double>(i));
            ss += s * s;
            sc += s * c;
            cc += c * c;
            xs += signal[i] * s;
            xc += signal[i] * c;
        }
        const double determinant = ss * cc - sc * sc;
        const double a = (xs * cc - xc * sc) / determinant;
        const double b = (xc * ss - xs * sc) / determinant;
        amplitude = std::hypot(a, b);
        phase = std::atan2(b, a);
        double power = 0;
        double rest = 0;
        for (std::size_t i = 0; i < signal.size(); ++i) {
            const double sine = amplitude * std::sin(w * static_cast<double>(i) + phase);
            power += sine * sine;
            rest += (signal[i] - sine) * (signal[i] - sine);
        }
        snr = 10 * std::log10(power / rest);
    }
};

} // namespace testSupport
