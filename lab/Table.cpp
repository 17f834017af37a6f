#include "Table.h"

#include <limits>
#include <stdexcept>

namespace keldaLab {

std::vector<keldaReport::Line> tableOf(const Result& result, const Scenario& scenario)
{
    const double never = std::numeric_limits<double>::infinity();
    const auto& sync = result.sync;
    const bool relocked = sync.isLocked();
    std::vector<keldaReport::Line> table = {
        {"lock time", "s", sync.hasLocked() ? sync.lockTime() : never},
        {"relock time, worst", "s", relocked ? sync.worstRelockTime() : never},
        {"error, rms", "us", sync.rms()},
        {"error, p99", "us", sync.percentile(0.99)},
        {"error, worst", "us", sync.worst()},
        {"ratio jitter, rms", "ppm", sync.adjustmentJitter()},
        {"events", "", static_cast<double>(sync.events())},
        {"skips", "", static_cast<double>(result.skips)},
        {"silences", "", static_cast<double>(result.silences)},
        {"underruns", "", static_cast<double>(result.underruns)}};
    for (const auto& [name, goal] : scenario.goals) {
        const auto line = std::ranges::find(table, name, &keldaReport::Line::name);
        if (line == table.end()) {
            throw std::runtime_error("no line of the table is called " + name);
        }
        line->goal = goal;
    }
    return table;
}

} // namespace keldaLab
