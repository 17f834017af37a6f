#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Options.h"
#include "Playlist.h"
#include "Source.h"
#include "Track.h"
#include "audioUtils/PcmDataStructures.h"

namespace keldaPlay {

/// "S16LE S32LE"
[[nodiscard]] std::string namesOf(const std::vector<audioUtils::PcmFormat>& formats);

/// What a source holds: lossy and floating-point ones as F32LE (or F64LE).
[[nodiscard]] audioUtils::PcmAudioInfo describe(const Source& source);

/// The stream of several tracks: in the format of the one that demands most.
[[nodiscard]] audioUtils::PcmAudioInfo describe(std::span<const Track> tracks);

/// What the named device is able to, of what can be played: "fake" to everything.
///
/// Throws DeviceError when it can't be asked.
[[nodiscard]] audioUtils::PcmAudioCapabilities capabilitiesOf(const std::string& deviceName,
                                                              bool rateResample);

/// The supported format that loses the least: the smallest that holds all bits, or else the
/// largest. Formats that can't be played don't count.
[[nodiscard]] std::optional<audioUtils::PcmFormat>
nearestFormat(audioUtils::PcmFormat wanted, const std::vector<audioUtils::PcmFormat>& supported);

/// How a device is to be opened for a stream: just so, or as near as it is able to.
///
/// Throws DeviceError when that is not near enough to be played, UsageError when the options don't
/// go with the rates.
[[nodiscard]] audioUtils::PcmAudioInfo negotiate(const Options& options,
                                                 const audioUtils::PcmAudioInfo& stream,
                                                 const audioUtils::PcmAudioCapabilities& device);

/// The same for what is to be played, on the device that is asked: DSD just so, or not at all.
[[nodiscard]] audioUtils::PcmAudioInfo negotiate(const Options& options, const Playlist& playlist);

/// "format S32LE instead of S16LE, 2 channels instead of 1": what differs; empty where nothing
/// does.
[[nodiscard]] std::string changes(const audioUtils::PcmAudioInfo& stream,
                                  const audioUtils::PcmAudioInfo& device);

/// Prints the descriptions that the user asked for as JSON.
///
/// Throws std::runtime_error when there is nothing to describe.
void printDescriptions(const Options& options);

} // namespace keldaPlay
