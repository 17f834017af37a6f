#include "audioUtils/device/AlsaOutputDevice.h"

#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include <alsa/asoundlib.h>

#include "audioUtils/detail/Log.h"

namespace audioUtils {

using miscUtils::getMonotonicRawSysclockTime;
using miscUtils::NoTimeValue;

namespace {

const log4cplus::Logger logger = log4cplus::Logger::getInstance("AudioUtils");

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t microsecondsPerSecond = 1'000'000;
constexpr std::int64_t nanosecondsPerMicrosecond = 1'000;

bool isZero(const snd_htimestamp_t& time)
{
    return time.tv_sec == 0 && time.tv_nsec == 0;
}

TimeValue inNanoseconds(const snd_htimestamp_t& time)
{
    return static_cast<TimeValue>(time.tv_sec * nanosecondsPerSecond + time.tv_nsec);
}

/// What a device has done since it took a frame. A sound server that has died is repaired again and
/// again, and each time it says that it is.
class Standstill
{
public:
    static constexpr int mostInVain = 100;

    void recovers()
    {
        ++m_recoveries;
        m_emptyWrites = 0;
    }

    void takes(std::int64_t numFrames)
    {
        m_recoveries = numFrames == 0 ? m_recoveries : 0;
        m_emptyWrites = numFrames == 0 ? m_emptyWrites + 1 : 0;
    }

