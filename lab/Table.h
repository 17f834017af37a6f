#pragma once

#include <vector>

#include "Laboratory.h"
#include "Report.h"

namespace keldaLab {

/// A result as a table, with the scenario's goals.
/// @param withClicks what the scenario sounds like without their removal, where its content is
/// audio
[[nodiscard]] std::vector<keldaReport::Line>
tableOf(const Result& result, const Scenario& scenario,
        const keldaReport::Audio* withClicks = nullptr);

} // namespace keldaLab
