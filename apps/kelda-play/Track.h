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
#include "Source.h"
#include "audioUtils/PcmDataStructures.h"

namespace keldaPlay {

/// A piece of the list that is played, as it was found before anything was.
struct Track
{
    std::string path;
    std::size_t index = 0; ///< in the list, from 0 on
    audioUtils::PcmAudioInfo info;
    std::optional<std::uint64_t> numFrames; ///< where it is known

    [[nodiscard]] std::optional<double> seconds() const;
};

/// What the user wants to hear, in order. Each source is opened once, and closed again: there may
/// be more of them than files that may be open.
///
/// Throws std::runtime_error with the path and the reason when one can't be read.
/// @param goesOn asked before each; false ends the search
[[nodiscard]] std::vector<Track> findTracks(const Options& options,
                                            const std::function<bool()>& goesOn);

[[nodiscard]] std::unique_ptr<Source> openTrack(const Track& track);

/// The number of tracks from the first on that are one stream, without a gap.
[[nodiscard]] std::size_t lengthOfRun(std::span<const Track> tracks);

} // namespace keldaPlay
