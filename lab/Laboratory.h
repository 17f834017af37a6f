#pragma once

#include <functional>

#include "FrameAccounts.h"
#include "Journal.h"
#include "Scenario.h"
#include "Series.h"
#include "Spectrum.h"
#include "SyncStatistics.h"

namespace keldaLab {

/// What came of a scenario.
struct Result
{
    keldaReport::SyncStatistics sync;
    keldaReport::Series series;
    std::uint64_t underruns = 0;  ///< of the device
    std::uint64_t alignments = 0; ///< of what a fault has left behind, an event each
    FrameAccounts frames;         ///< where they are numbered, and clicks not removed
    std::uint64_t heapGrowth = 0; ///< bytes, from a 24th of the time on until the end
    keldaReport::Audio played;    ///< where the content is audio
};

/// Plays a scenario through the player's own path, in virtual time.
[[nodiscard]] Result run(const Scenario& scenario);

/// What is played of it when clicks are not removed.
[[nodiscard]] keldaReport::Audio runWithClicks(Scenario scenario);

} // namespace keldaLab
