#include "audioUtils/PllDriftCompensator.h"

#include <cassert>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "audioUtils/detail/Log.h"

using audioUtils::PID;

namespace {

const log4cplus::Logger logger = log4cplus::Logger::getInstance("AudioUtils");

constexpr double nanosecondsPerMicrosecond = 1000.0;
constexpr miscUtils::TimeValue nanosecondsPerMillisecond = 1'000'000;

/// Towards 0; what 32 bits can't hold gives the smallest number, as the processor's conversion
/// does.
int truncated(double value)
{
    constexpr double limit = 2147483648.0;
    return std::abs(value) < limit ? static_cast<int>(value) : std::numeric_limits<int>::min();
}

int oneAbove(int value)
{
    return static_cast<int>(static_cast<unsigned int>(value) + 1);
}

} // namespace

PllDriftCompensator::PllDriftCompensator(int minAdjust, int maxAdjust, double Kp, double Ki,
                                         double Kd, AdjustPllCallback adjustPllCallback,
                                         int sampleTime, double filterAlpha)
    : m_minAdjust(minAdjust),
      m_maxAdjust(maxAdjust),
      m_halfSpan(static_cast<int>((std::int64_t{minAdjust} - maxAdjust) / 2)),
      m_sampleTime(sampleTime),
      m_filterAlpha(filterAlpha),
      m_adjustPllCallback(std::move(adjustPllCallback)),
      m_pid(Kp, Ki, Kd, PID::Reverse)
{
    assert(!!m_adjustPllCallback);
    assert((m_filterAlpha > 0) && (m_filterAlpha <= 1.0));
}

void PllDriftCompensator::restart()
{
    KELDA_LOG(logger, DEBUG, "Restarting PLL drift compensator");
    m_restartPending = true;
}

void PllDriftCompensator::resetPID()
{
    m_filter.setAlpha(m_filterAlpha);
    m_filter.reset();
    m_pid.setOutputLimits(m_minAdjust, m_maxAdjust);
    m_pid.setSetPoint(0.0);
    m_pid.setMode(PID::Automatic);
    m_pid.setSampleTime(m_sampleTime);
    m_pid.reset();
    m_adjustPllCallback(0);
}

void PllDriftCompensator::update(miscUtils::TimeValueDelta drift, miscUtils::TimeValue now)
{
    if (m_restartPending) {
        m_restartPending = false;
        m_lastReported = oneAbove(m_maxAdjust); // so that the first output is reported
        resetPID();
        return;
    }
    const auto observed = static_cast<double>(drift);
    const double filtered = m_filter.filter(observed);
    KELDA_LOG(logger, TRACE,
              "Observed drift: " << observed / nanosecondsPerMicrosecond << "us  filtered drift: "
                                 << filtered / nanosecondsPerMicrosecond << " us");
    const double output =
        m_pid.compute(filtered / nanosecondsPerMicrosecond, now / nanosecondsPerMillisecond);
    if (truncated(m_lastReported - output) != 0) {
        m_lastReported = output;
        m_adjustPllCallback(truncated(output));
    }
}
