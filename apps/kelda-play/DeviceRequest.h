#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Options.h"
#include "audioUtils/device/OutputDevice.h"

namespace keldaPlay {

/// What is asked of an output device; it may grant something else. Sizes in frames.
struct DeviceRequest
{
    std::string name;
    audioUtils::PcmFormat format = audioUtils::PcmFormat::S16LE;
    unsigned int sampleRate = 0; // Hz
    unsigned int numChannels = 0;
    std::uint64_t bufferSize = 0;
    std::uint64_t periodSize = 0;
    std::uint64_t startThreshold = 0;
    bool rateResample = true;
    std::string channelMap;
};

/// How many channels a map in ALSA's syntax, "FL FR", has a speaker for.
///
/// Throws UsageError when it is none.
[[nodiscard]] unsigned int numChannelsOf(const std::string& channelMap);

/// What the user asked for, and where he left it open, what suits the stream.
///
/// Throws UsageError when the channel map is for another number of channels.
[[nodiscard]] DeviceRequest requestFor(const Options& options,
                                       const audioUtils::PcmAudioInfo& stream);

inline constexpr const char* simulatedDevice = "fake";

/// The simulated device; any other name is ALSA's.
[[nodiscard]] std::unique_ptr<audioUtils::OutputDevice> createDevice(const std::string& name);

/// Opens a device; a failed one is closed again, and so is one that runs at another rate than was
/// asked for.
///
/// @return what stands in the way, or an empty text
[[nodiscard]] std::string open(audioUtils::OutputDevice& device, const DeviceRequest& request);

/// "period 1024 instead of 480, buffer 4096 instead of 3840": where a device granted something
/// else; empty where it did not.
[[nodiscard]] std::string differences(const DeviceRequest& request,
                                      const audioUtils::OutputDevice& device);

} // namespace keldaPlay
