#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Source.h"

namespace keldaPlay {

/// Several sources as one stream without a gap.
class Playlist
{
public:
    /// Throws std::runtime_error when a source does not go on as the first began.
    Playlist(std::vector<std::unique_ptr<Source>> sources, bool loop);

    [[nodiscard]] unsigned int rate() const { return m_sources.front()->rate(); }
    [[nodiscard]] unsigned int numChannels() const { return m_sources.front()->numChannels(); }
    [[nodiscard]] bool isDsd() const { return m_sources.front()->isDsd(); }
    [[nodiscard]] const std::vector<std::unique_ptr<Source>>& sources() const { return m_sources; }

    /// Ends the stream after so many frames.
    void limit(std::uint64_t numFrames) { m_framesLeft = numFrames; }

    /// Decodes the next frames; fewer than `out` holds only at the end of the stream.
    [[nodiscard]] std::size_t read(const FrameLayout& layout, std::span<unsigned char> out);

private:
    [[nodiscard]] bool nextSource();

    std::vector<std::unique_ptr<Source>> m_sources;
    std::size_t m_current = 0;
    std::uint64_t m_framesOfRound = 0; // an endless loop over empty sources must end
    std::optional<std::uint64_t> m_framesLeft;
    bool m_loop;
};

} // namespace keldaPlay
