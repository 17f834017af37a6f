#pragma once

#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "ClickFilter.h"
#include "DeviceDelay.h"
#include "DopFilter.h"
#include "DriftLoop.h"
#include "Journal.h"
#include "RateConverter.h"
#include "Recorder.h"
#include "SentFrames.h"
#include "SoundCapture.h"
#include "audioUtils/PcmQueue.h"
#include "audioUtils/device/OutputDevice.h"

namespace keldaPlay {

/// What stands between the queue and the device; null where there is none.
struct RenderPath
{
    ClickFilter* clicks = nullptr;      ///< takes them out of what is read
    DopFilter* dop = nullptr;           ///< for a stream of DSD, which nothing else may change
    RateConverter* converter = nullptr; ///< where they differ in format, or a drift is resampled
    DriftLoop* drift = nullptr;         ///< that is fed the timing errors
    std::function<void(double ppm)> setDeviceRate; ///< of a device that has a PLL
    Recorder* recorder = nullptr;                  ///< gets what the device has taken
    SoundCapture* before = nullptr;                ///< gets what was read, and padded
    SoundCapture* after = nullptr;                 ///< gets it without its clicks
    bool canWait = false; ///< a stream without a deadline: moved in time where a device starts late
};

/// The whole of playing in time, a block at a time and on any clock.
class BlockRenderer
{
public:
    using Clock = std::function<miscUtils::TimeValue()>; ///< ns

    /// @param queued     how the frames of the queue lie in memory
    /// @param queuedRate nominal, Hz
    BlockRenderer(audioUtils::PcmQueue& queue, audioUtils::OutputDevice& device,
                  const FrameLayout& queued, unsigned int queuedRate, RenderPath path, Clock clock);

    /// Reads what is due, corrects the drift, and writes a period to the device.
    [[nodiscard]] BlockRecord render();

    /// How long the next block waits, lest a device that keeps no time take them all at once; ns.
    [[nodiscard]] miscUtils::TimeValueDelta wait() const;

    /// While the device is gone: a stream that can wait stands still; of any other a block is read
    /// in time, and dropped.
    [[nodiscard]] BlockRecord passUnheard();

    /// Plays what the path still holds.
    /// @return a block of nothing, with what has been dropped
    BlockRecord playEnd();

    /// The device was opened anew.
    void restart();

    /// Writes a period of silence, to see whether a device that opens takes anything.
    [[nodiscard]] BlockRecord tryDevice();

    /// The frames of the last block, as they left the click filter.
    [[nodiscard]] std::span<const unsigned char> lastBlock() const { return m_read; }

    /// The frames of the stream that have been read, with the silence that the queue put into gaps;
    /// and what the queue has counted by then.
    [[nodiscard]] std::uint64_t framesRead() const { return m_framesRead; }
    [[nodiscard]] const audioUtils::PcmQueueCounters& counters() const { return m_counters; }

private:
    [[nodiscard]] std::span<unsigned char> nextBlock();
    [[nodiscard]] std::int64_t clickDelayNs() const;
    void startOver();
    [[nodiscard]] std::uint64_t muteHeld();
    [[nodiscard]] std::uint64_t framesIn(std::int64_t nanoseconds) const;
    void alignToStart(miscUtils::TimeValue dueTime);
    void moveStream(miscUtils::TimeValue dueTime, bool isFilling);
    void forgetTimes(miscUtils::TimeValue dueTime);
    [[nodiscard]] bool isStarting();
    void capture(SoundCapture* capture);
    [[nodiscard]] std::uint64_t droppedOf(audioUtils::OutputDevice::WriteReturnValue result,
                                          std::int64_t held) const;
    void removeClicks(BlockRecord& record);
    [[nodiscard]] double bias(const BlockRecord& record) const;
    [[nodiscard]] bool isLost(miscUtils::TimeValue now);
    [[nodiscard]] audioUtils::OutputDevice::WriteReturnValue playIdle();
    [[nodiscard]] audioUtils::OutputDevice::WriteReturnValue writeSilence();
    void correctDrift(BlockRecord& record, miscUtils::TimeValue now);
    [[nodiscard]] audioUtils::OutputDevice::WriteReturnValue write(std::span<unsigned char> frames);
    void complete(BlockRecord& record, std::size_t numFrames, std::size_t framesRead);

    audioUtils::PcmQueue& m_queue;
    audioUtils::OutputDevice& m_device;
    FrameLayout m_queued;
    double m_queuedRate;
    RenderPath m_path;
    Clock m_clock;
    DeviceDelay m_delay;
    bool m_filling = true;
    bool m_isFirstStart = true;  // of the device
    bool m_hasBegun = false;     // what the queue holds
    double m_framesToSettle = 0; // of audio, until the device has started, at first or once more
    miscUtils::TimeValueDelta m_moved = 0; // the stream, in all
    bool m_isMoved = false;                // for this block
    bool m_isDry = false;                  // the device
    std::optional<miscUtils::TimeValue> m_goneSince;
    miscUtils::TimeValueDelta m_lastDelta = 0;
    miscUtils::TimeValue m_lastSmallError = 0; // when these were
    miscUtils::TimeValue m_lastStep = 0;
    std::size_t m_numFrames;
    std::size_t m_deviceBytesPerFrame;
    std::vector<unsigned char> m_block; // as it is read
    std::span<unsigned char> m_read;
    audioUtils::PcmQueueCounters m_counters;
    std::uint64_t m_framesRead = 0;
    SentFrames m_sent;
};

} // namespace keldaPlay
