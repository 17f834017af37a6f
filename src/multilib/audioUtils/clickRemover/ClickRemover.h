#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "miscUtils/Export.h"

namespace audioUtils {

/// A frame of a stream, counted from its start. All bits set: none.
using StreamPosition = std::uint64_t;

/// Takes the clicks out where audio starts after silence or stops abruptly: at a stream's start, a
/// gap, an underrun.
///
/// The audio passes through a delay line, so that each frame is seen before it leaves: where signal
/// starts (a sample that is not 0) it is faded in, `margin` later; where it ends it is faded out,
/// `margin` earlier; in between it is silent. A silence is played over when the last frame of
/// signal before it and the first one behind it are at most `gap` apart. The fades are rising and
/// falling halves of a raised cosine,
///
///     w[i] = (1 − cos(π i / n)) / 2,  0 <= i < n.
///
/// Samples are interleaved, lengths in frames, durations in ms (frames = rate · ms / 1000,
/// truncated). One thread at a time. Logs to "ClickRemover". The line grows at the first block, and
/// when the rate or the channels change; otherwise nothing is allocated.
///
/// Positions are kept as 32-bit numbers in part: a stream of more than 2^31 frames (12 hours at 48
/// kHz) wants a reset() somewhere in it. The log's "read at" tells them so too.
///
/// ```cpp
/// ClickRemover<float> remover(10, 5, 5, false);
/// remover.process(block.data(), 48000, 2, 480); // each block, in place
/// do {                                          // at the end
///     left = remover.flush(block.data(), 48000, 2, numFrames);
///     play(block, numFrames);
/// } while (left > 0);
/// ```
///
/// @tparam T short, int or float
template<typename T>
class KELDA_EXPORT ClickRemover
{
public:
    /// @param gap        ms from a signal's last frame to the next one's first that don't end it
    /// @param margin     ms between a signal's edge and its fade
    /// @param fadeLength ms; beyond 5 a fade-out can begin late, for the line has 5 ms more than
    ///                   gap and margin
    /// @param skipShortSignals whether a signal that is not longer than minimumDelay() is left as
    ///                         it is; otherwise its two fades meet in the middle
    ClickRemover(const std::size_t& gap, const std::size_t& margin, const std::size_t& fadeLength,
                 const bool& skipShortSignals);

    /// Takes a block into the line, and gives as much from its other end.
    ///
    /// Whenever the line holds fewer samples than the delay has frames, it starts with silence: so
    /// flush() a stream to its end, or reset(), before the next one.
    ///
    /// @param data       in and out, interleaved
    /// @param sampleRate Hz
    /// @param channels   samples of a frame
    /// @param frames     in `data`; more than `channels`, for a signal's end to be seen
    /// @return frames in the line
    std::size_t process(T* data, int sampleRate, std::size_t channels, std::size_t frames);

    /// Takes the audio for ended, and gives what the line holds.
    /// @param data       out, interleaved
    /// @param sampleRate Hz, as for process()
    /// @param channels   samples of a frame, as for process()
    /// @param frames     in: room in `data`; out: frames given
    /// @return frames that are left in the line
    std::size_t flush(T* data, int sampleRate, std::size_t channels, std::size_t& frames);

    /// Tracks the signal in frames that enter the line. process() calls it.
    void onWrite(StreamPosition pos, T* data, std::int32_t sampleRate, std::size_t channels,
                 std::size_t frames);

    /// Fades frames that leave the line. process() and flush() call it.
    void onRead(StreamPosition pos, T* data, std::int32_t sampleRate, std::size_t channels,
                std::size_t frames);

    /// The audio will be interrupted at a position: it is faded out before, or where the signal
    /// ended if that was earlier. The rate is not looked at.
    void notifyUnderrun(StreamPosition pos, int sampleRate);

    /// Frames by which the line delays: gap, margin and 5 ms.
    [[nodiscard]] std::size_t minimumDelay(int sampleRate) const;

    /// Makes the fades so many frames long. The fades call it with `fadeLength`.
    void recalculateWindow(std::size_t length);

    /// Forgets all, and fills the line with silence.
    void reset();

    /// A sample as a number of full scale 1 (for float: of the largest float).
    [[nodiscard]] static double toDouble(const T& sample);
    /// The reverse, truncated; 32 bits saturate.
    [[nodiscard]] static T fromDouble(const double& value);

private:
    static constexpr StreamPosition none = ~StreamPosition{0};

    KELDA_LOCAL void exchange(T* data, std::size_t samples);
    KELDA_LOCAL void alignLine();
    [[nodiscard]] KELDA_LOCAL bool limitFade(std::int32_t& fadeFrames,
                                             std::int32_t sampleRate) const;
    /// @param index of the window's weight at `from`
    /// @param step  to the next one
    KELDA_LOCAL void fade(T* data, std::size_t channels, std::int32_t from, std::int32_t to,
                          std::int32_t index, std::int32_t step) const;

    std::size_t m_gap;
    std::size_t m_margin;
    std::size_t m_fadeLength;
    bool m_skipShortSignals;
    StreamPosition m_fadeIn = none;    // where the current signal starts
    StreamPosition m_fadeOut = none;   // where the one to be faded out ends
    StreamPosition m_signalEnd = none; // the last frame that was not silent
    std::vector<T> m_line;             // not yet read: a ring
    std::size_t m_first = 0;           // where it starts
    StreamPosition m_readPosition = 0; // of its first frame
    std::vector<double> m_window;
};

extern template class KELDA_EXPORT ClickRemover<short>;
extern template class KELDA_EXPORT ClickRemover<int>;
extern template class KELDA_EXPORT ClickRemover<float>;

} // namespace audioUtils
