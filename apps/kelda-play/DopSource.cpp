#include "DopSource.h"

#include <algorithm>

#include "Dop.h"

namespace keldaPlay {

namespace {

constexpr std::uint64_t bytesPerFrame = dop::bitsPerFrame / 8; // of a channel

} // namespace

DopSource::DopSource(std::unique_ptr<DsdReader> reader) : m_reader(std::move(reader)) {}

unsigned int DopSource::rate() const
{
    return static_cast<unsigned int>(m_reader->stream().bitrate / dop::bitsPerFrame);
}

unsigned int DopSource::numChannels() const
{
    return static_cast<unsigned int>(m_reader->stream().numChannels);
}

// In all of the library's formats the oldest sample is the highest bit, as it is in what a reader
// gives, whatever the order of bits in the file.
std::optional<audioUtils::DsdAudioInfo> DopSource::dsd() const
{
    return audioUtils::DsdAudioInfo(static_cast<int>(m_reader->stream().bitrate),
                                    static_cast<int>(numChannels()), audioUtils::DSDU8);
}

std::size_t DopSource::read(const FrameLayout& layout, std::span<unsigned char> out)
{
    const std::uint64_t allFrames =
        (m_reader->stream().numBits + dop::bitsPerFrame - 1) / dop::bitsPerFrame;
    const std::uint64_t numFrames =
        std::min<std::uint64_t>(out.size() / layout.bytes(), allFrames - m_position);
    if (numFrames == 0) {
        return 0;
    }
    readBytes(numFrames);

    unsigned char* to = out.data();
    for (std::uint64_t frame = 0; frame < numFrames; ++frame) {
        const unsigned char* const bytes = m_bytes.data() + frame * bytesPerFrame * numChannels();
        for (std::size_t channel = 0; channel < layout.numChannels; ++channel) {
            const bool isThere = channel < numChannels();
            const unsigned int bits =
                isThere ? unsigned{bytes[channel]} << 8 | bytes[channel + numChannels()]
                        : dop::idleBits;
            packInteger(layout.sample,
                        dop::sample(dop::markers[0], static_cast<std::uint16_t>(bits)), to);
            to += layout.sample.bytes;
        }
    }
    m_position += numFrames;
    return numFrames;
}

void DopSource::readBytes(std::uint64_t numFrames)
{
    m_bytes.assign(numFrames * bytesPerFrame * numChannels(), dop::idleByte);
    const std::uint64_t first = m_position * bytesPerFrame;
    const std::uint64_t numBits = m_reader->stream().numBits;
    const std::uint64_t end = std::min(first + numFrames * bytesPerFrame, (numBits + 7) / 8);
    const std::span bytes = std::span(m_bytes).first((end - first) * numChannels());
    m_reader->read(first, bytes);

    const unsigned int bitsOfLast = numBits % 8;
    if (bitsOfLast != 0 && end > numBits / 8) {
        for (unsigned char& last : bytes.last(numChannels())) {
            const unsigned int padding = 0xFFU >> bitsOfLast;
            last = static_cast<unsigned char>((last & ~padding) | (dop::idleByte & padding));
        }
    }
}

} // namespace keldaPlay
