#pragma once

#include <cstdint>
#include <mutex>
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
    double adjustmentPpm = 0;         ///< how much faster than nominal the block is played
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
/// them, without allocating on the renderer's side.
class Journal
{
public:
    Journal()
    {
        m_records.reserve(capacity);
        m_taken.reserve(capacity);
    }

    void append(const BlockRecord& record)
    {
        const std::lock_guard lock(m_mutex);
        m_records.push_back(record);
    }

    /// The records since the last call; valid until the next one. For one reader.
    [[nodiscard]] const std::vector<BlockRecord>& take()
    {
        m_taken.clear();
        const std::lock_guard lock(m_mutex);
        m_records.swap(m_taken);
        return m_taken;
    }

private:
    static constexpr std::size_t capacity =
        4096; // many seconds of blocks; it is taken 10 times a second

    std::mutex m_mutex;
    std::vector<BlockRecord> m_records;
    std::vector<BlockRecord> m_taken;
};

} // namespace keldaPlay
