#include "miscUtils/TimestampFilter.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace miscUtils {

namespace {

constexpr double nanosecondsPerSecond = 1e9;

// No audio clock is further off its nominal rate. Without a limit a stream that stalls for a while
// (each time by less than the maximum error) would teach the loop an absurd rate, and the filtered
// times would swing long after it has recovered.
constexpr double largestRateError = 0.01;

} // namespace

TimestampFilter::TimestampFilter(const unsigned long& timeConstant, const std::string& name)
    : m_timeConstant(static_cast<double>(timeConstant)),
      m_name(name),
      m_maxError(std::numeric_limits<double>::infinity())
{
}

const std::string& TimestampFilter::name() const
{
    return m_name;
}

void TimestampFilter::setSampleRate(const double& sampleRate)
{
    m_nominalNsPerFrame = sampleRate > 0 ? nanosecondsPerSecond / sampleRate : 0;
    m_gains = {};
    restart();
}

void TimestampFilter::setEnabled(const bool& enabled)
{
    m_enabled = enabled;
    restart();
}

void TimestampFilter::setMaxErrorThreshold(const unsigned long& maxError)
{
    m_maxError = static_cast<double>(maxError);
}

TimeValue TimestampFilter::filter(const unsigned long& rawTime)
{
    if (!m_enabled || m_nominalNsPerFrame == 0 || rawTime == NoTimeValue) {
        return rawTime;
    }
    if (m_anchor.numTimestamps == 0 || m_framesSinceAnchor == 0) {
        return anchorAt(rawTime);
    }

    const double passed = static_cast<double>(m_framesSinceAnchor) * m_nsPerFrame;
    double error = m_anchor.time.distanceTo(rawTime) - passed;
    if (m_jumped) {
        const double errorBeforeJump = m_beforeJump.time.distanceTo(rawTime) - passed;
        if (std::abs(errorBeforeJump) < std::abs(error)) {
            error = errorBeforeJump;
            m_anchor = m_beforeJump;
        }
    }
    if (std::abs(error) > m_maxError) {
        m_beforeJump = m_anchor;
        m_beforeJump.time.moveBy(passed);
        const TimeValue time = anchorAt(rawTime);
        m_jumped = true;
        return time;
    }
    return correctAnchor(passed, error);
}

void TimestampFilter::reset(const unsigned long&)
{
    restart();
}

void TimestampFilter::restart()
{
    m_anchor = {};
    m_jumped = false;
    m_framesSinceAnchor = 0;
    m_nsPerFrame = m_nominalNsPerFrame;
}

TimeValue TimestampFilter::anchorAt(TimeValue time)
{
    m_anchor = {{time, 0}, 1};
    m_jumped = false;
    m_framesSinceAnchor = 0;
    return time;
}

TimeValue TimestampFilter::correctAnchor(double passed, double error)
{
    const Gains& gains = gainsFor(m_framesSinceAnchor);
    m_anchor.numTimestamps += 1;
    const bool settled = m_anchor.numTimestamps * gains.time >= 1;
    m_anchor.time.moveBy(passed + (settled ? gains.time * error : error / m_anchor.numTimestamps));
    m_nsPerFrame =
        std::clamp(m_nsPerFrame + gains.rate * error, m_nominalNsPerFrame * (1 - largestRateError),
                   m_nominalNsPerFrame * (1 + largestRateError));
    m_jumped = false;
    m_framesSinceAnchor = 0;
    return m_anchor.time.rounded();
}

const TimestampFilter::Gains& TimestampFilter::gainsFor(long numFrames)
{
    // Packets are nearly always of one length, so the exponential is calculated once.
    if (m_gains.numFrames != numFrames) {
        const auto frames = static_cast<double>(numFrames);
        const double theta = std::exp(-frames * m_nominalNsPerFrame / m_timeConstant);
        m_gains = {numFrames, 1 - theta * theta, (1 - theta) * (1 - theta) / frames};
    }
    return m_gains;
}

// Truncation and a correction: quicker than std::floor, which is a call where SSE 4.1 is not taken
// for granted.
void TimestampFilter::Instant::moveBy(double nanoseconds)
{
    const double sum = fraction + nanoseconds;
    auto floor = static_cast<TimeValueDelta>(sum);
    floor -= static_cast<double>(floor) > sum ? 1 : 0;
    whole += static_cast<TimeValue>(floor);
    fraction = sum - static_cast<double>(floor);
}

double TimestampFilter::Instant::distanceTo(TimeValue time) const
{
    return static_cast<double>(static_cast<TimeValueDelta>(time - whole)) - fraction;
}

TimeValue TimestampFilter::Instant::rounded() const
{
    return fraction < 0.5 ? whole : whole + 1;
}

} // namespace miscUtils
