#include "Table.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "Content.h"
#include "RandomEvents.h"

namespace keldaLab {

namespace {

// Any interruption moves by less than that with the click filter's delay and the device's.
constexpr double aroundSeconds = 0.4;
// A fade of some ms spreads by some 100 Hz; a click does not end there.
constexpr double audibleDb = -90;
constexpr double outsideHertz = highestHertz + 1000;

double loudestAround(const std::vector<double>& times, const keldaReport::Audio& audio)
{
    double loudest = -200;
    for (const double time : times) {
        loudest =
            std::max(loudest, keldaReport::loudestAbove(audio, outsideHertz, time, aroundSeconds));
    }
    return loudest;
}

/// What is heard outside the signal's band around its interruptions, its start and its end.
void addClicks(std::vector<keldaReport::Line>& table, const Result& result,
               const keldaReport::Audio& withClicks)
{
    const auto interruptions = [&](const keldaReport::Audio& audio) {
        std::vector<double> times = result.sync.eventTimes();
        times.insert(times.end(), {0.5, audio.seconds() - 0.1});
        return times;
    };
    std::optional<double> smallest; // of the gains at each
    const auto times = interruptions(withClicks);
    const auto timesAfter = interruptions(result.played);
    for (std::size_t i = 0; i < times.size(); ++i) {
        const double before = loudestAround({times[i]}, withClicks);
        if (before > audibleDb) {
            const double gain = before - loudestAround({timesAfter[i]}, result.played);
            smallest = std::min(smallest.value_or(gain), gain);
        }
    }
    const bool isHeard = result.sync.counts().dataFrames() > 0;
    const auto loudest = [isHeard](const std::vector<double>& at, const keldaReport::Audio& audio) {
        return isHeard ? std::optional(loudestAround(at, audio)) : std::nullopt;
    };
    table.push_back({"with clicks", "dBFS", loudest(times, withClicks)});
    table.push_back({"clicks", "dBFS", loudest(timesAfter, result.played)});
    table.push_back({"clicks, change", "dB", smallest ? std::optional(-*smallest) : std::nullopt});
}

void addFrames(std::vector<keldaReport::Line>& table, const FrameAccounts& frames)
{
    const auto add = [&table](const char* name, std::uint64_t count) {
        table.push_back({name, "", static_cast<double>(count)});
    };
    add("frames heard", frames.heard());
    add("frames skipped", frames.skipped());
    add("frames in resets", frames.discarded());
    add("frames of silence", frames.silence());
    add("frames uncounted", frames.uncounted());
    add("silence uncounted", frames.silenceUncounted());
    add("frames repeated", frames.repeated());
}

/// What happened, and whether each was noticed once, or not at all if there is nothing to notice.
/// The alignments of what they left behind are events of their own.
void addEvents(std::vector<keldaReport::Line>& table, const Result& result,
               const Scenario& scenario)
{
    const std::vector<Event> events = randomEvents(scenario);
    const auto expected = static_cast<double>(std::ranges::count_if(
        events, [&](const Event& event) { return interrupts(event, scenario); }));
    table.push_back({"faults", "", static_cast<double>(events.size())});
    table.push_back({"faults to be noticed", "", expected});
    table.push_back({"alignments", "", static_cast<double>(result.alignments)});
    const double noticed =
        static_cast<double>(result.sync.events().size()) - static_cast<double>(result.alignments);
    const bool isHeard = result.sync.counts().dataFrames() > 0;
    table.push_back({"events miscounted", "",
                     isHeard ? std::optional(std::abs(noticed - expected)) : std::nullopt});
    table.push_back({"heap growth", "KiB",
                     result.heapGrowth
                         ? std::optional(static_cast<double>(*result.heapGrowth) / 1024)
                         : std::nullopt});
}

} // namespace

std::vector<keldaReport::Line> tableOf(const Result& result, const Scenario& scenario,
                                       const keldaReport::Audio* withClicks)
{
    std::vector<keldaReport::Line> table = keldaReport::linesOf(result.sync);
    table.push_back({"ratio jitter, rms", "ppm", result.sync.adjustmentJitter()});
    if (scenario.content == "numbers" && !scenario.clicks.enabled) {
        addFrames(table, result.frames);
    }
    if (scenario.random.everySeconds > 0) {
        addEvents(table, result, scenario);
    }
    if (withClicks != nullptr) {
        addClicks(table, result, *withClicks);
    }
    for (const auto& [name, goal] : scenario.goals) {
        const auto line = std::ranges::find(table, name, &keldaReport::Line::name);
        if (line == table.end()) {
            throw std::runtime_error("no line of the table is called " + name);
        }
        line->goal = goal;
    }
    return table;
}

} // namespace keldaLab
