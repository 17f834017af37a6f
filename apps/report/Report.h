#pragma once

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "Facts.h"
#include "Spectrum.h"
#include "SyncStatistics.h"

namespace keldaReport {

/// What happens in the end, but has not.
constexpr double never = std::numeric_limits<double>::infinity();

/// A figure, and what it may be at most.
struct Line
{
    std::string name;
    std::string unit;
    std::optional<double> value = std::nullopt; ///< none: it was not measured
    std::optional<double> goal = std::nullopt;

    /// What was not measured reaches no goal.
    [[nodiscard]] bool isReached() const { return !goal || (value && *value <= *goal); }
};

/// What is known of every stream: lock times, errors, events and losses.
[[nodiscard]] std::vector<Line> linesOf(const keldaSync::SyncStatistics& sync);

[[nodiscard]] bool isReached(const std::vector<Line>& table);

/// As text, a line each.
[[nodiscard]] std::string textOf(const std::vector<Line>& table);

/// "In sync: 99 % of ...", as the page has it.
[[nodiscard]] std::string verdictOf(const keldaSync::SyncStatistics& sync);

struct Contents
{
    std::string title;
    const keldaSync::SyncStatistics& sync;
    const std::vector<Line>& table;
    const std::vector<Fact>& facts; ///< of the run
    const Audio* before = nullptr;  ///< without the removal of clicks; null, or short: not shown
    const Audio* after = nullptr;
};

/// Writes a folder that tells whether a stream was in sync: index.html, which needs nothing else,
/// the plots that it shows (by gnuplot), and trace.csv, which they are drawn from.
///
/// Each file gets its name when all are complete; what else there is in the folder stays.
///
/// Throws std::runtime_error when something can't be written, or gnuplot is missing.
void write(const std::string& folder, const Contents& contents);

} // namespace keldaReport
