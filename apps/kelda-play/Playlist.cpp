#include "Playlist.h"

#include <algorithm>

namespace keldaPlay {

std::size_t Playlist::read(const FrameLayout& layout, std::span<unsigned char> out)
{
    const std::size_t bytesPerFrame = layout.bytes();
    std::size_t wanted = out.size() / bytesPerFrame;
    if (m_limit) {
        wanted = std::min<std::uint64_t>(wanted, *m_limit - m_framesRead);
    }
    if (!m_source) {
        play(0);
    }
    std::size_t total = 0;
    while (total < wanted) {
        const std::size_t frames = m_source->read(
            layout, out.subspan(total * bytesPerFrame, (wanted - total) * bytesPerFrame));
        total += frames;
        m_framesRead += frames;
        m_framesOfRound += frames;
        if (frames == 0 && !nextTrack()) {
            break;
        }
    }
    return total;
}

bool Playlist::nextTrack()
{
    if (m_current + 1 < m_tracks.size()) {
        play(m_current + 1);
        return true;
    }
    if (!m_loop || m_framesOfRound == 0) {
        return false;
    }
    m_framesOfRound = 0;
    play(0);
    return true;
}

void Playlist::play(std::size_t index)
{
    if (m_source && index == m_current) {
        m_source->rewind();
    } else {
        m_source = openTrack(m_tracks[index], m_stop);
    }
    m_current = index;
    m_begins.push_back({&m_tracks[index], m_framesRead});
}

} // namespace keldaPlay
