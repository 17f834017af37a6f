#include "BlockRenderer.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace keldaPlay {

using audioUtils::OutputDevice;
using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;

namespace {

constexpr miscUtils::TimeValueDelta largeError = 500'000; // ns: the loop needs seconds for it
constexpr miscUtils::TimeValueDelta largeStep = 100'000;  // ns from block to block: no drift
constexpr TimeValue patience = 2'500'000'000;             // ns: false words that last end before
constexpr TimeValue memory = 4'000'000'000;               // ns: what was not large by then creeps
constexpr double startSeconds = 1; // of audio: a device that has begun to play may yet falter
constexpr miscUtils::TimeValueDelta startError = 1'000'000; // ns: is left as it is at a start

/// What can be on the way: as much as a delay may be, of blocks as short as a device may have them.
std::size_t mostBlocksSent(const OutputDevice& device)
{
    return static_cast<std::size_t>(2 * device.bufferSize() / device.periodSize()) + 256;
}

} // namespace

BlockRenderer::BlockRenderer(audioUtils::PcmQueue& queue, OutputDevice& device,
                             const FrameLayout& queued, unsigned int queuedRate, RenderPath path,
                             Clock clock)
    : m_queue(queue),
      m_device(device),
      m_queued(queued),
      m_queuedRate(queuedRate),
      m_path(std::move(path)),
      m_clock(std::move(clock)),
      m_delay(device),
      m_framesToSettle(startSeconds * queuedRate),
      m_numFrames(device.periodSize()),
      m_deviceBytesPerFrame(std::size_t{device.numChannels()} * device.numBytesPerSample()),
      m_block((8 * m_numFrames + 1) * queued.bytes()), // of which a converter needs the most
      m_sent(mostBlocksSent(device))
{
    std::size_t longest = m_numFrames;
    if (m_path.clicks != nullptr) {
        m_path.clicks->prepare(m_block.size() / queued.bytes());
        longest = std::max(longest, 2 * m_path.clicks->delayFrames()); // its end, at either rate
    }
    if (m_path.converter != nullptr) {
        m_path.converter->prepare(longest);
    }
}

BlockRecord BlockRenderer::render()
{
    m_read = nextBlock();
    BlockRecord record;
    const TimeValue now = m_clock();
    const miscUtils::TimeValueDelta delay = m_delay.next(now);
    if (!std::exchange(m_isDry, delay < 0) && m_isDry) {
        record.mutedFrames = muteHeld();
    }
    record.deviceDelay =
        delay + clickDelayNs() + (m_path.converter != nullptr ? m_path.converter->latencyNs() : 0);
    record.dueTime = now + static_cast<TimeValue>(record.deviceDelay);

    alignToStart(record.dueTime);
    record.moved = m_moved;
    const std::size_t framesRead =
        m_queue.read(record.dueTime - static_cast<TimeValue>(m_moved), m_read, record.delta);
    std::ranges::fill(m_read.subspan(framesRead * m_queued.bytes()), 0); // what the queue lacks
    complete(record, m_read.size() / m_queued.bytes(), framesRead);
    m_hasBegun = m_hasBegun || framesRead > record.silenceFrames;
    m_framesToSettle -= static_cast<double>(record.dataFrames());
    record.delta -= std::llround(bias(record));
    correctDrift(record, now);
    capture(m_path.before);
    removeClicks(record);
    capture(m_path.after);
    if (m_path.dop != nullptr) {
        m_path.dop->process(m_read);
    }
    record.adjustmentPpm = m_path.drift != nullptr ? m_path.drift->ppm() : 0;
    record.result = write(m_path.converter != nullptr ? m_path.converter->convert(m_read) : m_read);
    if (record.result != OutputDevice::Success) {
        const auto since = static_cast<std::int64_t>(m_clock() - now); // it has played on
        record.droppedFrames = droppedOf(record.result, record.deviceDelay - since);
        m_sent.clear();
    }
    if (record.isHeard()) {
        m_sent.add(record.numFrames, record.dataFrames());
    }
    return record;
}

