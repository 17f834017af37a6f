#include "Renderer.h"

#include <algorithm>
#include <utility>

#include <pthread.h>
#include <sys/prctl.h>

namespace keldaPlay {

using audioUtils::OutputDevice;
using miscUtils::getMonotonicRawSysclockTime;
using miscUtils::TimeValue;

Renderer::Renderer(audioUtils::PcmQueue& queue, OutputDevice& device, Recorder* recorder,
                   Journal& journal)
    : m_queue(queue),
      m_device(device),
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
    while (!m_stopped && renderBlock()) {
    }
    m_ended = true;
}

// The whole of playing in time.
bool Renderer::renderBlock()
{
    BlockRecord record;
    record.deviceDelay = m_device.getCompensatedRenderingDelay();
    record.dueTime = getMonotonicRawSysclockTime() + static_cast<TimeValue>(record.deviceDelay);

    const std::size_t framesRead = m_queue.read(record.dueTime, m_block, record.delta);
    padFrom(framesRead);
    record.result = m_device.write(m_block.data(), m_numFrames);

    const bool taken =
        record.result == OutputDevice::Success || record.result == OutputDevice::Underrun;
    if (taken && m_recorder != nullptr) {
        m_recorder->write(m_block);
    }
    report(record, framesRead);
    return taken;
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
