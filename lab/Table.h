#pragma once

#include <vector>

#include "Laboratory.h"
#include "Report.h"

namespace keldaLab {

/// A result as a table, with the scenario's goals.
[[nodiscard]] std::vector<keldaReport::Line> tableOf(const Result& result,
                                                     const Scenario& scenario);

} // namespace keldaLab
