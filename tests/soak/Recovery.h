#pragma once

#include <cstdint>
#include <vector>

#include "Faults.h"
#include "support/TraceFile.h"

namespace keldaSoak {

/// How the sync error came back after faults.
///
/// Single errors are off by up to half a frame, 10 us, and by what the fault adds. So a second
/// is in sync when it has no interruption, and the median of its blocks' errors lies below the
/// limit. A fault is recovered from when every second that begins from then on, up to the next
/// fault, is in sync.
struct Recovery
{
    static constexpr double limitUs = 20;

    struct After
    {
        Fault fault;
        double seconds = -1; ///< from the fault's end; below 0: never, before the next one
        double errorUs = 0;  ///< largest median of a second from then on
    };
    std::vector<After> faults;
    std::vector<double> errorsUs; ///< of the single blocks, where in sync; sorted

    [[nodiscard]] std::size_t lasting() const; ///< faults that were not recovered from
    [[nodiscard]] double medianSeconds() const;
    [[nodiscard]] double worstSeconds() const;
    [[nodiscard]] double worstMedianUs() const;
    [[nodiscard]] double errorUs(double part) const;
};

/// @param end of the last fault's aftermath, ns
[[nodiscard]] Recovery recoveryFrom(const std::vector<Fault>& faults, std::int64_t end,
                                    const std::vector<testSupport::TraceRow>& trace);

/// Underruns that no fault explains.
[[nodiscard]] std::vector<Fault>
unexplainedUnderruns(const std::vector<Fault>& faults,
                     const std::vector<testSupport::TraceRow>& trace);

} // namespace keldaSoak
