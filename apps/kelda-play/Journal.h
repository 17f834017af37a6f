#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "audioUtils/device/OutputDevice.h"
#include "miscUtils/TimeValue.h"

namespace keldaPlay {

/// Whether a device has taken what was written.
[[nodiscard]] inline bool isHeard(audioUtils::OutputDevice::WriteReturnValue result)
{
    return result == audioUtils::OutputDevice::Success ||
           result == audioUtils::OutputDevice::Underrun;
}

/// What happened to one block; frames are the queue's.
struct BlockRecord
{
    miscUtils::TimeValue dueTime = 0;    ///< of the block's first frame, ns
    miscUtils::TimeValueDelta delta = 0; ///< timing error, ns; positive: late
    miscUtils::TimeValue queueFill = 0;  ///< after the read, ns
    std::int64_t deviceDelay = 0;        ///< before the write, ns, with the converter's
    std::uint64_t numFrames = 0;
    std::uint64_t silenceFrames = 0;  ///< handed out by the queue for the time before its data
    std::uint64_t insertedFrames = 0; ///< silence that the queue put into gaps
    std::uint64_t skippedFrames = 0;  ///< late, dropped by the queue
    std::uint64_t paddedFrames = 0;   ///< missing in the queue, filled by the renderer
    std::uint64_t resets = 0;         ///< times that the queue started afresh on a jump
    bool isRealigned = false; ///< too far off for too long: the next read is aligned to a frame
    double adjustmentPpm = 0; ///< how much faster than nominal the block is played
    audioUtils::OutputDevice::WriteReturnValue result = audioUtils::OutputDevice::Success;

    [[nodiscard]] bool isHeard() const { return keldaPlay::isHeard(result); }

    /// Whether it goes on from the block before without a frame more or less. (What the queue
    /// inserts is heard later, and in its place.)
    [[nodiscard]] bool isContinuous() const
    {
        return silenceFrames + skippedFrames + paddedFrames + resets == 0;
    }

    [[nodiscard]] std::uint64_t dataFrames() const
    {
        return numFrames - silenceFrames - paddedFrames;
    }
};

/// Carries the records from the renderer's thread to the main thread, which has the time to print
/// them: a ring in which neither ever waits for the other.
class Journal
{
public:
    Journal() : m_ring(capacity) { m_taken.reserve(capacity); }

    /// For one writer. Allocates nothing; drops the record when nobody takes them for long.
    void append(const BlockRecord& record)
    {
        const std::size_t end = m_end.load(std::memory_order_relaxed);
        if (end - m_begin.load(std::memory_order_acquire) < capacity) {
            m_ring[end % capacity] = record;
            m_end.store(end + 1, std::memory_order_release);
        }
    }

    /// The records since the last call; valid until the next one. For one reader.
    [[nodiscard]] const std::vector<BlockRecord>& take()
    {
        m_taken.clear();
        const std::size_t end = m_end.load(std::memory_order_acquire);
        for (std::size_t i = m_begin.load(std::memory_order_relaxed); i != end; ++i) {
            m_taken.push_back(m_ring[i % capacity]);
        }
        m_begin.store(end, std::memory_order_release);
        return m_taken;
    }

private:
    // Many seconds of blocks; it is taken 10 times a second.
    static constexpr std::size_t capacity = 4096;

    std::vector<BlockRecord> m_ring;
    std::vector<BlockRecord> m_taken;
    std::atomic<std::size_t> m_begin = 0; // both count without end
    std::atomic<std::size_t> m_end = 0;
};

} // namespace keldaPlay
