#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace keldaPlay {

/// Keeps a message that comes again and again from flooding a log: it passes once in a while, with
/// the number of times that it did not.
class RepeatLimiter
{
public:
    using Time = std::chrono::steady_clock::time_point;

    explicit RepeatLimiter(std::chrono::steady_clock::duration interval) : m_interval(interval) {}

    /// @return how many times it has been held back since it passed last, when it passes now
    [[nodiscard]] std::optional<std::uint64_t> pass(const std::string& message, Time now);

    struct HeldBack
    {
        std::string message;
        std::uint64_t count = 0;
    };

    /// What has not been told yet; it is forgotten.
    [[nodiscard]] std::vector<HeldBack> takeRest();

private:
    struct Entry
    {
        Time passed;
        std::uint64_t heldBack = 0;
    };

    std::chrono::steady_clock::duration m_interval;
    std::map<std::string, Entry> m_entries;
};

} // namespace keldaPlay
