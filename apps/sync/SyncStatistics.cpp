#include "SyncStatistics.h"

#include <algorithm>
#include <cmath>

namespace keldaSync {

using audioUtils::OutputDevice;

SyncStatistics::SyncStatistics()
{
    constexpr std::size_t blocksWhileLocking = 8192; // more than that are unusual, but no harm
    m_waiting.reserve(blocksWhileLocking);
}

void SyncStatistics::beginStream(unsigned int sampleRate)
{
    countWaiting();
    m_sampleRate = sampleRate;
    m_counts.beginStream(sampleRate);
    m_gaps.clear();
    m_interrupted = false;
    m_start = m_smallSince = -1;
    m_locked = false;
    m_isLocking = true;
}

void SyncStatistics::add(const BlockRecord& record, std::optional<double> errorUs,
                         double adjustmentError)
{
    m_origin = m_origin.value_or(record.time());
    const double seconds = static_cast<double>(record.time() - *m_origin) * 1e-9;
    const double length = static_cast<double>(record.numFrames) / m_sampleRate;
    m_seconds = seconds + length;
    m_counts.add(record);
    planGap(record, seconds, length);

    const bool isSilent = record.silenceFrames + record.paddedFrames > 0;
    const bool isInGap = this->isInGap(seconds, length);
    const bool isUnheard = !record.isHeard() && record.dataFrames() > 0;
    const bool hasLost = record.skippedFrames + record.resets > 0 || isUnheard;
    if (hasLost || isInGap || record.result != OutputDevice::Success || !record.isContinuous()) {
        interrupt(seconds, {seconds, record.skippedFrames > 0, isSilent || isInGap || isUnheard},
                  hasLost || isInGap || record.result == OutputDevice::Underrun);
    } else if (errorUs && record.dataFrames() > 0) {
        m_series.add({seconds, *errorUs, record.adjustmentPpm,
                      static_cast<double>(record.queueFill) * 1e-6});
        measure({seconds, *errorUs, length}, adjustmentError);
    }
}

// What has been inserted lies at the queue's end, but for the packets that came after it.
void SyncStatistics::planGap(const BlockRecord& record, double seconds, double length)
{
    if (record.resets > 0) {
        m_gaps.clear(); // with all that was queued
    }
    if (record.insertedFrames > 0) {
        const double end = seconds + length + static_cast<double>(record.queueFill) * 1e-9;
        m_gaps.push_back({end - static_cast<double>(record.insertedFrames) / m_sampleRate, end});
    }
}

bool SyncStatistics::isInGap(double seconds, double length)
{
    while (!m_gaps.empty() && m_gaps.front().to <= seconds) {
        m_gaps.pop_front();
    }
    return !m_gaps.empty() && m_gaps.front().from < seconds + length;
}

// What is missing may be the end of the stream; what is lost is lost.
void SyncStatistics::interrupt(double seconds, const Event& event, bool isCertain)
{
    if (m_start < 0 && !isCertain) {
        return; // it has not begun
    }
    if (!m_interrupted) {
        m_interrupted = true;
        m_isEvent = false;
        m_interruption = {seconds};
    }
    m_interruption.skipped = m_interruption.skipped || event.skipped;
    m_interruption.silent = m_interruption.silent || event.silent;
    if (isCertain || m_isEvent) {
        noteEvent(isCertain);
    }
}

void SyncStatistics::noteEvent(bool isCertain)
{
    // Two pieces of one event may be a block apart, and so may those of the start.
    constexpr double apart = 0.1;
    const bool isClose = m_start >= 0 && m_interruption.seconds - m_start <= apart;
    if (!m_isEvent && m_events.empty() && isClose && !isCertain) {
        return;
    }
    if (!m_isEvent && (m_events.empty() || !isClose)) {
        m_events.push_back(m_interruption);
        if (!m_locked && m_firstLock >= 0 && m_start >= 0) { // before it could lock
            m_worstRelock = std::max(m_worstRelock, m_interruption.seconds - m_start);
        }
    }
    m_isEvent = true;
    m_events.back().skipped = m_events.back().skipped || m_interruption.skipped;
    m_events.back().silent = m_events.back().silent || m_interruption.silent;
}

void SyncStatistics::goOn(double seconds)
{
    if (m_interrupted && m_start >= 0) {
        noteEvent(false);
    }
    countWaiting();
    m_firstStart = m_firstStart < 0 ? seconds : m_firstStart;
    m_start = seconds;
    m_interrupted = false;
    m_locked = false;
    m_smallSince = -1;
    m_isLocking = true;
}

void SyncStatistics::measure(const Error& error, double adjustmentError)
{
    if (m_start < 0 || m_interrupted) {
        goOn(error.seconds);
    }
    m_measuredSeconds += error.length;
    if (m_isLocking) {
        m_waiting.push_back(error);
        if (error.seconds - m_start > settleSeconds) {
            countWaiting();
        }
    } else {
        m_errors.add(error.us, error.length);
    }
    if (!m_locked) {
        lockOnto(error);
        return;
    }
    if (error.seconds - m_start > settleSeconds) {
        m_lockedErrors.add(std::abs(error.us));
    }
    if (error.seconds - m_lockedAt > steadySeconds) {
        m_sumOfSquares += adjustmentError * adjustmentError;
        ++m_adjustments;
    }
}

void SyncStatistics::lockOnto(const Error& error)
{
    if (std::abs(error.us) >= lockedUs) {
        m_smallSince = -1;
        return;
    }
    if (m_smallSince < 0) {
        m_smallSince = error.seconds;
    }
    if (error.seconds - m_smallSince >= lockSeconds) {
        lock(error.seconds);
    }
}

void SyncStatistics::lock(double seconds)
{
    m_locked = true;
    m_lockedAt = seconds;
    if (m_firstLock < 0) {
        m_firstLock = m_smallSince - m_firstStart;
    } else {
        m_worstRelock = std::max(m_worstRelock, m_smallSince - m_start);
    }
    std::erase_if(m_waiting, [this](const Error& error) { return error.seconds < m_smallSince; });
    countWaiting();
}

void SyncStatistics::countWaiting()
{
    for (const Error& error : m_waiting) {
        m_errors.add(error.us, error.length);
    }
    m_waiting.clear();
    m_isLocking = false;
}

ErrorStatistics SyncStatistics::errors() const
{
    ErrorStatistics result = m_errors;
    for (const Error& error : m_waiting) {
        result.add(error.us, error.length);
    }
    return result;
}

std::vector<double> SyncStatistics::eventTimes() const
{
    std::vector<double> times;
    std::ranges::transform(m_events, std::back_inserter(times), &Event::seconds);
    return times;
}

std::uint64_t SyncStatistics::skips() const
{
    return static_cast<std::uint64_t>(std::ranges::count_if(m_events, &Event::skipped));
}

std::uint64_t SyncStatistics::silences() const
{
    return static_cast<std::uint64_t>(std::ranges::count_if(m_events, &Event::silent));
}

std::optional<double> SyncStatistics::adjustmentJitter() const
{
    if (m_adjustments == 0) {
        return std::nullopt;
    }
    return std::sqrt(m_sumOfSquares / static_cast<double>(m_adjustments));
}

} // namespace keldaSync
