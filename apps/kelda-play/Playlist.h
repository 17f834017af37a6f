#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "Source.h"
#include "Track.h"

namespace keldaPlay {

/// Several tracks as one stream without a gap. A track is opened when it is its turn.
class Playlist
{
public:
    /// @param tracks of one rate and number of channels; they have to outlive the playlist
    Playlist(std::span<const Track> tracks, bool loop) : m_tracks(tracks), m_loop(loop) {}

    [[nodiscard]] unsigned int rate() const
    {
        return static_cast<unsigned int>(m_tracks.front().info.getSampleRate());
    }
    [[nodiscard]] bool isDsd() const { return m_tracks.front().isDsd; }
    [[nodiscard]] std::span<const Track> tracks() const { return m_tracks; }

    /// Ends the stream after so many frames.
    void limit(std::uint64_t numFrames) { m_limit = numFrames; }

    /// A track that read() has begun.
    struct Begin
    {
        const Track* track = nullptr;
        std::uint64_t frame = 0; ///< of the stream
    };

    /// Those since the last call.
    [[nodiscard]] std::vector<Begin> takeBegins() { return std::exchange(m_begins, {}); }

    /// Decodes the next frames; fewer than `out` holds only at the end of the stream.
    ///
    /// Throws std::runtime_error when a track can't be read.
    [[nodiscard]] std::size_t read(const FrameLayout& layout, std::span<unsigned char> out);

    /// Whether what was read last came from a live source.
    [[nodiscard]] bool isLive() const { return m_tracks[m_current].isLive(); }

    /// From any thread: makes read() wait for nothing any more.
    void stop() { m_stop.set(); }

    [[nodiscard]] bool hasReachedLimit() const { return m_framesRead == m_limit; }

    /// What read() has given.
    [[nodiscard]] double secondsRead() const { return static_cast<double>(m_framesRead) / rate(); }

private:
    [[nodiscard]] bool nextTrack();
    void play(std::size_t index);

    std::span<const Track> m_tracks;
    StopEvent m_stop;
    std::unique_ptr<Source> m_source;
    std::size_t m_current = 0;
    std::vector<Begin> m_begins;
    std::uint64_t m_framesRead = 0;
    std::uint64_t m_framesOfRound = 0; // an endless loop over empty tracks must end
    std::optional<std::uint64_t> m_limit;
    bool m_loop;
};

} // namespace keldaPlay
