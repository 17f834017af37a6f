#pragma once

#include <span>
#include <vector>

#include "SampleLayout.h"
#include "Spectrum.h"

namespace keldaPlay {

/// Keeps the first channel of the first minute, for pictures. append() allocates nothing.
class SoundCapture
{
public:
    SoundCapture(const FrameLayout& layout, unsigned int rate) : m_layout(layout)
    {
        m_audio.rate = rate;
        m_audio.samples.reserve(std::size_t{seconds} * rate);
    }

    void append(std::span<const unsigned char> frames)
    {
        const std::size_t room = m_audio.samples.capacity() - m_audio.samples.size();
        const std::size_t numFrames = std::min(room, frames.size() / m_layout.bytes());
        for (std::size_t i = 0; i < numFrames; ++i) {
            m_audio.samples.push_back(sampleAt(frames.data() + i * m_layout.bytes()));
        }
    }

    [[nodiscard]] const keldaReport::Audio& audio() const { return m_audio; }

private:
    static constexpr unsigned int seconds = 60;

    [[nodiscard]] float sampleAt(const unsigned char* frame) const
    {
        return m_layout.sample.isFloat
                   ? unpackFloat(m_layout.sample, frame)
                   : static_cast<float>(unpackInteger(m_layout.sample, frame)) / 2147483648.0F;
    }

    FrameLayout m_layout;
    keldaReport::Audio m_audio;
};

} // namespace keldaPlay
