#include "SyncStatistics.h"

#include <algorithm>
#include <cmath>

namespace keldaReport {

void SyncStatistics::addBlock(double seconds, double errorUs, double adjustmentError)
{
    if (m_start < 0 || m_interrupted) {
        goOn(seconds);
    }
    const double size = std::abs(errorUs);
    if (m_locked) {
        if (seconds - m_start > settleSeconds) {
            m_errors.push_back(static_cast<float>(size));
        }
        if (seconds - m_lockedAt > steadySeconds) {
            m_sumOfSquares += adjustmentError * adjustmentError;
            ++m_adjustments;
        }
        return;
    }
    if (size >= lockedUs) {
        m_smallSince = -1;
        return;
    }
    if (m_smallSince < 0) {
        m_smallSince = seconds;
    }
    if (seconds - m_smallSince >= lockSeconds) {
        lock(seconds);
    }
}

void SyncStatistics::lock(double seconds)
{
    m_locked = true;
    m_lockedAt = seconds;
    const double time = m_smallSince - m_start;
    if (m_firstLock < 0) {
        m_firstLock = time;
    } else {
        m_worstRelock = std::max(m_worstRelock, time);
    }
}

void SyncStatistics::goOn(double seconds)
{
    // Two pieces of one event may be a block apart.
    constexpr double apart = 0.1;
    if (m_interrupted && m_interruptedAt - m_start > apart) {
        m_eventTimes.push_back(m_interruptedAt);
        m_skips += m_skipped ? 1 : 0;
        m_silences += m_silent ? 1 : 0;
    }
    m_skipped = m_silent = false;
    m_start = seconds;
    m_interrupted = false;
    m_locked = false;
    m_smallSince = -1;
}

void SyncStatistics::addInterruption(double seconds, bool skipped, bool silent)
{
    if (m_start < 0) {
        return; // it has not begun
    }
    if (!m_interrupted) {
        m_interrupted = true;
        m_interruptedAt = seconds;
    }
    m_skipped = m_skipped || skipped;
    m_silent = m_silent || silent;
}

double SyncStatistics::rms() const
{
    double sum = 0;
    for (const float error : m_errors) {
        sum += static_cast<double>(error) * static_cast<double>(error);
    }
    return m_errors.empty() ? 0 : std::sqrt(sum / static_cast<double>(m_errors.size()));
}

double SyncStatistics::percentile(double part) const
{
    if (m_errors.empty()) {
        return 0;
    }
    std::vector<float> errors = m_errors;
    const auto index = static_cast<std::ptrdiff_t>(part * static_cast<double>(errors.size() - 1));
    std::nth_element(errors.begin(), errors.begin() + index, errors.end());
    return static_cast<double>(errors[static_cast<std::size_t>(index)]);
}

double SyncStatistics::worst() const
{
    return m_errors.empty()
               ? 0
               : static_cast<double>(*std::max_element(m_errors.begin(), m_errors.end()));
}

double SyncStatistics::adjustmentJitter() const
{
    return m_adjustments == 0 ? 0 : std::sqrt(m_sumOfSquares / static_cast<double>(m_adjustments));
}

} // namespace keldaReport
