#pragma once

#include <string>
#include <vector>

namespace keldaLab {

/// A scenario's file. A text with a slash, or the name of a file that is there, is its path; else
/// it is the name of a scenario that came with the program: "interruptions".
///
/// Throws std::runtime_error, which names those that there are, when it is neither.
[[nodiscard]] std::string scenarioPath(const std::string& nameOrPath);

/// The names of those that came with the program, in order.
[[nodiscard]] std::vector<std::string> scenarioNames();

} // namespace keldaLab
