#include "Statistics.h"

#include <array>
#include <cstdio>

#include "Color.h"
#include "Verdict.h"

namespace keldaPlay {

namespace {

std::string lossesOf(const keldaSync::FrameCounts& counts, bool isColored)
{
    const auto lost = [isColored](std::uint64_t count, const char* what) {
        return inColor(std::to_string(count) + what,
                       isColored && count > 0 ? Color::Red : Color::None);
    };
    std::string text = lost(counts.skippedFrames(), " frames skipped") + ", " +
                       lost(counts.missingFrames(), " missing") + ", " +
                       lost(counts.underruns(), " underruns");
    if (counts.discardedFrames() > 0) {
        text += ", " + lost(counts.discardedFrames(), " dropped on jumps");
    }
    if (counts.unheardFrames() > 0) {
        text += ", " + lost(counts.unheardFrames(), " while the device was gone");
    }
    return text;
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
    return std::string("played        ") + played.data() +    //
           "\nsilence       " + silence.data() +              //
           "\nlost          " + lossesOf(counts, isColored) + //
           "\ntiming error  " + errorsOf(statistics.errors()) + "\nverdict       " +
           inColor(toString(verdict), isColored ? color : Color::None) + ": " +
           reasonOf(statistics) + "\n";
}

} // namespace keldaPlay
