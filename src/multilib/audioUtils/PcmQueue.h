#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "audioUtils/detail/ByteRing.h"
#include "audioUtils/detail/Scale.h"
#include "audioUtils/detail/ThreadSafety.h"
#include "miscUtils/Export.h"
#include "miscUtils/TimeValue.h"
#include "miscUtils/TimestampFilter.h"
#include "nonstd/span.hpp"

namespace audioUtils {

using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;

/// What a queue has done to the audio since it was configured, in frames and events.
struct PcmQueueCounters
{
    std::uint64_t insertedFrames = 0; ///< silence that write() put into timestamp gaps
    std::uint64_t resets = 0;         ///< times that write() discarded the ring on a jump
    std::uint64_t silenceFrames = 0;  ///< silence that read() handed out before data of the future
    std::uint64_t skippedFrames = 0;  ///< late data dropped by read() and flushOldData()
    std::uint64_t underruns = 0;      ///< reads that found less data than they had to skip
};

/// A thread-safe ring of interleaved PCM between one writer and one reader that keeps the audio
/// aligned to presentation timestamps.
///
/// The writer delivers packets with the time at which their first frame is to be heard; the reader
/// asks for the bytes due at a time. In between the queue
/// - fills small gaps between packets with silence, and starts afresh on large or backward jumps,
/// - hands out silence while the data lies in the future, and skips data that is late,
/// - blocks the writer while it is full,
/// - smooths the timestamps of both sides (miscUtils::TimestampFilter).
///
/// ```cpp
/// PcmQueue queue;
/// queue.configure(true, 200, 48000, 2, 2, "main", true, 20'000'000, 10'000'000);
/// queue.write(pts, packet);                                         // producer thread
/// const std::size_t frames = queue.read(now + delay, block, delta); // renderer thread
/// ```
///
/// Times are nanoseconds of the monotonic raw clock. Data is counted in bytes, results in frames; a
/// frame is one sample of every channel. Everything is logged to "PcmQueue", each line starting
/// with the queue's name.
///
/// Threads: one thread writes; one reads, flushes and asks for times; any thread may configure,
/// reset, abort, resync and drain. Every call holds one lock for its whole duration (write() and
/// drain() release it while they wait), but what it has to log is appended after it has given the
/// lock up: a log that blocks holds up its own thread alone. write() and read() allocate nothing
/// but the text of a message whose level is enabled.
class KELDA_EXPORT PcmQueue
{
public:
    /// A queue must be configured before it is written to or read from.
    PcmQueue();

    /// Aborts a blocked write() and a waiting drain(), and returns when they have left.
    ~PcmQueue();

    PcmQueue(const PcmQueue&) = delete;
    PcmQueue& operator=(const PcmQueue&) = delete;

    /// Sets the queue up from empty: all data, timestamps and a former abort are forgotten. A
    /// blocked write() returns false and stores nothing into the new ring; drain() returns.
    ///
    /// All counts must be above 0 (assertions).
    ///
    /// @param timestampingEnabled     when false, timestamps are ignored: a plain blocking ring
    /// @param maxFillLevelInMS        capacity, in ms of audio
    /// @param sampleRate              in Hz
    /// @param channels                samples of a frame
    /// @param numBytesPerSample       bytes of one sample of one channel
    /// @param name                    prefix of the log lines
    /// @param filterEnabled           whether the timestamps of both sides are smoothed
    /// @param ptsJumpThreshold        largest deviation of a timestamp, in ns, that is no jump
    /// @param filterMaxErrorThreshold largest deviation, in ns, that is smoothed
    void configure(bool timestampingEnabled, std::size_t maxFillLevelInMS, unsigned int sampleRate,
                   unsigned int channels, unsigned int numBytesPerSample, const std::string& name,
                   bool filterEnabled, TimeValue ptsJumpThreshold,
                   TimeValue filterMaxErrorThreshold) KELDA_EXCLUDES(m_mutex);

