#include "Statistics.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "Color.h"
#include "Verdict.h"

namespace keldaPlay {

namespace {

constexpr const char* unrecorded = " blocks unrecorded";

using Loss = std::pair<std::uint64_t, const char*>;

std::array<Loss, 3> seldomLost(const keldaSync::FrameCounts& counts)
{
    return {Loss{counts.discardedFrames(), " dropped on jumps"},
            Loss{counts.unheardFrames(), " while the device was gone or failed"},
            Loss{counts.mutedFrames(), " muted at interruptions"}};
}

std::string lossesOf(const keldaSync::FrameCounts& counts, bool isColored)
{
    const auto lost = [isColored](std::uint64_t count, const char* what) {
        return inColor(std::to_string(count) + what,
                       isColored && count > 0 ? Color::Red : Color::None);
    };
    std::string text = lost(counts.skippedFrames(), " frames skipped") + ", " +
                       lost(counts.missingFrames(), " missing") + ", " +
                       lost(counts.underruns(), " underruns");
    for (const auto& [count, what] : seldomLost(counts)) {
        text += count > 0 ? ", " + lost(count, what) : "";
    }
    if (counts.unrecordedBlocks() > 0) {
        text += ", " + lost(counts.unrecordedBlocks(), unrecorded);
    }
    return text;
}

std::string movedLine(double seconds)
{
    constexpr double least = 0.0005;
    std::array<char, 128> text{};
    if (std::abs(seconds) >= least) {
        std::snprintf(text.data(), text.size(),
                      "moved         %.3f s later than planned: the stream waited for the device\n",
                      seconds);
    }
    return text.data();
}

std::string errorsOf(const keldaSync::ErrorStatistics& errors)
{
    if (!errors.areMeasured()) {
        return "not measured";
    }
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), "mean %.1f us, rms %.1f us, p99 %.1f us, worst %.1f us",
                  errors.mean(), errors.rms(), errors.percentile(0.99), errors.signedWorst());
    return text.data();
}

} // namespace

std::string summaryOf(const Statistics& statistics, bool isColored)
{
    const keldaSync::FrameCounts& counts = statistics.counts();
    const keldaSync::Verdict verdict = verdictOf(statistics);
    std::array<char, 128> played{};
    std::snprintf(played.data(), played.size(), "%.3f s in %lu blocks", counts.dataSeconds(),
                  counts.blocks());
    std::array<char, 128> silence{};
    std::snprintf(silence.data(), silence.size(), "%.3f s until audio was due, %lu frames in gaps",
                  counts.silenceSeconds(), counts.gapFrames());
    const Color color = verdict == keldaSync::Verdict::InSync ? Color::None : Color::Red;
    return std::string("played        ") + played.data() +  //
           "\nsilence       " + silence.data() +            //
           "\n" + movedLine(counts.movedSeconds()) +        //
           "lost          " + lossesOf(counts, isColored) + //
           "\ntiming error  " + errorsOf(statistics.errors()) + "\nverdict       " +
           inColor(toString(verdict), isColored ? color : Color::None) + ": " +
           reasonOf(statistics) + "\n";
}

std::string lossOf(const Statistics& statistics)
{
    const keldaSync::FrameCounts& counts = statistics.counts();
    std::string unknown =
        counts.unrecordedBlocks() == 0
            ? ""
            : std::to_string(counts.unrecordedBlocks()) + unrecorded +
                  ": whether they were heard is not known, for nobody took what the player prints";
    if (counts.notHeardFrames() == 0) {
        return unknown;
    }
    std::string text;
    const auto tell = [&text](const Loss& loss) {
        if (loss.first > 0) {
            text += (text.empty() ? "" : ", ") + std::to_string(loss.first) + loss.second;
        }
    };
    tell({counts.skippedFrames(), " skipped"});
    for (const Loss& loss : seldomLost(counts)) {
        tell(loss);
    }
    return std::to_string(counts.notHeardFrames()) + " frames were not heard: " + text +
           (unknown.empty() ? "" : "; " + unknown);
}

} // namespace keldaPlay
