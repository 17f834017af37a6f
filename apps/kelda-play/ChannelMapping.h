#pragma once

#include <numeric>
#include <span>

#include "SampleLayout.h"

namespace keldaPlay {

/// The sample for one of several channels, out of a frame that may have another number of them: one
/// channel goes to all, all go to one by their mean, and else each stays where it is; channels that
/// the frame lacks are silent, those that are left over are dropped.
template<typename Sample, typename Sum>
[[nodiscard]] Sample sampleFor(std::size_t channel, std::size_t numChannels,
                               std::span<const Sample> frame)
{
    if (numChannels == 1 && frame.size() > 1) {
        const Sum sum = std::accumulate(frame.begin(), frame.end(), Sum{0});
        return static_cast<Sample>(sum / static_cast<Sum>(frame.size()));
    }
    const std::size_t from = frame.size() == 1 ? 0 : channel;
    return from < frame.size() ? frame[from] : Sample{0};
}

/// Packs interleaved frames of so many channels into frames that may have another number of them.
/// @param pack writes a sample to where it is told
template<typename Sum, typename Sample, typename Pack>
void packFrames(std::span<const Sample> samples, std::size_t numChannels, const FrameLayout& layout,
                unsigned char* to, Pack pack)
{
    for (; !samples.empty(); samples = samples.subspan(numChannels)) {
        const std::span<const Sample> frame = samples.first(numChannels);
        for (std::size_t channel = 0; channel < layout.numChannels; ++channel) {
            pack(sampleFor<Sample, Sum>(channel, layout.numChannels, frame), to);
            to += layout.sample.bytes;
        }
    }
}

} // namespace keldaPlay
