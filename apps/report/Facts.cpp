#include "Facts.h"

#include <array>
#include <cctype>
#include <ctime>
#include <fstream>
#include <string_view>

#include <unistd.h>

namespace keldaReport {

namespace {

std::string date()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S %z", &local);
    return text.data();
}

std::string host()
{
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

/// As a shell takes it.
std::string asTyped(const std::string& argument)
{
    constexpr std::string_view plain = "-_./,:=+@%";
    bool isPlain = !argument.empty();
    for (const char c : argument) {
        const bool isWord = std::isalnum(static_cast<unsigned char>(c)) != 0;
        isPlain = isPlain && (isWord || plain.find(c) != std::string_view::npos);
    }
    if (isPlain) {
        return argument;
    }
    std::string text(1, '\'');
    for (const char c : argument) {
        if (c == '\'') {
            text += "'\\'";
        }
        text += c;
    }
    text += '\'';
    return text;
}

std::string commandLine()
{
    std::ifstream in("/proc/self/cmdline", std::ios::binary);
    std::string text;
    for (std::string argument; std::getline(in, argument, '\0');) {
        if (!text.empty()) {
            text += ' ';
        }
        text += asTyped(argument);
    }
    return text;
}

} // namespace

std::vector<Fact> factsOfProcess(const std::string& program)
{
    return {{"written", date()},
            {"host", host()},
            {"version", program},
            {"command line", commandLine()}};
}

} // namespace keldaReport
