#include "Verdict.h"

#include <array>
#include <cstdio>

namespace keldaSync {

namespace {

bool isMeasured(const SyncStatistics& sync)
{
    return sync.measuredSeconds() >= leastSeconds;
}

bool isWithinLimit(const ErrorStatistics& errors)
{
    return errors.percentile(0.99) <= ErrorStatistics::limitUs && errors.secondsBeyond() == 0;
}

bool isWhole(const SyncStatistics& sync)
{
    return sync.events().empty() && sync.counts().lostFrames() + sync.counts().underruns() == 0;
}

std::string decimal(double value)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f", value);
    return text.data();
}

std::string durationOf(double us)
{
    constexpr double usPerMs = 1000;
    return us < 10 * usPerMs ? decimal(us) + " us" : decimal(us / usPerMs) + " ms";
}

std::string counted(std::uint64_t count, const std::string& what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string timing(const SyncStatistics& sync)
{
    if (!isMeasured(sync)) {
        return "only " + decimal(sync.measuredSeconds()) +
               " s went on without an interruption, too little to tell whether it was in time";
    }
    const ErrorStatistics errors = sync.errors();
    std::string text = "99 % of the time each frame was heard within " +
                       durationOf(errors.percentile(0.99)) + " of when it should be";
    if (errors.percentile(0.99) > ErrorStatistics::limitUs) {
        text += ", and 1 ms is in sync";
    } else if (errors.secondsBeyond() > 0) {
        text += ", but for " + counted(errors.secondsBeyond(), "second") + " by more than 1 ms";
    }
    return text;
}

std::string losses(const SyncStatistics& sync)
{
    const FrameCounts& counts = sync.counts();
    const std::string unrecorded =
        counted(counts.unrecordedBlocks(), "block") + " went by unrecorded";
    if (isWhole(sync)) {
        return counts.unrecordedBlocks() > 0 ? unrecorded : "nothing was lost";
    }
    std::string text = counted(sync.events().size(), "event") + ", " +
                       counted(counts.lostFrames(), "frame") + " lost";
    if (counts.gapFrames() > 0) {
        text += ", " + std::to_string(counts.gapFrames()) + " of silence in gaps";
    }
    if (counts.underruns() > 0) {
        text += ", " + counted(counts.underruns(), "underrun");
    }
    if (counts.unrecordedBlocks() > 0) {
        text += ", " + unrecorded;
    }
    return text;
}

} // namespace

Verdict verdictOf(const SyncStatistics& sync)
{
    const bool isRecorded = sync.counts().unrecordedBlocks() == 0;
    if (sync.counts().dataFrames() == 0 && isRecorded) {
        return Verdict::NothingHeard;
    }
    if (isMeasured(sync) && !isWithinLimit(sync.errors())) {
        return Verdict::NotInSync;
    }
    if (!isWhole(sync)) {
        return Verdict::Interrupted;
    }
    return isMeasured(sync) && isRecorded ? Verdict::InSync : Verdict::NotMeasured;
}

const char* toString(Verdict verdict)
{
    switch (verdict) {
    case Verdict::InSync:
        return "In sync";
    case Verdict::Interrupted:
        return "Interrupted";
    case Verdict::NotInSync:
        return "Not in sync";
    case Verdict::NotMeasured:
        return "Not measured";
    case Verdict::NothingHeard:
        break;
    }
    return "Nothing heard";
}

std::string reasonOf(const SyncStatistics& sync)
{
    switch (verdictOf(sync)) {
    case Verdict::NothingHeard:
        return "no frame of the stream was given to the device; " + losses(sync);
    case Verdict::Interrupted:
        return losses(sync) + "; " + timing(sync);
    default:
        return timing(sync) + "; " + losses(sync);
    }
}

} // namespace keldaSync
