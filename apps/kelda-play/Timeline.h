#pragma once

#include <cstdint>
#include <optional>

#include "StreamClock.h"
#include "miscUtils/TimeValue.h"

namespace keldaPlay {

/// When the frames of a stream are due: from the first one's arrival on. What comes from a live
/// source too late for that is due as soon as it can be, and so is what follows.
class Timeline
{
public:
    /// @param pathDelay from a frame's way into the queue until it is heard, ns
    /// @param ppm       how much faster than its nominal rate the stream runs
    Timeline(miscUtils::TimeValue pathDelay, unsigned int sampleRate, double ppm)
        : m_pathDelay(pathDelay), m_sampleRate(sampleRate), m_ppm(ppm)
    {
    }

    /// The frames from this one on are there.
    /// @return whether they came too late
    bool arrive(std::uint64_t frame, miscUtils::TimeValue now, bool isLive)
    {
        const bool isLate = m_clock && isLive && ptsOf(frame) < now + m_pathDelay;
        if (!m_clock || isLate) {
            m_clock.emplace(now + m_pathDelay + lead, m_sampleRate, m_ppm);
            m_first = frame;
        }
        return isLate;
    }

    /// Of a frame that has arrived, or is to come.
    [[nodiscard]] miscUtils::TimeValue ptsOf(std::uint64_t frame) const
    {
        return m_clock->ptsOf(frame - m_first);
    }

private:
    // The producer has time for some packets before the first is heard.
    static constexpr miscUtils::TimeValue lead = 100'000'000;

    miscUtils::TimeValue m_pathDelay;
    unsigned int m_sampleRate;
    double m_ppm;
    std::optional<StreamClock> m_clock;
    std::uint64_t m_first = 0; // of the clock
};

} // namespace keldaPlay
