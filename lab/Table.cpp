#include "Table.h"

#include <algorithm>
#include <stdexcept>

namespace keldaLab {

std::vector<keldaReport::Line> tableOf(const Result& result, const Scenario& scenario)
{
    std::vector<keldaReport::Line> table = keldaReport::linesOf(result.sync);
    table.push_back({"ratio jitter, rms", "ppm", result.sync.adjustmentJitter()});
    table.push_back({"underruns", "", static_cast<double>(result.underruns)});
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
