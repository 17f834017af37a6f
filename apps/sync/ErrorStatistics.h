#pragma once

#include <cstdint>
#include <vector>

#include "SizeHistogram.h"

namespace keldaSync {

/// The timing errors of blocks, in us.
class ErrorStatistics
{
public:
    /// Beyond it a block is not in sync.
    static constexpr double limitUs = 1000;

    /// @param lengthSeconds of the block
    void add(double errorUs, double lengthSeconds);

    [[nodiscard]] bool areMeasured() const { return m_sizes.count() > 0; }
    [[nodiscard]] double mean() const;
    [[nodiscard]] double rms() const { return m_sizes.rms(); }
    [[nodiscard]] double percentile(double part) const { return m_sizes.percentile(part); }
    [[nodiscard]] double worst() const { return m_sizes.worst(); } ///< its size
    [[nodiscard]] double signedWorst() const { return m_signed; }  ///< positive: late

    /// How many seconds had most of their blocks beyond the limit.
    [[nodiscard]] std::uint64_t secondsBeyond() const { return m_secondsBeyond; }

private:
    void endSecond();

    SizeHistogram m_sizes;
    double m_sum = 0;
    double m_signed = 0;
    std::uint64_t m_secondsBeyond = 0;
    double m_secondsOfWindow = 0; // that is being filled
    std::uint64_t m_blocksOfWindow = 0;
    std::uint64_t m_beyondOfWindow = 0;
};

} // namespace keldaSync
