#pragma once

#include <string>

namespace keldaPlay {

/// When what is printed is coloured.
enum class ColorChoice {
    Auto, ///< on terminals that know colours, unless NO_COLOR is set in the environment
    Always,
    Never,
};

enum class Color { None = 0, Red = 31, Yellow = 33 };

/// @param fd where it is printed
[[nodiscard]] bool usesColor(ColorChoice choice, int fd);

/// Whether more than plain lines can be drawn there.
[[nodiscard]] bool isDrawable(int fd);

/// The text in a colour.
[[nodiscard]] std::string inColor(const std::string& text, Color color);

/// Writes "kelda-play: MESSAGE" to standard error.
void printError(const std::string& message, ColorChoice color);

} // namespace keldaPlay
