#pragma once

#include <cstddef>
#include <optional>

#include "audioUtils/PllDriftCompensator.h"

namespace keldaPlay {

/// What makes up for the drift between the source's clock and the device's.
enum class Correction {
    None,     ///< nothing: the queue skips and pads
    Resample, ///< the resampler's ratio
    Device,   ///< the device's own rate
};

/// How the drift is corrected. The gains are those of the steady state: their loop has a natural
/// frequency of sqrt(Ki) and, with Kp = 2 sqrt(Ki), is critically damped.
struct DriftOptions
{
    Correction correction = Correction::None;
    double Kp = 0.16;          ///< ppm for each us of timing error
    double Ki = 0.0064;        ///< ppm for each us and s
    double Kd = 0;             ///< ppm for each us/s
    double limitPpm = 1000;    ///< largest correction
    double filterAlpha = 0.01; ///< of the compensator's low pass; in (0, 1]
    int sampleTimeMs = 50;     ///< between two corrections
};

/// Steers the local clock after the source's: from the timing error of each block to a correction
/// in ppm.
///
/// A loop that is quick to lock follows every jitter of the timestamps, and one that does not takes
/// minutes to lock. So it starts quick and shifts down, halving its bandwidth every time. A
/// PllDriftCompensator each time, too: its adjustments, counted in 1/1000 ppm so that its steps of
/// whole units are far below what a resampler resolves, are added to the rate that was found in the
/// gear before.
///
/// One thread at a time; allocates nothing.
class DriftLoop
{
public:
    explicit DriftLoop(const DriftOptions& options);
    DriftLoop(const DriftLoop&) = delete;
    DriftLoop& operator=(const DriftLoop&) = delete;

    /// Takes the timing error of a block that goes on from the block before.
    /// @param drift in ns; positive: late, the local clock has to run faster
    /// @param now   in ns
    void update(miscUtils::TimeValueDelta drift, miscUtils::TimeValue now);

    /// Something interrupted the stream: what comes next is locked to anew, quickly, from the rate
    /// found so far.
    void interrupt();

    /// How much faster than its nominal rate the local clock has to run.
    [[nodiscard]] double ppm() const;

private:
    void startGear(std::size_t gear, miscUtils::TimeValue now);
    void observe(double ppm, double seconds);

    DriftOptions m_options;
    std::optional<PllDriftCompensator> m_compensator;
    std::size_t m_gear = 0;
    miscUtils::TimeValue m_gearStart = 0;
    miscUtils::TimeValue m_last = 0;
    bool m_interrupted = true;
    double m_base = 0;    // ppm, found by the gears before
    int m_adjustment = 0; // 1/1000 ppm
    double m_sumOfPpm = 0;
    double m_secondsSummed = 0;
    double m_meanError = 0; // us, of late
    double m_jitter = 0;    // us, the mean deviation from it
};

} // namespace keldaPlay
