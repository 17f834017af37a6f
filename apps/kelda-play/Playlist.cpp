#include "Playlist.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace keldaPlay {

Playlist::Playlist(std::vector<std::unique_ptr<Source>> sources, bool loop)
    : m_sources(std::move(sources)), m_loop(loop)
{
    for (const auto& source : m_sources) {
        if (source->isDsd() != isDsd()) {
            throw std::runtime_error(source->name() + ": is " + (isDsd() ? "PCM" : "DSD") +
                                     ", but " + m_sources.front()->name() + " is " +
                                     (isDsd() ? "DSD" : "PCM"));
        }
        if (source->rate() != rate() || source->numChannels() != numChannels()) {
            throw std::runtime_error(
                source->name() + ": has " + std::to_string(source->numChannels()) +
                " channels at " + std::to_string(source->rate()) + " Hz, but " +
                m_sources.front()->name() + " has " + std::to_string(numChannels()) + " at " +
                std::to_string(rate()) + " Hz");
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
        const std::size_t frames = m_sources[m_current]->read(
            layout, out.subspan(total * bytesPerFrame, (wanted - total) * bytesPerFrame));
        total += frames;
        m_framesOfRound += frames;
        if (frames == 0 && !nextSource()) {
            break;
        }
    }
    if (m_framesLeft) {
        *m_framesLeft -= total;
    }
    return total;
}

bool Playlist::nextSource()
{
    if (m_current + 1 < m_sources.size()) {
        ++m_current;
        return true;
    }
    if (!m_loop || m_framesOfRound == 0) {
        return false;
    }
    for (const auto& source : m_sources) {
        source->rewind();
    }
    m_current = 0;
    m_framesOfRound = 0;
    return true;
}

} // namespace keldaPlay
