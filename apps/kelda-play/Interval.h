#pragma once

#include <algorithm>
#include <chrono>

namespace keldaPlay {

/// What happens often, told once in a while.
class Interval
{
public:
    explicit Interval(std::chrono::milliseconds length) : m_length(length) {}

    /// Whether it is time again; the first time is at once.
    [[nodiscard]] bool isDue()
    {
        const Clock::time_point now = Clock::now();
        if (now < m_next) {
            return false;
        }
        m_next = std::max(m_next, now - m_length) + m_length;
        return true;
    }

private:
    using Clock = std::chrono::steady_clock;

    std::chrono::milliseconds m_length;
    Clock::time_point m_next = Clock::now();
};

} // namespace keldaPlay
