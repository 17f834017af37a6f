#include "SyncStatistics.h"

#include <algorithm>
#include <cmath>

namespace keldaReport {

void SizeHistogram::add(double size)
{
    const auto last = static_cast<double>(numBins - 1);
    ++m_bins[static_cast<std::size_t>(std::min(size / resolution, last))];
    ++m_count;
    m_sumOfSquares += size * size;
    m_worst = std::max(m_worst, size);
}

double SizeHistogram::rms() const
{
    return m_count == 0 ? 0 : std::sqrt(m_sumOfSquares / static_cast<double>(m_count));
}

double SizeHistogram::percentile(double part) const
{
    if (m_count == 0) {
        return 0;
    }
    auto left = static_cast<std::uint64_t>(part * static_cast<double>(m_count - 1));
    std::size_t bin = 0;
    while (left >= m_bins[bin]) {
        left -= m_bins[bin++];
    }
    const double middle = (static_cast<double>(bin) + 0.5) * resolution;
    return bin + 1 == numBins ? m_worst : std::min(middle, m_worst);
}

void SyncStatistics::addBlock(double seconds, double errorUs, double adjustmentError)
{
    if (m_start < 0 || m_interrupted) {
        goOn(seconds);
    }
    const double size = std::abs(errorUs);
    if (m_locked) {
        if (seconds - m_start > settleSeconds) {
            m_errors.add(size);
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
        if (!m_locked && m_firstLock >= 0) { // it was interrupted again before it could lock
            m_worstRelock = std::max(m_worstRelock, m_interruptedAt - m_start);
        }
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

double SyncStatistics::adjustmentJitter() const
{
    return m_adjustments == 0 ? 0 : std::sqrt(m_sumOfSquares / static_cast<double>(m_adjustments));
}

} // namespace keldaReport