    /// Appends a packet; blocks while the queue is full.
    ///
    /// A forward gap is filled with silence as long as it is shorter than what is buffered (what
    /// does not fit is dropped). A longer one, and a backward jump, discard the buffered audio and
    /// start afresh. Both are logged at WARN.
    ///
    /// @param pts  when the packet's first frame is to be heard, in ns; NoTimeValue appends the
    ///             data without looking at time
    /// @param data whole frames, interleaved, less than 2 GiB
    /// @return false when writing was aborted; nothing more is stored then.
    bool write(TimeValue pts, const nonstd::span<const unsigned char>& data)
        KELDA_EXCLUDES(m_mutex);

    /// Releases a blocked write() and drain(), and makes every later write() return false, until
    /// the next configure().
    void abortWrite() KELDA_EXCLUDES(m_mutex);

    /// Takes the bytes due at a time. Never blocks on data.
    ///
    /// Silence is handed out for the time before the first frame, late data is skipped; both happen
    /// only beyond the jump threshold, or when the reader is not yet in sync, and are logged at
    /// INFO.
    ///
    /// @param time  when the first frame of `out` will be heard, in ns; NoTimeValue takes what
    ///              there is
    /// @param out   receives whole frames; bytes beyond the result are left untouched, so after an
    ///              underrun the caller pads them
    /// @param delta set to `time` (smoothed) less the presentation time of the data, in ns:
    ///              positive when the data is late; 0 where a jump has just been repaired.
    ///              Untouched when no time is looked at.
    /// @return frames handed out, silence included
    std::size_t read(TimeValue time, const nonstd::span<unsigned char>& out, TimeValueDelta& delta)
        KELDA_EXCLUDES(m_mutex);

    /// The same, for callers without interest in the delta.
    std::size_t read(TimeValue time, const nonstd::span<unsigned char>& out)
        KELDA_EXCLUDES(m_mutex);

    /// Makes the next read() align exactly to its time, however small its deviation.
    void resyncRead() KELDA_EXCLUDES(m_mutex);

    /// Drops what is late at `now`, in ns.
    void flushOldData(const TimeValue& now) KELDA_EXCLUDES(m_mutex);

    /// How much audio is held that can still be played in time.
    ///
    /// @param now in ns; NoTimeValue asks for all that is held
    /// @return ns; 0 before configure()
    [[nodiscard]] TimeValue bufferedDuration(const TimeValue& now) KELDA_EXCLUDES(m_mutex);

    /// Blocks until the queue is empty, or reset, reconfigured or aborted.
    void drain() KELDA_EXCLUDES(m_mutex);

    /// Empties the queue and forgets both timestamps. A blocked write() goes on with the rest of
    /// its data; an abort stays in force.
    void reset() KELDA_EXCLUDES(m_mutex);

    /// The presentation time of the oldest byte held; NoTimeValue when unknown.
    [[nodiscard]] TimeValue getReadPts() KELDA_EXCLUDES(m_mutex);
    /// The presentation time just past the newest byte held; NoTimeValue when unknown.
    [[nodiscard]] TimeValue getWritePts() KELDA_EXCLUDES(m_mutex);

    /// What has been inserted, skipped and lost since configure().
    [[nodiscard]] PcmQueueCounters counters() KELDA_EXCLUDES(m_mutex);

    /// As configured: the prefix of the log lines.
    [[nodiscard]] std::string name() const KELDA_EXCLUDES(m_mutex);

    /// @name Without locking: only before the queue is shared between threads
    /// @{

