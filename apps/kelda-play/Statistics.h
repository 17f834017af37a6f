#pragma once

#include <cstdint>
#include <string>

#include "Journal.h"

namespace keldaPlay {

/// The sum of all blocks, of one stream or of several after each other.
class Statistics
{
public:
    /// What is added from now on is a stream of this rate.
    void beginStream(unsigned int sampleRate);

    void add(const BlockRecord& record);

    [[nodiscard]] std::uint64_t blocks() const { return m_blocks; }
    [[nodiscard]] std::uint64_t dataFrames() const { return m_dataFrames; }       ///< of the stream
    [[nodiscard]] std::uint64_t silenceFrames() const { return m_silenceFrames; } ///< of the stream
    [[nodiscard]] double dataSeconds() const;    ///< of all streams
    [[nodiscard]] double silenceSeconds() const; ///< of all streams
    [[nodiscard]] std::uint64_t insertedFrames() const { return m_insertedFrames; }
    [[nodiscard]] std::uint64_t skippedFrames() const { return m_skippedFrames; }
    /// What was missing between the first and the last frame of the audio.
    [[nodiscard]] std::uint64_t paddedFrames() const { return m_paddedFrames; }
    /// Audio that was due while the device was gone.
    [[nodiscard]] std::uint64_t unheardFrames() const { return m_unheardFrames; }
    [[nodiscard]] std::uint64_t underruns() const { return m_underruns; }

    /// Timing errors of the blocks that go on with the audio of the block before, in µs.
    [[nodiscard]] double meanError() const;
    [[nodiscard]] double rmsError() const;
    [[nodiscard]] double worstError() const { return m_worstError; }

    /// The lines at the end of playing.
    /// @param isColored whether what was lost stands out
    [[nodiscard]] std::string summary(bool isColored = false) const;

private:
    unsigned int m_sampleRate = 1; // nothing has been played at any
    double m_dataSecondsBefore = 0;
    double m_silenceSecondsBefore = 0;
    std::uint64_t m_blocks = 0;
    std::uint64_t m_dataFrames = 0;
    std::uint64_t m_silenceFrames = 0;
    std::uint64_t m_insertedFrames = 0;
    std::uint64_t m_skippedFrames = 0;
    std::uint64_t m_paddedFrames = 0;
    std::uint64_t m_paddingInDoubt = 0; // a loss if audio follows, else the end of the stream
    std::uint64_t m_unheardFrames = 0;
    std::uint64_t m_underruns = 0;
    std::uint64_t m_errors = 0;
    double m_sumOfErrors = 0;
    double m_sumOfSquares = 0;
    double m_worstError = 0;
};

} // namespace keldaPlay
