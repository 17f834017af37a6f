#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <span>
#include <vector>

#include "DeviceDelay.h"
#include "Journal.h"
#include "RateConverter.h"
#include "Recorder.h"
#include "audioUtils/PcmQueue.h"
#include "audioUtils/device/OutputDevice.h"

namespace keldaPlay {

/// Plays what is due: asks the device for its delay and the queue for the audio of that time.
class Renderer
{
public:
    /// @param queued    how the frames of the queue lie in memory
    /// @param converter between the queue and the device; null where they have the same format
    /// @param reopen   opens the device again, after it was closed, just as it was; false: it can't
    /// @param recorder where each block goes that the device has taken; may be null
    Renderer(audioUtils::PcmQueue& queue, audioUtils::OutputDevice& device,
             const FrameLayout& queued, RateConverter* converter, std::function<bool()> reopen,
             Recorder* recorder, Journal& journal);

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
    [[nodiscard]] std::size_t framesToRead();
    [[nodiscard]] audioUtils::OutputDevice::WriteReturnValue write(std::span<unsigned char> frames);
    void playEnd();
    void report(BlockRecord record, std::size_t numFrames, std::size_t framesRead);

    audioUtils::PcmQueue& m_queue;
    audioUtils::OutputDevice& m_device;
    std::function<bool()> m_reopen;
    DeviceDelay m_delay;
    Recorder* m_recorder;
    Journal& m_journal;
    std::size_t m_numFrames;
    FrameLayout m_queued;
    RateConverter* m_converter;
    std::size_t m_deviceBytesPerFrame;
    std::vector<unsigned char> m_block; // as it is read
    audioUtils::PcmQueueCounters m_counters;
    std::atomic<bool> m_stopped = false;
    std::atomic<bool> m_ended = false;
};

} // namespace keldaPlay
