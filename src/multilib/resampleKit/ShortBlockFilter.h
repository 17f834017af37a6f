#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "miscUtils/Export.h"
#include "nonstd/span.hpp"
#include "resampleKit/PhaseTable.h"

namespace resampleKit {

/// What the functions of ShortFilterKit.h weigh, for whole blocks and all channels at once, bit for
/// bit, with the widest vectors that the processor has.
class KELDA_EXPORT ShortBlockFilter
{
public:
    /// @param wing designed by makeFilter()
    explicit ShortBlockFilter(nonstd::span<const short> wing);

    /// Output frames from a time to another; times and steps are in 1/32768 of an input sample.
    struct Times
    {
        unsigned int start; ///< from x[c][0] on
        unsigned int end;   ///< not included
        unsigned int step;  ///< at least 1
    };

    /// Writes the signal at the times to `y`: as srcUpsample() of the 16-bit resampler does.
    ///
    /// The signal must reach 8 samples for each zero crossing of the wing, and 18 more, to either
    /// side of every time.
    ///
    /// @param x           one row of samples for each channel
    /// @param y           one row for each channel
    /// @param numChannels rows of `x` and of `y`
    /// @param times       of the frames to be written
    /// @param lpScl       scale of every output sample, with 13 fraction bits
    /// @return frames written
    [[nodiscard]] std::size_t upsample(const short* const* x, short* const* y,
                                       std::size_t numChannels, const Times& times,
                                       unsigned short lpScl) const;

    /// The same with a stretched filter, as srcUpOrDownsample() does.
    /// @param x, y, numChannels, times, lpScl as for upsample()
    /// @param dhb as for FilterUD()
    /// @return frames written
    [[nodiscard]] std::size_t downsample(const short* const* x, short* const* y,
                                         std::size_t numChannels, const Times& times,
                                         unsigned short lpScl, unsigned short dhb) const;

    /// Bytes of memory that the tables take.
    [[nodiscard]] std::size_t bytes() const;

private:
    PhaseTable<short> m_table;
    std::vector<std::int32_t> m_pairs; // entries and differences in the order of the design
};

} // namespace resampleKit
