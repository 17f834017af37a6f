#pragma once

#include <cstddef>
#include <span>

#include "SampleLayout.h"

namespace keldaPlay {

/// The last stage before a device that gets DSD over PCM: to the device the markers alternate
/// without a break, whatever was skipped, lost or put in between, and what is silence in PCM is
/// DSD's. Allocates nothing. One thread at a time.
class DopFilter
{
public:
    explicit DopFilter(const FrameLayout& layout) : m_layout(layout) {}

    /// Filters a block of whole frames, in place: all channels of a frame get the marker that comes
    /// next, and those of a frame that has none get idle bits.
    void process(std::span<unsigned char> block);

private:
    FrameLayout m_layout;
    std::size_t m_next = 0; // marker
};

} // namespace keldaPlay
