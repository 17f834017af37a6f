#include "Report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <tuple>

#include "ReportFolder.h"
#include "Verdict.h"

namespace keldaReport {

namespace {

namespace fs = std::filesystem;
using keldaSync::SyncStatistics;
using keldaSync::Verdict;
using Span = keldaSync::Series::Span;

std::string formatted(std::optional<double> known)
{
    if (!known) {
        return "not measured";
    }
    const double value = *known;
    if (std::isinf(value)) {
        return "never";
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), value == std::floor(value) ? "%.0f" : "%.3f", value);
    return text.data();
}

std::string withUnit(const Line& line)
{
    const bool isNumber = line.value && !std::isinf(*line.value);
    return formatted(line.value) + (isNumber ? " " + line.unit : "");
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

void writeTrace(const fs::path& path, const std::vector<Span>& spans)
{
    std::ofstream out = openFile(path);
    out.precision(9);
    out << "seconds,smallest_error_us,largest_error_us,adjustment_ppm,queue_fill_ms,blocks\n";
    for (const Span& span : spans) {
        out << span.seconds << ',' << span.smallestErrorUs << ',' << span.largestErrorUs << ','
            << span.adjustmentPpm << ',' << span.fillMs << ',' << span.points << '\n';
    }
    checkWritten(out, path);
}

// The start of a stream would dwarf all that follows.
double errorRange(const std::vector<Span>& spans)
{
    std::vector<double> sizes;
    sizes.reserve(spans.size());
    for (const Span& span : spans) {
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
    const std::vector<Span>& spans = contents.sync.series().spans();
    const double range = errorRange(spans);
    // Where there is nothing to fit an axis to, gnuplot needs one.
    const char* const fitted = spans.empty() ? "[-1:1]" : "[*:*]";
    const char* const fittedAbove0 = spans.empty() ? "[0:1]" : "[0:*]";
    out << "set datafile separator ','\n"
           "set terminal svg size 900,260 font 'sans,11' background 'white'\n"
           "set grid\nunset key\nset xlabel 's'\nset xrange [0:"
        << std::max(contents.sync.seconds(), 0.001) << "]\n";
    for (const double time : contents.sync.eventTimes()) {
        out << "set arrow from " << time << ", graph 0 to " << time
            << ", graph 1 nohead linecolor 'red' dashtype 2\n";
    }
    out << "set output 'error.svg'\nset ylabel 'error, us'\nset yrange [" << -range << ':' << range
        << "]\n"
           "plot 'trace.csv' skip 1 using 1:2:3 with filledcurves linecolor '#4080c0', "
           "'' skip 1 using 1:3 with lines linecolor '#205090'\n"
           "set output 'adjustment.svg'\nset ylabel 'adjustment, ppm'\nset yrange "
        << fitted
        << "\n"
           "plot 'trace.csv' skip 1 using 1:4 with lines linecolor '#208050'\n"
           "set output 'fill.svg'\nset ylabel 'queue, ms'\nset yrange "
        << fittedAbove0
        << "\n"
           "plot 'trace.csv' skip 1 using 1:5 with lines linecolor '#805020'\n";
    checkWritten(out, script);
    runGnuplot(folder, "plots.gnuplot");
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

bool isDrawable(const Audio* audio)
{
    return audio != nullptr && audio->isDrawable();
}

const char* classOf(Verdict verdict)
{
    switch (verdict) {
    case Verdict::InSync:
        return "yes";
    case Verdict::Interrupted:
        return "partly";
    default:
        return "no";
    }
}

std::string goalsOf(const std::vector<Line>& table)
{
    std::string missed;
    for (const Line& line : table) {
        missed += line.isReached() ? "" : (missed.empty() ? "" : "; ") + line.name;
    }
    if (!missed.empty()) {
        return "<p class=no>Missed goals: " + escaped(missed) + ".</p>\n";
    }
    const bool hasGoals =
        std::ranges::any_of(table, [](const Line& line) { return line.goal.has_value(); });
    return hasGoals ? "<p class=yes>Every goal is reached.</p>\n" : "";
}

void writeFacts(std::ostream& out, const std::vector<Fact>& facts)
{
    out << "<table>\n";
    for (const auto& [name, value] : facts) {
        out << "<tr><td>" << escaped(name) << "<td style=text-align:left>" << escaped(value)
            << "</tr>\n";
    }
    out << "</table>\n";
}

void writePage(const fs::path& folder, const Contents& contents)
{
    std::ofstream out = openFile(folder / "index.html");
    out << "<!DOCTYPE html><html lang=en><meta charset=utf-8><title>" << escaped(contents.title)
        << "</title><style>body{font-family:sans-serif;max-width:920px;margin:2em auto}"
           ".yes{color:#208050}.partly{color:#a06000}.no{color:#c03030}td,th{padding:.2em "
           "1em;text-align:right}"
           "td:first-child,th:first-child{text-align:left}svg{width:100%;height:auto}</style>\n"
        << "<h1 class=" << classOf(keldaSync::verdictOf(contents.sync)) << '>'
        << toString(keldaSync::verdictOf(contents.sync)) << "</h1><p>" << reasonOf(contents.sync)
        << ".</p><p>" << escaped(contents.title) << "</p>\n"
        << goalsOf(contents.table);
    std::vector<Fact> facts = contents.facts;
    facts.push_back({"duration", formatted(contents.sync.seconds()) + " s"});
    writeFacts(out, facts);
    out << "<table><tr><th><th>value<th>at most<th></tr>\n";
    for (const Line& line : contents.table) {
        out << "<tr><td>" << line.name << "<td>" << withUnit(line) << "<td>"
            << (line.goal ? formatted(*line.goal) + " " + line.unit : "")
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
        if (isDrawable(audio)) {
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
    const keldaSync::ErrorStatistics errors = sync.errors();
    const keldaSync::SizeHistogram& inLock = sync.lockedErrors();
    const keldaSync::FrameCounts& counts = sync.counts();
    const bool isTold = sync.hasLocked() || sync.measuredSeconds() >= keldaSync::leastSeconds;
    const auto time = [isTold](bool isOver, double seconds) {
        return isTold ? std::optional(isOver ? seconds : never) : std::nullopt;
    };
    const auto error = [&](double us) {
        return errors.areMeasured() ? std::optional(us) : std::nullopt;
    };
    const auto errorInLock = [&](double us) {
        return inLock.count() > 0 ? std::optional(us) : std::nullopt;
    };
    // Of what nobody heard, or took down, nothing can be said to have gone well.
    const auto count = [&](std::uint64_t number) {
        const bool isKnown = counts.dataFrames() > 0 && counts.unrecordedBlocks() == 0;
        return isKnown || number > 0 ? std::optional(static_cast<double>(number)) : std::nullopt;
    };
    const auto relock =
        sync.events().empty() ? std::nullopt : time(sync.isLocked(), sync.worstRelockTime());
    return {{"lock time", "s", time(sync.hasLocked(), sync.lockTime())},
            {"relock time, worst", "s", relock},
            {"error, rms", "us", error(errors.rms())},
            {"error, p99", "us", error(errors.percentile(0.99))},
            {"error, worst", "us", error(errors.worst())},
            {"error in lock, rms", "us", errorInLock(inLock.rms())},
            {"error in lock, p99", "us", errorInLock(inLock.percentile(0.99))},
            {"error in lock, worst", "us", errorInLock(inLock.worst())},
            {"events", "", count(sync.events().size())},
            {"skips", "", count(sync.skips())},
            {"silences", "", count(sync.silences())},
            {"lost", "frames", count(counts.lostFrames())},
            {"silence in gaps", "frames", count(counts.gapFrames())},
            {"underruns", "", count(counts.underruns())}};
}

std::string verdictOf(const SyncStatistics& sync)
{
    return std::string(toString(keldaSync::verdictOf(sync))) + ": " + reasonOf(sync);
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
        std::snprintf(row.data(), row.size(), "  %-20s %12s %-6s", line.name.c_str(),
                      formatted(line.value).c_str(), line.value ? line.unit.c_str() : "");
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
    prepare(folder);
    const ReportDraft draft(folder);
    writeTrace(draft.path() / "trace.csv", contents.sync.series().spans());
    draw(draft.path(), contents);
    if (isDrawable(contents.before)) {
        drawSpectrogram(draft.path(), "before", *contents.before);
    }
    if (isDrawable(contents.after)) {
        drawSpectrogram(draft.path(), "after", *contents.after);
    }
    writePage(draft.path(), contents);
    draft.publish();
}

} // namespace keldaReport