    [[nodiscard]] bool isForGood() const
    {
        return m_recoveries >= mostInVain || m_emptyWrites >= mostInVain;
    }

private:
    int m_recoveries = 0;
    int m_emptyWrites = 0; // in a row
};

template<typename Object>
std::string dumped(Object* object, int (*dump)(Object*, snd_output_t*))
{
    struct CloseOutput
    {
        void operator()(snd_output_t* output) const { snd_output_close(output); }
    };
    snd_output_t* opened = nullptr;
    snd_output_buffer_open(&opened);
    const std::unique_ptr<snd_output_t, CloseOutput> output(opened);
    dump(object, output.get());
    char* text = nullptr;
    const std::size_t size = snd_output_buffer_string(output.get(), &text);
    return {text, size};
}

} // namespace

// One step of opening or configuring: a failure is logged with ALSA's reason, and ends it.
#define KELDA_ALSA_STEP(call, message)                                                             \
    do {                                                                                           \
        if (const int error = (call); error < 0) {                                                 \
            KELDA_LOG(logger, ERROR, message << snd_strerror(error));                              \
            return false;                                                                          \
        }                                                                                          \
    } while (false)

void AlsaOutputDevice::ClosePcm::operator()(snd_pcm_t* pcm) const
{
    if (const int error = snd_pcm_close(pcm); error < 0) {
        KELDA_LOG(logger, ERROR, "Error while closing ALSA output device: " << snd_strerror(error));
    }
}

void AlsaOutputDevice::FreeChannelMap::operator()(snd_pcm_chmap* map) const
{
    std::free(map); // as ALSA hands it out
}

AlsaOutputDevice::AlsaOutputDevice() = default;

AlsaOutputDevice::~AlsaOutputDevice()
{
    AlsaOutputDevice::close();
}

bool AlsaOutputDevice::open(const std::string& deviceName, PcmFormat format,
                            unsigned int sampleRate, unsigned int numChannels,
                            std::uint64_t bufferSize, std::uint64_t periodSize,
                            std::uint64_t startThreshold, bool enableRateResample,
                            const std::string& channelMap)
{
    KELDA_LOG_ENTRY(logger, TRACE, "Opened: " << isOpened());
    if (isOpened()) {
        KELDA_LOG(logger, ERROR, "ALSA output device \"" << m_deviceName << "\" already opened");
        return false;
    }
    m_deviceName = deviceName;
    m_bufferSize = bufferSize;
    m_periodSize = periodSize;
    m_startThreshold = startThreshold;
    m_format = format;
    m_sampleRate = sampleRate;
    m_numChannels = numChannels;
    m_enableRateResample = enableRateResample;
    m_numBytesPerSample = static_cast<unsigned int>(getNumBytesForFormat(format));

    m_chmap.reset();
    if (!channelMap.empty()) {
        KELDA_LOG(logger, DEBUG, "Parsing chmap string: " << channelMap);
        m_chmap.reset(snd_pcm_chmap_parse_string(channelMap.c_str()));
        if (!m_chmap) {
            KELDA_LOG(logger, ERROR, "Error converting channel map string to chmap structure");
        }
    }
    KELDA_LOG(logger, DEBUG, "Opening ALSA output device \"" << m_deviceName << '"');
    return openPcm() && setDeviceParams();
}

bool AlsaOutputDevice::openPcm()
{
    snd_pcm_t* opened = nullptr;
    KELDA_ALSA_STEP(snd_pcm_open(&opened, m_deviceName.c_str(), SND_PCM_STREAM_PLAYBACK, 0),
                    "Error while opening ALSA output device: ");
    m_pcmHandle.reset(opened);
    return true;
}

bool AlsaOutputDevice::adjustParams(std::uint64_t bufferSize, std::uint64_t periodSize,
                                    std::uint64_t startThreshold)
{
    KELDA_LOG_ENTRY(logger, TRACE,
                    "bufferSize " << bufferSize << " periodSize " << periodSize
                                  << " startThreshold " << startThreshold);
    if (!isOpened()) {
        KELDA_LOG(logger, ERROR, "Failed to adjust params, device has not been opened yet");
        return false;
    }
    const std::uint64_t previousBufferSize = std::exchange(m_bufferSize, bufferSize);
    const std::uint64_t previousPeriodSize = std::exchange(m_periodSize, periodSize);
    const std::uint64_t previousStartThreshold = std::exchange(m_startThreshold, startThreshold);

    KELDA_LOG(logger, DEBUG, "Reopening ALSA output device \"" << m_deviceName << '"');
    auto channelMap = std::move(m_chmap); // close() ends the use of the one that it finds
    close();
    m_chmap = std::move(channelMap);

    const bool adjusted = openPcm() && setDeviceParams();
    if (!adjusted) {
        m_bufferSize = previousBufferSize;
        m_periodSize = previousPeriodSize;
        m_startThreshold = previousStartThreshold;
    }
    return adjusted;
}

bool AlsaOutputDevice::setDeviceParams()
{
    KELDA_LOG_ENTRY(logger, DEBUG, "Opened " << isOpened());
    assert(m_pcmHandle != nullptr);

    snd_pcm_hw_params_t* hwParams = nullptr;
    snd_pcm_hw_params_alloca(&hwParams);
    snd_pcm_sw_params_t* swParams = nullptr;
    snd_pcm_sw_params_alloca(&swParams);
    if (!setHwParams(hwParams) || !setSwParams(swParams)) {
        return false;
    }
    setChannelMap();
    KELDA_LOG(logger, DEBUG, "ALSA PCM playback initialized: " << toString(m_pcmHandle.get()));
    return true;
}

bool AlsaOutputDevice::setHwParams(snd_pcm_hw_params_t* params)
{
    snd_pcm_t* const pcm = m_pcmHandle.get();
    KELDA_ALSA_STEP(snd_pcm_hw_params_any(pcm, params),
                    "Broken configuration for playback: no configurations available: ");
    KELDA_ALSA_STEP(snd_pcm_hw_params_set_access(pcm, params, SND_PCM_ACCESS_RW_INTERLEAVED),
                    "Access type not available for playback: ");

    int format = SND_PCM_FORMAT_UNKNOWN; // which libasound asserts that it never gets
    const bool known = toSndPcmFormat(format, m_format);
    KELDA_ALSA_STEP(
        known ? snd_pcm_hw_params_set_format(pcm, params, static_cast<snd_pcm_format_t>(format))
              : -EINVAL,
        "Sample format " << format << " not available for playback: ");
    KELDA_ALSA_STEP(snd_pcm_hw_params_set_channels(pcm, params, m_numChannels),
                    "Channels count " << m_numChannels << " not available for playback: ");
    KELDA_ALSA_STEP(
        snd_pcm_hw_params_set_rate_resample(pcm, params, m_enableRateResample ? 1U : 0U),
        "Failed to set rate resampler: ");

    unsigned int sampleRate = m_sampleRate;
    KELDA_ALSA_STEP(snd_pcm_hw_params_set_rate_near(pcm, params, &sampleRate, nullptr),
                    "Sample rate of " << m_sampleRate << " Hz not available for playback: ");
    if (sampleRate != m_sampleRate) {
        KELDA_LOG(logger, DEBUG,
                  "Attempted to configure a sample rate of " << m_sampleRate << " Hz, got "
                                                             << sampleRate << " Hz instead");
        m_sampleRate = sampleRate;
    }

    snd_pcm_uframes_t bufferSize = m_bufferSize;
    KELDA_ALSA_STEP(snd_pcm_hw_params_set_buffer_size_near(pcm, params, &bufferSize),
                    "Unable to set buffer size of " << m_bufferSize << " frames for playback: ");
    if (bufferSize != m_bufferSize) {
        KELDA_LOG(logger, DEBUG,
                  "Attempted to configure a buffer size of " << m_bufferSize << " frames, got "
                                                             << bufferSize << " frames instead");
        m_bufferSize = bufferSize;
    }
    // A stream whose threshold lies beyond the buffer would never start.
    if (m_bufferSize < m_startThreshold) {
        KELDA_LOG(logger, DEBUG,
                  "Reducing threshold from " << m_startThreshold << " to " << m_bufferSize);
        m_startThreshold = m_bufferSize;
    }

    snd_pcm_uframes_t periodSize = m_periodSize;
    KELDA_ALSA_STEP(snd_pcm_hw_params_set_period_size_near(pcm, params, &periodSize, nullptr),
                    "Unable to set period size of " << m_periodSize << " frames for playback: ");
    if (periodSize != m_periodSize) {
        KELDA_LOG(logger, DEBUG,
                  "Attempted to configure a period size of " << m_periodSize << " frames, got "
                                                             << periodSize << " frames instead");
        m_periodSize = periodSize;
    }

    KELDA_LOG(logger, DEBUG, "Setting hw params: " << toString(params));
    snd_pcm_drop(pcm); // fails on a fresh handle, which has nothing to drop
    KELDA_ALSA_STEP(snd_pcm_hw_params(pcm, params),
                    "Unable to set hw params " << toString(params) << " for playback: ");
    return true;
}

bool AlsaOutputDevice::setSwParams(snd_pcm_sw_params_t* params)
{
    snd_pcm_t* const pcm = m_pcmHandle.get();
    KELDA_ALSA_STEP(snd_pcm_sw_params_current(pcm, params),
                    "Unable to determine current swparams for playback: ");
    KELDA_ALSA_STEP(snd_pcm_sw_params_set_start_threshold(pcm, params, m_startThreshold),
                    "Unable to set start threshold mode for playback: ");
    KELDA_ALSA_STEP(snd_pcm_sw_params_set_avail_min(pcm, params, m_periodSize),
                    "Unable to set avail min for playback: ");
    KELDA_ALSA_STEP(snd_pcm_sw_params_set_tstamp_mode(pcm, params, SND_PCM_TSTAMP_ENABLE),
                    "Unable to set tstamp mode for playback: ");
    KELDA_ALSA_STEP(
        snd_pcm_sw_params_set_tstamp_type(pcm, params, SND_PCM_TSTAMP_TYPE_MONOTONIC_RAW),
        "Unable to set tstamp type for playback: ");
    KELDA_LOG(logger, DEBUG, "Setting sw params: " << toString(params));
    KELDA_ALSA_STEP(snd_pcm_sw_params(pcm, params),
                    "Unable to set sw params " << toString(params) << " for playback: ");
    return true;
}

void AlsaOutputDevice::setChannelMap()
{
    if (!m_chmap) {
        return;
    }
    if (const int error = snd_pcm_set_chmap(m_pcmHandle.get(), m_chmap.get()); error < 0) {
        KELDA_LOG(logger, WARN,
                  "Failed to set channel mapping for playback: " << snd_strerror(error));
    }
}

bool AlsaOutputDevice::prepareDevice()
{
    KELDA_LOG_ENTRY(logger, DEBUG, "");
    assert(m_pcmHandle != nullptr);
    KELDA_ALSA_STEP(snd_pcm_prepare(m_pcmHandle.get()), "snd_pcm_prepare error: ");
    return true;
}

void AlsaOutputDevice::drain()
{
    KELDA_LOG_ENTRY(logger, TRACE, "");
    if (!isOpened()) {
        return;
    }
    if (const int error = snd_pcm_drain(m_pcmHandle.get()); error < 0) {
        KELDA_LOG(logger, ERROR,
                  "Error while draining ALSA output device: " << snd_strerror(error));
    }
}

void AlsaOutputDevice::close()
{
    KELDA_LOG_ENTRY(logger, TRACE, "");
    m_lastRenderingDelay = RenderingDelay();
    if (m_pcmHandle == nullptr) {
        return;
    }
    m_pcmHandle.reset();
    m_chmap.reset();
}

bool AlsaOutputDevice::isOpened() const
{
    return m_pcmHandle != nullptr;
}

OutputDevice::WriteReturnValue AlsaOutputDevice::write(void* buffer, std::uint64_t numFrames)
{
    if (!isOpened()) {
        KELDA_LOG(logger, ERROR, "PCM playback device has not been opened");
        return NotOpened;
    }
    if (snd_pcm_state(m_pcmHandle.get()) == SND_PCM_STATE_SETUP && !prepareDevice()) {
        return PrepareFailed;
    }
    const WriteReturnValue result =
        writeFrames(static_cast<const unsigned char*>(buffer), numFrames);
    if (result != RecoverFailed && snd_pcm_state(m_pcmHandle.get()) == SND_PCM_STATE_RUNNING) {
        updateRenderDelayAndAudioTimestamp();
    }
    return result;
}

OutputDevice::WriteReturnValue AlsaOutputDevice::writeFrames(const unsigned char* frames,
                                                             std::uint64_t numFrames)
{
    WriteReturnValue result = Success;
    auto left = static_cast<std::int64_t>(numFrames);
    Standstill standstill;
    while (left >= 1) {
        if (standstill.isForGood()) {
            KELDA_LOG(logger, ERROR,
                      "Device accepts no frames after " << Standstill::mostInVain << " recoveries");
            return RecoverFailed;
        }
        const snd_pcm_sframes_t written =
            snd_pcm_writei(m_pcmHandle.get(), frames, static_cast<snd_pcm_uframes_t>(left));
        if (written < 0) {
            result = Underrun;
            const int error = snd_pcm_recover(m_pcmHandle.get(), static_cast<int>(written), 0);
            if (error < 0) {
                KELDA_LOG(logger, ERROR, "snd_pcm_recover error: " << snd_strerror(error));
                return RecoverFailed;
            }
            standstill.recovers();
            continue; // with the same frames
        }
        if (written > left) {
            KELDA_LOG(logger, ERROR,
                      "snd_pcm_writei return value indicates that more samples ("
                          << written << ") were written than were available (" << left << ")");
            break;
        }
        standstill.takes(written);
        left -= written;
        frames += static_cast<std::uint64_t>(written) * m_numChannels * m_numBytesPerSample;
    }
    return result;
}

int AlsaOutputDevice::framesReady() const
{
    if (!isOpened()) {
        return -1;
    }
    const snd_pcm_sframes_t frames = snd_pcm_avail_update(m_pcmHandle.get());
    if (frames >= 0) {
        return static_cast<int>(frames);
    }
    const int error = static_cast<int>(frames);
    if (error == -EPIPE) {
        KELDA_LOG(
            logger, ERROR,
            "AlsaOutputDevice: error while getting available frames: an xrun occurred (EPIPE: "
                << snd_strerror(error) << ") (" << error << ")");
        snd_pcm_recover(m_pcmHandle.get(), error, 0);
        return 0;
    }
    KELDA_LOG(logger, ERROR,
              "AlsaOutputDevice: error while getting available frames: (" << snd_strerror(error)
                                                                          << ") (" << error << ")");
    return -1;
}

bool AlsaOutputDevice::updateRenderDelayAndAudioTimestamp()
{
    assert(m_pcmHandle != nullptr);
    snd_pcm_status_t* status = nullptr;
    snd_pcm_status_alloca(&status);
    if (snd_pcm_status(m_pcmHandle.get(), status) < 0) {
        m_lastRenderingDelay = RenderingDelay();
        KELDA_LOG(logger, ERROR, "Failed to get pcm status, clear last rendering delay");
        return false;
    }

    snd_htimestamp_t audioTime{};
    snd_pcm_status_get_audio_htstamp(status, &audioTime);
    if (isZero(audioTime)) {
        KELDA_LOG(logger, DEBUG, "ALSA did not return a valid audio timestamp");
        m_audioTimestamp = NoTimeValue;
    } else {
        m_audioTimestamp = inNanoseconds(audioTime);
    }

    snd_htimestamp_t systemTime{};
    snd_pcm_status_get_htstamp(status, &systemTime);
    if (isZero(systemTime)) {
        m_lastRenderingDelay = RenderingDelay();
        m_audioTimestampSystemTime = getMonotonicRawSysclockTime();
        KELDA_LOG(logger, WARN, "ALSA did not return a valid timestamp");
        return true;
    }
    m_audioTimestampSystemTime = inNanoseconds(systemTime);
    m_lastRenderingDelay.timestamp =
        systemTime.tv_sec * microsecondsPerSecond + systemTime.tv_nsec / nanosecondsPerMicrosecond;
    m_lastRenderingDelay.delay =
        m_sampleRate == 0 ? 0
                          : snd_pcm_status_get_delay(status) * microsecondsPerSecond / m_sampleRate;
    return true;
}

std::int64_t AlsaOutputDevice::getCompensatedRenderingDelay() const
{
    if (m_lastRenderingDelay.timestamp != RenderingDelay::noTimestamp) {
        // Unsigned, so that it wraps.
        const auto delay = static_cast<std::uint64_t>(m_lastRenderingDelay.delay);
        const auto timestamp = static_cast<std::uint64_t>(m_lastRenderingDelay.timestamp);
        const std::uint64_t now = getMonotonicRawSysclockTime() / nanosecondsPerMicrosecond;
        return static_cast<std::int64_t>((delay - (now - timestamp)) * nanosecondsPerMicrosecond);
    }
    if (!isOpened() || m_sampleRate == 0) {
        return 0;
    }
    snd_pcm_sframes_t delay = 0;
    snd_pcm_delay(m_pcmHandle.get(), &delay);
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(delay) * nanosecondsPerSecond /
                                     m_sampleRate);
}

