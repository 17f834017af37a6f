#include "Color.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <unistd.h>

namespace keldaPlay {

namespace {

std::string_view environment(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

} // namespace

bool isDrawable(int fd)
{
    return isatty(fd) != 0 && environment("TERM") != "dumb";
}

bool usesColor(ColorChoice choice, int fd)
{
    if (choice == ColorChoice::Auto) {
        return isDrawable(fd) && environment("NO_COLOR").empty();
    }
    return choice == ColorChoice::Always;
}

std::string inColor(const std::string& text, Color color)
{
    if (color == Color::None) {
        return text;
    }
    return "\033[" + std::to_string(static_cast<int>(color)) + "m" + text + "\033[0m";
}

void printError(const std::string& message, ColorChoice color)
{
    const std::string line = "kelda-play: " + message;
    std::fprintf(stderr, "%s\n",
                 inColor(line, usesColor(color, STDERR_FILENO) ? Color::Red : Color::None).c_str());
}

} // namespace keldaPlay
