#pragma once

#include <functional>

#include "audioUtils/LowPassFilter.h"
#include "audioUtils/pid/Pid.h"
#include "miscUtils/Export.h"
#include "miscUtils/TimeValue.h"

/// Turns observed clock drifts into whole-numbered adjustments of a PLL, so that the local clock
/// follows the source's.
///
/// Each drift is smoothed (audioUtils::LowPassFilter) and fed, in us, to a PID controller in
/// reverse direction whose set point is 0: the adjustment grows with the drift. The callback is
/// called when the controller's output has moved by at least 1 since it was called last, with the
/// output truncated towards 0. (2.9 to 3.5 is less than 1: nothing is called, though the whole
/// number is another.)
///
/// What 1 means is the caller's choice. It is the resolution of the adjustment: a caller that
/// steers a resampler takes a small part of a ppm.
///
/// ```cpp
/// const auto steer = [&](int adjustment) { ppm = adjustment / 1000.0; };
/// PllDriftCompensator compensator(-500'000, 500'000, 800, 40, 0, steer, 50, 1.0);
/// compensator.update(drift, now); // for each observation
/// ```
///
/// One thread at a time, which the callback runs on. Logs to "AudioUtils".
class KELDA_EXPORT PllDriftCompensator
{
public:
    /// What is told the new adjustment: how much faster the local clock has to run, in the
    /// caller's unit.
    using AdjustPllCallback = std::function<void(int)>;

    /// Aborts on an empty callback, an alpha outside (0, 1], and gains that PID::setTunings()
    /// refuses.
    ///
    /// @param minAdjust, maxAdjust limits of the adjustment; without minAdjust < maxAdjust they are
    ///                             0 and 255
    /// @param Kp, Ki, Kd           in units of the adjustment for us, us s and us/s
    /// @param adjustPllCallback    is called with each new adjustment, on the thread of update()
    /// @param sampleTime           least time between two adjustments, in ms
    /// @param filterAlpha          cut-off of the filter; 1: none
    PllDriftCompensator(int minAdjust, int maxAdjust, double Kp, double Ki, double Kd,
                        AdjustPllCallback adjustPllCallback, int sampleTime, double filterAlpha);

    /// Begins anew at the next update(): for a new stream, a seek, or a lost clock.
    void restart();

    /// Forgets the drift, and reports an adjustment of 0.
    void resetPID();

    /// Takes an observation. The first one, and the first after a restart(), only reports 0.
    ///
    /// @param drift ns; positive: the local clock is late, and has to run faster (where a larger
    ///              adjustment makes it faster)
    /// @param now   of the observation, ns
    void update(miscUtils::TimeValueDelta drift, miscUtils::TimeValue now);

private:
    int m_minAdjust;
    int m_maxAdjust;
    [[maybe_unused]] int m_halfSpan; // for a debugger's eyes
    int m_sampleTime;                // ms
    double m_filterAlpha;
    AdjustPllCallback m_adjustPllCallback;
    audioUtils::PID m_pid;
    audioUtils::LowPassFilter m_filter;
    bool m_restartPending = true;
    double m_lastReported = 0;
};
