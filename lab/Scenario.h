#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ClickFilter.h"
#include "DriftLoop.h"
#include "RateConverter.h"

namespace keldaLab {

/// A clock's crystal: off by so much, and wandering up and down around it.
struct Crystal
{
    double ppm = 0;
    double wanderPpm = 0;          ///< to either side
    double wanderPpmPerMinute = 0; ///< the steepest
};

/// What happens once.
struct Event
{
    enum class Kind {
        Stop,     ///< the source pauses, and goes on where it was
        Jump,     ///< the timestamps jump; what arrives goes on as before
        Gap,      ///< a piece is lost on the way
        Underrun, ///< the renderer stands still, and the device runs dry
        Burst,    ///< packets are held up, and arrive together
        Spike,    ///< the device's delay is off once, by so much
        Stale,    ///< the device tells the same delay, of the same moment, for so long
        Offset,   ///< the device's delay is off by a second for so long; below 0: too short
    };

    double atSeconds = 0;
    Kind kind = Kind::Stop;
    double milliseconds = 0;
};

/// What the laboratory plays; read from JSON.
struct Scenario
{
    std::string title;

    /// "numbers": of the frames, to measure their time; "sine": of 997 Hz at -6 dBFS, or a sound
    /// file, both without anything above 4 kHz, to measure what is heard there of its
    /// interruptions.
    std::string content = "numbers";
    double seconds = 60;
    unsigned int seed = 1;
    unsigned int sampleRate = 48000;
    keldaPlay::DriftOptions drift;
    keldaPlay::ResamplerChoice resampler;
    keldaPlay::ClickOptions clicks;

    struct
    {
        Crystal crystal;
        unsigned int packetFrames = 480;
        unsigned int burstPackets = 1; ///< that arrive together
        double leadMs = 300;           ///< from arrival until it is due
        double arrivalJitterMs = 0;    ///< each arrives later by up to so much
        double timestampJitterMs = 0;  ///< each timestamp is off by up to so much
    } source;

    struct
    {
        Crystal crystal;
        unsigned int periodFrames = 480;
        unsigned int bufferFrames = 3840;
        double reportMs = 0;         ///< between two measurements of the delay; 0: each is fresh
        double spikeProbability = 0; ///< of a measurement
        double spikeMs = 0;          ///< by which it is off then, to either side
        double wakeUpUs = 0;         ///< by which the renderer is late, on average
    } device;

    unsigned int queueMs = 1000;
    double jumpThresholdMs = 20;
    double filterMaxErrorMs = 10;
    std::vector<Event> events;

    struct
    {
        double everySeconds = 0; ///< on average, some event; 0: none
    } random;

    /// What it has to reach, by the name of the table's line; none is tested that is not named.
    std::map<std::string, double> goals;
};

/// Throws std::runtime_error with the path and what is wrong.
[[nodiscard]] Scenario readScenario(const std::string& path);

} // namespace keldaLab
