#include "Report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <tuple>

namespace keldaReport {

namespace {

namespace fs = std::filesystem;

std::string formatted(double value)
{
    if (std::isinf(value)) {
        return "never";
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), value == std::floor(value) ? "%.0f" : "%.3f", value);
    return text.data();
}

std::string escaped(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        result += c == '<' ? "&lt;" : c == '&' ? "&amp;" : std::string(1, c);
    }
    return result;
}

std::ofstream openFile(const fs::path& path)
{
    std::ofstream out(path);
    if (!out) {
        throw std::runtime_error(path.string() + ": can't be written");
    }
    return out;
}

void checkWritten(std::ofstream& out, const fs::path& path)
{
    if (!out.flush()) {
        throw std::runtime_error(path.string() + ": not all could be written");
    }
}

void writeTrace(const fs::path& path, const std::vector<Series::Span>& spans)
{
    std::ofstream out = openFile(path);
    out.precision(9);
    out << "seconds,smallest_error_us,largest_error_us,adjustment_ppm,queue_fill_ms,blocks\n";
    for (const Series::Span& span : spans) {
        out << span.seconds << ',' << span.smallestErrorUs << ',' << span.largestErrorUs << ','
            << span.adjustmentPpm << ',' << span.fillMs << ',' << span.points << '\n';
    }
    checkWritten(out, path);
}

// The start of a stream would dwarf all that follows.
double errorRange(const std::vector<Series::Span>& spans)
{
    std::vector<double> sizes;
    sizes.reserve(spans.size());
    for (const Series::Span& span : spans) {
        sizes.push_back(std::max(std::abs(span.smallestErrorUs), std::abs(span.largestErrorUs)));
    }
    if (sizes.empty()) {
        return 1;
    }
    const auto most = sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() * 98 / 100);
    std::ranges::nth_element(sizes, most);
    return std::max(1.0, 1.5 * *most);
}

void draw(const fs::path& folder, const Contents& contents)
{
    const fs::path script = folder / "plots.gnuplot";
    std::ofstream out = openFile(script);
    const double range = errorRange(contents.spans);
    out << "set datafile separator ','\n"
           "set terminal svg size 900,260 font 'sans,11' background 'white'\n"
           "set grid\nunset key\nset xlabel 's'\n";
    for (const double time : contents.eventTimes) {
        out << "set arrow from " << time << ", graph 0 to " << time
            << ", graph 1 nohead linecolor 'red' dashtype 2\n";
    }
    out << "set output 'error.svg'\nset ylabel 'error, us'\nset yrange [" << -range << ':' << range
        << "]\n"
           "plot 'trace.csv' skip 1 using 1:2:3 with filledcurves linecolor '#4080c0', "
           "'' skip 1 using 1:3 with lines linecolor '#205090'\n"
           "set output 'adjustment.svg'\nset ylabel 'adjustment, ppm'\nset yrange [*:*]\n"
           "plot 'trace.csv' skip 1 using 1:4 with lines linecolor '#208050'\n"
           "set output 'fill.svg'\nset ylabel 'queue, ms'\nset yrange [0:*]\n"
           "plot 'trace.csv' skip 1 using 1:5 with lines linecolor '#805020'\n";
    checkWritten(out, script);
    const std::string command =
        "cd '" + folder.string() + "' && gnuplot plots.gnuplot 2>gnuplot.log";
    if (folder.string().find('\'') != std::string::npos || std::system(command.c_str()) != 0) {
        throw std::runtime_error(folder.string() + ": gnuplot could not draw (see gnuplot.log)");
    }
    fs::remove(folder / "gnuplot.log");
}

std::string readFile(const fs::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

std::string base64(const std::string& bytes)
{
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            const auto byte = i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0U;
            group = group << 8U | byte;
        }
        for (std::size_t k = 0; k < 4; ++k) {
            text += i + k > bytes.size() ? '=' : digits[group >> (18 - 6 * k) & 63U];
        }
    }
    return text;
}

std::string pictureOf(const fs::path& path)
{
    const std::string picture = readFile(path);
    const std::size_t begin = picture.find("<svg");
    return begin == std::string::npos ? "" : picture.substr(begin);
}

