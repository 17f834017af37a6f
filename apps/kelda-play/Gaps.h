#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "Options.h"

namespace keldaPlay {

/// Which frames of the stream get lost.
class Gaps
{
public:
    struct Piece
    {
        bool lost = false;
        std::uint64_t numFrames = 0; ///< for which this holds
    };

    Gaps(const std::vector<Gap>& gaps, unsigned int sampleRate)
    {
        for (const Gap& gap : gaps) {
            const auto begin = std::llround(gap.atSeconds * sampleRate);
            const auto length = std::llround(gap.milliseconds / 1000 * sampleRate);
            m_ranges.push_back(
                {static_cast<std::uint64_t>(begin), static_cast<std::uint64_t>(begin + length)});
        }
    }

    /// What happens to the frames from one on.
    [[nodiscard]] Piece pieceAt(std::uint64_t frame) const
    {
        std::uint64_t next = std::numeric_limits<std::uint64_t>::max();
        for (const Range& range : m_ranges) {
            if (range.begin <= frame && frame < range.end) {
                return {true, range.end - frame};
            }
            next = range.begin > frame ? std::min(next, range.begin) : next;
        }
        return {false, next - frame};
    }

private:
    struct Range
    {
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
    };

    std::vector<Range> m_ranges;
};

} // namespace keldaPlay
