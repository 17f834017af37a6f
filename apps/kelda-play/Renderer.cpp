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

Renderer::Renderer(audioUtils::PcmQueue& queue, OutputDevice& device, std::function<bool()> reopen,
                   Recorder* recorder, Journal& journal)
    : m_queue(queue),
      m_device(device),
      m_reopen(std::move(reopen)),
      m_delay(device),
      m_recorder(recorder),
      m_journal(journal),
      m_numFrames(device.periodSize()),
      m_bytesPerFrame(std::size_t{device.numChannels()} * device.numBytesPerSample()),
      m_block(m_numFrames * m_bytesPerFrame)
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
    m_ended = true;
}

// The whole of playing in time.
bool Renderer::renderBlock()
{
    BlockRecord record;
    record.deviceDelay = m_delay.next();
    record.dueTime = getMonotonicRawSysclockTime() + static_cast<TimeValue>(record.deviceDelay);

    const std::size_t framesRead = m_queue.read(record.dueTime, m_block, record.delta);
    padFrom(framesRead);
    record.result = m_device.write(m_block.data(), m_numFrames);
    m_delay.written(record.result, m_numFrames);

    if (record.isHeard() && m_recorder != nullptr) {
        m_recorder->write(m_block);
    }
    report(record, framesRead);
    return record.isHeard();
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
        report(record, m_queue.read(record.dueTime, m_block, record.delta));
    }
}

// The queue leaves what it can't fill as it was.
void Renderer::padFrom(std::size_t frame)
{
    std::fill(m_block.data() + frame * m_bytesPerFrame, m_block.data() + m_block.size(), 0);
}

void Renderer::report(BlockRecord record, std::size_t framesRead)
{
    const audioUtils::PcmQueueCounters before = std::exchange(m_counters, m_queue.counters());
    record.numFrames = m_numFrames;
    record.queueFill = m_queue.bufferedDuration(miscUtils::NoTimeValue);
    record.silenceFrames = m_counters.silenceFrames - before.silenceFrames;
    record.insertedFrames = m_counters.insertedFrames - before.insertedFrames;
    record.skippedFrames = m_counters.skippedFrames - before.skippedFrames;
    record.paddedFrames = m_numFrames - framesRead;
    m_journal.append(record);
}

} // namespace keldaPlay
