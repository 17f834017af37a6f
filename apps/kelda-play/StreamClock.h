#pragma once

#include <cstdint>

#include "miscUtils/TimeValue.h"

namespace keldaPlay {

/// When each frame of a stream is to be heard.
class StreamClock
{
public:
    /// @param start of the first frame, in ns
    /// @param ppm   how much faster than its nominal rate the stream runs
    StreamClock(miscUtils::TimeValue start, unsigned int sampleRate, double ppm = 0)
        : m_start(start), m_sampleRate(sampleRate), m_stretch(1 / (1 + ppm * 1e-6) - 1)
    {
    }

    /// The presentation timestamp of a frame, truncated to ns; exact however long the stream is
    /// (with an error of the rate to 1 us in a year).
    [[nodiscard]] miscUtils::TimeValue ptsOf(std::uint64_t frame) const
    {
        constexpr std::uint64_t nanosecondsPerSecond = 1'000'000'000;
        const miscUtils::TimeValue nominal =
            frame / m_sampleRate * nanosecondsPerSecond +
            frame % m_sampleRate * nanosecondsPerSecond / m_sampleRate;
        const double more = static_cast<double>(nominal) * m_stretch;
        return m_start + nominal +
               static_cast<miscUtils::TimeValue>(static_cast<miscUtils::TimeValueDelta>(more));
    }

private:
    miscUtils::TimeValue m_start;
    unsigned int m_sampleRate;
    double m_stretch;
};

} // namespace keldaPlay
