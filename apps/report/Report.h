#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Series.h"
#include "Spectrum.h"
#include "SyncStatistics.h"

namespace keldaReport {

/// A figure, and what it may be at most.
struct Line
{
    std::string name;
    std::string unit;
    double value = 0;
    std::optional<double> goal = std::nullopt;

    [[nodiscard]] bool isReached() const { return !goal || value <= *goal; }
};

/// What is known of every stream: lock times, errors and events.
[[nodiscard]] std::vector<Line> linesOf(const SyncStatistics& sync);

[[nodiscard]] bool isReached(const std::vector<Line>& table);

/// As text, a line each.
[[nodiscard]] std::string textOf(const std::vector<Line>& table);

struct Contents
{
    std::string title;
    const std::vector<Line>& table;
    const std::vector<Series::Span>& spans;
    const std::vector<double>& eventTimes; ///< s
    const Audio* before = nullptr;         ///< without the removal of clicks; null: not known
    const Audio* after = nullptr;
};

/// Writes a folder that tells whether a stream was in sync: index.html, which needs nothing else,
/// the plots that it shows (by gnuplot), and trace.csv, which they are drawn from.
///
/// Throws std::runtime_error when something can't be written, or gnuplot is missing.
void write(const std::string& folder, const Contents& contents);

} // namespace keldaReport
