#pragma once

#include <cstdint>

#include "BlockRecord.h"

namespace keldaSync {

/// What has become of the frames, of one stream or of several after each other.
class FrameCounts
{
public:
    /// What is added from now on is a stream of this rate in Hz.
    void beginStream(unsigned int sampleRate);

    void add(const BlockRecord& record);

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
    /// many: what had arrived since the last block is not known.
    [[nodiscard]] std::uint64_t discardedFrames() const { return m_discardedFrames; }

    /// Lost: due while the device was gone.
    [[nodiscard]] std::uint64_t unheardFrames() const { return m_unheardFrames; }

    [[nodiscard]] std::uint64_t lostFrames() const
    {
        return m_skippedFrames + m_missingFrames + m_discardedFrames + m_unheardFrames;
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
    std::uint64_t m_unheardFrames = 0;
    std::uint64_t m_underruns = 0;
    bool m_hasBegun = false;               // the stream
    miscUtils::TimeValue m_queuedTime = 0; // what the queue held after the last block, ns
};

} // namespace keldaSync
