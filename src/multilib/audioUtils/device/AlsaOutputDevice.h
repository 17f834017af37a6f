#pragma once

#include <memory>

#include "audioUtils/device/OutputDevice.h"

// ALSA's own types, so that programs need its headers only where they call it themselves. The
// names are ALSA's. NOLINTBEGIN(bugprone-reserved-identifier)
struct snd_pcm_chmap;
typedef struct _snd_pcm snd_pcm_t;
typedef struct _snd_pcm_hw_params snd_pcm_hw_params_t;
typedef struct _snd_pcm_sw_params snd_pcm_sw_params_t;
// NOLINTEND(bugprone-reserved-identifier)

namespace audioUtils {

/// A playback device of ALSA: a sound card, a plugin, or a sound server behind one.
///
/// The device is opened for blocking, interleaved writes, wakes the writer once a period, and takes
/// its timestamps from the monotonic raw clock, so that its times compare with
/// miscUtils::getMonotonicRawSysclockTime(). What the hardware grants may differ from what was
/// asked for; the getters return what was granted.
///
/// An error of the stream (an underrun, a suspend, an interrupted call) is repaired inside write()
/// and framesReady(), and the block that it hit is written again, from where the device stopped
/// taking it. What the device held when it failed is lost; write() returns Underrun then.
///
/// Logs to "AudioUtils". One thread at a time; no locks. write() and the refresh of the timing
/// allocate nothing, and ask ALSA for its state twice and its status once.
///
/// ```cpp
/// AlsaOutputDevice device;
/// if (!device.open("hw:0", S16LE, 48000, 2, 4096, 1024, 2048, false, "FL FR")) {
///     return; // the reason is in the log
/// }
/// while (fill(block)) {
///     if (device.write(block.data(), 1024) >= OutputDevice::NotOpened) {
///         break; // the device is gone
///     }
/// }
/// device.drain();
/// ```
class KELDA_EXPORT AlsaOutputDevice : public OutputDevice
{
public:
    AlsaOutputDevice();
    /// Closes the device, without playing out what it holds.
    ~AlsaOutputDevice() override;
    AlsaOutputDevice(const AlsaOutputDevice&) = delete;
    AlsaOutputDevice& operator=(const AlsaOutputDevice&) = delete;

    /// Opens and configures a device by its ALSA name ("default", "hw:0,0", "plughw:CARD=PCH").
    ///
    /// Near values are accepted: see the getters. A start threshold beyond the buffer is lowered to
    /// it. A channel map that does not parse, or that the device refuses, is logged and left out.
    ///
    /// @return false when it is open already, can't be opened, or can't be configured. After the
    ///         last of these it is open, but useless: close() it.
    [[nodiscard]] bool open(const std::string& deviceName, PcmFormat format,
                            unsigned int sampleRate, unsigned int numChannels,
                            std::uint64_t bufferSize, std::uint64_t periodSize,
                            std::uint64_t startThreshold, bool enableRateResample,
                            const std::string& channelMap) override;
    /// Closes the device at once; what it holds is not heard. Harmless when it is not open.
    void close() override;
    /// Blocks until all that was written has been played. The next write() starts afresh.
    void drain() override;
    [[nodiscard]] bool isOpened() const override;

    /// Blocks until the device has taken all frames, and refreshes the timing while it is running.
    ///
    /// @return Underrun when the stream had failed and was repaired on the way;
    ///         RecoverFailed when it could not be repaired, or has taken no frame between 100
    ///         repairs, or in 100 attempts in a row: the rest of the buffer was dropped, and the
    ///         device is probably gone. close() it: what a plugin of ALSA gathers with each repair
    ///         is freed then.
    WriteReturnValue write(void* buffer, std::uint64_t numFrames) override;

    /// Closes the device and opens it again with another geometry; all else stays as it was opened
    /// with, the channel map too. What it holds is not heard.
    ///
    /// @return false when it was not open, can't be opened again (it is closed then), or can't be
    ///         configured. The getters return the old geometry then.
    [[nodiscard]] bool adjustParams(std::uint64_t bufferSize, std::uint64_t periodSize,
                                    std::uint64_t startThreshold) override;

