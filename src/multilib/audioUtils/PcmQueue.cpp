#include "audioUtils/PcmQueue.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

#include "audioUtils/detail/Log.h"
#include "nonstd/FormerName.h"

namespace audioUtils {

using miscUtils::NoTimeValue;
using nonstd::span;

namespace {

const log4cplus::Logger logger = log4cplus::Logger::getInstance("PcmQueue");

constexpr std::uint32_t nanosecondsPerSecond = 1'000'000'000;
constexpr TimeValue nanosecondsPerMillisecond = 1'000'000;
constexpr unsigned long filterTimeConstant = 250 * nanosecondsPerMillisecond;

// Both print six decimals ("%f").
std::string inSeconds(TimeValue time)
{
    return std::to_string(static_cast<double>(time) / 1e9);
}

std::string inMilliseconds(TimeValueDelta delta)
{
    return std::to_string(static_cast<double>(delta) / 1e6);
}

TimeValueDelta difference(TimeValue later, TimeValue earlier)
{
    return static_cast<TimeValueDelta>(later - earlier);
}

// The distance to zero of a negative delta, right for the most negative one too.
TimeValue magnitude(TimeValueDelta negative)
{
    return TimeValue{0} - static_cast<TimeValue>(negative);
}

} // namespace

PcmQueue::PcmQueue()
    : m_readFilter(filterTimeConstant, "read"), m_writeFilter(filterTimeConstant, "write")
{
}

PcmQueue::~PcmQueue()
{
    abortWrite();
    const detail::ScopedLock lock(m_mutex);
    while (m_callsWaiting != 0) {
        m_condition.wait(m_mutex);
    }
}

void PcmQueue::configure(bool timestampingEnabled, std::size_t maxFillLevelInMS,
                         unsigned int sampleRate, unsigned int channels,
                         unsigned int numBytesPerSample, const std::string& name,
                         bool filterEnabled, TimeValue ptsJumpThreshold,
                         TimeValue filterMaxErrorThreshold)
{
    const detail::ScopedLock lock(m_mutex);
    assert(maxFillLevelInMS > 0);
    assert(sampleRate > 0);
    assert(channels > 0);
    assert(numBytesPerSample > 0);

    m_timestampingEnabled = timestampingEnabled;
    m_sampleRate = sampleRate;
    m_numChannels = channels;
    m_bytesPerSample = numBytesPerSample;
    m_bytesPerFrame = channels * numBytesPerSample;
    const std::uint32_t bytesPerSecond = m_bytesPerFrame * sampleRate; // in 32 bits, on purpose
    m_bytesPerSecond = bytesPerSecond;
    m_bytesToFrames = {1, m_bytesPerFrame};
    m_bytesToDuration = {nanosecondsPerSecond, bytesPerSecond};
    m_durationToBytes = {bytesPerSecond, nanosecondsPerSecond};
    m_ptsJumpThreshold = ptsJumpThreshold;
    m_name = name;
    m_readSynced = false;
    m_readPts = m_writePts = NoTimeValue;
    m_counters = {};

    m_ring.setCapacity(calculateBytesFromDuration(maxFillLevelInMS * nanosecondsPerMillisecond));

    for (miscUtils::TimestampFilter* filter : {&m_readFilter, &m_writeFilter}) {
        filter->setSampleRate(sampleRate);
        filter->setEnabled(filterEnabled);
        filter->setMaxErrorThreshold(filterMaxErrorThreshold);
    }
    KELDA_LOG_LATER(m_mutex, logger, DEBUG,
                    m_name << ": Configured queue:"
                           << "  timestamping enabled: " << timestampingEnabled
                           << "  max fill level: " << maxFillLevelInMS << " ms"
                           << "  sample rate: " << sampleRate << " Hz"
                           << "  number of channels: " << channels
                           << "  bytes per sample: " << numBytesPerSample);
    m_configured = true;
    m_writeAborted = false;
    ++m_configurations;
    ++m_restarts;
    wakeWaiters();
}

bool PcmQueue::write(TimeValue pts, const span<const unsigned char>& data)
{
    const detail::ScopedLock lock(m_mutex);
    assert(m_bytesPerFrame != 0);
    const bool timed = m_timestampingEnabled && pts != NoTimeValue;
    if (timed && !m_writeAborted) {
        pts = alignWrite(pts);
    }

    // Counted in signed 32 bits, on purpose: one call stores less than 2 GiB.
    const int size = static_cast<int>(data.size());
    int written = 0;
    while (written < size && !m_writeAborted) {
        if (m_ring.isFull()) {
            updateWritePts(timed, pts, written);
            if (!waitForReader()) {
                break;
            }
            continue;
        }
        const auto chunk = std::min(static_cast<std::size_t>(size - written), m_ring.freeSpace());
        m_ring.store(data.data() + written, chunk);
        m_writeFilter.advance(static_cast<int>(framesIn(chunk)));
        written += static_cast<int>(chunk);
    }
    if (written < size || m_writeAborted) {
        KELDA_LOG_LATER(m_mutex, logger, INFO, m_name << ": Write aborted!");
        return false;
    }

    updateWritePts(timed, pts, written);
    if (timed) {
        KELDA_LOG_LATER(m_mutex, logger, DEBUG,
                        m_name << ": new writePts: " << inSeconds(m_writePts) << " from " << written
                               << " bytes");
        m_readPts = derivedReadPts();
    }
    return true;
}

// Brings the ring to where a packet of this timestamp belongs; returns the smoothed timestamp.
TimeValue PcmQueue::alignWrite(TimeValue pts)
{
    if (m_ring.isEmpty()) {
        KELDA_LOG_LATER(m_mutex, logger, DEBUG,
                        m_name << ": Buffer is empty, start reading pts = " << inSeconds(pts));
        m_writeFilter.reset(pts);
    }
    pts = m_writeFilter.filter(pts);

    const TimeValueDelta delta = m_writePts == NoTimeValue ? 0 : difference(pts, m_writePts);
    if (m_writePts != NoTimeValue && isBeyondJumpThreshold(delta)) {
        repairWriteJump(delta);
    }
    if (m_ring.isEmpty()) {
        KELDA_LOG_LATER(m_mutex, logger, INFO,
                        m_name << ": Buffer is empty, startPts = " << inSeconds(pts));
        m_readPts = pts;
        m_writeFilter.reset(NoTimeValue);
    }
    return pts;
}

// A gap shorter than what is buffered is filled: the listener hears a pause of the right length.
// Beyond that, and backwards, what is buffered no longer leads up to the packet and is discarded.
void PcmQueue::repairWriteJump(TimeValueDelta delta)
{
    const bool forward = delta > static_cast<TimeValueDelta>(m_ptsJumpThreshold);
    const std::size_t silence =
        forward ? calculateBytesFromDuration(static_cast<TimeValue>(delta)) : 0;
    if (forward && silence < m_ring.fillLevel()) {
        const std::size_t frames = framesIn(silence);
        KELDA_LOG_LATER(m_mutex, logger, WARN,
                        m_name << ": Pts jump of " << inMilliseconds(delta)
                               << " ms detected. Inserting " << frames << " silence frames");
        m_writeFilter.advance(static_cast<int>(frames));
        const auto stored = std::min(silence, m_ring.freeSpace());
        m_ring.storeZeros(stored);
        m_counters.insertedFrames += framesIn(stored);
        return;
    }
    KELDA_LOG_LATER(m_mutex, logger, WARN,
                    m_name << ": Pts jump of " << inMilliseconds(delta)
                           << " ms detected. Resetting ringbuffer");
    m_ring.clear();
    m_writeFilter.reset(NoTimeValue);
    ++m_counters.resets;
}

void PcmQueue::updateWritePts(bool timed, TimeValue pts, int written)
{
    if (timed) {
        m_writePts = pts + calculateDurationFromBytes(static_cast<std::size_t>(written));
    }
}

// False when the write that waits has been aborted, or its ring configured away.
bool PcmQueue::waitForReader()
{
    const unsigned long configuration = m_configurations;
    m_writerWaiting = true;
    while (m_writerWaiting && !m_writeAborted && configuration == m_configurations) {
        wait();
    }
    return !m_writeAborted && configuration == m_configurations;
}

void PcmQueue::abortWrite()
{
    const detail::ScopedLock lock(m_mutex);
    if (m_configured && !m_writeAborted) {
        m_writeAborted = true;
        m_condition.notifyAll();
    }
}

std::size_t PcmQueue::read(TimeValue time, const span<unsigned char>& out)
{
    TimeValueDelta delta = 0;
    return read(time, out, delta);
}

std::size_t PcmQueue::read(TimeValue time, const span<unsigned char>& out, TimeValueDelta& delta)
{
    const detail::ScopedLock lock(m_mutex);
    assert(m_bytesPerFrame != 0);
    const bool timed = m_timestampingEnabled && time != NoTimeValue;
    if (timed) {
        time = m_readFilter.filter(time);
    }

    std::size_t total = 0;
    while (total < out.size()) {
        if (timed && !alignRead(time, out, total, delta)) {
            break;
        }
        if (m_ring.isEmpty()) {
            break;
        }
        const auto chunk = std::min(m_ring.fillLevel(), out.size() - total);
        m_ring.take(out.data() + total, chunk);
        total += chunk;
        if (timed && total < out.size()) { // of use to a next pass alone
            time += calculateDurationFromBytes(chunk);
        }
        if (m_timestampingEnabled) {
            m_readSynced = m_readSynced || chunk > 0;
            m_readPts = derivedReadPts();
            KELDA_LOG_LATER(m_mutex, logger, DEBUG,
                            m_name << ": new readPts: " << inSeconds(m_readPts));
        }
    }
    wakeWaiters();

    const std::size_t frames = framesIn(total);
    m_readFilter.advance(static_cast<int>(frames));
    return frames;
}

// Makes the ring's first byte the one that is due at `time`; false when there is no such byte.
bool PcmQueue::alignRead(TimeValue& time, const span<unsigned char>& out, std::size_t& total,
                         TimeValueDelta& delta)
{
    delta = m_readPts == NoTimeValue ? 0 : difference(time, m_readPts);
    if (m_readSynced && !isBeyondJumpThreshold(delta)) [[likely]] {
        return true;
    }
    const TimeValueDelta jump = std::exchange(delta, 0);
    KELDA_LOG_LATER(m_mutex, logger, INFO,
                    m_name << ": Pts jump of " << inMilliseconds(jump)
                           << " ms detected when reading");
    m_readSynced = false;
    if (jump > 0) {
        return skipLate(static_cast<TimeValue>(jump));
    }
    readSilence(time, out, total, magnitude(jump));
    return true;
}

void PcmQueue::readSilence(TimeValue& time, const span<unsigned char>& out, std::size_t& total,
                           TimeValue duration)
{
    const std::size_t silence = std::min(out.size() - total, calculateBytesFromDuration(duration));
    KELDA_LOG_LATER(m_mutex, logger, INFO,
                    m_name << ": Creating " << silence << " of silence bytes");
    std::memset(out.data() + total, 0, silence);
    total += silence;
    time += calculateDurationFromBytes(silence);
    m_counters.silenceFrames += framesIn(silence);
}

bool PcmQueue::skipLate(TimeValue lateness)
{
    const bool allDropped = skip(lateness);
    if (!allDropped) {
        KELDA_LOG_LATER(m_mutex, logger, INFO,
                        m_name << ": No data available for reading - buffer underrun");
        ++m_counters.underruns;
    }
    return allDropped;
}

// Drops so much from the read side; false when less than that was held.
bool PcmQueue::skip(TimeValue duration)
{
    const std::size_t wanted = calculateBytesFromDuration(duration);
    KELDA_LOG_LATER(m_mutex, logger, INFO, m_name << ": Skipping " << wanted << " bytes");
    const auto dropped = std::min(m_ring.fillLevel(), wanted);
    m_ring.drop(dropped);
    m_counters.skippedFrames += framesIn(dropped);
    m_readPts = derivedReadPts();
    return dropped == wanted;
}

void PcmQueue::resyncRead()
{
    const detail::ScopedLock lock(m_mutex);
    m_readSynced = false;
}

void PcmQueue::flushOldData(const TimeValue& now)
{
    const detail::ScopedLock lock(m_mutex);
    if (!m_timestampingEnabled || now == NoTimeValue || m_readPts >= now) {
        return;
    }
    if (m_writePts < now) {
        KELDA_LOG_LATER(
            m_mutex, logger, INFO,
            m_name << ": all data in the buffer is in the past, flushing the whole buffer");
        m_counters.skippedFrames += framesIn(m_ring.fillLevel());
        m_ring.clear();
        m_writeFilter.reset(NoTimeValue);
        m_readPts = m_writePts = now;
    } else {
        static_cast<void>(skip(now - m_readPts));
    }
    wakeWaiters();
}

TimeValue PcmQueue::bufferedDuration(const TimeValue& now)
{
    const detail::ScopedLock lock(m_mutex);
    if (!m_configured) {
        return 0;
    }
    const TimeValue held = calculateDurationFromBytes(m_ring.fillLevel());
    if (now == NoTimeValue || !m_timestampingEnabled) {
        return held;
    }
    const TimeValueDelta left =
        m_writePts == NoTimeValue ? static_cast<TimeValueDelta>(held) : difference(m_writePts, now);
    if (left < 0) {
        KELDA_LOG_LATER(m_mutex, logger, DEBUG,
                        m_name << ": all buffered data is in the past, difference = - "
                               << inSeconds(now - m_writePts) << " s");
        return 0;
    }
    const TimeValue duration = std::min(static_cast<TimeValue>(left), held);
    KELDA_LOG_LATER(m_mutex, logger, DEBUG,
                    m_name << ": actual buffered duration = "
                           << inMilliseconds(static_cast<TimeValueDelta>(duration)) << " ms");
    return duration;
}

void PcmQueue::drain()
{
    const detail::ScopedLock lock(m_mutex);
    const unsigned long restarts = m_restarts;
    while (!m_ring.isEmpty() && !m_writeAborted && restarts == m_restarts) {
        wait();
    }
}

void PcmQueue::reset()
{
    const detail::ScopedLock lock(m_mutex);
    m_ring.clear();
    m_readPts = m_writePts = NoTimeValue;
    m_readFilter.reset(NoTimeValue);
    m_writeFilter.reset(NoTimeValue);
    ++m_restarts;
    wakeWaiters();
}

TimeValue PcmQueue::getReadPts()
{
    const detail::ScopedLock lock(m_mutex);
    return getReadPtsInternal();
}

TimeValue PcmQueue::getWritePts()
{
    const detail::ScopedLock lock(m_mutex);
    return getWritePtsInternal();
}

PcmQueueCounters PcmQueue::counters()
{
    const detail::ScopedLock lock(m_mutex);
    return m_counters;
}

std::string PcmQueue::name() const
{
    const detail::ScopedLock lock(m_mutex);
    return m_name;
}

TimeValue PcmQueue::getReadPtsInternal()
{
    return m_readPts;
}

TimeValue PcmQueue::getWritePtsInternal()
{
    return m_writePts;
}

TimeValue PcmQueue::calculateDurationFromBytes(std::size_t bytes)
{
    assert(m_bytesPerSecond != 0);
    return m_bytesToDuration(bytes);
}

std::size_t PcmQueue::calculateBytesFromDuration(TimeValue duration)
{
    assert(m_bytesPerFrame != 0);
    return m_bytesPerFrame * framesIn(m_durationToBytes(duration));
}

std::size_t PcmQueue::framesIn(std::size_t bytes) const
{
    return m_bytesToFrames(bytes);
}

// The threshold is compared as a signed value.
bool PcmQueue::isBeyondJumpThreshold(TimeValueDelta delta) const
{
    const auto forward = static_cast<TimeValueDelta>(m_ptsJumpThreshold);
    const auto backward = static_cast<TimeValueDelta>(magnitude(forward));
    return delta > forward || delta < backward;
}

TimeValue PcmQueue::derivedReadPts()
{
    return m_writePts == NoTimeValue ? NoTimeValue
                                     : m_writePts - calculateDurationFromBytes(m_ring.fillLevel());
}

void PcmQueue::wait()
{
    ++m_callsWaiting;
    m_condition.wait(m_mutex);
    --m_callsWaiting;
    if (m_callsWaiting == 0 && m_writeAborted) {
        m_condition.notifyAll(); // for the destructor
    }
}

void PcmQueue::wakeWaiters()
{
    m_writerWaiting = false;
    if (m_callsWaiting != 0) {
        m_condition.notifyAll();
    }
}

} // namespace audioUtils

KELDA_FORMER_NAME("_ZN10audioUtils8PcmQueue5writeEmRK", "Kh", "");
KELDA_FORMER_NAME("_ZN10audioUtils8PcmQueue4readEmRK", "h", "");
KELDA_FORMER_NAME("_ZN10audioUtils8PcmQueue4readEmRK", "h", "Rl");
