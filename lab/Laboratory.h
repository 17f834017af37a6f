#pragma once

#include <cstdint>
#include <optional>

#include "FrameAccounts.h"
#include "Journal.h"
#include "Scenario.h"
#include "Spectrum.h"
#include "SyncStatistics.h"

namespace keldaLab {

/// What came of a scenario.
struct Result
{
    keldaSync::SyncStatistics sync; ///< by the true time of each frame, where they are numbered
    std::uint64_t alignments = 0;   ///< of what a fault has left behind, an event each
    FrameAccounts frames;           ///< where they are numbered, and clicks not removed
    /// Bytes, from a 24th of the time on until the end; none where a sanitizer owns the heap.
    std::optional<std::uint64_t> heapGrowth;
    keldaReport::Audio played; ///< where the content is audio
};

/// Plays a scenario through the player's own path, in virtual time.
[[nodiscard]] Result run(const Scenario& scenario);

/// What is played of it when clicks are not removed.
[[nodiscard]] keldaReport::Audio runWithClicks(Scenario scenario);

} // namespace keldaLab
