#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "SampleLayout.h"

namespace keldaPlay {

/// How clicks are removed; durations in ms.
struct ClickOptions
{
    bool enabled = true;
    unsigned int gapMs = 10;
    unsigned int marginMs = 1;
    unsigned int fadeMs = 5;
    bool skipShort = false;
};

/// A click remover for frames of any sample format. One thread at a time.
class ClickFilter
{
public:
    /// @param renewAfter frames; the remover counts them in 32 bits, and would fall silent in the
    /// end
    ClickFilter(const ClickOptions& options, const FrameLayout& layout, unsigned int sampleRate,
                std::uint64_t renewAfter = std::uint64_t{1} << 30);
    ~ClickFilter();
    ClickFilter(const ClickFilter&) = delete;
    ClickFilter& operator=(const ClickFilter&) = delete;

    /// Frames by which it delays.
    [[nodiscard]] std::size_t delayFrames() const { return m_delayFrames; }

    /// What follows does not go on from what came before: so much silence takes its first place
    /// that the one fades out and the other in.
    /// @param frame of the next block from which this holds
    void interrupt(std::size_t frame);

    /// Makes room for blocks of up to so many frames, from the start: process() allocates nothing
    /// from then on.
    void prepare(std::size_t frames);

    /// Frames of a block.
    struct Range
    {
        std::size_t begin = 0;
        std::size_t end = 0;
    };

    /// Filters a block of whole frames, in place.
    /// @return the frames that an interruption has silenced
    Range process(std::span<unsigned char> block);

    /// The end of what it holds, faded out; valid until the next call.
    [[nodiscard]] std::span<unsigned char> flush();

    /// Nobody will hear what it holds.
    void reset();

private:
    struct Remover;
    template<typename Sample>
    struct RemoverOf;

    std::unique_ptr<Remover> m_remover;
    FrameLayout m_layout;
    std::size_t m_delayFrames;
    std::size_t m_framesToMute; // at an interruption
    std::size_t m_muteFrom = 0;
    std::size_t m_mute = 0; // frames, of the next block's, from there on
    std::vector<unsigned char> m_rest;
};

} // namespace keldaPlay
