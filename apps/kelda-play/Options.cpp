#include "Options.h"

#include <algorithm>
#include <limits>
#include <map>
#include <span>
#include <string_view>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <unistd.h>

#include "Arguments.h"
#include "DeviceRequest.h"
#include "Errors.h"
#include "HelpFormatter.h"
#include "Presenter.h"
#include "ResamplerOptions.h"
#include "SampleLayout.h"
#include "WithoutEffect.h"

namespace keldaPlay {

namespace {

constexpr const char* jsonFlag = "--json";
constexpr double longestSeconds = 1e9; // 30 years
constexpr double largestGain = 1e6;

constexpr const char* exitStatusText =
    "Exit status:\n"
    "  0  all was heard, up to SIGINT or SIGTERM if one has ended it\n"
    "  1  something can't be read or written\n"
    "  2  the command line asks for what there is not\n"
    "  3  a device can't be opened for the stream, or has gone and not come back\n"
    "  4  it was played, but not all of it was heard\n"
    "  130, 143  a second SIGINT or SIGTERM has ended it at once, or the first\n"
    "     while something was being opened";

audioUtils::PcmFormat parseFormat(const std::string& name)
{
    audioUtils::PcmFormat format{};
    if (!audioUtils::fromString(format, name)) {
        std::string known;
        for (const audioUtils::PcmFormat each : audioUtils::getAllPcmFormats()) {
            known += layoutOf(each) ? std::string(" ") + audioUtils::toString(each) : "";
        }
        throw CLI::ValidationError("--format", "unknown format " + name + ", known are" + known);
    }
    if (!layoutOf(format)) {
        throw CLI::ValidationError("--format", "format " + name + " can't be played");
    }
    return format;
}

Gap parseGap(const std::string& text)
{
    const std::size_t colon = std::min(text.find(':'), text.size());
    const auto at = numberIn<double>(std::string_view(text).substr(0, colon));
    const auto length =
        numberIn<double>(std::string_view(text).substr(std::min(colon + 1, text.size())));
    if (!at || !length || *at < 0 || *at > longestSeconds || *length <= 0 ||
        *length > 1000 * longestSeconds) {
        throw CLI::ValidationError("--gap", "not AT:MS (seconds, milliseconds): " + text);
    }
    return {*at, *length};
}

/// A check of CLI11's: what is wrong, or nothing.
std::string isChannelMap(const std::string& text)
{
    try {
        static_cast<void>(numChannelsOf(text));
        return "";
    } catch (const UsageError& error) {
        return error.what();
    }
}

void addDeviceOptions(CLI::App& app, Options& options)
{
    app.option_defaults()->group("Device");
    app.add_option("--device", options.device,
                   "Output device: fake (simulated), or the name of any ALSA device")
        ->check(someText())
        ->capture_default_str();
    app.add_option("--rate", options.rate,
                   "Sample rate of the device in Hz [the files', or the nearest that it takes]")
        ->transform(number(1U, 6'144'000U));
    app.add_option_function<std::string>(
        "--format", [&options](const std::string& name) { options.format = parseFormat(name); },
        "Sample format of the device, e.g. S16LE, S24_32LE, F32LE\n"
        "[the files', or the nearest that the device takes]");
    const CLI::Validator frames = number(std::uint64_t{1}, std::uint64_t{1} << 24);
    app.add_option("--period", options.period, "Frames that the device takes at a time [10 ms]")
        ->transform(frames);
    app.add_option("--buffer", options.buffer, "Frames that the device holds [8 periods]")
        ->transform(frames);
    app.add_option("--start-threshold", options.startThreshold,
                   "Frames buffered before the device starts [the buffer]")
        ->transform(frames);
    app.add_option("--channel-map", options.channelMap,
                   "Which speaker each channel is for, e.g. \"FL FR\" [as the device has it]")
        ->check(isChannelMap)
        ->option_text("MAP");
    app.add_flag("!--no-rate-resample", options.rateResample,
                 "Forbid ALSA to convert the sample rate");
    app.add_option("--wait", options.waitSeconds,
                   "Wait so many seconds for a device that is gone\n"
                   "[60; with standard input as long as it goes on]")
        ->transform(number(0.0, 86'400.0))
        ->option_text("SECONDS");
}

void addDescriptions(CLI::App& app, Options& options)
{
    app.option_defaults()->group("Descriptions");
    app.add_option("--describe", options.describeFile, "Print what a file holds as JSON, and end")
        ->check(someText())
        ->option_text("FILE");
    app.add_option("--describe-device", options.describeDevice,
                   "Print what an output device is able to as JSON, and end")
        ->check(someText())
        ->option_text("NAME");
}

void addStreamOptions(CLI::App& app, Options& options)
{
    app.option_defaults()->group("Stream");
    app.add_option("--queue-ms", options.queueMs, "Capacity of the queue in ms")
        ->transform(number(1U, 60'000U))
        ->capture_default_str();
    app.add_option("--jump-threshold", options.jumpThresholdMs,
                   "Leave alone what is off by less than so many ms\n[20, and 1000 of DSD]")
        ->transform(number(0.0, 10'000.0));
    app.add_option("--packet-ms", options.packetMs, "Length of the producer's packets in ms")
        ->transform(number(1U, 1000U))
        ->capture_default_str();
    app.add_option("--duration", options.durationSeconds, "Stop after so many seconds of audio")
        ->transform(number(0.001, longestSeconds));
    app.add_flag("--loop", options.loop, "Start over at the end of the last file");
}

void addDriftCorrection(CLI::App& app, Options& options)
{
    app.option_defaults()->group("Drift correction");
    DriftOptions& drift = options.drift;
    static const std::map<std::string, Correction> corrections = {
        {"none", Correction::None},
        {"resample", Correction::Resample},
        {"device", Correction::Device}};
    app.add_option("--correct", drift.correction,
                   "What makes up for clocks that differ: the resampler, the rate of the device,\n"
                   "or nothing (what is off is skipped and padded)")
        ->transform(oneOf(corrections))
        ->option_text("none|resample|device [none]");
    app.add_option("--pll", options.pll,
                   "The control that sets the device's rate, for --correct device,\n"
                   "e.g. \"hw:0,PCM Rate Shift 100000\"; as it stands it means the nominal rate")
        ->check(someText())
        ->option_text("CTL,ELEMENT");
    app.add_option("--kp", drift.Kp, "Gain of the correction: ppm for each us of timing error")
        ->transform(number(1e-6, largestGain))
        ->capture_default_str();
    app.add_option("--ki", drift.Ki, "The same for each us and s")
        ->transform(number(0.0, largestGain))
        ->capture_default_str();
    app.add_option("--kd", drift.Kd, "The same for each us/s")
        ->transform(number(0.0, largestGain))
        ->capture_default_str();
    app.add_option("--adjust-limit", drift.limitPpm, "Largest correction in ppm")
        ->transform(number(1.0, 10'000.0))
        ->capture_default_str();
    app.add_option("--filter-alpha", drift.filterAlpha, "Cut-off of the timing errors' low pass")
        ->transform(number(1e-6, 1.0))
        ->capture_default_str();
    app.add_option("--sample-time", drift.sampleTimeMs, "Least ms between two corrections")
        ->transform(number(1, 10'000))
        ->capture_default_str();
}

void addClickRemoval(CLI::App& app, ClickOptions& clicks)
{
    app.option_defaults()->group("Clicks");
    app.add_flag("!--no-click-removal", clicks.enabled,
                 "Leave starts, stops and gaps as hard as they are");
    app.add_option("--gap-ms", clicks.gapMs, "Ms of silence that are played over without a fade")
        ->transform(number(0U, 1000U))
        ->capture_default_str();
    app.add_option("--margin-ms", clicks.marginMs, "Ms between a signal's edge and its fade")
        ->transform(number(0U, 1000U))
        ->capture_default_str();
    app.add_option("--fade-ms", clicks.fadeMs, "Ms of a fade")
        ->transform(number(0U, 1000U))
        ->capture_default_str();
    app.add_flag("--skip-short", clicks.skipShort, "Leave short signals as they are");
}

void addDisturbances(CLI::App& app, Options& options)
{
    app.option_defaults()->group("Disturbances");
    app.add_option("--source-ppm", options.sourcePpm,
                   "Let the source's clock run so many ppm too fast")
        ->transform(number(-10'000.0, 10'000.0))
        ->option_text("PPM");
    app.add_option("--jitter", options.jitterMs,
                   "Put every packet's timestamp off by up to +-MS at random")
        ->transform(number(0.0, 1000.0))
        ->option_text("MS");
    app.add_option("--seed", options.seed, "Start of the random numbers")
        ->transform(number(0U, std::numeric_limits<unsigned int>::max()))
        ->capture_default_str();
    app.add_option_function<std::vector<std::string>>(
           "--gap",
           [&options](const std::vector<std::string>& texts) {
               for (const std::string& text : texts) {
                   options.gaps.push_back(parseGap(text));
               }
           },
           "Lose MS milliseconds of audio at AT seconds; may be repeated")
        ->option_text("AT:MS")
        ->allow_extra_args(false);
}

void addOutputs(CLI::App& app, Options& options)
{
    app.option_defaults()->group("Output");
    app.add_option("--record", options.recordPath, "Write what reaches the device to a WAV file")
        ->check(someText())
        ->option_text("OUT.wav");
    app.add_option("--trace", options.tracePath, "Write a row a block to a CSV file")
        ->check(someText())
        ->option_text("OUT.csv");
    app.add_option("--report", options.reportFolder,
                   "Write a page that tells how well it was in sync, with plots and a trace")
        ->check(someText())
        ->option_text("DIR");
    app.add_option("--log-level", options.logLevel, "What the library logs to standard error")
        ->check(CLI::IsMember({"trace", "debug", "info", "warn", "error"}))
        ->capture_default_str();
}

void addInput(CLI::App& app, Options& options)
{
    app.add_option("FILE", options.files,
                   "Played one after the other, without a gap: files, folders of them, or - for\n"
                   "standard input");
    app.option_defaults()->group("Input");
    app.add_option_function<std::string>(
           "--raw",
           [&options](const std::string& text) {
               try {
                   options.raw = parseRawFormat(text);
               } catch (const UsageError& error) {
                   throw CLI::ValidationError("--raw", error.what());
               }
           },
           "What standard input holds: interleaved PCM, e.g. 48000:2:S16LE")
        ->option_text("RATE:CHANNELS:FORMAT");
}

void addPresentation(CLI::App& app, Options& options)
{
    app.option_defaults()->group("Output");
    app.add_flag(jsonFlag, options.json,
                 "Tell what happens as JSON, an object a line, on standard output");
    static const std::map<std::string, ColorChoice> choices = {{"auto", ColorChoice::Auto},
                                                               {"always", ColorChoice::Always},
                                                               {"never", ColorChoice::Never}};
    app.add_option(
           "--color", options.color,
           "Whether to colour what is wrong: auto does on terminals, unless NO_COLOR is set")
        ->transform(oneOf(choices))
        ->option_text("auto|always|never [auto]");
}

/// Whether the user asked for JSON, as far as that can be told of a wrong command line.
bool asksForJson(std::span<char*> arguments)
{
    const auto end = std::ranges::find(arguments, std::string_view("--"));
    return std::find(arguments.begin(), end, std::string_view(jsonFlag)) != end;
}

std::vector<std::string> givenOptions(const CLI::App& app)
{
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        if (option->count() > 0) {
            names.push_back(option->get_name());
        }
    }
    return names;
}

void checkInput(const Options& options)
{
    const auto count = std::ranges::count(options.files, standardInput);
    if (count > 0 && !options.raw) {
        throw CLI::ValidationError("-", "what standard input holds is told by --raw "
                                        "RATE:CHANNELS:FORMAT");
    }
    if (count == 0 && options.raw) {
        throw CLI::ValidationError("--raw", "is for standard input, which is the FILE -");
    }
    if (count > 1 || (count > 0 && options.loop)) {
        throw CLI::ValidationError("-", "standard input can be played once only");
    }
    // Now, before another file gets its number.
    if (count > 0 && fcntl(STDIN_FILENO, F_GETFD) < 0) {
        throw CLI::ValidationError("-", "standard input is closed");
    }
    if (options.describeFile == standardInput) {
        throw CLI::ValidationError("--describe", "standard input can't be described");
    }
}

} // namespace

std::optional<int> parseOptions(int argc, char** argv, Options& options)
{
    CLI::App app("Plays WAV, FLAC, Ogg, DSF and DFF files in time, through a timestamped queue.",
                 "kelda-play");
    app.formatter(std::make_shared<HelpFormatter>());
    app.set_version_flag("--version", "kelda-play " KELDA_VERSION);
    addInput(app, options);
    addDeviceOptions(app, options);
    addResampler(app, options.resampler,
                 "What converts the sample rate: float, short (16 bits, fixed point), gstreamer");
    addStreamOptions(app, options);
    addDriftCorrection(app, options);
    addClickRemoval(app, options.clicks);
    addDisturbances(app, options);
    addOutputs(app, options);
    addPresentation(app, options);
    addDescriptions(app, options);
    app.footer(exitStatusText);
    try {
        app.parse(argc, argv);
        if (options.files.empty() && !options.describes()) {
            throw CLI::RequiredError("FILE");
        }
        checkInput(options);
        options.given = givenOptions(app);
        refuseWithoutEffect(options);
        if (options.drift.correction == Correction::Device && options.pll.empty()) {
            throw CLI::ValidationError("--correct",
                                       "the device's rate is set by --pll CTL,ELEMENT");
        }
        if (options.drift.correction == Correction::Resample &&
            options.resampler.kind == ResamplerChoice::Kind::GStreamer) {
            throw CLI::ValidationError("--correct", "gstreamer converts by fixed ratios only");
        }
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const std::runtime_error& error) { // CLI11's, and our own
        options.json = asksForJson(std::span(argv, static_cast<std::size_t>(argc)));
        createPresenter(options)->ends(Statistics(), UsageFailed, error.what());
        return UsageFailed;
    }
    return std::nullopt;
}

} // namespace keldaPlay
