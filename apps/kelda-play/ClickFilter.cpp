#include "ClickFilter.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "audioUtils/clickRemover/ClickRemover.h"

namespace keldaPlay {

/// A remover of any sample type, behind one face.
struct ClickFilter::Remover
{
    virtual ~Remover() = default;
    virtual void prepare(std::size_t frames) = 0;
    virtual void process(std::span<unsigned char> block) = 0;
    /// Makes the remover fade out before a frame of the block that it was given last.
    virtual void fadeOut(std::size_t framesFromEnd) = 0;
    virtual std::size_t flush(std::span<unsigned char> rest) = 0;
    virtual void reset() = 0;
};

namespace {

/// Whether samples lie in memory as the processor has them.
bool isNative(const SampleLayout& layout)
{
    return layout.bytes != 3 && layout.isBigEndian == (std::endian::native == std::endian::big);
}

} // namespace

/// A remover that is replaced by a new one when it has counted far enough: as soon as both give the
/// same, as they do in the midst of a signal, nobody hears the change.
template<typename Sample>
struct ClickFilter::RemoverOf : Remover
{
    /// A remover, and where it is.
    struct Line
    {
        audioUtils::ClickRemover<Sample> remover;
        std::uint64_t written = 0;
        std::size_t held = 0;
    };

    RemoverOf(const ClickOptions& options, const FrameLayout& frames, unsigned int sampleRate,
              std::uint64_t renewal)
        : line{{options.gapMs, options.marginMs, options.fadeMs, options.skipShort}},
          layout(frames),
          rate(static_cast<int>(sampleRate)),
          renewAfter(renewal)
    {
    }

    // Both removers get their lines here, and the memory of a block is taken.
    void prepare(std::size_t frames) override
    {
        const std::size_t samples = frames * layout.numChannels;
        staging.reserve(samples);
        copy.assign(samples, Sample{});
        for (Line* const each : {&line, &spare}) {
            process(*each, copy.data(), samples);
        }
        reset();
    }

    void process(std::span<unsigned char> block) override
    {
        const std::size_t samples = block.size() / static_cast<std::size_t>(layout.sample.bytes);
        withSamples(block, [&](Sample* data) {
            renewing = renewing || line.written > renewAfter;
            if (!renewing) {
                process(line, data, samples);
                return;
            }
            copy.assign(data, data + samples);
            process(line, data, samples);
            process(spare, copy.data(), samples);
            if (spare.written > spare.held && std::equal(copy.begin(), copy.end(), data)) {
                std::swap(line, spare);
                forgetSpare();
            }
        });
    }

    void process(Line& to, Sample* data, std::size_t samples)
    {
        const std::size_t frames = samples / layout.numChannels;
        to.held = to.remover.process(data, rate, layout.numChannels, frames);
        to.written += frames;
    }

    // Positions count what has left the line, and the line's silence at the start.
    void fadeOut(std::size_t framesFromEnd) override
    {
        line.remover.notifyUnderrun(line.written + line.held - framesFromEnd, rate);
        if (renewing) {
            spare.remover.notifyUnderrun(spare.written + spare.held - framesFromEnd, rate);
        }
    }

    std::size_t flush(std::span<unsigned char> rest) override
    {
        std::size_t frames = rest.size() / layout.bytes();
        withSamples(rest, [&](Sample* samples) {
            line.held = line.remover.flush(samples, rate, layout.numChannels, frames);
        });
        return frames;
    }

    void reset() override
    {
        line.remover.reset();
        line.written = 0;
        forgetSpare();
    }

    void forgetSpare()
    {
        spare.remover.reset();
        spare.written = 0;
        renewing = false;
    }

    /// Gives the samples as the remover wants them, and puts them back.
    template<typename Use>
    void withSamples(std::span<unsigned char> block, Use use)
    {
        if (isNative(layout.sample)) {
            use(reinterpret_cast<Sample*>(block.data()));
            return;
        }
        if constexpr (!std::is_same_v<Sample, short>) {
            const auto bytes = static_cast<std::size_t>(layout.sample.bytes);
            staging.resize(block.size() / bytes);
            for (std::size_t i = 0; i < staging.size(); ++i) {
                unpack(staging[i], block.data() + i * bytes);
            }
            use(staging.data());
            for (std::size_t i = 0; i < staging.size(); ++i) {
                pack(staging[i], block.data() + i * bytes);
            }
        }
    }

    void unpack(int& sample, const unsigned char* in) const
    {
        sample = unpackInteger(layout.sample, in);
    }
    void unpack(float& sample, const unsigned char* in) const
    {
        sample = unpackFloat(layout.sample, in);
    }
    void pack(int sample, unsigned char* out) const { packInteger(layout.sample, sample, out); }
    void pack(float sample, unsigned char* out) const { packFloat(layout.sample, sample, out); }

    Line line;
    Line spare = line; // takes over, one day
    bool renewing = false;
    FrameLayout layout;
    int rate;
    std::uint64_t renewAfter;
    std::vector<Sample> staging;
    std::vector<Sample> copy;
};

ClickFilter::ClickFilter(const ClickOptions& options, const FrameLayout& layout,
                         unsigned int sampleRate, std::uint64_t renewAfter)
    : m_layout(layout),
      m_delayFrames(
          audioUtils::ClickRemover<float>(options.gapMs, options.marginMs, options.fadeMs, false)
              .minimumDelay(static_cast<int>(sampleRate))),
      m_framesToMute((std::size_t{options.gapMs} + 1) * sampleRate / 1000),
      m_rest(m_delayFrames * layout.bytes())
{
    if (layout.sample.isFloat) {
        m_remover = std::make_unique<RemoverOf<float>>(options, layout, sampleRate, renewAfter);
    } else if (layout.sample.bytes == 2 && isNative(layout.sample)) {
        m_remover = std::make_unique<RemoverOf<short>>(options, layout, sampleRate, renewAfter);
    } else {
        m_remover = std::make_unique<RemoverOf<int>>(options, layout, sampleRate, renewAfter);
    }
}

ClickFilter::~ClickFilter() = default;

void ClickFilter::prepare(std::size_t frames)
{
    m_remover->prepare(frames);
}

void ClickFilter::interrupt(std::size_t frame)
{
    m_muteFrom = frame;
    m_mute = m_framesToMute;
}

ClickFilter::Range ClickFilter::process(std::span<unsigned char> block)
{
    const std::size_t frames = block.size() / m_layout.bytes();
    const bool interrupted = m_mute == m_framesToMute;
    const std::size_t from = std::min(m_muteFrom, frames);
    const std::size_t muted = std::min(m_mute, frames - from);
    std::ranges::fill(block.subspan(from * m_layout.bytes(), muted * m_layout.bytes()), 0);
    m_remover->process(block);
    if (interrupted && muted > 0) {
        m_remover->fadeOut(frames - from);
    }
    m_mute -= muted;
    m_muteFrom = 0;
    return {from, from + muted};
}

std::span<unsigned char> ClickFilter::flush()
{
    return std::span(m_rest).first(m_remover->flush(m_rest) * m_layout.bytes());
}

void ClickFilter::reset()
{
    m_remover->reset();
}

} // namespace keldaPlay
