#include "DeviceDelay.h"

#include <cmath>
#include <cstdlib>
#include <utility>

namespace keldaPlay {

using audioUtils::OutputDevice;
using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;

namespace {

// More than any buffer, sound server or wireless link holds. A delay of days is a negative one that
// was divided as an unsigned number.
constexpr TimeValueDelta largest = 10'000'000'000;

// What a clock drifts from one block to the next is a hundredth of it.
constexpr TimeValueDelta largestStep = 1'000'000;

// As many in a row are no outliers.
constexpr unsigned int mostDoubts = 5;

// A device that is being filled stands still, and may take its time to start.
constexpr TimeValue startInterval = 1'000'000'000;

constexpr TimeValue markInterval = 120'000'000'000;

// How long a delay has to be free of jumps, and when it never will be.
constexpr TimeValue settleInterval = 5'000'000'000;
constexpr TimeValue longestJumping = 30'000'000'000;

// The longest period of a device that tells its position only when it moves.
constexpr TimeValueDelta oldestPosition = 25'000'000;

// A delay is off by up to a frame or a wake-up's latency, which says much of a second and little of
// a minute.
constexpr double doubtfulTime = 5e9;

} // namespace

DeviceDelay::DeviceDelay(const OutputDevice& device)
    : m_device(&device),
      m_timestamp(device.lastRenderingDelay().timestamp),
      m_pace(device.sampleRate(), device.bufferSize())
{
}

TimeValueDelta DeviceDelay::next(TimeValue now)
{
    if (m_pace.isKept()) {
        return m_pace.delay(now);
    }
    const TimeValueDelta told =
        m_refilling ? durationOf(m_framesRefilled) : m_device->getCompensatedRenderingDelay();
    const TimeValueDelta expected =
        m_last + durationOf(m_framesSince) - static_cast<TimeValueDelta>(now - m_lastTime);
    if (told <= -largest || largest <= told) {
        return m_last; // says nothing at all
    }
    const bool wasFilling = std::exchange(m_wasFilling, m_filling);
    m_startTime = m_known && !wasFilling ? m_startTime : now;
    const bool isFilling = now - m_startTime < startInterval;
    if (!isFilling && !isBelievable(told, expected)) {
        return expected;
    }
    estimateRate(now, told - expected);
    m_last = told;
    m_lastTime = now;
    m_framesSince = 0;
    m_known = true;
    return m_last;
}

// A device that plays too fast is emptied sooner than expected, by so much for each second.
void DeviceDelay::estimateRate(TimeValue now, TimeValueDelta step)
{
    m_off += m_known ? step : 0;
    if (now - m_startTime < startInterval) {
        m_oldMark = m_newMark = {now, m_off};
        m_ppmBefore = m_ppm; // the crystal is the same, whatever happened to the stream
        m_jumping = false;
        return;
    }
    if (!isSettled(now, step)) {
        return;
    }
    if (now - m_newMark.time > markInterval) {
        m_oldMark = m_newMark;
        m_newMark = {now, m_off};
        m_ppmBefore = m_ppm;
    }
    const auto time = static_cast<double>(now - m_oldMark.time);
    if (time > 0) {
        const auto off = static_cast<double>(m_off - m_oldMark.off);
        m_ppm = (-off * 1e6 + m_ppmBefore * doubtfulTime) / (time + doubtfulTime);
    }
}

// A delay that has jumped may well jump back: until then it says nothing of the rate. What it is
// off in the end was no drift if it is more than a position can be old. A device whose position
// moves in steps jumps all the time, and is as right as it can be.
bool DeviceDelay::isSettled(TimeValue now, TimeValueDelta step)
{
    if (step < -largestStep || largestStep < step) {
        m_jumpTime = now;
        if (!m_jumping) {
            m_jumping = true;
            m_firstJumpTime = now;
            m_offBefore = m_off - step;
        }
    }
    if (m_jumping && now - m_jumpTime > settleInterval) {
        m_jumping = false;
        if (std::abs(m_off - m_offBefore) > oldestPosition) {
            m_off = m_offBefore;
        }
    }
    return !m_jumping || now - m_firstJumpTime > longestJumping;
}

bool DeviceDelay::isBelievable(TimeValueDelta delay, TimeValueDelta expected)
{
    const TimeValueDelta step = delay - expected;
    const bool isOff = !m_refilling && (step < -largestStep || largestStep < step);
    m_doubts = isOff && m_doubts < mostDoubts ? m_doubts + 1 : 0;
    return m_doubts == 0;
}

// A device that was repaired holds nothing and stands still until it has been filled again. Until
// then its last measurement is the one from before, and says nothing any more.
void DeviceDelay::written(OutputDevice::WriteReturnValue result, std::uint64_t numFrames,
                          TimeValue now)
{
    const long before = m_timestamp;
    m_timestamp = m_device->lastRenderingDelay().timestamp;
    const bool measured =
        m_timestamp != before || m_timestamp == audioUtils::RenderingDelay::noTimestamp;
    if (result == OutputDevice::Underrun) {
        m_framesRefilled = 0;
        m_refilling = true;
        m_filling = true;
        m_known = false;
    }
    m_refilling = m_refilling && !measured;
    m_framesRefilled += numFrames;
    const bool started =
        m_timestamp != before && m_timestamp != audioUtils::RenderingDelay::noTimestamp;
    m_filling = m_filling && !started && m_framesRefilled <= m_device->bufferSize();
    m_framesSince += numFrames;
    keepPace(result, numFrames, now);
}

// What was told of a device that is kept from now on means nothing: it starts once more, empty.
void DeviceDelay::keepPace(OutputDevice::WriteReturnValue result, std::uint64_t numFrames,
                           TimeValue now)
{
    if (result == OutputDevice::Underrun) {
        m_pace.repaired(now);
    }
    const bool measured = m_timestamp != audioUtils::RenderingDelay::noTimestamp;
    if (m_pace.written(now, numFrames, m_last, measured)) {
        m_ppm = 0;
        m_framesRefilled = 0;
        m_filling = true;
    }
}

TimeValueDelta DeviceDelay::durationOf(std::uint64_t numFrames) const
{
    return std::llround(static_cast<double>(numFrames) * 1e9 / m_device->sampleRate() /
                        (1 + m_pllPpm * 1e-6));
}

} // namespace keldaPlay