RenderingDelay AlsaOutputDevice::lastRenderingDelay() const
{
    return m_lastRenderingDelay;
}

TimeValue AlsaOutputDevice::currentAudioTimestamp() const
{
    if (m_audioTimestamp == NoTimeValue) {
        return NoTimeValue;
    }
    return m_audioTimestamp - m_audioTimestampSystemTime + getMonotonicRawSysclockTime();
}

PcmFormat AlsaOutputDevice::sampleFormat() const
{
    return m_format;
}

unsigned int AlsaOutputDevice::sampleRate() const
{
    return m_sampleRate;
}

unsigned int AlsaOutputDevice::numChannels() const
{
    return m_numChannels;
}

unsigned int AlsaOutputDevice::numBytesPerSample() const
{
    return m_numBytesPerSample;
}

std::uint64_t AlsaOutputDevice::bufferSize() const
{
    return m_bufferSize;
}

std::uint64_t AlsaOutputDevice::periodSize() const
{
    return m_periodSize;
}

std::uint64_t AlsaOutputDevice::startThreshold() const
{
    return m_startThreshold;
}

std::string AlsaOutputDevice::toString(snd_pcm_t* pcm)
{
    return dumped(pcm, snd_pcm_dump);
}

std::string AlsaOutputDevice::toString(snd_pcm_hw_params_t* params)
{
    return dumped(params, snd_pcm_hw_params_dump);
}

std::string AlsaOutputDevice::toString(snd_pcm_sw_params_t* params)
{
    return dumped(params, snd_pcm_sw_params_dump);
}

} // namespace audioUtils
