#pragma once

#include <string_view>

namespace keldaPlay {

/// Whether a name comes first as people count: "2 x" before "10 x", and all else by its bytes.
[[nodiscard]] bool isNaturallyLess(std::string_view a, std::string_view b);

} // namespace keldaPlay
