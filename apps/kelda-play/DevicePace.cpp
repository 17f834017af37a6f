#include "DevicePace.h"

#include <algorithm>
#include <cmath>

namespace keldaPlay {

using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;

namespace {

// More than any crystal is off, or a card that plays 44.1 kHz at 48.
constexpr double mostTooFast = 1.1;

// What a sound server fetches beyond the buffer, for a device of its own that is slow to start and
// tells nonsense meanwhile.
constexpr double serverMargin = 3e9;

// For a device behind which there is nothing that could be asked.
constexpr double silentMargin = 1e8;

constexpr TimeValueDelta longestTold = 10'000'000'000;

} // namespace

DevicePace::DevicePace(unsigned int sampleRate, std::uint64_t bufferSize)
    : m_nsPerFrame(1e9 / sampleRate), m_buffer(static_cast<double>(bufferSize) * m_nsPerFrame)
{
}

double DevicePace::heldAt(TimeValue now) const
{
    const double passed = static_cast<double>(now - m_time) * (m_isKept ? 1 : mostTooFast);
    return std::max(0.0, m_held - passed);
}

bool DevicePace::written(TimeValue now, std::uint64_t numFrames, TimeValueDelta told, bool measured)
{
    m_held = heldAt(now) + static_cast<double>(numFrames) * m_nsPerFrame;
    m_time = now;
    if (m_isKept) {
        return false;
    }
    const double margin = measured || told > 0 ? serverMargin : silentMargin;
    const TimeValueDelta underWay = told < longestTold ? std::max<TimeValueDelta>(0, told) : 0;
    if (m_held <= m_buffer + static_cast<double>(underWay) + margin) {
        return false;
    }
    m_isKept = true;
    m_held = 0;
    return true;
}

void DevicePace::repaired(TimeValue now)
{
    if (!m_isKept && static_cast<double>(now - m_repairTime) >= m_buffer) {
        m_repairTime = now;
        m_held = 0;
        m_time = now;
    }
}

TimeValueDelta DevicePace::delay(TimeValue now) const
{
    return std::llround(heldAt(now));
}

TimeValueDelta DevicePace::wait(TimeValue now) const
{
    return m_isKept ? std::llround(std::max(0.0, heldAt(now) - m_buffer)) : 0;
}

} // namespace keldaPlay
