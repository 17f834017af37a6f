#include "VirtualDevice.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace keldaLab {

using audioUtils::RenderingDelay;

namespace {

bool isOfDelay(const Event& event)
{
    return event.kind == Event::Kind::Spike || event.kind == Event::Kind::Stale ||
           event.kind == Event::Kind::Offset;
}

} // namespace

VirtualDevice::VirtualDevice(const Scenario& scenario, const TimeValue& now,
                             std::function<void(double)> waitFor)
    : m_scenario(scenario),
      m_now(now),
      m_waitFor(std::move(waitFor)),
      m_crystal(scenario.device.crystal),
      m_random(scenario.seed + 1),
      m_start(now),
      m_playedUntil(now)
{
    std::ranges::copy_if(scenario.events, std::back_inserter(m_events), isOfDelay);
    std::ranges::sort(m_events, {}, &Event::atSeconds);
}

audioUtils::OutputDevice::WriteReturnValue VirtualDevice::write(void* buffer,
                                                                std::uint64_t numFrames)
{
    if (m_scenario.content != "numbers") {
        const auto* const samples = static_cast<const float*>(buffer);
        for (std::uint64_t i = 0; i < numFrames; ++i) {
            m_played.push_back(samples[2 * i]);
        }
    }
    play();
    const bool ranDry = m_running && m_queued <= 0;
    if (ranDry) {
        m_running = false;
        m_queued = 0;
    }
    m_queued += static_cast<double>(numFrames);
    m_running = m_running || m_queued >= static_cast<double>(startThreshold());
    const double excess = m_queued - static_cast<double>(bufferSize());
    if (excess > 0) {
        m_waitFor(excess / trueRate() * 1e9);
    }
    if (m_scenario.device.wakeUpUs > 0) {
        m_waitFor(std::exponential_distribution<double>(1 / m_scenario.device.wakeUpUs)(m_random) *
                  1000);
    }
    play();
    measure();
    return ranDry ? Underrun : Success;
}

void VirtualDevice::play()
{
    if (m_running) {
        m_queued -= static_cast<double>(m_now - m_playedUntil) * 1e-9 * trueRate();
    }
    m_playedUntil = m_now;
}

double VirtualDevice::truePpm() const
{
    return m_crystal.ppmAt(static_cast<double>(m_now) * 1e-9);
}

double VirtualDevice::trueRate() const
{
    return m_scenario.sampleRate * (1 + truePpm() * 1e-6) * (1 + m_pllPpm * 1e-6);
}

double VirtualDevice::trueDelay(double framesAhead) const
{
    return (m_queued + framesAhead) / trueRate() * 1e9 - static_cast<double>(m_now - m_playedUntil);
}

// The position as of the last report, in whole microseconds at the nominal rate, as a driver tells
// it.
void VirtualDevice::measure()
{
    if (!m_running) {
        return;
    }
    const auto interval = static_cast<TimeValue>(m_scenario.device.reportMs * 1e6);
    const TimeValue reported = interval > 0 ? m_now - m_now % interval : m_now;
    const TimeValue timestamp = reported / 1000;
    const double queuedThen =
        m_queued + static_cast<double>(m_now - timestamp * 1000) * 1e-9 * trueRate();
    double delay = queuedThen / m_scenario.sampleRate * 1e6;
    std::uniform_real_distribution<double> chance(0, 1);
    if (chance(m_random) < m_scenario.device.spikeProbability) {
        delay += (chance(m_random) < 0.5 ? -1 : 1) * m_scenario.device.spikeMs * 1000;
    }
    if (const Event* const event = current()) {
        switch (event->kind) {
        case Event::Kind::Stale:
            return;
        case Event::Kind::Offset:
            delay += event->milliseconds < 0 ? -1e6 : 1e6;
            break;
        default:
            delay += event->milliseconds * 1000;
            m_events.pop_front();
        }
    }
    m_delay = RenderingDelay(std::lround(delay), static_cast<long>(timestamp));
}

const Event* VirtualDevice::current()
{
    const auto isOver = [this](const Event& event) {
        return event.kind != Event::Kind::Spike &&
               seconds() >= event.atSeconds + std::abs(event.milliseconds) / 1000;
    };
    while (!m_events.empty() && isOver(m_events.front())) {
        m_events.pop_front();
    }
    return m_events.empty() || seconds() < m_events.front().atSeconds ? nullptr : &m_events.front();
}

std::int64_t VirtualDevice::getCompensatedRenderingDelay() const
{
    if (m_delay.timestamp == RenderingDelay::noTimestamp) {
        return std::llround(m_queued / m_scenario.sampleRate * 1e9);
    }
    return (m_delay.delay + m_delay.timestamp) * 1000 - static_cast<std::int64_t>(m_now);
}

} // namespace keldaLab
