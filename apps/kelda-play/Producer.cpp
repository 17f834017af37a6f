#include "Producer.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace keldaPlay {

using miscUtils::TimeValue;

namespace {

std::uniform_int_distribution<miscUtils::TimeValueDelta> within(double milliseconds)
{
    const auto largest = static_cast<miscUtils::TimeValueDelta>(std::llround(milliseconds * 1e6));
    return std::uniform_int_distribution<miscUtils::TimeValueDelta>(-largest, largest);
}

} // namespace

Producer::Producer(Playlist& playlist, const FrameLayout& layout, audioUtils::PcmQueue& queue,
                   TrackSchedule& schedule, const Options& options)
    : m_playlist(playlist),
      m_layout(layout),
      m_queue(queue),
      m_schedule(schedule),
      m_gaps(options.gaps, playlist.rate()),
      m_random(options.seed),
      m_jitter(within(options.jitterMs)),
      m_bytesPerFrame(layout.bytes()),
      m_packet(std::max<std::size_t>(1, playlist.rate() * std::size_t{options.packetMs} / 1000) *
               m_bytesPerFrame)
{
}

void Producer::run(Timeline timeline)
{
    const log4cplus::Logger logger = log4cplus::Logger::getInstance("kelda-play");
    std::uint64_t position = 0;
    for (;;) {
        const Gaps::Piece piece = m_gaps.pieceAt(position);
        const std::size_t numFrames =
            std::min<std::uint64_t>(piece.numFrames, m_packet.size() / m_bytesPerFrame);
        const std::span packet = std::span(m_packet).first(numFrames * m_bytesPerFrame);

        const std::size_t decoded = m_playlist.read(m_layout, packet);
        if (timeline.arrive(position, miscUtils::getMonotonicRawSysclockTime(),
                            decoded > 0 && m_playlist.isLive())) {
            LOG4CPLUS_WARN(logger, "The input came too late: the stream goes on where it is");
        }
        for (const Playlist::Begin& begin : m_playlist.takeBegins()) {
            m_schedule.add(*begin.track, timeline.ptsOf(begin.frame));
        }
        if (decoded == 0) {
            break;
        }
        const bool goesOn =
            piece.lost ? waitFor(timeline.ptsOf(position + decoded) - timeline.ptsOf(position))
                       : m_queue.write(stamped(timeline.ptsOf(position)),
                                       packet.first(decoded * m_bytesPerFrame));
        if (!goesOn) {
            break;
        }
        position += decoded;
        m_framesQueued += piece.lost ? 0 : decoded;
    }
    m_queue.drain();
}

// What gets lost takes its time: meanwhile the queue plays on, and makes room for the silence.
bool Producer::waitFor(TimeValue duration)
{
    std::unique_lock lock(m_mutex);
    return !m_stopCondition.wait_for(lock, std::chrono::nanoseconds(duration),
                                     [this] { return m_stopped; });
}

void Producer::stop()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stopped = true;
    }
    m_stopCondition.notify_all();
    m_playlist.stop();
    m_queue.abortWrite();
}

TimeValue Producer::stamped(TimeValue pts)
{
    return pts + static_cast<TimeValue>(m_jitter(m_random));
}

} // namespace keldaPlay
