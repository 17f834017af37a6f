#pragma once

#include "audioUtils/device/OutputDevice.h"

namespace audioUtils {

/// An output device without hardware, paced by the monotonic raw clock.
///
/// It discards the audio but keeps the time of a sound card whose buffer is emptied one period at
/// a time: write() blocks while the buffer is full, playback starts at the start threshold, a
/// writer that falls behind causes an underrun, and the delay reported is the simulated fill level
/// at the last period boundary. Logs to "AudioUtils". One thread at a time; no locks, and write()
/// does not allocate.
class KELDA_EXPORT FakeOutputDevice : public OutputDevice
{
public:
    FakeOutputDevice() = default;

    /// Accepts every configuration but a period size or a sample rate of 0. The buffer size is
    /// rounded up to whole periods, the start threshold lowered to the buffer size. The channel
    /// map and enableRateResample have no effect.
    [[nodiscard]] bool open(const std::string& deviceName, PcmFormat format,
                            unsigned int sampleRate, unsigned int numChannels,
                            std::uint64_t bufferSize, std::uint64_t periodSize,
                            std::uint64_t startThreshold, bool enableRateResample,
                            const std::string& channelMap) override;
    void close() override;
    /// Returns at once: there is nothing to play out.
    void drain() override;
    [[nodiscard]] bool isOpened() const override;

    /// Blocks as long as a device with this buffer would. The buffer's content is never read.
    ///
    /// @return Underrun when the simulated buffer had run dry; the frames are accepted all the same
    ///         and start a new fill.
    WriteReturnValue write(void* buffer, std::uint64_t numFrames) override;

    /// Keeps the simulated fill level and goes on running.
    [[nodiscard]] bool adjustParams(std::uint64_t bufferSize, std::uint64_t periodSize,
                                    std::uint64_t startThreshold) override;

    [[nodiscard]] PcmFormat sampleFormat() const override;
    [[nodiscard]] unsigned int sampleRate() const override;
    [[nodiscard]] unsigned int numChannels() const override;
    [[nodiscard]] unsigned int numBytesPerSample() const override;
    [[nodiscard]] std::uint64_t bufferSize() const override;
    [[nodiscard]] std::uint64_t periodSize() const override;
    [[nodiscard]] std::uint64_t startThreshold() const override;

    /// The delay at the last period boundary. Unlike a sound card's it is not reduced by the time
    /// that has passed since.
    [[nodiscard]] std::int64_t getCompensatedRenderingDelay() const override;
    [[nodiscard]] RenderingDelay lastRenderingDelay() const override;
    /// The current monotonic raw time: this device's clock is the system's.
    [[nodiscard]] TimeValue currentAudioTimestamp() const override;
    /// One period, always, even when closed.
    [[nodiscard]] int framesReady() const override;

private:
    KELDA_LOCAL void updateConfiguration();
    KELDA_LOCAL void roundUpBufferSize();
    KELDA_LOCAL void limitStartThreshold();

    [[nodiscard]] KELDA_LOCAL bool consume(TimeValue now, TimeValue periodDurationNs);
    KELDA_LOCAL void startIfFilled(TimeValue now);
    KELDA_LOCAL void blockUntilThereIsRoom(TimeValue now, TimeValue periodDurationNs);
    KELDA_LOCAL void reportDelay();

    bool m_opened = false;
    std::string m_deviceName;
    PcmFormat m_sampleFormat = PcmFormat::S16LE;
    unsigned int m_sampleRate = 0;
    unsigned int m_numChannels = 0;
    std::uint64_t m_bufferSize = 0;
    std::uint64_t m_periodSize = 0;
    std::uint64_t m_startThreshold = 0;
    bool m_enableRateResample = false;
    unsigned int m_numBytesPerSample = 0;
    RenderingDelay m_lastRenderingDelay;
    bool m_running = false;
    std::uint64_t m_framesBuffered = 0;
    TimeValue m_writeMonotonicRaw = miscUtils::NoTimeValue; // consumption is accounted up to here
};

} // namespace audioUtils
