#include "audioUtils/resample/HighQualityResamplerShort.h"

#include <algorithm>
#include <cassert>

#include "audioUtils/detail/ResamplerCore.h"
#include "resampleKit/ShortBlockFilter.h"
#include "resampleKit/ShortFilterKit.h"

namespace audioUtils {

namespace {

constexpr double MIN_RATIO = 0.125;
constexpr double MAX_RATIO = 8.0;
constexpr int entriesPerSample = 256;
constexpr int timeBits = 15;
constexpr std::uint32_t timeOne = 1U << timeBits;

struct Codec
{
    static short toHistory(short sample) { return sample; }
    static short fromOutput(short sample) { return sample; }
};

detail::ResamplerSizes sizesOf(HighQualityResampler::FilterQuality quality)
{
    assert(quality >= HighQualityResampler::Low && quality <= HighQualityResampler::Best);
    const unsigned int nmult = detail::filterLengths[quality];
    return detail::sizesFor(nmult, detail::reachOf(nmult) + 512);
}

/// The times of a pass in fixed point. Too little history for a pass is none.
resampleKit::ShortBlockFilter::Times timesOf(double step, double startTime, int nx)
{
    const auto start = static_cast<std::uint32_t>(startTime * timeOne);
    const auto length = static_cast<std::uint32_t>(std::max(nx, 0)) << timeBits;
    return {start, start + length, static_cast<std::uint32_t>(step * timeOne + 0.5)};
}

/// Table entries for each sample of the signal, with 7 fraction bits.
unsigned short stretchOf(double step)
{
    const double entries = entriesPerSample / step;
    return entries > entriesPerSample ? 32768 : static_cast<unsigned short>(entries * 128 + 0.5);
}

} // namespace

/// A quality's filter, in both layouts.
struct HighQualityResamplerShort::Filter
{
    explicit Filter(int nwing) : block(design(nwing)) {}

    const std::vector<short>& design(int nwing)
    {
        FilterCalculator::instance().calculate(imp, impD, lpScl, nwing, 0.9, 15.0);
        return imp;
    }

    std::vector<short> imp; // the kit's functions want them changeable, but change nothing
    std::vector<short> impD;
    unsigned short lpScl = 0;
    resampleKit::ShortBlockFilter block;
};

struct HighQualityResamplerShort::State
{
    State(int numChannels, const detail::ResamplerSizes& sizes) : core(numChannels, sizes) {}

