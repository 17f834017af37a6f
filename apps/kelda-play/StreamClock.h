#pragma once

#include <cstdint>

#include "miscUtils/TimeValue.h"

namespace keldaPlay {

/// When each frame of a stream is to be heard.
class StreamClock
{
public:
    /// @param start of the first frame, in ns
    StreamClock(miscUtils::TimeValue start, unsigned int sampleRate)
        : m_start(start), m_sampleRate(sampleRate)
    {
    }

    /// The presentation timestamp of a frame, truncated to ns; exact however long the stream is.
    [[nodiscard]] miscUtils::TimeValue ptsOf(std::uint64_t frame) const
    {
        constexpr std::uint64_t nanosecondsPerSecond = 1'000'000'000;
        return m_start + frame / m_sampleRate * nanosecondsPerSecond +
               frame % m_sampleRate * nanosecondsPerSecond / m_sampleRate;
    }

private:
    miscUtils::TimeValue m_start;
    unsigned int m_sampleRate;
};

} // namespace keldaPlay
