#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "BlockRecord.h"
#include "ErrorStatistics.h"
#include "FrameCounts.h"
#include "Series.h"
#include "SizeHistogram.h"

namespace keldaSync {

/// What interrupted a stream, however many blocks that took.
struct Event
{
    double seconds = 0;   ///< when it began
    bool skipped = false; ///< frames of the stream were dropped
    bool silent = false;  ///< frames of it were missing
};

/// How well a stream was in sync, from what happened to each block; docs/sync.md has the same in
/// words.
///
/// A block is *measured* if the device has taken it and it goes on from the block before: no
/// silence, skip, jump or gap in it, and the device has not run dry. Its *timing error* is when it
/// is heard less when it should be.
///
/// The stream is *locked* from when on its error stays below 20 us for a second, until an event.
///
/// An *event* is what interrupts it: frames that are dropped or missing, a gap or a jump of the
/// timestamps, a device that runs dry or is gone. What begins within 0.1 s of the end of an event
/// is part of it. Silence before the first frame and after the last one is none.
///
/// *Counted* are the errors of all measured blocks, but for the time that it takes to lock: at most
/// 5 s after the start, or an event. A stream that does not lock within that has all of them
/// counted.
///
/// One thread at a time.
class SyncStatistics
{
public:
    static constexpr double lockedUs = 20;
    static constexpr double lockSeconds = 1; ///< for which an error stays small
    static constexpr double settleSeconds = 5;
    static constexpr double steadySeconds = 180; ///< after which a loop has nothing left to settle

    SyncStatistics();

    /// What is added from now on is a stream of its own.
    /// @param sampleRate of the records' frames, Hz
    void beginStream(unsigned int sampleRate);

    void add(const BlockRecord& record)
    {
        add(record, static_cast<double>(record.delta) / 1000, 0);
    }

    /// The same where more is known than the record tells.
    /// @param errorUs         none: it can't be told
    /// @param adjustmentError of the rate, against what it should be; ppm
    void add(const BlockRecord& record, std::optional<double> errorUs, double adjustmentError);

    /// FrameCounts::addUnrecorded()
    void addUnrecorded(std::uint64_t blocks) { m_counts.addUnrecorded(blocks); }

    /// FrameCounts::endStream()
    void endStream(std::uint64_t held, std::optional<std::uint64_t> discarded)
    {
        m_counts.endStream(held, discarded);
    }

    [[nodiscard]] const FrameCounts& counts() const { return m_counts; }

    /// From the first block's way to the device to the last one's end, s.
    [[nodiscard]] double seconds() const { return m_seconds; }

    /// How much of it was measured.
    [[nodiscard]] double measuredSeconds() const { return m_measuredSeconds; }

    [[nodiscard]] bool hasLocked() const { return m_firstLock >= 0; }
    /// From the first frame to when the error began to stay small, s; -1: never.
    [[nodiscard]] double lockTime() const { return m_firstLock; }
    [[nodiscard]] double worstRelockTime() const { return m_worstRelock; } ///< s; 0: none needed
    [[nodiscard]] bool isLocked() const { return m_locked && !(m_interrupted && m_isEvent); }

    [[nodiscard]] const std::vector<Event>& events() const { return m_events; }
    [[nodiscard]] std::vector<double> eventTimes() const; ///< s
    [[nodiscard]] std::uint64_t skips() const;            ///< events with one
    [[nodiscard]] std::uint64_t silences() const;

    /// The counted errors.
    [[nodiscard]] ErrorStatistics errors() const;

    /// Sizes of the errors in lock, from 5 s after the start or an event on: the steady state.
    [[nodiscard]] const SizeHistogram& lockedErrors() const { return m_lockedErrors; }

    /// rms in ppm, from 3 minutes after the lock on; none: it was not locked for so long.
    [[nodiscard]] std::optional<double> adjustmentJitter() const;

    /// All that was measured, for plots.
    [[nodiscard]] const Series& series() const { return m_series; }

private:
    struct Error
    {
        double seconds = 0;
        double us = 0;
        double length = 0;
    };
    struct Interval
    {
        double from = 0;
        double to = 0;
    };

    void planGap(const BlockRecord& record, double seconds, double length);
    [[nodiscard]] bool isInGap(double seconds, double length);
    void interrupt(double seconds, const Event& event, bool isCertain);
    void noteEvent(bool isCertain);
    void goOn(double seconds);
    void measure(const Error& error, double adjustmentError);
    void lockOnto(const Error& error);
    void lock(double seconds);
    void countWaiting();

    double m_sampleRate = 1;
    std::optional<std::int64_t> m_origin; // ns
    FrameCounts m_counts;
    Series m_series;
    ErrorStatistics m_errors;
    std::vector<Error> m_waiting; // whether they count is known when it has locked, or has not
    bool m_isLocking = true;
    SizeHistogram m_lockedErrors;
    double m_seconds = 0;
    double m_measuredSeconds = 0;

    std::vector<Event> m_events;
    std::deque<Interval> m_gaps; // in the queue, and to be heard
    bool m_interrupted = false;
    Event m_interruption;   // the one that goes on
    bool m_isEvent = false; // and is the last one of the events

    double m_firstStart = -1; // s; -1: not yet
    double m_start = -1;      // of the stream, or of what followed the last event
    double m_smallSince = -1; // s; -1: the last one was not
    double m_lockedAt = 0;
    double m_firstLock = -1;
    double m_worstRelock = 0;
    bool m_locked = false;
    double m_sumOfSquares = 0; // of the adjustment's errors
    std::uint64_t m_adjustments = 0;
};

} // namespace keldaSync
