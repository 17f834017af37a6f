#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Options.h"
#include "RawFormat.h"
#include "Source.h"
#include "StopEvent.h"
#include "audioUtils/PcmDataStructures.h"

namespace keldaPlay {

/// A piece of the list that is played, as it was found before anything was.
struct Track
{
    std::string path;
    std::size_t index = 0; ///< in the list, from 0 on
    audioUtils::PcmAudioInfo info;
    std::optional<std::uint64_t> numFrames; ///< where it is known
    bool isDsd = false;                     ///< as DSD over PCM
    std::optional<RawFormat> raw;           ///< of what comes without a header

    [[nodiscard]] std::optional<double> seconds() const;

    /// Whether its frames come when they come.
    [[nodiscard]] bool isLive() const { return raw.has_value(); }
};

/// What the user wants to hear, in order. Each source is opened once, and closed again: there may
/// be more of them than files that may be open.
///
/// Throws std::runtime_error with the path and the reason when one can't be read.
/// @param goesOn asked before each; false ends the search
[[nodiscard]] std::vector<Track> findTracks(const Options& options,
                                            const std::function<bool()>& goesOn);

/// Throws std::runtime_error with the path and the reason when it can't be read any more.
/// @param stop makes a read() that waits for a live source end
[[nodiscard]] std::unique_ptr<Source> openTrack(const Track& track, const StopEvent& stop);

/// The number of tracks from the first on that are one stream, without a gap.
[[nodiscard]] std::size_t lengthOfRun(std::span<const Track> tracks);

} // namespace keldaPlay
