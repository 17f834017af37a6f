#pragma once

#include <cstdint>
#include <optional>

#include "BlockRecord.h"

namespace keldaSync {

/// What has become of the frames, of one stream or of several after each other.
class FrameCounts
{
public:
    /// What is added from now on is a stream of this rate in Hz.
    void beginStream(unsigned int sampleRate);

    void add(const BlockRecord& record);

    /// Of so many blocks nothing is known: nobody had the time to take their records.
    void addUnrecorded(std::uint64_t blocks) { m_unrecordedBlocks += blocks; }

    /// The stream is over.
    /// @param held      by the device, and never played
    /// @param discarded by the queue on jumps, if that is known
    void endStream(std::uint64_t held, std::optional<std::uint64_t> discarded);

    [[nodiscard]] std::uint64_t blocks() const { return m_blocks; } ///< that the device has taken
    [[nodiscard]] std::uint64_t dataFrames() const { return m_dataFrames; } ///< of them, of audio
    [[nodiscard]] double dataSeconds() const { return m_dataSeconds; }

    /// Silence before and between what the timestamps ask for, in seconds.
    [[nodiscard]] double silenceSeconds() const { return m_silenceSeconds; }

    /// Silence in gaps of the timestamps. What would have been there has never arrived.
    [[nodiscard]] std::uint64_t gapFrames() const { return m_gapFrames; }

    /// Lost: late, and dropped by the queue.
    [[nodiscard]] std::uint64_t skippedFrames() const { return m_skippedFrames; }

    /// Lost: not there in time, between the first and the last frame of the audio.
    [[nodiscard]] std::uint64_t missingFrames() const { return m_missingFrames; }

    /// Lost: held by the queue when it started afresh on a jump of the timestamps. At least so
    /// many: what had arrived since the last block is known when the stream is over.
    [[nodiscard]] std::uint64_t discardedFrames() const { return m_discardedFrames; }

    /// Lost: due while the device was gone, or held by it when it went, failed or ended.
    [[nodiscard]] std::uint64_t unheardFrames() const { return m_unheardFrames; }

    /// Lost: silenced around an interruption, that it may not click.
    [[nodiscard]] std::uint64_t mutedFrames() const { return m_mutedFrames; }

    /// Audio that was there, and was not heard.
    [[nodiscard]] std::uint64_t notHeardFrames() const
    {
        return m_skippedFrames + m_discardedFrames + m_unheardFrames + m_mutedFrames;
    }

    [[nodiscard]] std::uint64_t lostFrames() const { return notHeardFrames() + m_missingFrames; }

    /// Blocks that none of the other numbers knows of. Then what they tell is the least that was.
    [[nodiscard]] std::uint64_t unrecordedBlocks() const { return m_unrecordedBlocks; }

    /// By how much the streams were heard later than stamped, having waited for the device; s.
    [[nodiscard]] double movedSeconds() const
    {
        return m_movedSeconds + static_cast<double>(m_moved) * 1e-9;
    }

    /// How often the device ran dry.
    [[nodiscard]] std::uint64_t underruns() const { return m_underruns; }

private:
    double m_sampleRate = 1; // nothing has been played at any
    double m_dataSeconds = 0;
    double m_silenceSeconds = 0;
    std::uint64_t m_blocks = 0;
    std::uint64_t m_dataFrames = 0;
    std::uint64_t m_gapFrames = 0;
    std::uint64_t m_skippedFrames = 0;
    std::uint64_t m_missingFrames = 0;
    std::uint64_t m_missingInDoubt = 0; // lost if audio follows, else the end of the stream
    std::uint64_t m_discardedFrames = 0;
    std::uint64_t m_discardedBefore = 0; // the stream
    std::uint64_t m_unheardFrames = 0;
    std::uint64_t m_mutedFrames = 0;
    double m_movedSeconds = 0;             // the streams before
    miscUtils::TimeValueDelta m_moved = 0; // this one, ns
    std::uint64_t m_underruns = 0;
    std::uint64_t m_unrecordedBlocks = 0;
    bool m_hasBegun = false;               // the stream
    miscUtils::TimeValue m_queuedTime = 0; // what the queue held after the last block, ns
};

} // namespace keldaSync
