#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <random>
#include <vector>

#include "Gaps.h"
#include "Options.h"
#include "Playlist.h"
#include "Timeline.h"
#include "TrackSchedule.h"
#include "audioUtils/PcmQueue.h"

namespace keldaPlay {

/// Decodes the playlist, stamps every packet and feeds the queue: the source of the stream, with
/// the faults that the user asked for.
class Producer
{
public:
    Producer(Playlist& playlist, const FrameLayout& layout, audioUtils::PcmQueue& queue,
             TrackSchedule& schedule, const Options& options);

    /// Returns when the queue has played out, or after stop().
    ///
    /// @param timeline of the stream, which begins
    void run(Timeline timeline);

    /// From any thread: makes run() return soon, whatever it waits for.
    void stop();

    /// Frames that the queue has got, once run() has returned.
    [[nodiscard]] std::uint64_t framesQueued() const { return m_framesQueued; }

private:
    [[nodiscard]] bool waitFor(miscUtils::TimeValue duration);
    [[nodiscard]] miscUtils::TimeValue stamped(miscUtils::TimeValue pts);

    Playlist& m_playlist;
    FrameLayout m_layout;
    audioUtils::PcmQueue& m_queue;
    TrackSchedule& m_schedule;
    Gaps m_gaps;
    std::mt19937_64 m_random;
    std::uniform_int_distribution<miscUtils::TimeValueDelta> m_jitter;
    std::size_t m_bytesPerFrame;
    std::vector<unsigned char> m_packet;
    std::mutex m_mutex;
    std::condition_variable m_stopCondition;
    bool m_stopped = false;
    std::uint64_t m_framesQueued = 0;
};

} // namespace keldaPlay
