#include "audioUtils/device/FakeOutputDevice.h"

#include <algorithm>
#include <cassert>

#include <unistd.h>

#include "audioUtils/detail/Log.h"

namespace audioUtils {

using miscUtils::getMonotonicRawSysclockTime;
using miscUtils::NoTimeValue;

namespace {

const log4cplus::Logger logger = log4cplus::Logger::getInstance("AudioUtils");

constexpr TimeValue nanosecondsPerSecond = 1'000'000'000;
constexpr TimeValue nanosecondsPerMicrosecond = 1'000;
constexpr std::uint64_t microsecondsPerSecond = 1'000'000;

/// Sleeps at least once, also when the deadline has passed.
void sleepUntil(TimeValue deadline, TimeValue now)
{
    do {
        const TimeValue remaining = deadline - now;
        usleep(remaining < nanosecondsPerMicrosecond
                   ? 1
                   : static_cast<useconds_t>(remaining / nanosecondsPerMicrosecond));
        now = getMonotonicRawSysclockTime();
    } while (now < deadline);
}

} // namespace

bool FakeOutputDevice::open(const std::string& deviceName, PcmFormat format,
                            unsigned int sampleRate, unsigned int numChannels,
                            std::uint64_t bufferSize, std::uint64_t periodSize,
                            std::uint64_t startThreshold, bool enableRateResample,
                            const std::string& /*channelMap*/)
{
    if (m_opened) {
        KELDA_LOG(logger, ERROR, "Fake output device \"" << m_deviceName << "\" already opened");
        return false;
    }
    if (periodSize == 0 || sampleRate == 0) {
        KELDA_LOG(logger, ERROR,
                  "Failed to open fake output device \""
                      << deviceName << "\" with period size: " << periodSize
                      << " and sample rate: " << sampleRate << ", neither can be 0");
        return false;
    }
    m_deviceName = deviceName;
    m_sampleFormat = format;
    m_sampleRate = sampleRate;
    m_numChannels = numChannels;
    m_bufferSize = bufferSize;
    m_periodSize = periodSize;
    m_startThreshold = startThreshold;
    m_enableRateResample = enableRateResample;
    m_numBytesPerSample = static_cast<unsigned int>(getNumBytesForFormat(format));
    m_running = false;
    m_framesBuffered = 0;
    m_writeMonotonicRaw = NoTimeValue;
    updateConfiguration();
    m_opened = true;
    return true;
}

// What the simulation has buffered stays until the next open() starts it afresh.
void FakeOutputDevice::close()
{
    m_opened = false;
    m_lastRenderingDelay = RenderingDelay();
}

void FakeOutputDevice::drain() {}

bool FakeOutputDevice::isOpened() const
{
    return m_opened;
}

OutputDevice::WriteReturnValue FakeOutputDevice::write(void* /*buffer*/, std::uint64_t numFrames)
{
    if (!m_opened) {
        KELDA_LOG(logger, ERROR, "Failed to write, device has not been opened yet");
        return NotOpened;
    }
    const TimeValue now = getMonotonicRawSysclockTime();
    const TimeValue periodDurationNs = m_periodSize * nanosecondsPerSecond / m_sampleRate;
    assert(periodDurationNs > 0);

    const bool ranDry = m_running && !consume(now, periodDurationNs);
    m_framesBuffered += numFrames;
    startIfFilled(now);
    if (m_framesBuffered > m_bufferSize) {
        blockUntilThereIsRoom(now, periodDurationNs);
    }
    reportDelay();
    return ranDry ? Underrun : Success;
}

bool FakeOutputDevice::adjustParams(std::uint64_t bufferSize, std::uint64_t periodSize,
                                    std::uint64_t startThreshold)
{
    if (!m_opened) {
        KELDA_LOG(logger, ERROR, "Failed to adjust params, device has not been opened yet");
        return false;
    }
    if (periodSize == 0) {
        KELDA_LOG(logger, ERROR, "Failed to adjust params, period size cannot be 0");
        return false;
    }
    m_bufferSize = bufferSize;
    m_periodSize = periodSize;
    m_startThreshold = startThreshold;
    updateConfiguration();
    return true;
}

PcmFormat FakeOutputDevice::sampleFormat() const
{
    return m_sampleFormat;
}

unsigned int FakeOutputDevice::sampleRate() const
{
    return m_sampleRate;
}

unsigned int FakeOutputDevice::numChannels() const
{
    return m_numChannels;
}

unsigned int FakeOutputDevice::numBytesPerSample() const
{
    return m_numBytesPerSample;
}

std::uint64_t FakeOutputDevice::bufferSize() const
{
    return m_bufferSize;
}

std::uint64_t FakeOutputDevice::periodSize() const
{
    return m_periodSize;
}

std::uint64_t FakeOutputDevice::startThreshold() const
{
    return m_startThreshold;
}

std::int64_t FakeOutputDevice::getCompensatedRenderingDelay() const
{
    return m_lastRenderingDelay.delay * static_cast<std::int64_t>(nanosecondsPerMicrosecond);
}

RenderingDelay FakeOutputDevice::lastRenderingDelay() const
{
    return m_lastRenderingDelay;
}

TimeValue FakeOutputDevice::currentAudioTimestamp() const
{
    return getMonotonicRawSysclockTime();
}

int FakeOutputDevice::framesReady() const
{
    return static_cast<int>(periodSize());
}

void FakeOutputDevice::updateConfiguration()
{
    roundUpBufferSize();
    limitStartThreshold();
}

void FakeOutputDevice::roundUpBufferSize()
{
    if (m_bufferSize % m_periodSize == 0) {
        return;
    }
    // The quotient is taken as a signed 32-bit number, on purpose.
    const std::int64_t wholePeriods = static_cast<std::int32_t>(m_bufferSize / m_periodSize);
    const std::uint64_t rounded = static_cast<std::uint64_t>(wholePeriods + 1) * m_periodSize;
    if (rounded != m_bufferSize) {
        KELDA_LOG(logger, DEBUG,
                  "Buffer size adjusted from: " << m_bufferSize << " to: " << rounded);
    }
    m_bufferSize = rounded;
}

void FakeOutputDevice::limitStartThreshold()
{
    if (m_bufferSize < m_startThreshold) {
        KELDA_LOG(logger, DEBUG,
                  "Start threshold adjusted from: " << m_startThreshold << " to: " << m_bufferSize);
        m_startThreshold = m_bufferSize;
    }
}

/// Accounts for the whole periods that have been played since the last boundary.
/// @return false when this left nothing: the device has run dry, and has stopped.
bool FakeOutputDevice::consume(TimeValue now, TimeValue periodDurationNs)
{
    assert(now > m_writeMonotonicRaw);
    const std::uint64_t periods = (now - m_writeMonotonicRaw) / periodDurationNs;
    const std::uint64_t consumed = periods * m_periodSize;
    if (m_framesBuffered > consumed) {
        m_framesBuffered -= consumed;
        m_writeMonotonicRaw += periods * periodDurationNs;
        return true;
    }
    m_running = false;
    m_framesBuffered = 0;
    KELDA_LOG(logger, WARN, "Underrun occurred");
    return false;
}

// The start threshold is at most the buffer size, so a full buffer always starts the device.
void FakeOutputDevice::startIfFilled(TimeValue now)
{
    if (!m_running && m_framesBuffered >= m_startThreshold) {
        m_running = true;
        m_writeMonotonicRaw = now;
    }
}

void FakeOutputDevice::blockUntilThereIsRoom(TimeValue now, TimeValue periodDurationNs)
{
    const std::uint64_t periodsToWait = (m_framesBuffered - m_bufferSize - 1) / m_periodSize + 1;
    const TimeValue deadline = m_writeMonotonicRaw + periodsToWait * periodDurationNs;
    sleepUntil(deadline, now);
    // More than is buffered is played only when the buffer is smaller than a period, that is, 0.
    m_framesBuffered -= std::min(m_framesBuffered, periodsToWait * m_periodSize);
    m_writeMonotonicRaw = deadline;
}

void FakeOutputDevice::reportDelay()
{
    const std::uint64_t delay = m_framesBuffered * microsecondsPerSecond / m_sampleRate;
    const TimeValue timestamp =
        m_writeMonotonicRaw == NoTimeValue ? 0 : m_writeMonotonicRaw / nanosecondsPerMicrosecond;
    m_lastRenderingDelay = RenderingDelay(static_cast<long>(delay), static_cast<long>(timestamp));
}

} // namespace audioUtils
