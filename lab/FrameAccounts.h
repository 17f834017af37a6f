#pragma once

#include <cstdint>
#include <span>

#include "Journal.h"
#include "audioUtils/PcmQueue.h"

namespace keldaLab {

/// The frames that a queue holds so long; it truncates to ns.
[[nodiscard]] inline std::uint64_t framesIn(miscUtils::TimeValue duration, unsigned int sampleRate)
{
    return (duration * sampleRate + 999'999'999) / 1'000'000'000;
}

/// Where the frames of a stream that carries their numbers have gone: each was heard, or counted as
/// lost, or is still in the queue. Not for streams whose clicks are removed.
class FrameAccounts
{
public:
    /// A packet, written to the queue.
    void addSent(std::uint64_t frames) { m_sent += frames; }

    /// What a reset of the queue dropped; it counts the resets alone.
    void addDiscarded(std::uint64_t frames) { m_discarded += frames; }

    /// A block as it was read and padded.
    void addBlock(std::span<const unsigned char> block, const keldaPlay::BlockRecord& record);

    /// The end: what the queue still holds.
    void close(audioUtils::PcmQueue& queue, unsigned int sampleRate);

    [[nodiscard]] std::uint64_t heard() const { return m_heard; }
    [[nodiscard]] std::uint64_t repeated() const { return m_repeated; }
    [[nodiscard]] std::uint64_t skipped() const { return m_counters.skippedFrames; }
    [[nodiscard]] std::uint64_t discarded() const { return m_discarded; }
    [[nodiscard]] std::uint64_t silence() const { return m_silence; }

    /// Frames that went into the queue, and of which nothing is known: to either side.
    [[nodiscard]] std::uint64_t uncounted() const;

    /// Frames of silence that nobody has counted. (What the queue put into a gap may be skipped in
    /// the end.)
    [[nodiscard]] std::uint64_t silenceUncounted() const;

private:
    std::uint64_t m_sent = 0;
    std::uint64_t m_discarded = 0;
    std::uint64_t m_heard = 0;
    std::uint64_t m_silence = 0;
    std::uint64_t m_padded = 0;
    std::uint64_t m_repeated = 0;
    std::uint64_t m_left = 0;
    double m_last = -1;
    audioUtils::PcmQueueCounters m_counters;
};

} // namespace keldaLab