// A device that was repaired held nothing if it had run dry, and lost what it held if it had failed
// otherwise. It notices that it has run dry at a period's end.
std::uint64_t BlockRenderer::droppedOf(OutputDevice::WriteReturnValue result,
                                       std::int64_t held) const
{
    const auto period =
        static_cast<std::int64_t>(m_numFrames * 1'000'000'000 / m_device.sampleRate());
    const bool wasDry = result == OutputDevice::Underrun && held <= period;
    return wasDry ? 0 : m_sent.dataAmongLast(framesIn(held));
}

std::uint64_t BlockRenderer::framesIn(std::int64_t nanoseconds) const
{
    return static_cast<std::uint64_t>(std::llround(
        static_cast<double>(std::max<std::int64_t>(0, nanoseconds)) * m_queuedRate / 1e9));
}

// The due times of a device that is being filled are a guess that gets worse with each block, for
// nobody knows how long filling takes. The queue, which smooths due times, is not to learn from
// them: an empty read at quite another time makes it start over. When the device runs, what the
// guess was off is below the queue's threshold for jumps, but heard for good: aligned once more.
// Not at the first start, where nothing has been interrupted yet: silence leads up to the sound to
// a frame. If it begins before the device does, a millisecond off is heard less than one that is
// missing.
//
// A stream that can wait is not aligned: it is moved to where the device is.
void BlockRenderer::alignToStart(TimeValue dueTime)
{
    const bool wasFilling = std::exchange(m_filling, m_delay.isFilling());
    m_isFirstStart = m_isFirstStart && wasFilling;
    m_isMoved = false;
    if (m_path.canWait && isStarting()) {
        moveStream(dueTime, wasFilling || m_filling);
        return;
    }
    if (m_isFirstStart && m_hasBegun) {
        return;
    }
    if (wasFilling || m_filling) {
        forgetTimes(dueTime);
    }
    if (wasFilling && !m_filling && !m_isFirstStart) {
        m_queue.resyncRead();
    }
}

void BlockRenderer::forgetTimes(TimeValue dueTime)
{
    constexpr TimeValue farAway = 1'000'000'000'000;
    static_cast<void>(m_queue.read(dueTime + farAway, std::span<unsigned char>()));
}

bool BlockRenderer::isStarting()
{
    if (m_filling && m_framesToSettle > 0) {
        m_framesToSettle = startSeconds * m_queuedRate;
    }
    return m_framesToSettle > 0;
}

// What has begun goes on at the next frame, whenever the device gets to it; silence leads up to
// what has not, and to what comes after a gap.
void BlockRenderer::moveStream(TimeValue dueTime, bool isFilling)
{
    if (isFilling) {
        forgetTimes(dueTime);
    }
    if (m_queue.bufferedDuration(miscUtils::NoTimeValue) == 0) {
        return; // for it is not known what comes next
    }
    const auto late = static_cast<miscUtils::TimeValueDelta>(
        dueTime - static_cast<TimeValue>(m_moved) - m_queue.getReadPts());
    const bool isOff = m_hasBegun ? isFilling || late > startError : late > 0;
    if (isOff) {
        forgetTimes(dueTime);
        m_moved += late;
        m_isMoved = true;
    }
}

std::int64_t BlockRenderer::clickDelayNs() const
{
    return m_path.clicks == nullptr
               ? 0
               : std::llround(static_cast<double>(m_path.clicks->delayFrames()) * 1e9 /
                              m_queuedRate);
}

// The device has run dry, or is a new one: what is on the way would begin in the midst of it.
void BlockRenderer::startOver()
{
    m_sent.clear();
    if (m_path.clicks != nullptr) {
        m_path.clicks->reset();
        if (m_path.converter != nullptr) {
            m_path.converter->clear();
        }
    }
}

// @return the stream's frames that are not heard for it
std::uint64_t BlockRenderer::muteHeld()
{
    const std::int64_t converter = m_path.converter != nullptr ? m_path.converter->latencyNs() : 0;
    const std::uint64_t held =
        m_path.clicks != nullptr ? m_sent.dataAmongLast(framesIn(clickDelayNs() + converter)) : 0;
    startOver();
    return held;
}

void BlockRenderer::capture(SoundCapture* capture)
{
    if (capture != nullptr) {
        capture->append(m_read);
    }
}

void BlockRenderer::removeClicks(BlockRecord& record)
{
    if (m_path.clicks == nullptr) {
        return;
    }
    if (record.skippedFrames + record.resets > 0) {
        m_path.clicks->interrupt(0);
    } else if (record.paddedFrames > 0) {
        m_path.clicks->interrupt(record.numFrames - record.paddedFrames);
    }
    const ClickFilter::Range muted = m_path.clicks->process(m_read);
    const std::size_t begin = std::max<std::size_t>(muted.begin, record.silenceFrames);
    const std::size_t end =
        std::min<std::size_t>(muted.end, record.numFrames - record.paddedFrames);
    record.mutedFrames += end - std::min(begin, end);
}

// What waits in the queue and in the device is timed as if its clock ran at the nominal rate: 300
// ms of a source that is 100 ppm off are 30 us longer or shorter than that.
double BlockRenderer::bias(const BlockRecord& record) const
{
    if (m_path.drift == nullptr) {
        return 0;
    }
    const double devicePpm = m_delay.devicePpm();
    const bool steersDevice = static_cast<bool>(m_path.setDeviceRate);
    const double sourcePpm = steersDevice ? devicePpm : devicePpm + m_path.drift->ppm();
    const double queued = static_cast<double>(record.queueFill) +
                          static_cast<double>(record.numFrames) * 1e9 / m_queuedRate;
    const auto clickDelay = static_cast<double>(clickDelayNs());
    const double device = static_cast<double>(record.deviceDelay) - clickDelay;
    return ((queued + clickDelay) * sourcePpm + device * devicePpm) * 1e-6;
}

// Only what goes on from the block before tells of the drift. Silence in a gap makes up for it to a
// frame, which is a step that the loop has to take quickly.
void BlockRenderer::correctDrift(BlockRecord& record, TimeValue now)
{
    if (m_path.drift == nullptr) {
        return;
    }
    const bool interrupted = !record.isContinuous() || record.insertedFrames != 0 || m_isMoved;
    if (interrupted || std::abs(record.delta) < largeError) {
        m_lastSmallError = now;
    }
    if (interrupted ||
        std::abs(record.delta - std::exchange(m_lastDelta, record.delta)) > largeStep) {
        m_lastStep = now;
    }
    record.isRealigned = isLost(now);
    if (interrupted || record.isRealigned) {
        m_path.drift->interrupt();
    } else {
        m_path.drift->update(record.delta, now);
    }
    if (m_path.setDeviceRate) {
        m_path.setDeviceRate(m_path.drift->ppm());
        m_delay.setPll(m_path.drift->ppm());
    } else if (m_path.converter != nullptr) {
        m_path.converter->adjust(m_path.drift->ppm());
    }
}

// What a device's false word has left behind can be too small for the queue to call it a jump, and
// too large for the loop to make up for in seconds: then the queue is made to. An error that has
// crept up is none of these: a clock is further off than the loop may correct, and the queue does
// what it can, when it must.
bool BlockRenderer::isLost(TimeValue now)
{
    if (now - m_lastSmallError < patience || now - m_lastStep > memory) {
        return false;
    }
    m_lastSmallError = now;
    m_queue.resyncRead();
    return true;
}

TimeValueDelta BlockRenderer::wait() const
{
    return m_delay.wait(m_clock());
}

BlockRecord BlockRenderer::passUnheard()
{
    BlockRecord record;
    record.result = OutputDevice::NotOpened;
    record.dueTime = m_clock();
    record.moved = m_moved;
    if (m_path.canWait) {
        m_goneSince = m_goneSince.value_or(record.dueTime);
        record.queueFill = m_queue.bufferedDuration(miscUtils::NoTimeValue);
        record.moved += static_cast<miscUtils::TimeValueDelta>(record.dueTime - *m_goneSince);
        return record;
    }
    m_read = nextBlock();
    const std::size_t framesRead =
        m_queue.read(record.dueTime - static_cast<TimeValue>(m_moved), m_read, record.delta);
    complete(record, m_read.size() / m_queued.bytes(), framesRead);
    return record;
}

BlockRecord BlockRenderer::playEnd()
{
    BlockRecord record;
    record.moved = m_moved;
    if (!m_device.isOpened()) {
        return record;
    }
    record.dueTime = m_clock();
    record.deviceDelay = m_delay.next(record.dueTime);
    if (m_path.clicks != nullptr) {
        const std::span<unsigned char> rest = m_path.clicks->flush();
        record.deviceDelay += clickDelayNs();
        record.result = write(m_path.converter != nullptr ? m_path.converter->convert(rest) : rest);
    }
    if (m_path.converter != nullptr && record.isHeard()) {
        record.deviceDelay += m_path.converter->latencyNs();
        record.result = write(m_path.converter->convert({}, true));
    }
    if (m_path.dop != nullptr && record.isHeard()) {
        record.result = playIdle();
    }
    if (!record.isHeard()) {
        record.droppedFrames = m_sent.dataAmongLast(framesIn(record.deviceDelay));
    }
    return record;
}

// What a device plays beyond the end of a stream is what it held a buffer ago.
OutputDevice::WriteReturnValue BlockRenderer::playIdle()
{
    OutputDevice::WriteReturnValue result = OutputDevice::Success;
    const std::uint64_t longest = m_device.sampleRate() / 5;
    const std::uint64_t wanted = std::min(m_device.bufferSize(), longest);
    for (std::uint64_t written = 0; written < wanted && keldaPlay::isHeard(result);
         written += m_numFrames) {
        result = writeSilence();
    }
    return result;
}

// As it is, without a converter, which holds some of the stream.
OutputDevice::WriteReturnValue BlockRenderer::writeSilence()
{
    m_read = std::span(m_block).first(m_numFrames * m_deviceBytesPerFrame);
    std::ranges::fill(m_read, 0);
    if (m_path.dop != nullptr) {
        m_path.dop->process(m_read);
    }
    return write(m_read);
}

void BlockRenderer::restart()
{
    m_delay = DeviceDelay(m_device);
    m_framesToSettle = startSeconds * m_queuedRate;
    if (m_goneSince) {
        m_moved += static_cast<miscUtils::TimeValueDelta>(m_clock() - *m_goneSince);
        m_goneSince.reset();
    }
    startOver();
    if (m_path.drift != nullptr) {
        m_path.drift->interrupt();
    }
}

BlockRecord BlockRenderer::tryDevice()
{
    BlockRecord record;
    record.dueTime = m_clock();
    record.moved = m_moved;
    record.queueFill = m_queue.bufferedDuration(miscUtils::NoTimeValue);
    record.numFrames =
        framesIn(static_cast<std::int64_t>(m_numFrames * 1'000'000'000 / m_device.sampleRate()));
    record.silenceFrames = record.numFrames;
    record.result = writeSilence();
    return record;
}

std::span<unsigned char> BlockRenderer::nextBlock()
{
    const std::size_t numFrames =
        m_path.converter != nullptr ? m_path.converter->inputFramesFor(m_numFrames) : m_numFrames;
    return std::span(m_block).first(numFrames * m_queued.bytes());
}

OutputDevice::WriteReturnValue BlockRenderer::write(std::span<unsigned char> frames)
{
    const std::size_t numFrames = frames.size() / m_deviceBytesPerFrame;
    const OutputDevice::WriteReturnValue result = m_device.write(frames.data(), numFrames);
    m_delay.written(result, numFrames, m_clock());
    if (isHeard(result) && m_path.recorder != nullptr) {
        m_path.recorder->write(frames);
    }
    return result;
}

void BlockRenderer::complete(BlockRecord& record, std::size_t numFrames, std::size_t framesRead)
{
    const audioUtils::PcmQueueCounters before = std::exchange(m_counters, m_queue.counters());
    record.numFrames = numFrames;
    record.queueFill = m_queue.bufferedDuration(miscUtils::NoTimeValue);
    record.silenceFrames = m_counters.silenceFrames - before.silenceFrames;
    record.insertedFrames = m_counters.insertedFrames - before.insertedFrames;
    record.skippedFrames = m_counters.skippedFrames - before.skippedFrames;
    record.resets = m_counters.resets - before.resets;
    record.paddedFrames = numFrames - framesRead;
    m_framesRead += record.dataFrames();
}

} // namespace keldaPlay
