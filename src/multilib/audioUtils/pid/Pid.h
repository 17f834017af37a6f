#pragma once

#include <cstdint>

#include "miscUtils/Export.h"

namespace audioUtils {

/// A PID controller in discrete time, with limits to its output.
///
///     error      = set point − input
///     integral   = integral + Ki · T · error                    kept within the limits
///     derivative = (error − previous error) / elapsed seconds
///     output     = Kp · error + integral − Kd / T · derivative  kept within the limits
///
/// with the sample time T in seconds. It differs from a textbook's controller on purpose: the
/// derivative term is subtracted although it is taken of the error, and it is divided by time twice
/// (by T in the gain, by the elapsed time in the derivative). Callers that want no surprise leave
/// Kd at 0.
///
/// It holds no clock: compute() is told the time. A new controller is manual and its output 0. One
/// thread at a time; nothing is logged, nothing allocated.
///
/// ```cpp
/// PID pid(0.5, 0.1, 0, PID::Reverse);
/// pid.setOutputLimits(-100, 100);
/// pid.setMode(PID::Automatic);
/// const double output = pid.compute(input, nowInMilliseconds);
/// ```
class KELDA_EXPORT PID
{
public:
    /// Whether the controller controls.
    enum Mode : int {
        Manual = 0,    ///< compute() returns the output as it is
        Automatic = 1, ///< compute() computes
    };

    /// Which way the output goes.
    enum ControllerDirection : int {
        Direct = 0,  ///< it falls as the input grows
        Reverse = 1, ///< it grows with the input
    };

    /// Limits of 0 and 255, a sample time of 50 ms, a set point of 0.
    /// @param Kp, Ki, Kd as setTunings() takes them
    /// @param direction  which way the output goes
    PID(double Kp, double Ki, double Kd, ControllerDirection direction);

    /// Sets the gains: aborts unless Kp > 0, Ki >= 0 (1/s) and Kd >= 0 (s).
    void setTunings(double Kp, double Ki, double Kd);

    /// Sets the least time between two computations, in ms; the gains keep their meaning. Ignored
    /// below 1.
    void setSampleTime(int newTime);

    /// Limits the output. Ignored unless min < max. A manual controller's output is left alone
    /// until the next computation.
    void setOutputLimits(double min, double max);

    /// Turns the controller on or off. Every change of the mode runs initialize().
    void setMode(Mode mode);

    /// Reverses the gains of an automatic controller; a manual one's follow at the next
    /// setTunings().
    void setControllerDirection(ControllerDirection direction);

    /// What the input is to become, from the next computation on.
    void setSetPoint(double setPoint);

    /// Lets the integral go on from the output, and the next computation see no derivative.
    void initialize();

    /// Puts the output to the set point and initializes. The sample time goes on from the last
    /// computation.
    void reset();

    /// One step, if the sample time has passed since the last one.
    /// @param input what is controlled
    /// @param now   in ms, of any clock; an earlier time than the last one computes, too
    /// @return the output, new or as it was
    double compute(double input, unsigned long now);

private:
    KELDA_LOCAL void reverseGains();
    [[nodiscard]] KELDA_LOCAL double limited(double value) const;

    double m_proportionalGain = 0;
    double m_integralGain = 0;   // for a sample time
    double m_derivativeGain = 0; // likewise
    ControllerDirection m_direction;
    double m_output = 0;
    double m_setPoint = 0;
    std::uint64_t m_lastTime = 0; // ms
    double m_integral = 0;
    double m_lastError = 0;
    std::uint64_t m_sampleTime = 50; // ms
    double m_min = 0;
    double m_max = 255;
    bool m_automatic = false;
    bool m_first = true; // no error before the next one
};

} // namespace audioUtils
