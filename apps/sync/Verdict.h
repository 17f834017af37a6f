#pragma once

#include <string>

#include "SyncStatistics.h"

namespace keldaSync {

/// What a listener may be told of a stream.
enum class Verdict {
    InSync,       ///< nothing interrupted it, and it was heard when it should be
    Interrupted,  ///< it was, but for its events
    NotInSync,    ///< it was heard too early or too late
    NotMeasured,  ///< too little of it was measured to tell
    NothingHeard, ///< no frame of it was
};

/// How much has to be measured to tell, s.
constexpr double leastSeconds = 1;

/// In sync is a stream of whose counted errors 99 % are at most 1 ms, and of no second most are
/// more. The first that holds of: nothing heard; not in sync; interrupted, by an event or a loss;
/// not measured, less than a second; in sync.
[[nodiscard]] Verdict verdictOf(const SyncStatistics& sync);

/// The words, the same wherever the user is told: "In sync", "Interrupted", "Not in sync", "Not
/// measured", "Nothing heard".
[[nodiscard]] const char* toString(Verdict verdict);

/// Why, in a line without a stop at its end.
[[nodiscard]] std::string reasonOf(const SyncStatistics& sync);

} // namespace keldaSync
