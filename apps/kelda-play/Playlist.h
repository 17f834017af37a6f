#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "AudioFile.h"

namespace keldaPlay {

/// Several files as one stream without a gap.
class Playlist
{
public:
    /// Throws std::runtime_error when a file can't be read, or does not go on as the first began.
    Playlist(const std::vector<std::string>& paths, bool loop);

    [[nodiscard]] unsigned int rate() const { return m_files.front().rate(); }
    [[nodiscard]] unsigned int numChannels() const { return m_files.front().numChannels(); }
    [[nodiscard]] const std::vector<AudioFile>& files() const { return m_files; }

    /// Ends the stream after so many frames.
    void limit(std::uint64_t numFrames) { m_framesLeft = numFrames; }

    /// Decodes the next frames; fewer than `out` holds only at the end of the stream.
    [[nodiscard]] std::size_t read(const FrameLayout& layout, std::span<unsigned char> out);

private:
    [[nodiscard]] bool nextFile();

    std::vector<AudioFile> m_files;
    std::size_t m_current = 0;
    std::uint64_t m_framesOfRound = 0; // an endless loop over empty files must end
    std::optional<std::uint64_t> m_framesLeft;
    bool m_loop;
};

} // namespace keldaPlay
