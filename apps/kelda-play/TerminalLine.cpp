#include "TerminalLine.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cwchar>
#include <filesystem>
#include <vector>

#include "Color.h"

namespace keldaPlay {

namespace {

constexpr std::size_t leastName = 8; // columns that are worth the beginning of a name

struct Field
{
    std::string text;
    int importance = 0;
    bool isAlarming = false;
    bool isShown = false;
};

template<typename... Values>
std::string formatted(const char* format, Values... values)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

std::vector<Field> fieldsOf(const Progress& progress)
{
    const BlockRecord& last = progress.last;
    const std::uint64_t underruns = progress.statistics.counts().underruns();
    const std::optional<double> duration =
        progress.track != nullptr ? progress.track->seconds() : std::nullopt;
    const auto error = static_cast<double>(last.delta);
    return {{timeText(progress.trackPosition, duration), 5},
            {formatted("queue %3.0f ms", static_cast<double>(last.queueFill) / 1e6), 3},
            {formatted("delay %5.1f ms", static_cast<double>(last.deviceDelay) / 1e6), 1},
            {formatted("error %+6.0f us", error / 1e3), 2,
             std::abs(error) / 1e3 > keldaSync::ErrorStatistics::limitUs},
            {formatted("underruns %lu", underruns), 4, underruns > 0}};
}

/// @return the columns that are left
std::size_t choose(std::vector<Field>& fields, std::size_t columns)
{
    constexpr std::size_t between = 2;
    for (int importance = 5; importance > 0; --importance) {
        for (Field& field : fields) {
            const std::size_t width = field.text.size() + (importance == 5 ? 0 : between);
            if (field.importance != importance) {
                continue;
            }
            if (width > columns) {
                return 0; // what matters less is not to take its place
            }
            field.isShown = true;
            columns -= width;
        }
    }
    return columns;
}

std::string timeOf(long seconds, bool withHours)
{
    return withHours ? formatted("%ld:%02ld:%02ld", seconds / 3600, seconds / 60 % 60, seconds % 60)
                     : formatted("%ld:%02ld", seconds / 60, seconds % 60);
}

} // namespace

std::string terminalLine(const Progress& progress, std::size_t columns, bool isColored)
{
    std::vector<Field> fields = fieldsOf(progress);
    const std::size_t left = choose(fields, columns);
    std::string line;
    for (const Field& field : fields) {
        if (field.isShown) {
            const bool isRed = isColored && field.isAlarming;
            line += line.empty() ? "" : "  ";
            line += inColor(field.text, isRed ? Color::Red : Color::None);
        }
    }
    if (progress.track != nullptr && left >= leastName + 2) {
        const std::string name = std::filesystem::path(progress.track->path).filename().string();
        line += "  " + fitted(name, left - 2);
    }
    return line;
}

std::string timeText(double position, std::optional<double> duration)
{
    const auto seconds = static_cast<long>(position);
    const long total = duration ? std::lround(std::ceil(*duration)) : 0;
    const bool withHours = std::max(seconds, total) >= 3600;
    std::string text = timeOf(seconds, withHours);
    if (duration) {
        text += '/';
        text += timeOf(total, withHours);
    }
    return text;
}

std::string fitted(const std::string& text, std::size_t columns)
{
    std::string result;
    std::mbstate_t state{};
    std::size_t at = 0;
    while (at < text.size()) {
        wchar_t character = 0;
        const std::size_t length =
            std::mbrtowc(&character, text.data() + at, text.size() - at, &state);
        const bool isValid = length - 1 < text.size(); // errors are huge
        const int width = isValid ? wcwidth(character) : -1;
        const std::size_t needed = width < 0 ? 1 : static_cast<std::size_t>(width);
        if (needed > columns) {
            break;
        }
        columns -= needed;
        result += width < 0 ? "?" : text.substr(at, length);
        at += isValid ? length : 1;
        state = isValid ? state : std::mbstate_t{};
    }
    return result;
}

} // namespace keldaPlay
