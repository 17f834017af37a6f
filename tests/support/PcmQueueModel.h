#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "audioUtils/PcmQueue.h"

namespace testSupport {

/// What a PcmQueue does, written down as plainly as possible, without threads, speed or a ring: the
/// random tests compare the queue with it. Takes the same calls; where the queue would block, the
/// caller must not write (see room()).
class PcmQueueModel
{
public:
    using TimeValue = miscUtils::TimeValue;
    using TimeValueDelta = miscUtils::TimeValueDelta;

    void configure(bool timestampingEnabled, std::size_t maxFillLevelInMS, unsigned int sampleRate,
                   unsigned int channels, unsigned int numBytesPerSample, const std::string& name,
                   bool filterEnabled, TimeValue ptsJumpThreshold,
                   TimeValue filterMaxErrorThreshold);
    bool write(TimeValue pts, const std::vector<unsigned char>& data);
    std::size_t read(TimeValue time, std::vector<unsigned char>& out, TimeValueDelta& delta);
    void abortWrite() { aborted = true; }
    void resyncRead() { synced = false; }
    void flushOldData(TimeValue now);
    TimeValue bufferedDuration(TimeValue now);
    void reset();

    /// Whether this write would fit without waiting.
    [[nodiscard]] bool hasRoomFor(TimeValue pts, const std::vector<unsigned char>& data) const;

    TimeValue readPts = miscUtils::NoTimeValue;
    TimeValue writePts = miscUtils::NoTimeValue;
    audioUtils::PcmQueueCounters counters;
    std::deque<unsigned char> bytes;
    std::size_t capacity = 0;
    std::size_t bytesPerFrame = 0;
    std::uint64_t bytesPerSecond = 0;
    std::vector<std::string> log; // "LEVEL message"

private:
    [[nodiscard]] TimeValue durationOf(std::size_t count) const;
    [[nodiscard]] std::size_t bytesFor(TimeValue duration) const;
    void deriveReadPts();
    void say(const char* level, const std::string& message);
    std::size_t drop(std::size_t count);

    std::string name;
    bool timestamping = false;
    bool aborted = false;
    bool synced = false;
    TimeValueDelta threshold = 0;
    miscUtils::TimestampFilter readFilter{250'000'000, "read"};
    miscUtils::TimestampFilter writeFilter{250'000'000, "write"};
};

} // namespace testSupport
