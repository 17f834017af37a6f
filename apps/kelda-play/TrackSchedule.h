#pragma once

#include <deque>
#include <mutex>
#include <optional>

#include "Track.h"
#include "miscUtils/TimeValue.h"

namespace keldaPlay {

/// When each track's first frame is due: what the producer knows, for those who tell the user.
class TrackSchedule
{
public:
    struct Entry
    {
        const Track* track = nullptr;
        miscUtils::TimeValue pts = 0; ///< of its first frame
    };

    void add(const Track& track, miscUtils::TimeValue pts)
    {
        const std::lock_guard lock(m_mutex);
        m_entries.push_back({&track, pts});
    }

    /// The next one in order that is due by now; each is given once.
    [[nodiscard]] std::optional<Entry> takeDue(miscUtils::TimeValue now)
    {
        const std::lock_guard lock(m_mutex);
        if (m_entries.empty() || m_entries.front().pts > now) {
            return std::nullopt;
        }
        const Entry entry = m_entries.front();
        m_entries.pop_front();
        return entry;
    }

private:
    std::mutex m_mutex;
    std::deque<Entry> m_entries;
};

} // namespace keldaPlay
