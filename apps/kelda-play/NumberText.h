#pragma once

#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace keldaPlay {

/// The number that the whole of a text is, in decimal: "10", "+1.5", "1e3"; nothing for what is
/// none
/// ("", "0x10", "5x"), does not fit or is not finite.
template<typename Number>
[[nodiscard]] std::optional<Number> numberIn(std::string_view text)
{
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) {
            return std::nullopt;
        }
    }
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    if constexpr (std::is_floating_point_v<Number>) {
        return std::isfinite(number) ? std::optional(number) : std::nullopt;
    }
    return number;
}

} // namespace keldaPlay
