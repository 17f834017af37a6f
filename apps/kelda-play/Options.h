#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ClickFilter.h"
#include "Color.h"
#include "DriftLoop.h"
#include "RateConverter.h"
#include "RawFormat.h"
#include "audioUtils/PcmDataStructures.h"

namespace keldaPlay {

/// A piece of audio that never arrives, as if packets had been lost.
struct Gap
{
    double atSeconds = 0;
    double milliseconds = 0;
};

/// What the user asks for; geometry in frames, and 0 or empty where the player chooses.
struct Options
{
    std::vector<std::string> files; // or folders; "-" is standard input
    std::optional<RawFormat> raw;   // of standard input

    std::string device = "fake";
    unsigned int rate = 0; // Hz
    std::optional<audioUtils::PcmFormat> format;
    std::uint64_t buffer = 0;
    std::uint64_t period = 0;
    std::uint64_t startThreshold = 0;
    std::string channelMap; // in ALSA's syntax
    bool rateResample = true;
    std::optional<double> waitSeconds; // for a device that is gone
    ResamplerChoice resampler;
    ClickOptions clicks;

    std::string describeFile; // of these nothing is played
    std::string describeDevice;
    [[nodiscard]] bool describes() const
    {
        return !describeFile.empty() || !describeDevice.empty();
    }

    unsigned int queueMs = 500;
    unsigned int packetMs = 10;
    std::optional<double> jumpThresholdMs;
    std::optional<double> durationSeconds;

    double sourcePpm = 0;
    DriftOptions drift;
    std::string pll; // control device and element, e.g. "hw:0,PCM Rate Shift 100000"

    double jitterMs = 0;
    unsigned int seed = 1;
    std::vector<Gap> gaps;

    std::string recordPath;
    std::string tracePath;
    std::string reportFolder;
    std::string logLevel = "warn";
    ColorChoice color = ColorChoice::Auto;
    bool json = false;

    bool loop = false;

    std::vector<std::string> given; // the names of the options that were, and FILE
};

/// Reads the command line.
///
/// @return the status to exit with, after --help, --version or an error (which has been told on one
///         line of standard error); nothing when the program is to go on.
[[nodiscard]] std::optional<int> parseOptions(int argc, char** argv, Options& options);

} // namespace keldaPlay
