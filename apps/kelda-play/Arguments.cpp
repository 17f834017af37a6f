#include "Arguments.h"

namespace keldaPlay {

namespace detail {

std::string inFull(double number)
{
    std::ostringstream out;
    out.precision(12);
    out << number;
    return out.str();
}

std::string refusal(const std::string& text, const std::string& wanted)
{
    constexpr std::size_t enough = 40;
    return "not " + wanted + ": " + (text.size() > enough ? text.substr(0, enough) + "..." : text);
}

CLI::Validator oneOf(std::map<std::string, int> values)
{
    return {[values = std::move(values)](std::string& text) {
                const auto entry = values.find(text);
                if (entry == values.end()) {
                    std::string names;
                    for (const auto& [name, value] : values) {
                        names += (names.empty() ? "" : ", ") + name;
                    }
                    return refusal(text, "one of " + names);
                }
                text = std::to_string(entry->second);
                return std::string();
            },
            ""};
}

} // namespace detail

CLI::Validator someText()
{
    return {[](const std::string& text) {
                return text.empty() ? std::string("is empty") : std::string();
            },
            ""};
}

} // namespace keldaPlay
