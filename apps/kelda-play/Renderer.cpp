#include "Renderer.h"

#include <algorithm>
#include <thread>
#include <utility>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <pthread.h>
#include <sys/prctl.h>

namespace keldaPlay {

Renderer::Renderer(audioUtils::PcmQueue& queue, audioUtils::OutputDevice& device,
                   const FrameLayout& queued, unsigned int queuedRate, const RenderPath& path,
                   std::function<bool()> reopen,
                   std::optional<std::chrono::duration<double>> waiting, Journal& journal)
    : m_renderer(queue, device, queued, queuedRate, path, miscUtils::getMonotonicRawSysclockTime),
      m_device(device),
      m_canWait(path.canWait),
      m_reopen(std::move(reopen)),
      m_waiting(waiting),
      m_journal(journal)
{
}

namespace {

log4cplus::Logger logger()
{
    return log4cplus::Logger::getInstance("kelda-play");
}

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
    while (!m_stopped && !hasWaitedLong()) {
        if (!isTaken(m_renderer.render())) {
            waitForDevice();
        } else if (m_lost) {
            noteReturn();
        }
        waitForRoom();
    }
    const BlockRecord end = m_renderer.playEnd();
    if (!end.isHeard()) {
        m_journal.append(end);
    }
    m_ended = true;
}

// In a device that takes faster than it plays; not for so long that an end would be late.
void Renderer::waitForRoom()
{
    constexpr std::chrono::nanoseconds longest = std::chrono::milliseconds(100);
    for (std::chrono::nanoseconds wait(m_renderer.wait()); !m_stopped && wait.count() > 0;
         wait = std::chrono::nanoseconds(m_renderer.wait())) {
        std::this_thread::sleep_for(std::min(wait, longest));
    }
}

bool Renderer::hasWaitedLong() const
{
    return m_lost && m_waiting && std::chrono::steady_clock::now() - *m_lost > *m_waiting;
}

bool Renderer::isTaken(const BlockRecord& record)
{
    m_journal.append(record);
    return record.isHeard();
}

// A device that opens is not one that plays: a sound server may take calls, and no sound. A stream
// that can wait is not to lose a block each time that this is tried; of any other it is due anyway.
void Renderer::waitForDevice()
{
    using namespace std::chrono;
    if (!m_lost) {
        LOG4CPLUS_WARN(logger(), "The device is gone; the stream "
                                     << (m_canWait ? "waits" : "goes on unheard")
                                     << " until it is back");
        m_lost = steady_clock::now();
        m_wait = milliseconds(100);
    }
    m_device.close();
    while (!m_stopped && !hasWaitedLong() && !m_device.isOpened()) {
        passUnheard(std::exchange(m_wait, std::min(2 * m_wait, milliseconds(2000))));
        if (!m_stopped && m_reopen()) {
            m_renderer.restart();
            if (m_canWait && !isTaken(m_renderer.tryDevice())) {
                m_device.close();
            }
        }
    }
}

void Renderer::noteReturn()
{
    using namespace std::chrono;
    const auto away = duration_cast<milliseconds>(steady_clock::now() - *m_lost);
    LOG4CPLUS_WARN(logger(), "The device is back after " << away.count() << " ms");
    m_lost.reset();
}

// Read in time, so that the source goes on, and the device finds the stream where it is due.
void Renderer::passUnheard(std::chrono::milliseconds duration)
{
    const auto end = std::chrono::steady_clock::now() + duration;
    const std::chrono::nanoseconds block(m_device.periodSize() * 1'000'000'000 /
                                         m_device.sampleRate());
    while (!m_stopped && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(block);
        m_journal.append(m_renderer.passUnheard());
    }
}

} // namespace keldaPlay
