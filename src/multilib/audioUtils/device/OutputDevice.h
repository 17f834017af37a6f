#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "audioUtils/PcmDataStructures.h"
#include "miscUtils/Export.h"
#include "miscUtils/TimeValue.h"

namespace audioUtils {

using miscUtils::TimeValue;

/// How long a frame written now waits in the device before it is heard, and when that was measured.
struct RenderingDelay
{
    /// A timestamp of this value means that no measurement is held.
    static constexpr long noTimestamp = std::numeric_limits<std::int64_t>::min();

    long delay = 0;               ///< microseconds
    long timestamp = noTimestamp; ///< microseconds on the monotonic raw clock

    /// A cleared delay: what a device holds before its first measurement and after a failed one.
    constexpr RenderingDelay() = default;
    /// A measurement: both in us.
    constexpr RenderingDelay(long delay_, long timestamp_) : delay(delay_), timestamp(timestamp_) {}
};

/// A playback sink that knows its delay.
///
/// Calls come in this order: open() once; then write(), framesReady() and the timing queries, from
/// one thread at a time; adjustParams() whenever the geometry must change; drain() and close() at
/// the end. Sizes are in frames, a frame being one sample of every channel; absolute times are
/// nanoseconds of the monotonic raw clock. Implementations take no locks.
///
/// ```cpp
/// FakeOutputDevice device;
/// if (!device.open("fake", S16LE, 48000, 2, 4096, 512, 2048, false, "")) {
///     return; // the reason is in the log
/// }
/// while (fill(block)) {
///     device.write(block.data(), 512); // paces the loop
/// }
/// device.drain();
/// device.close();
/// ```
class KELDA_EXPORT OutputDevice
{
public:
    /// The result of write(). The numbers are part of the interface.
    enum WriteReturnValue : int {
        Success = 0,       ///< all frames were handed to the device without incident
        Underrun = 1,      ///< written, but the device had run dry or failed, and has recovered
        NotOpened = 2,     ///< nothing was written
        PrepareFailed = 3, ///< the device could not be prepared; nothing was written
        RecoverFailed = 4, ///< recovery from an error failed, or was in vain: the rest was dropped
    };

    /// Closes the device.
    virtual ~OutputDevice();

    /// Opens the named device for playback.
    ///
    /// The device may settle on other values than those asked for; the getters return what was
    /// obtained.
    ///
    /// @param deviceName         which one; what names there are depends on the class
    /// @param format             of one sample
    /// @param sampleRate         in Hz
    /// @param numChannels        samples of a frame
    /// @param bufferSize         frames that the device holds
    /// @param periodSize         frames that it takes at a time
    /// @param startThreshold     frames that must be buffered before playback starts
    /// @param enableRateResample whether the device layer may convert the sample rate itself
    /// @param channelMap         in the syntax of snd_pcm_chmap_parse_string; an empty text leaves
    ///                           the device's channel map as it is
    /// @return false when the device is open already (it is not touched), or cannot be opened and
    ///         configured; the log tells why.
    [[nodiscard]] virtual bool open(const std::string& deviceName, PcmFormat format,
                                    unsigned int sampleRate, unsigned int numChannels,
                                    std::uint64_t bufferSize, std::uint64_t periodSize,
                                    std::uint64_t startThreshold, bool enableRateResample,
                                    const std::string& channelMap) = 0;

    /// Closes the device; harmless when it is not open.
    virtual void close() = 0;

    /// Lets the frames already written play out, then stops.
    virtual void drain() = 0;

    /// True between a successful open() and close().
    [[nodiscard]] virtual bool isOpened() const = 0;

    /// Writes interleaved frames; blocks until they are accepted.
    ///
    /// @param buffer    numFrames × numChannels() × numBytesPerSample() bytes
    /// @param numFrames how many frames to write
    /// @return what became of them: from NotOpened on, not all were taken
    virtual WriteReturnValue write(void* buffer, std::uint64_t numFrames) = 0;

    /// Changes the buffer geometry of an open device, all values in frames. A device may have to
    /// close and reopen itself for it.
    ///
    /// @return false when the device is not open or the change failed; the log tells why.
    [[nodiscard]] virtual bool adjustParams(std::uint64_t bufferSize, std::uint64_t periodSize,
                                            std::uint64_t startThreshold) = 0;

    /// @name What open() obtained
    /// @{
    [[nodiscard]] virtual PcmFormat sampleFormat() const = 0;         ///< Of one sample.
    [[nodiscard]] virtual unsigned int sampleRate() const = 0;        ///< Hz.
    [[nodiscard]] virtual unsigned int numChannels() const = 0;       ///< Samples of a frame.
    [[nodiscard]] virtual unsigned int numBytesPerSample() const = 0; ///< Of one channel.
    [[nodiscard]] virtual std::uint64_t bufferSize() const = 0;       ///< Frames that it holds.
    [[nodiscard]] virtual std::uint64_t periodSize() const = 0;       ///< Frames taken at a time.
    [[nodiscard]] virtual std::uint64_t startThreshold() const = 0;   ///< Frames before it starts.
    /// @}

    /// How long a frame written at this moment will wait until it is heard, in ns: the last
    /// measurement, less the time that has passed since.
    [[nodiscard]] virtual std::int64_t getCompensatedRenderingDelay() const = 0;

    /// The last measurement, as stored; RenderingDelay() when there is none.
    [[nodiscard]] virtual RenderingDelay lastRenderingDelay() const = 0;

    /// The device's audio clock in ns, extrapolated to now; NoTimeValue when it has not reported
    /// one.
    [[nodiscard]] virtual TimeValue currentAudioTimestamp() const = 0;

    /// How many frames the device can accept right now; 0 after an underrun that was repaired by
    /// recovery, -1 when the device is not open or on another error.
    [[nodiscard]] virtual int framesReady() const = 0;
};

} // namespace audioUtils
