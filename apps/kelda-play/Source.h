#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "SampleLayout.h"
#include "audioUtils/DsdDataStructures.h"

namespace keldaPlay {

/// Where the frames of a stream come from.
class Source
{
public:
    virtual ~Source() = default;

    /// As the user knows it.
    [[nodiscard]] virtual const std::string& name() const = 0;
    [[nodiscard]] virtual unsigned int rate() const = 0; ///< Hz
    [[nodiscard]] virtual unsigned int numChannels() const = 0;
    /// The format that its samples have, or come nearest to.
    [[nodiscard]] virtual audioUtils::PcmFormat format() const = 0;
    /// The one-bit samples that its frames carry as DSD over PCM (see Dop.h), of which nothing may
    /// change a bit; none where it is PCM.
    [[nodiscard]] virtual std::optional<audioUtils::DsdAudioInfo> dsd() const
    {
        return std::nullopt;
    }
    [[nodiscard]] bool isDsd() const { return dsd().has_value(); }

    /// Of the whole source, where that is known.
    [[nodiscard]] virtual std::optional<std::uint64_t> numFrames() const { return std::nullopt; }

    /// Decodes as many whole frames as `out` holds, or the source still has. The frames may have
    /// another number of channels than the source (see sampleFor()).
    ///
    /// Throws std::runtime_error when the source is damaged.
    /// @return frames; 0 at the end
    [[nodiscard]] virtual std::size_t read(const FrameLayout& layout,
                                           std::span<unsigned char> out) = 0;

    /// Throws std::runtime_error when it can't be played again.
    virtual void rewind() = 0;
};

/// Opens what can be played.
///
/// Throws std::runtime_error with the path and the reason when it can't be read.
[[nodiscard]] std::unique_ptr<Source> openSource(const std::string& path);

} // namespace keldaPlay
