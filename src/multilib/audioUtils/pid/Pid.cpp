#include "audioUtils/pid/Pid.h"

#include <cassert>

namespace audioUtils {

PID::PID(double Kp, double Ki, double Kd, ControllerDirection direction) : m_direction(direction)
{
    setTunings(Kp, Ki, Kd);
}

void PID::setTunings(double Kp, double Ki, double Kd)
{
    assert((Kp > 0) && (Ki >= 0) && (Kd >= 0));
    const double seconds = static_cast<double>(m_sampleTime) / 1000.0;
    m_proportionalGain = Kp;
    m_integralGain = Ki * seconds;
    m_derivativeGain = Kd / seconds;
    if (m_direction == Reverse) {
        reverseGains();
    }
}

void PID::setSampleTime(int newTime)
{
    if (newTime < 1) {
        return;
    }
    const double ratio = static_cast<double>(newTime) / static_cast<double>(m_sampleTime);
    m_integralGain *= ratio;
    m_derivativeGain /= ratio;
    m_sampleTime = static_cast<std::uint64_t>(newTime);
}

void PID::setOutputLimits(double min, double max)
{
    if (min >= max) {
        return;
    }
    m_min = min;
    m_max = max;
    if (m_automatic) {
        m_output = limited(m_output);
        m_integral = limited(m_integral);
    }
}

void PID::setMode(Mode mode)
{
    const bool automatic = mode == Automatic;
    if (automatic != m_automatic) {
        initialize();
    }
    m_automatic = automatic;
}

// A manual controller's gains keep their sign: the direction counts from the next tunings on.
void PID::setControllerDirection(ControllerDirection direction)
{
    if (m_automatic && direction != m_direction) {
        reverseGains();
    }
    m_direction = direction;
}

void PID::setSetPoint(double setPoint)
{
    m_setPoint = setPoint;
}

void PID::initialize()
{
    m_first = true;
    m_integral = limited(m_output);
}

void PID::reset()
{
    m_output = m_setPoint;
    initialize();
}

double PID::compute(double input, unsigned long now)
{
    if (!m_automatic) {
        return m_output;
    }
    const std::uint64_t elapsed = now - m_lastTime; // huge when time went backwards
    if (elapsed < m_sampleTime) {
        return m_output;
    }
    const double error = m_setPoint - input;
    const double previousError = m_first ? error : m_lastError;
    m_first = false;
    m_integral = limited(m_integral + m_integralGain * error);
    const double derivative = (error - previousError) * 1000.0 / static_cast<double>(elapsed);
    m_output = limited(m_proportionalGain * error + m_integral - m_derivativeGain * derivative);
    m_lastTime = now;
    m_lastError = error;
    return m_output;
}

void PID::reverseGains()
{
    m_proportionalGain = 0.0 - m_proportionalGain;
    m_integralGain = 0.0 - m_integralGain;
    m_derivativeGain = 0.0 - m_derivativeGain;
}

double PID::limited(double value) const
{
    return value > m_max ? m_max : value < m_min ? m_min : value;
}

} // namespace audioUtils