    [[nodiscard]] PcmFormat sampleFormat() const override;
    [[nodiscard]] unsigned int sampleRate() const override;
    [[nodiscard]] unsigned int numChannels() const override;
    [[nodiscard]] unsigned int numBytesPerSample() const override;
    [[nodiscard]] std::uint64_t bufferSize() const override;
    [[nodiscard]] std::uint64_t periodSize() const override;
    [[nodiscard]] std::uint64_t startThreshold() const override;

    /// The delay of the last status, less the time since: negative when that status is older than
    /// the delay it told, as while a stream that failed fills up again.
    ///
    /// Without a measurement (before the stream has run, or where the driver gives no timestamps)
    /// ALSA is asked for the delay directly. A driver that then reports a negative delay yields a
    /// meaningless large value: the division is unsigned, on purpose.
    ///
    /// @return ns; 0 when not open
    [[nodiscard]] std::int64_t getCompensatedRenderingDelay() const override;
    [[nodiscard]] RenderingDelay lastRenderingDelay() const override;

    /// The device's audio clock, extrapolated to now at the nominal rate. What counts as its zero
    /// is the driver's choice; few report one at all.
    [[nodiscard]] TimeValue currentAudioTimestamp() const override;

    /// How many frames write() would take without blocking. An underrun is repaired here, too.
    [[nodiscard]] int framesReady() const override;

    /// Applies the whole configuration to the device, which must be open. open() and adjustParams()
    /// call it.
    [[nodiscard]] bool setDeviceParams();
    /// Makes the device, which must be open, ready to be filled. write() calls it after a drain().
    [[nodiscard]] bool prepareDevice();
    /// Asks ALSA for delay and timestamps of the device, which must be open. write() calls it.
    ///
    /// A zero system timestamp means that the driver has none: the rendering delay is cleared.
    ///
    /// @return false when there is no status: the rendering delay is cleared, the audio timestamp
    ///         left as it was.
    bool updateRenderDelayAndAudioTimestamp();

    /// @name What ALSA tells of an object
    /// In several lines.
    /// @{
    [[nodiscard]] static std::string toString(snd_pcm_t* pcm);              ///< A device.
    [[nodiscard]] static std::string toString(snd_pcm_hw_params_t* params); ///< Its geometry.
    [[nodiscard]] static std::string toString(snd_pcm_sw_params_t* params); ///< Its thresholds.
    /// @}

private:
    struct KELDA_LOCAL ClosePcm
    {
        void operator()(snd_pcm_t* pcm) const;
    };
    struct KELDA_LOCAL FreeChannelMap
    {
        void operator()(snd_pcm_chmap* map) const;
    };

    KELDA_LOCAL bool openPcm();
    [[nodiscard]] KELDA_LOCAL bool setHwParams(snd_pcm_hw_params_t* params);
    [[nodiscard]] KELDA_LOCAL bool setSwParams(snd_pcm_sw_params_t* params);
    KELDA_LOCAL void setChannelMap();
    KELDA_LOCAL WriteReturnValue writeFrames(const unsigned char* frames, std::uint64_t numFrames);

    std::unique_ptr<snd_pcm_t, ClosePcm> m_pcmHandle; // null while closed
    std::string m_deviceName;
    PcmFormat m_format = PcmFormat::S16LE;
    unsigned int m_sampleRate = 0; // as obtained, as are the sizes
    unsigned int m_numChannels = 0;
    std::uint64_t m_bufferSize = 0;
    std::uint64_t m_periodSize = 0;
    std::uint64_t m_startThreshold = 0;
    bool m_enableRateResample = false;
    std::unique_ptr<snd_pcm_chmap, FreeChannelMap> m_chmap; // from open() to close()
    unsigned int m_numBytesPerSample = 0;
    RenderingDelay m_lastRenderingDelay;
    TimeValue m_audioTimestamp = miscUtils::NoTimeValue;
    TimeValue m_audioTimestampSystemTime = 0;
};

} // namespace audioUtils
