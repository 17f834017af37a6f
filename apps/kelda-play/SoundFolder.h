#pragma once

#include <string>
#include <vector>

namespace keldaPlay {

/// The paths of the files in a folder and in the folders in it, by name in natural order. Hidden
/// ones don't count, nor what is in a folder that only a link leads to.
///
/// Throws std::runtime_error with the path and the reason when a folder can't be read.
[[nodiscard]] std::vector<std::string> filesIn(const std::string& folder);

/// Whether a name ends as a sound file's does, in either case.
[[nodiscard]] bool hasSoundExtension(const std::string& path);

} // namespace keldaPlay
