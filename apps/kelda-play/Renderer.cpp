#include "Renderer.h"

#include <algorithm>
#include <thread>
#include <utility>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <pthread.h>
#include <sys/prctl.h>

namespace keldaPlay {

using audioUtils::OutputDevice;
using miscUtils::getMonotonicRawSysclockTime;
using miscUtils::TimeValue;

Renderer::Renderer(audioUtils::PcmQueue& queue, OutputDevice& device, const FrameLayout& queued,
                   RateConverter* converter, std::function<bool()> reopen, Recorder* recorder,
                   Journal& journal)
    : m_queue(queue),
      m_device(device),
      m_reopen(std::move(reopen)),
      m_delay(device),
      m_recorder(recorder),
      m_journal(journal),
      m_numFrames(device.periodSize()),
      m_queued(queued),
      m_converter(converter),
      m_deviceBytesPerFrame(std::size_t{device.numChannels()} * device.numBytesPerSample()),
      m_block((8 * m_numFrames + 1) * queued.bytes()) // of which a converter needs the most
{
}

namespace {

// A late wake-up is a late due time. Sleeps may end 50 us late by default, to save power; and other
// threads come first, unless this one runs at real-time priority, which not every user may ask for.
void wakeUpInTime()
{
    prctl(PR_SET_TIMERSLACK, 1UL);
    const sched_param priority{sched_get_priority_min(SCHED_FIFO)};
    static_cast<void>(pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority));
}

} // namespace

void Renderer::run()
{
    wakeUpInTime();
    while (!m_stopped) {
        if (!renderBlock()) {
            waitForDevice();
        }
    }
    playEnd();
    m_ended = true;
}

// The whole of playing in time.
bool Renderer::renderBlock()
{
    const std::span block = std::span(m_block).first(framesToRead() * m_queued.bytes());
    BlockRecord record;
    record.deviceDelay = m_delay.next() + (m_converter != nullptr ? m_converter->latencyNs() : 0);
    record.dueTime = getMonotonicRawSysclockTime() + static_cast<TimeValue>(record.deviceDelay);

    const std::size_t framesRead = m_queue.read(record.dueTime, block, record.delta);
    std::ranges::fill(block.subspan(framesRead * m_queued.bytes()), 0); // what the queue lacks
    record.result = write(m_converter != nullptr ? m_converter->convert(block) : block);
    report(record, block.size() / m_queued.bytes(), framesRead);
    return record.isHeard();
}

std::size_t Renderer::framesToRead()
{
    return m_converter != nullptr ? m_converter->inputFramesFor(m_numFrames) : m_numFrames;
}

OutputDevice::WriteReturnValue Renderer::write(std::span<unsigned char> frames)
{
    const std::size_t numFrames = frames.size() / m_deviceBytesPerFrame;
    const OutputDevice::WriteReturnValue result = m_device.write(frames.data(), numFrames);
    m_delay.written(result, numFrames);
    if (isHeard(result) && m_recorder != nullptr) {
        m_recorder->write(frames);
    }
    return result;
}

// What the converter still holds.
void Renderer::playEnd()
{
    if (m_converter != nullptr && m_device.isOpened()) {
        static_cast<void>(write(m_converter->convert({}, true)));
    }
}

void Renderer::waitForDevice()
{
    using namespace std::chrono;
    const log4cplus::Logger logger = log4cplus::Logger::getInstance("kelda-play");
    LOG4CPLUS_WARN(logger, "The device is gone; the stream goes on unheard until it is back");
    const auto lost = steady_clock::now();
    m_device.close();
    for (milliseconds wait = 100ms; !m_stopped; wait = std::min<milliseconds>(2 * wait, 2s)) {
        passUnheard(wait);
        if (m_reopen()) {
            const auto away = duration_cast<milliseconds>(steady_clock::now() - lost);
            LOG4CPLUS_WARN(logger, "The device is back after " << away.count() << " ms");
            m_delay = DeviceDelay(m_device);
            return;
        }
    }
}

// Read in time, so that the source goes on, and the device finds the stream where it is due.
void Renderer::passUnheard(std::chrono::milliseconds duration)
{
    const auto end = std::chrono::steady_clock::now() + duration;
    const std::chrono::nanoseconds block(m_numFrames * 1'000'000'000 / m_device.sampleRate());
    while (!m_stopped && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(block);
        BlockRecord record;
        record.result = OutputDevice::NotOpened;
        record.dueTime = getMonotonicRawSysclockTime();
        const std::size_t numFrames = framesToRead();
        const std::span unheard = std::span(m_block).first(numFrames * m_queued.bytes());
        report(record, numFrames, m_queue.read(record.dueTime, unheard, record.delta));
    }
}

void Renderer::report(BlockRecord record, std::size_t numFrames, std::size_t framesRead)
{
    const audioUtils::PcmQueueCounters before = std::exchange(m_counters, m_queue.counters());
    record.numFrames = numFrames;
    record.queueFill = m_queue.bufferedDuration(miscUtils::NoTimeValue);
    record.silenceFrames = m_counters.silenceFrames - before.silenceFrames;
    record.insertedFrames = m_counters.insertedFrames - before.insertedFrames;
    record.skippedFrames = m_counters.skippedFrames - before.skippedFrames;
    record.paddedFrames = numFrames - framesRead;
    m_journal.append(record);
}

} // namespace keldaPlay