std::string verdictOf(const Contents& contents)
{
    const auto value = [&](const char* name) {
        const auto line = std::ranges::find(contents.table, name, &Line::name);
        return line != contents.table.end() ? line->value : 0;
    };
    if (std::isinf(value("lock time")) || std::isinf(value("relock time, worst"))) {
        return "<h1 class=no>Not in sync</h1><p>It has not locked";
    }
    const bool reached = isReached(contents.table);
    return std::string(reached ? "<h1 class=yes>In sync</h1>"
                               : "<h1 class=no>Not as it should be</h1>") +
           "<p>99 % of the time each frame is heard within <b>" + formatted(value("error, p99")) +
           " us</b> of when it should be; locked " + formatted(value("lock time")) +
           " s after the first frame; " + formatted(value("events")) + " events (red)";
}

void writePage(const fs::path& folder, const Contents& contents)
{
    std::ofstream out = openFile(folder / "index.html");
    out << "<!DOCTYPE html><html lang=en><meta charset=utf-8><title>" << escaped(contents.title)
        << "</title><style>body{font-family:sans-serif;max-width:920px;margin:2em auto}"
           ".yes{color:#208050}.no{color:#c03030}td,th{padding:.2em 1em;text-align:right}"
           "td:first-child,th:first-child{text-align:left}svg{width:100%;height:auto}</style>\n"
        << verdictOf(contents) << ".</p><p>" << escaped(contents.title) << "</p>\n"
        << "<table><tr><th><th>value<th>at most<th></tr>\n";
    for (const Line& line : contents.table) {
        out << "<tr><td>" << line.name << "<td>" << formatted(line.value) << ' ' << line.unit
            << "<td>" << (line.goal ? formatted(*line.goal) + " " + line.unit : "")
            << "<td class=" << (line.isReached() ? "yes>" : "no>")
            << (!line.goal         ? ""
                : line.isReached() ? "yes"
                                   : "no")
            << "</tr>\n";
    }
    out << "</table>\n";
    for (const auto& [heading, file] :
         {std::pair("When frames are heard, less when they should be", "error.svg"),
          std::pair("How much faster than nominal", "adjustment.svg"),
          std::pair("What the queue holds", "fill.svg")}) {
        out << "<h2>" << heading << "</h2>\n" << pictureOf(folder / file) << '\n';
    }
    for (const auto& [heading, file, audio] :
         {std::tuple("What was read from the queue", "before.png", contents.before),
          std::tuple("What was played, clicks removed", "after.png", contents.after)}) {
        if (audio != nullptr) {
            out << "<h2>" << heading << "</h2>\n<img src=\"data:image/png;base64,"
                << base64(readFile(folder / file)) << "\" alt=spectrogram>\n";
        }
    }
    out << "</html>\n";
    checkWritten(out, folder / "index.html");
}

} // namespace

std::vector<Line> linesOf(const SyncStatistics& sync)
{
    constexpr double never = std::numeric_limits<double>::infinity();
    return {{"lock time", "s", sync.hasLocked() ? sync.lockTime() : never},
            {"relock time, worst", "s", sync.isLocked() ? sync.worstRelockTime() : never},
            {"error, rms", "us", sync.rms()},
            {"error, p99", "us", sync.percentile(0.99)},
            {"error, worst", "us", sync.worst()},
            {"events", "", static_cast<double>(sync.events())},
            {"skips", "", static_cast<double>(sync.skips())},
            {"silences", "", static_cast<double>(sync.silences())}};
}

bool isReached(const std::vector<Line>& table)
{
    return std::ranges::all_of(table, &Line::isReached);
}

std::string textOf(const std::vector<Line>& table)
{
    std::string text;
    for (const Line& line : table) {
        std::array<char, 160> row{};
        std::snprintf(row.data(), row.size(), "  %-20s %12s %-4s", line.name.c_str(),
                      formatted(line.value).c_str(), line.unit.c_str());
        text += row.data();
        if (line.goal) {
            text += " at most " + formatted(*line.goal) + (line.isReached() ? "" : "   MISSED");
        }
        text.erase(text.find_last_not_of(' ') + 1);
        text += '\n';
    }
    return text;
}

void write(const std::string& folder, const Contents& contents)
{
    const fs::path path(folder);
    std::error_code error;
    fs::create_directories(path, error);
    writeTrace(path / "trace.csv", contents.spans);
    draw(path, contents);
    if (contents.before != nullptr) {
        drawSpectrogram(folder, "before", *contents.before);
    }
    if (contents.after != nullptr) {
        drawSpectrogram(folder, "after", *contents.after);
    }
    writePage(path, contents);
}

} // namespace keldaReport
