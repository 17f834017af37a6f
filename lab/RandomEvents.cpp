#include "RandomEvents.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

namespace keldaLab {

namespace {

using Kind = Event::Kind;
using Random = std::mt19937_64;

/// A kind, and the range of its extent in ms; it may be to either side.
struct Range
{
    Kind kind;
    double leastMs;
    double mostMs;
    bool eitherSide = false;
};

constexpr std::array<Range, 9> ranges = {{
    {Kind::Stop, 500, 5000},
    {Kind::Jump, 40, 700},
    {Kind::Gap, 40, 250},
    {Kind::Underrun, 100, 400},
    {Kind::Burst, 20, 200},
    {Kind::Spike, 2, 2000, true},
    {Kind::Stale, 10, 40},
    {Kind::Stale, 300, 2000},
    {Kind::Offset, 200, 1000, true},
}};

Event eventOf(const Range& range, double atSeconds, Random& random)
{
    const double extent =
        std::uniform_real_distribution<double>(range.leastMs, range.mostMs)(random);
    const bool isNegative = range.eitherSide && random() % 2 == 0;
    return {atSeconds, range.kind, std::round(isNegative ? -extent : extent)};
}

} // namespace

std::vector<Event> randomEvents(const Scenario& scenario)
{
    std::vector<Event> events;
    const double every = scenario.random.everySeconds;
    if (every <= 0) {
        return events;
    }
    Random random(scenario.seed + 2);
    std::uniform_real_distribution<double> pause(every / 2, every * 3 / 2);
    std::vector<Range> deck;
    double offset = 0; // of the timestamps; below 0 all would be too late for ever
    // The last one is to be recovered from.
    for (double at = pause(random); at < scenario.seconds - every / 2; at += pause(random)) {
        if (deck.empty()) {
            deck.assign(ranges.begin(), ranges.end());
            std::ranges::shuffle(deck, random);
        }
        events.push_back(eventOf(deck.back(), std::round(at * 1000) / 1000, random));
        deck.pop_back();
        if (Event& event = events.back(); event.kind == Kind::Jump) {
            event.milliseconds = offset > 0 ? -offset : event.milliseconds;
            offset += event.milliseconds;
        }
    }
    return events;
}

// A device that is left alone for as long as its buffer lasts does not notice, nor does a queue
// whose packets come late by less than they came early; delays that are absurd for a moment are not
// believed.
bool interrupts(const Event& event, const Scenario& scenario)
{
    switch (event.kind) {
    case Kind::Burst:
        return event.milliseconds >= scenario.source.leadMs;
    case Kind::Spike:
        return false;
    case Kind::Stale:
        return event.milliseconds > 50;
    default:
        return true;
    }
}

} // namespace keldaLab
