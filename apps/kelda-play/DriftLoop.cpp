#include "DriftLoop.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace keldaPlay {

using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;

namespace {

constexpr double unitsPerPpm = 1000;

// By how much each gear is quicker than the steady state. The last one is for streams that jitter,
// where a steady rate is worth more than following the crystals' wander.
constexpr std::array<double, 6> gears = {16, 8, 4, 2, 1, 0.5};
constexpr std::size_t steadyGear = 4;
constexpr double jitteringUs = 10;
constexpr double jitterSeconds = 10; // over which it is observed

// How long a gear takes to settle, in its own time constants.
constexpr double timeConstants = 4;

// No jitter that can be lived with is off by so much for a second: the clock has changed.
constexpr double lostErrorUs = 250;

} // namespace

DriftLoop::DriftLoop(const DriftOptions& options) : m_options(options) {}

void DriftLoop::update(TimeValueDelta drift, TimeValue now)
{
    const double error = static_cast<double>(drift) / 1000;
    if (m_interrupted) {
        m_interrupted = false;
        m_meanError = 0;
        m_last = now;
        startGear(0, now);
    }
    const double seconds = static_cast<double>(now - m_last) / 1e9;
    m_last = now;
    m_compensator->update(drift, now);
    observe(ppm(), seconds);

    m_meanError += (error - m_meanError) * std::min(1.0, seconds);
    m_jitter += (std::abs(error - m_meanError) - m_jitter) * std::min(1.0, seconds / jitterSeconds);
    const double gearSeconds = static_cast<double>(now - m_gearStart) / 1e9;
    const double timeConstant = 1 / (gears[m_gear] * std::sqrt(std::max(m_options.Ki, 1e-6)));
    const std::size_t lastGear = m_jitter > jitteringUs ? gears.size() - 1 : steadyGear;
    if (gearSeconds > timeConstants * timeConstant && m_gear < lastGear) {
        startGear(m_gear + 1, now);
    } else if (m_gear >= steadyGear && std::abs(m_meanError) > lostErrorUs) {
        interrupt();
    }
}

void DriftLoop::interrupt()
{
    m_interrupted = true;
}

double DriftLoop::ppm() const
{
    return std::clamp(m_base + m_adjustment / unitsPerPpm, -m_options.limitPpm, m_options.limitPpm);
}

// What a gear found is the mean of its corrections, not the last one, which follows the jitter.
void DriftLoop::startGear(std::size_t gear, TimeValue now)
{
    if (m_secondsSummed > 0) {
        m_base = m_sumOfPpm / m_secondsSummed;
    }
    m_sumOfPpm = 0;
    m_secondsSummed = 0;
    m_gear = gear;
    m_gearStart = now;
    const double quicker = gears[gear];
    const auto limit = static_cast<int>(2 * m_options.limitPpm * unitsPerPpm);
    m_compensator.emplace(
        -limit, limit, m_options.Kp * quicker * unitsPerPpm,
        m_options.Ki * quicker * quicker * unitsPerPpm, m_options.Kd * unitsPerPpm,
        [this](int adjustment) { m_adjustment = adjustment; }, m_options.sampleTimeMs,
        std::min(1.0, m_options.filterAlpha * quicker));
}

// Sums the corrections up, those of long ago less and less.
void DriftLoop::observe(double ppm, double seconds)
{
    const double timeConstant =
        timeConstants / 2 / (gears[m_gear] * std::sqrt(std::max(m_options.Ki, 1e-6)));
    const double kept = std::exp(-seconds / timeConstant);
    m_sumOfPpm = m_sumOfPpm * kept + ppm * seconds;
    m_secondsSummed = m_secondsSummed * kept + seconds;
}

} // namespace keldaPlay