    /// getReadPts()
    [[nodiscard]] TimeValue getReadPtsInternal() KELDA_NO_THREAD_SAFETY_ANALYSIS;
    /// getWritePts()
    [[nodiscard]] TimeValue getWritePtsInternal() KELDA_NO_THREAD_SAFETY_ANALYSIS;
    /// The play time of so many bytes, in ns, truncated. The queue must be configured.
    [[nodiscard]] TimeValue
    calculateDurationFromBytes(std::size_t bytes) KELDA_NO_THREAD_SAFETY_ANALYSIS;
    /// The bytes that play for so many ns, rounded down to whole frames. The queue must be
    /// configured.
    [[nodiscard]] std::size_t
    calculateBytesFromDuration(TimeValue duration) KELDA_NO_THREAD_SAFETY_ANALYSIS;
    /// @}

private:
    [[nodiscard]] KELDA_LOCAL TimeValue alignWrite(TimeValue pts) KELDA_REQUIRES(m_mutex);
    KELDA_LOCAL void repairWriteJump(TimeValueDelta delta) KELDA_REQUIRES(m_mutex);
    KELDA_LOCAL void updateWritePts(bool timed, TimeValue pts, int written) KELDA_REQUIRES(m_mutex);
    [[nodiscard]] KELDA_LOCAL bool waitForReader() KELDA_REQUIRES(m_mutex);
    [[nodiscard]] KELDA_LOCAL bool alignRead(TimeValue& time,
                                             const nonstd::span<unsigned char>& out,
                                             std::size_t& total, TimeValueDelta& delta)
        KELDA_REQUIRES(m_mutex);
    KELDA_LOCAL void readSilence(TimeValue& time, const nonstd::span<unsigned char>& out,
                                 std::size_t& total, TimeValue duration) KELDA_REQUIRES(m_mutex);
    [[nodiscard]] KELDA_LOCAL bool skipLate(TimeValue lateness) KELDA_REQUIRES(m_mutex);
    [[nodiscard]] KELDA_LOCAL bool skip(TimeValue duration) KELDA_REQUIRES(m_mutex);

    [[nodiscard]] KELDA_LOCAL std::size_t framesIn(std::size_t bytes) const KELDA_REQUIRES(m_mutex);
    [[nodiscard]] KELDA_LOCAL bool isBeyondJumpThreshold(TimeValueDelta delta) const
        KELDA_REQUIRES(m_mutex);
    [[nodiscard]] KELDA_LOCAL TimeValue derivedReadPts() KELDA_REQUIRES(m_mutex);
    KELDA_LOCAL void wait() KELDA_REQUIRES(m_mutex);
    KELDA_LOCAL void wakeWaiters() KELDA_REQUIRES(m_mutex);

    std::string m_name KELDA_GUARDED_BY(m_mutex);
    bool m_configured KELDA_GUARDED_BY(m_mutex) = false;
    bool m_timestampingEnabled KELDA_GUARDED_BY(m_mutex) = false;
    bool m_writeAborted KELDA_GUARDED_BY(m_mutex) = false;
    bool m_writerWaiting KELDA_GUARDED_BY(m_mutex) = false;
    bool m_readSynced KELDA_GUARDED_BY(m_mutex) = false; // real data was read since the last jump
    std::uint32_t m_sampleRate KELDA_GUARDED_BY(m_mutex) = 0;
    std::uint32_t m_numChannels KELDA_GUARDED_BY(m_mutex) = 0;
    std::uint32_t m_bytesPerFrame KELDA_GUARDED_BY(m_mutex) = 0;
    std::uint32_t m_bytesPerSample KELDA_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_bytesPerSecond KELDA_GUARDED_BY(m_mutex) = 0;
    detail::Scale m_bytesToFrames KELDA_GUARDED_BY(m_mutex);
    detail::Scale m_bytesToDuration KELDA_GUARDED_BY(m_mutex);
    detail::Scale m_durationToBytes KELDA_GUARDED_BY(m_mutex);
    TimeValue m_ptsJumpThreshold KELDA_GUARDED_BY(m_mutex) = 0;
    detail::ByteRing m_ring KELDA_GUARDED_BY(m_mutex);
    TimeValue m_readPts KELDA_GUARDED_BY(m_mutex) = miscUtils::NoTimeValue;
    TimeValue m_writePts KELDA_GUARDED_BY(m_mutex) = miscUtils::NoTimeValue;
    mutable detail::Mutex m_mutex;
    detail::Condition m_condition;
    miscUtils::TimestampFilter m_readFilter KELDA_GUARDED_BY(m_mutex);
    miscUtils::TimestampFilter m_writeFilter KELDA_GUARDED_BY(m_mutex);
    PcmQueueCounters m_counters KELDA_GUARDED_BY(m_mutex);
    // A waiting call sees by these that the ring it waited for is no longer the same.
    unsigned long m_configurations KELDA_GUARDED_BY(m_mutex) = 0; // calls of configure()
    unsigned long m_restarts KELDA_GUARDED_BY(m_mutex) = 0;       // of configure() and reset()
    unsigned int m_callsWaiting KELDA_GUARDED_BY(m_mutex) = 0;    // the destructor waits for them
};

} // namespace audioUtils
