#pragma once

#include <string>

#include "Journal.h"
#include "Series.h"
#include "Spectrum.h"
#include "SyncStatistics.h"

namespace keldaPlay {

/// How well a run was in sync, for its report.
class SyncRecord
{
public:
    void add(const BlockRecord& record);

    /// Throws std::runtime_error when it can't be written.
    /// @param before, after the sound without and with the removal of its clicks; null: not known
    void write(const std::string& folder, const std::string& title,
               const keldaReport::Audio* before, const keldaReport::Audio* after) const;

private:
    keldaReport::SyncStatistics m_sync;
    keldaReport::Series m_series;
    miscUtils::TimeValue m_start = 0;
    std::uint64_t m_underruns = 0;
};

} // namespace keldaPlay
