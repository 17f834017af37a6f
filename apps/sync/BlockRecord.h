#pragma once

#include <cstdint>

#include "audioUtils/device/OutputDevice.h"
#include "miscUtils/TimeValue.h"

namespace keldaSync {

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
    std::uint64_t silenceFrames = 0;     ///< handed out by the queue for the time before its data
    std::uint64_t insertedFrames = 0;    ///< silence that the queue put into gaps
    std::uint64_t skippedFrames = 0;     ///< late, dropped by the queue
    std::uint64_t paddedFrames = 0;      ///< missing in the queue, filled by the renderer
    std::uint64_t resets = 0;            ///< times that the queue started afresh on a jump
    std::uint64_t mutedFrames = 0;       ///< of the stream, silenced where a cut would have clicked
    std::uint64_t droppedFrames = 0;     ///< of blocks before, on the way to a device that went
    miscUtils::TimeValueDelta moved = 0; ///< ns that the stream is heard later than stamped, so far
    bool isRealigned = false; ///< too far off for too long: the next read is aligned to a frame
    double adjustmentPpm = 0; ///< how much faster than nominal the block is played
    audioUtils::OutputDevice::WriteReturnValue result = audioUtils::OutputDevice::Success;

    [[nodiscard]] bool isHeard() const { return keldaSync::isHeard(result); }

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

    /// When the block was given to the device, ns.
    [[nodiscard]] std::int64_t time() const
    {
        return static_cast<std::int64_t>(dueTime) - deviceDelay;
    }
};

} // namespace keldaSync
