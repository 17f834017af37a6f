#pragma once

#include <map>
#include <sstream>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>

namespace keldaPlay {

/// Prints --help in the form that the manual pages have: "--queue-ms N [500]", the default in
/// brackets, and the range of the value at the end of the description, "(1 to 60000)".
class HelpFormatter : public CLI::Formatter
{
public:
    HelpFormatter() { label("Positionals", "Arguments"); }

    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override
    {
        return CLI::detail::find_and_replace(Formatter::make_help(app, std::move(name), mode),
                                             "\n\n\n", "\n\n"); // between two groups
    }

    std::string make_option(const CLI::Option* option, bool isPositional) const override
    {
        std::ostringstream out;
        CLI::detail::format_help(
            out, isPositional ? positional(*option) : nameOf(*option) + argument(*option),
            option->get_description() + remark(*option, isPositional), get_column_width());
        return out.str();
    }

private:
    [[nodiscard]] static std::string positional(const CLI::Option& option)
    {
        const bool isList = option.get_expected_max() >= CLI::detail::expected_max_vector_size;
        return option.get_name(true) + (isList ? " ..." : "");
    }

    [[nodiscard]] static std::string nameOf(const CLI::Option& option)
    {
        const std::string name = option.get_name(false, true);
        return CLI::detail::find_and_replace(name.substr(0, name.find('{')), ",", ", ");
    }

    [[nodiscard]] static std::string argument(const CLI::Option& option)
    {
        if (!option.get_option_text().empty()) {
            return " " + option.get_option_text();
        }
        if (option.get_type_size() == 0) {
            return "";
        }
        const std::string preset = option.get_default_str();
        return " " + nameOfType(option.get_type_name()) +
               (preset.empty() ? "" : " [" + preset + "]");
    }

    /// @param type what it is, then what it is checked for: "UINT:UINT in [1 - 60000]"
    [[nodiscard]] static std::string nameOfType(const std::string& type)
    {
        if (const std::string choice = between(type, ":{", "}"); !choice.empty()) {
            return CLI::detail::find_and_replace(choice, ",", "|");
        }
        static const std::map<std::string, std::string> names = {
            {"UINT", "N"}, {"INT", "N"}, {"FLOAT", "X"}, {"TEXT", "NAME"}};
        const std::string base = type.substr(0, type.find(':'));
        const auto name = names.find(base);
        return name != names.end() ? name->second : base;
    }

    [[nodiscard]] static std::string remark(const CLI::Option& option, bool isPositional)
    {
        const std::string range = rangeOf(option.get_type_name());
        const std::string required = option.get_required() && !isPositional ? "required" : "";
        const std::string separator = range.empty() || required.empty() ? "" : ", ";
        const std::string text = range + separator + required;
        return text.empty() ? "" : " (" + text + ")";
    }

    [[nodiscard]] static std::string rangeOf(const std::string& type)
    {
        return CLI::detail::find_and_replace(between(type, " in [", "]"), " - ", " to ");
    }

    [[nodiscard]] static std::string between(const std::string& text, const std::string& begin,
                                             const std::string& end)
    {
        const std::size_t from = text.find(begin);
        const std::size_t to = text.find(end, from);
        return from == std::string::npos || to == std::string::npos
                   ? ""
                   : text.substr(from + begin.size(), to - from - begin.size());
    }
};

} // namespace keldaPlay
