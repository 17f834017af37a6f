#pragma once

#include <string>

#include "RateConverter.h"

namespace CLI {
class App;
}

namespace keldaPlay {

/// Adds --resampler and --quality, in the group "Conversion".
/// @param what of the resamplers there is
void addResampler(CLI::App& app, ResamplerChoice& choice, const std::string& what);

} // namespace keldaPlay
