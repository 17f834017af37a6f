#pragma once

#include <vector>

#include "Scenario.h"

namespace keldaLab {

/// The scenario's events at random, in their order: as many of each kind, of the extents that are
/// met with, and always the same ones for a seed.
[[nodiscard]] std::vector<Event> randomEvents(const Scenario& scenario);

/// Whether the listener notices: what is rendered does not go on from what came before.
[[nodiscard]] bool interrupts(const Event& event, const Scenario& scenario);

} // namespace keldaLab
