#include "RepeatLimiter.h"

#include <utility>

namespace keldaPlay {

std::optional<std::uint64_t> RepeatLimiter::pass(const std::string& message, Time now)
{
    std::erase_if(m_entries, [&](const auto& entry) {
        return entry.second.heldBack == 0 && now - entry.second.passed >= m_interval;
    });
    const auto [entry, isNew] = m_entries.try_emplace(message, Entry{now, 0});
    if (isNew) {
        return 0;
    }
    if (now - entry->second.passed < m_interval) {
        ++entry->second.heldBack;
        return std::nullopt;
    }
    entry->second.passed = now;
    return std::exchange(entry->second.heldBack, 0);
}

std::vector<RepeatLimiter::HeldBack> RepeatLimiter::takeRest()
{
    std::vector<HeldBack> rest;
    for (const auto& [message, entry] : std::exchange(m_entries, {})) {
        if (entry.heldBack > 0) {
            rest.push_back({message, entry.heldBack});
        }
    }
    return rest;
}

} // namespace keldaPlay
