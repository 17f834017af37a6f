#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <vector>

#include "DeviceDelay.h"
#include "Journal.h"
#include "Recorder.h"
#include "audioUtils/PcmQueue.h"
#include "audioUtils/device/OutputDevice.h"

namespace keldaPlay {

/// Plays what is due: asks the device for its delay and the queue for the audio of that time.
class Renderer
{
public:
    /// @param reopen   opens the device again, after it was closed, just as it was; false: it can't
    /// @param recorder where each block goes that the device has taken; may be null
    Renderer(audioUtils::PcmQueue& queue, audioUtils::OutputDevice& device,
             std::function<bool()> reopen, Recorder* recorder, Journal& journal);

    /// Renders a period at a time until stop(). While the device is gone the stream goes on
    /// unheard, and in time, until the device can be opened again.
    void run();

    /// From any thread: makes run() return after the block that it is at.
    void stop() { m_stopped = true; }

    /// Whether run() has returned.
    [[nodiscard]] bool hasEnded() const { return m_ended; }

private:
    [[nodiscard]] bool renderBlock();
    void waitForDevice();
    void passUnheard(std::chrono::milliseconds duration);
    void padFrom(std::size_t frame);
    void report(BlockRecord record, std::size_t framesRead);

    audioUtils::PcmQueue& m_queue;
    audioUtils::OutputDevice& m_device;
    std::function<bool()> m_reopen;
    DeviceDelay m_delay;
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
