#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace keldaReport {

/// Sizes in us, of which percentiles can be told to 0.01 us: as small after a day as after a
/// second.
class SizeHistogram
{
public:
    void add(double size);
    [[nodiscard]] double rms() const;
    [[nodiscard]] double percentile(double part) const;
    [[nodiscard]] double worst() const { return m_worst; }

private:
    static constexpr double resolution = 0.01;
    static constexpr std::size_t numBins = 1U << 16; // the last one is for all that is larger

    std::vector<std::uint32_t> m_bins = std::vector<std::uint32_t>(numBins);
    std::uint64_t m_count = 0;
    double m_sumOfSquares = 0;
    double m_worst = 0;
};

/// How well a stream was in sync: from the timing error of each block.
///
/// The stream is locked from when on its error stays below 20 us for a second. What interrupts it
/// (silence, a skip, a jump, however many blocks that takes) is one event; until it has locked
/// again its errors are not the steady state's.
class SyncStatistics
{
public:
    static constexpr double lockedUs = 20;
    static constexpr double lockSeconds = 1; ///< for which an error stays small
    static constexpr double settleSeconds = 5;
    static constexpr double steadySeconds = 180; ///< after which a loop has nothing left to settle

    /// A block that goes on from the block before.
    /// @param adjustmentError of the rate, where it is known what it should be; ppm
    void addBlock(double seconds, double errorUs, double adjustmentError);

    /// A block that does not. Counts when the stream goes on.
    /// @param skipped, silent whether frames of it were dropped, or are missing
    void addInterruption(double seconds, bool skipped, bool silent);

    [[nodiscard]] bool hasLocked() const { return m_firstLock >= 0; }
    [[nodiscard]] double lockTime() const { return m_firstLock; }          ///< s; -1: never
    [[nodiscard]] double worstRelockTime() const { return m_worstRelock; } ///< s; 0: none needed
    [[nodiscard]] bool isLocked() const { return m_locked; }
    [[nodiscard]] std::uint64_t events() const { return m_eventTimes.size(); }
    [[nodiscard]] const std::vector<double>& eventTimes() const { return m_eventTimes; }
    [[nodiscard]] std::uint64_t skips() const { return m_skips; } ///< events with one
    [[nodiscard]] std::uint64_t silences() const { return m_silences; }

    /// Of the locked blocks, in us.
    [[nodiscard]] double rms() const { return m_errors.rms(); }
    [[nodiscard]] double percentile(double part) const { return m_errors.percentile(part); }
    [[nodiscard]] double worst() const { return m_errors.worst(); }

    /// rms in ppm, once the loop has settled.
    [[nodiscard]] double adjustmentJitter() const;

private:
    void lock(double seconds);
    void goOn(double seconds);

    SizeHistogram m_errors;
    std::vector<double> m_eventTimes;
    double m_start = -1;      // of the stream, or of what followed the last event
    double m_smallSince = -1; // s; -1: the last one was not
    double m_lockedAt = 0;
    double m_firstLock = -1;
    double m_worstRelock = 0;
    bool m_locked = false;
    bool m_interrupted = false;
    double m_interruptedAt = 0;
    bool m_skipped = false;
    bool m_silent = false;
    std::uint64_t m_skips = 0;
    std::uint64_t m_silences = 0;
    double m_sumOfSquares = 0; // of the adjustment's errors
    std::uint64_t m_adjustments = 0;
};

} // namespace keldaReport
