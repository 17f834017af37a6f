#include "WithoutEffect.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Errors.h"

namespace keldaPlay {

namespace {

using Names = std::vector<std::string>;

const Names gains = {"--kp", "--ki", "--kd", "--adjust-limit", "--filter-alpha", "--sample-time"};
const Names fades = {"--gap-ms", "--margin-ms", "--fade-ms", "--skip-short"};
const Names conversions = {"--resampler", "--quality"};

bool contains(const Names& names, const std::string& name)
{
    return std::ranges::find(names, name) != names.end();
}

void refuseIf(bool isWithoutEffect, const Options& options, const Names& names,
              const std::string& reason)
{
    const auto given = std::ranges::find_if(
        options.given, [&names](const std::string& name) { return contains(names, name); });
    if (isWithoutEffect && given != options.given.end()) {
        throw UsageError(*given + " has no effect " + reason);
    }
}

void refuseWithDescriptions(const Options& options)
{
    Names used = {"--describe", "--describe-device", "--log-level", "--color"};
    if (!options.describeDevice.empty()) {
        used.emplace_back("--no-rate-resample");
    }
    for (const std::string& name : options.given) {
        if (!contains(used, name)) {
            throw UsageError(name + " has no effect with a description, which plays nothing");
        }
    }
}

/// The frames of a stream that get lost.
struct Range
{
    explicit Range(const Gap& gap, unsigned int rate)
        : begin(std::llround(gap.atSeconds * rate)),
          end(begin + std::llround(gap.milliseconds / 1000 * rate))
    {
        std::ostringstream out;
        out << "--gap " << gap.atSeconds << ':' << gap.milliseconds;
        text = out.str();
    }

    long long begin;
    long long end;
    std::string text;
};

/// Where the stream ends, in frames, if that is known.
std::optional<long long> endOf(const Options& options, std::span<const Track> tracks,
                               unsigned int rate)
{
    std::optional<long long> end;
    const auto isKnown = [](const Track& track) { return track.numFrames.has_value(); };
    if (!options.loop && std::ranges::all_of(tracks, isKnown)) {
        end = 0;
        for (const Track& track : tracks) {
            *end += static_cast<long long>(*track.numFrames);
        }
    }
    if (options.durationSeconds) {
        const long long limit = std::llround(*options.durationSeconds * rate);
        end = std::min(limit, end.value_or(limit));
    }
    return end;
}

void checkGaps(const Options& options, std::span<const Track> tracks)
{
    const auto rate = static_cast<unsigned int>(tracks.front().info.getSampleRate());
    const std::optional<long long> end = endOf(options, tracks, rate);
    std::vector<Range> ranges;
    for (const Gap& gap : options.gaps) {
        ranges.emplace_back(gap, rate);
    }
    std::ranges::sort(ranges, {}, &Range::begin);
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        const Range& range = ranges[i];
        if (range.begin == range.end) {
            throw UsageError(range.text + " is shorter than a frame");
        }
        if (end && range.begin >= *end) {
            std::ostringstream seconds;
            seconds << static_cast<double>(*end) / rate;
            throw UsageError(range.text + " begins behind the end of what is played, " +
                             seconds.str() + " s");
        }
        if (i > 0 && range.begin < ranges[i - 1].end) {
            throw UsageError(range.text + " begins within " + ranges[i - 1].text);
        }
    }
}

} // namespace

void refuseWithoutEffect(const Options& options)
{
    if (options.describes()) {
        refuseWithDescriptions(options);
        return;
    }
    refuseIf(options.drift.correction == Correction::None, options, gains,
             "without --correct resample or device");
    refuseIf(options.drift.correction != Correction::Device, options, {"--pll"},
             "without --correct device");
    refuseIf(!options.clicks.enabled, options, fades, "with --no-click-removal");
    refuseIf(options.jitterMs == 0, options, {"--seed"}, "without --jitter");
    refuseIf(options.device == "fake", options, {"--channel-map", "--no-rate-resample", "--wait"},
             "on the simulated device");
}

void refuseWithoutEffect(const Options& options, std::span<const Track> tracks)
{
    checkGaps(options, tracks);
    const bool isDsd = std::ranges::all_of(tracks, &Track::isDsd);
    refuseIf(isDsd, options, fades, "on DSD, which nothing fades");
    refuseIf(isDsd, options, conversions, "on DSD, which nothing converts");
}

} // namespace keldaPlay