    detail::ResamplerCore<short, std::uint16_t> core;
    Filter* filter = nullptr;
    unsigned short lpScl = 0;
};

HighQualityResamplerShort::FilterCalculator& HighQualityResamplerShort::FilterCalculator::instance()
{
    static FilterCalculator calculator;
    return calculator;
}

bool HighQualityResamplerShort::FilterCalculator::calculate(std::vector<short>& imp,
                                                            std::vector<short>& impD,
                                                            unsigned short& lpScl, const int& nwing,
                                                            double rolloff, double beta)
{
    if (nwing != m_lastNwing || rolloff != m_lastRolloff || beta != m_lastBeta) {
        m_lastNwing = nwing;
        m_lastRolloff = rolloff;
        m_lastBeta = beta;
        m_imp.resize(static_cast<std::size_t>(nwing));
        m_impD.resize(static_cast<std::size_t>(nwing));
        makeFilter(m_imp.data(), m_impD.data(), &m_lpScl, static_cast<unsigned short>(nwing),
                   rolloff, beta);
    }
    imp = m_imp;
    impD = m_impD;
    lpScl = m_lpScl;
    return true;
}

HighQualityResamplerShort::HighQualityResamplerShort(const int& numChannels,
                                                     HighQualityResampler::FilterQuality quality)
    : HighQualityResampler(2, HighQualityResampler::Medium),
      m_state(std::make_unique<State>(numChannels, sizesOf(quality)))
{
    recalculateFilter(quality);
}

HighQualityResamplerShort::~HighQualityResamplerShort() = default;

void HighQualityResamplerShort::recalculateFilter(FilterQuality quality)
{
    m_state->filter = &detail::sharedFilter<Filter>(quality, entriesPerSample);
    m_state->lpScl = m_state->filter->lpScl;
}

void HighQualityResamplerShort::setSamplingRate(float inRate, float outRate)
{
    double factor = 1.0;
    if (inRate != 0 && outRate != 0) {
        factor = inRate / outRate;
        assert((factor > MIN_RATIO) && (factor < MAX_RATIO));
    }
    m_state->core.setRates(inRate, outRate, factor);
}

void HighQualityResamplerShort::reset()
{
    m_state->core.clear();
    m_state->core.clearFlush();
    setSamplingRate(1.0F, 1.0F);
}

int HighQualityResamplerShort::processShort(unsigned short* in, int inSamples, unsigned short* out,
                                            unsigned int& outSamples, const bool& mute,
                                            const bool& flush)
{
    return m_state->core.process<Codec>(
        reinterpret_cast<short*>(in), inSamples, reinterpret_cast<short*>(out), outSamples, mute,
        flush, [](int available) { return available != 0; },
        [&](double startTime, int nx) { return runPass(startTime, nx, mute); });
}

unsigned int HighQualityResamplerShort::runPass(double startTime, int nx, bool mute)
{
    auto& core = m_state->core;
    const double factor = core.factor();
    const auto scale =
        factor > 1.0 ? static_cast<unsigned short>(m_state->lpScl / factor) : m_state->lpScl;
    const auto& block = m_state->filter->block;
    if (!mute && factor != 1.0) {
        const auto times = timesOf(factor, startTime, nx);
        return static_cast<unsigned int>(
            factor < 1.0
                ? block.upsample(core.inRows(), core.outRows(), core.numChannels(), times, scale)
                : block.downsample(core.inRows(), core.outRows(), core.numChannels(), times, scale,
                                   stretchOf(factor)));
    }
    int frames = 0;
    for (std::size_t c = 0; c < core.numChannels(); ++c) {
        short* const x = core.inRows()[c];
        short* const y = core.outRows()[c];
        frames = mute ? srcSilence(x, y, factor, scale, startTime, nx)
                      : srcCopy(x, y, factor, scale, startTime, nx);
    }
    return static_cast<unsigned int>(frames);
}

short HighQualityResamplerShort::wordToShort(int v, int scl)
{
    const int rounded = (v + (1 << (scl - 1))) >> scl;
    return static_cast<short>(std::clamp(rounded, -32768, 32767));
}

namespace {

template<typename OutputAt>
int fill(short* y, double step, double startTime, int nx, OutputAt outputAt)
{
    int frames = 0;
    const auto times = timesOf(step, startTime, nx);
    for (std::uint32_t time = times.start; time < times.end; time += times.step) {
        y[frames++] = outputAt(time);
    }
    return frames;
}

} // namespace

int HighQualityResamplerShort::srcUpsample(short* x, short* y, double step, unsigned short lpScl,
                                           double startTime, const int& nx, const bool& interpolate)
{
    Filter& filter = *m_state->filter;
    const auto wing = [&](short* from, std::uint32_t phase, short direction) {
        return FilterUp(filter.imp.data(), filter.impD.data(),
                        static_cast<unsigned short>(filter.imp.size()), interpolate, from,
                        static_cast<short>(phase & (timeOne - 1)), direction);
    };
    return fill(y, step, startTime, nx, [&](std::uint32_t time) {
        short* const from = x + (time >> timeBits);
        const int v = (wing(from, time, -1) + wing(from + 1, 0 - time, +1)) >> 2;
        return wordToShort(v * lpScl, 13);
    });
}

int HighQualityResamplerShort::srcUpOrDownsample(short* x, short* y, double step,
                                                 unsigned short lpScl, double startTime,
                                                 const int& nx, const bool& interpolate)
{
    Filter& filter = *m_state->filter;
    const unsigned short dhb = stretchOf(step);
    const auto wing = [&](short* from, std::uint32_t phase, short direction) {
        return FilterUD(filter.imp.data(), filter.impD.data(),
                        static_cast<unsigned short>(filter.imp.size()), interpolate, from,
                        static_cast<short>(phase & (timeOne - 1)), direction, dhb);
    };
    return fill(y, step, startTime, nx, [&](std::uint32_t time) {
        short* const from = x + (time >> timeBits);
        const int v = (wing(from, time, -1) + wing(from + 1, 0 - time, +1)) >> 2;
        return wordToShort(v * lpScl, 13);
    });
}

int HighQualityResamplerShort::srcSilence(short* /*x*/, short* y, double step,
                                          unsigned short /*lpScl*/, double startTime, const int& nx)
{
    return fill(y, step, startTime, nx, [](std::uint32_t) { return short{0}; });
}

int HighQualityResamplerShort::srcCopy(short* x, short* y, double step, unsigned short /*lpScl*/,
                                       double startTime, const int& nx)
{
    return fill(y, step, startTime, nx, [&](std::uint32_t time) { return x[time >> timeBits]; });
}

long HighQualityResamplerShort::getCurrentLatencyNs() const
{
    return m_state->core.latencyNs();
}

unsigned int HighQualityResamplerShort::getInputBufferSize() const
{
    return m_state->core.inBufferSize();
}

long HighQualityResamplerShort::getOutPosForInPos(unsigned int inPos) const
{
    return static_cast<long>(inPos / m_state->core.factor());
}

} // namespace audioUtils
