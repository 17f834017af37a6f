#pragma once

#include <map>
#include <sstream>
#include <string>

#include <CLI/CLI.hpp>

#include "NumberText.h"

// What the arguments of options may be. Whatever is not is refused in one line that names the
// option and what there is to choose from.
//
//     app.add_option("--rate", rate, "Sample rate in Hz")->transform(number(1U, 6'144'000U));
//     app.add_option("--device", name, "Output device")->check(someText());

namespace keldaPlay {

namespace detail {

[[nodiscard]] std::string inFull(double number);
[[nodiscard]] std::string refusal(const std::string& text, const std::string& wanted);
[[nodiscard]] CLI::Validator oneOf(std::map<std::string, int> values);

} // namespace detail

/// A decimal number within limits. For transform(): what CLI11 would read otherwise ("010" as 8)
/// does not come through.
template<typename Number>
[[nodiscard]] CLI::Validator number(Number least, Number largest)
{
    constexpr bool isWhole = std::is_integral_v<Number>;
    const std::string from = detail::inFull(static_cast<double>(least));
    const std::string to = detail::inFull(static_cast<double>(largest));
    const std::string wanted =
        (isWhole ? "a whole number from " : "a number from ") + from + " to " + to;
    return {[=](std::string& text) {
                const std::optional<Number> value = numberIn<Number>(text);
                if (!value || *value < least || *value > largest) {
                    return detail::refusal(text, wanted);
                }
                std::ostringstream out;
                out.precision(17);
                out << *value;
                text = out.str();
                return std::string();
            },
            (isWhole ? "UINT in [" : "FLOAT in [") + from + " - " + to + "]"};
}

/// One of several words, each of which stands for a value. For transform().
template<typename Value>
[[nodiscard]] CLI::Validator oneOf(const std::map<std::string, Value>& values)
{
    std::map<std::string, int> numbers;
    for (const auto& [name, value] : values) {
        numbers[name] = static_cast<int>(value);
    }
    return detail::oneOf(std::move(numbers));
}

/// Anything but nothing: an empty text would count as if the option had not been given. For
/// check().
[[nodiscard]] CLI::Validator someText();

} // namespace keldaPlay
