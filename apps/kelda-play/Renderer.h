#pragma once

#include <atomic>
#include <vector>

#include "Journal.h"
#include "Recorder.h"
#include "audioUtils/PcmQueue.h"
#include "audioUtils/device/OutputDevice.h"

namespace keldaPlay {

/// Plays what is due: asks the device for its delay and the queue for the audio of that time.
class Renderer
{
public:
    /// @param recorder where each block goes that the device has taken; may be null
    Renderer(audioUtils::PcmQueue& queue, audioUtils::OutputDevice& device, Recorder* recorder,
             Journal& journal);

    /// Renders a period at a time until stop(), or until the device fails for good.
    void run();

    /// From any thread: makes run() return after the block that it is at.
    void stop() { m_stopped = true; }

    /// Whether run() has returned.
    [[nodiscard]] bool hasEnded() const { return m_ended; }

private:
    [[nodiscard]] bool renderBlock();
    void padFrom(std::size_t frame);
    void report(BlockRecord record, std::size_t framesRead);

    audioUtils::PcmQueue& m_queue;
    audioUtils::OutputDevice& m_device;
    Recorder* m_recorder;
    Journal& m_journal;
    std::size_t m_numFrames;
    std::size_t m_bytesPerFrame;
    std::vector<unsigned char> m_block;
    audioUtils::PcmQueueCounters m_counters;
    std::atomic<bool> m_stopped = false;
    std::atomic<bool> m_ended = false;
};

} // namespace keldaPlay
