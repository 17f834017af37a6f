#pragma once

#include <string>

#include "Journal.h"
#include "Series.h"
#include "SyncStatistics.h"

namespace keldaPlay {

/// How well a run was in sync, for its report.
class SyncRecord
{
public:
    void add(const BlockRecord& record);

    /// Throws std::runtime_error when it can't be written.
    void write(const std::string& folder, const std::string& title) const;

private:
    keldaReport::SyncStatistics m_sync;
    keldaReport::Series m_series;
    miscUtils::TimeValue m_start = 0;
    std::uint64_t m_underruns = 0;
};

} // namespace keldaPlay
