#include "Playlist.h"

#include <algorithm>
#include <stdexcept>

namespace keldaPlay {

Playlist::Playlist(const std::vector<std::string>& paths, bool loop) : m_loop(loop)
{
    for (const std::string& path : paths) {
        const AudioFile& file = m_files.emplace_back(path);
        if (file.rate() != rate() || file.numChannels() != numChannels()) {
            throw std::runtime_error(
                path + ": has " + std::to_string(file.numChannels()) + " channels at " +
                std::to_string(file.rate()) + " Hz, but " + m_files.front().path() + " has " +
                std::to_string(numChannels()) + " at " + std::to_string(rate()) + " Hz");
        }
    }
}

std::size_t Playlist::read(const FrameLayout& layout, std::span<unsigned char> out)
{
    const std::size_t bytesPerFrame = layout.bytes();
    std::size_t wanted = out.size() / bytesPerFrame;
    if (m_framesLeft) {
        wanted = std::min<std::uint64_t>(wanted, *m_framesLeft);
    }
    std::size_t total = 0;
    while (total < wanted) {
        const std::size_t frames = m_files[m_current].read(
            layout, out.subspan(total * bytesPerFrame, (wanted - total) * bytesPerFrame));
        total += frames;
        m_framesOfRound += frames;
        if (frames == 0 && !nextFile()) {
            break;
        }
    }
    if (m_framesLeft) {
        *m_framesLeft -= total;
    }
    return total;
}

bool Playlist::nextFile()
{
    if (m_current + 1 < m_files.size()) {
        ++m_current;
        return true;
    }
    if (!m_loop || m_framesOfRound == 0) {
        return false;
    }
    for (AudioFile& file : m_files) {
        file.rewind();
    }
    m_current = 0;
    m_framesOfRound = 0;
    return true;
}

} // namespace keldaPlay
