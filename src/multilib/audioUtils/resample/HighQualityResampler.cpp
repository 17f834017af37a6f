#include "audioUtils/resample/HighQualityResampler.h"

#include <cassert>
#include <cmath>
#include <limits>

#include "audioUtils/detail/ResamplerCore.h"
#include "resampleKit/FloatBlockFilter.h"
#include "resampleKit/FloatFilterKit.h"

namespace audioUtils {

namespace {

constexpr double MIN_RATIO = 0.125;
constexpr double MAX_RATIO = 8.0;
constexpr int entriesPerSample = 4096;
constexpr float headroom = 0.8912509F; // -1 dB

template<typename T>
struct Codec;

template<>
struct Codec<float>
{
    static float toHistory(float sample) { return sample; }
    static float fromOutput(float sample) { return sample; }
};

template<>
struct Codec<int>
{
    static float toHistory(int sample) { return static_cast<float>(sample); }
    static int fromOutput(float sample)
    {
        constexpr float limit = 2147483648.0F;
        if (sample >= limit) {
            return std::numeric_limits<int>::max();
        }
        return sample >= -limit ? static_cast<int>(sample) : std::numeric_limits<int>::min();
    }
};

template<>
struct Codec<short>
{
    static float toHistory(short sample) { return sample; }
    // The low 16 bits, on purpose: the headroom is all that keeps a peak from wrapping.
    static short fromOutput(float sample)
    {
        return static_cast<short>(Codec<int>::fromOutput(sample));
    }
};

detail::ResamplerSizes sizesOf(HighQualityResampler::FilterQuality quality)
{
    assert(quality >= HighQualityResampler::Low && quality <= HighQualityResampler::Best);
    const unsigned int nmult = detail::filterLengths[quality];
    return detail::sizesFor(nmult, (detail::reachOf(nmult) + 256) * 2);
}

} // namespace

/// A quality's filter, in both layouts.
struct HighQualityResampler::Filter
{
    explicit Filter(int nwing)
        : imp(narrowed(
              FilterCalculator::instance().calculate(nwing, 0.45, 15.0, entriesPerSample))),
          impD(imp.size()),
          block(imp)
    {
        for (std::size_t i = 0; i + 1 < imp.size(); ++i) {
            impD[i] = imp[i + 1] - imp[i];
        }
        impD.back() = -imp.back();
    }

    static std::vector<float> narrowed(const std::vector<double>& taps)
    {
        return {taps.begin(), taps.end()};
    }

    std::vector<float> imp; // the kit's functions want them changeable, but change nothing
    std::vector<float> impD;
    resampleKit::FloatBlockFilter block;
};

struct HighQualityResampler::State
{
    State(int numChannels, const detail::ResamplerSizes& sizes) : core(numChannels, sizes) {}

    detail::ResamplerCore<float, std::uint32_t> core;
    Filter* filter = nullptr;
    float gain = 0;
};

HighQualityResampler::FilterCalculator& HighQualityResampler::FilterCalculator::instance()
{
    static FilterCalculator calculator;
    return calculator;
}

std::vector<double> HighQualityResampler::FilterCalculator::calculate(const int& nwing,
                                                                      double rolloff, double beta,
                                                                      int num)
{
    if (nwing != m_lastNwing || rolloff != m_lastRolloff || beta != m_lastBeta ||
        num != m_lastNum) {
        m_lastNwing = nwing;
        m_lastRolloff = rolloff;
        m_lastBeta = beta;
        m_lastNum = num;
        m_taps.resize(static_cast<std::size_t>(nwing));
        lrsLpFilter(m_taps.data(), nwing, rolloff, beta, num);
    }
    return m_taps;
}

HighQualityResampler::HighQualityResampler(const int& numChannels, FilterQuality quality)
    : m_state(std::make_unique<State>(numChannels, sizesOf(quality)))
{
    recalculateFilter(quality);
}

HighQualityResampler::~HighQualityResampler() = default;

void HighQualityResampler::recalculateFilter(FilterQuality quality)
{
    m_state->filter = &detail::sharedFilter<Filter>(quality, entriesPerSample);
    m_state->gain = headroom;
}

void HighQualityResampler::setSamplingRate(float inRate, float outRate)
{
    double factor = 1.0;
    if (inRate != 0 && outRate != 0) {
        factor = inRate / outRate;
        assert((factor >= MIN_RATIO) && (factor <= MAX_RATIO));
    }
    m_state->core.setRates(inRate, outRate, factor);
}

void HighQualityResampler::reset()
{
    m_state->core.clear();
    HighQualityResampler::setSamplingRate(1.0F, 1.0F);
}

template<typename T>
int HighQualityResampler::process(T* in, int inSamples, T* out, unsigned int& outSamples,
                                  const bool& mute, const bool& flush)
{
    return m_state->core.process<Codec<T>>(
        in, inSamples, out, outSamples, mute, flush, [](int available) { return available >= 1; },
        [&](double startTime, int nx) { return runPass(startTime, nx, mute); });
}

unsigned int HighQualityResampler::runPass(double startTime, int nx, bool mute)
{
    auto& core = m_state->core;
    const double factor = core.factor();
    const float scale = factor > 1.0 ? static_cast<float>(m_state->gain / factor) : m_state->gain;
    if (!mute && factor != 1.0) {
        return static_cast<unsigned int>(m_state->filter->block.process(
            core.inRows(), core.outRows(), core.numChannels(), factor, scale, startTime, nx));
    }
    int frames = 0;
    for (std::size_t c = 0; c < core.numChannels(); ++c) {
        float* const x = core.inRows()[c];
        float* const y = core.outRows()[c];
        frames = mute ? srcSilence(x, y, factor, scale, startTime, nx)
                      : srcCopy(x, y, factor, scale, startTime, nx);
    }
    return static_cast<unsigned int>(frames);
}

namespace {

template<typename OutputAt>
int fill(float* y, double step, double startTime, int nx, OutputAt outputAt)
{
    int frames = 0;
    const double endTime = startTime + nx;
    for (double t = startTime; t < endTime; t += step) {
        y[frames++] = outputAt(t);
    }
    return frames;
}

} // namespace

int HighQualityResampler::srcUpsample(float* x, float* y, double step, const float& gain,
                                      double startTime, const int& nx, const bool& interpolate)
{
    Filter& filter = *m_state->filter;
    const auto nwing = static_cast<unsigned int>(filter.imp.size());
    const auto wing = [&](float* from, double phase, int direction) {
        return lrsFilterUp(filter.imp.data(), filter.impD.data(), nwing, interpolate, from, phase,
                           direction);
    };
    return fill(y, step, startTime, nx, [&](double t) {
        const double fraction = t - std::floor(t);
        float* const from = x + static_cast<std::ptrdiff_t>(t);
        return gain * (wing(from, fraction, -1) + wing(from + 1, 1 - fraction, +1));
    });
}

int HighQualityResampler::srcUpOrDownsample(float* x, float* y, double step, const float& gain,
                                            double startTime, const int& nx,
                                            const bool& interpolate)
{
    Filter& filter = *m_state->filter;
    const auto nwing = static_cast<unsigned int>(filter.imp.size());
    const double dhb = std::min<double>(entriesPerSample, entriesPerSample / step);
    const auto wing = [&](float* from, double phase, int direction) {
        return lrsFilterUD(filter.imp.data(), filter.impD.data(), nwing, interpolate, from, phase,
                           direction, dhb);
    };
    return fill(y, step, startTime, nx, [&](double t) {
        const double fraction = t - std::floor(t);
        float* const from = x + static_cast<std::ptrdiff_t>(t);
        return gain * (wing(from, fraction, -1) + wing(from + 1, 1 - fraction, +1));
    });
}

int HighQualityResampler::srcSilence(float* /*x*/, float* y, double step, const float& /*gain*/,
                                     double startTime, const int& nx)
{
    return fill(y, step, startTime, nx, [](double) { return 0.0F; });
}

int HighQualityResampler::srcCopy(float* x, float* y, double step, const float& gain,
                                  double startTime, const int& nx)
{
    return fill(y, step, startTime, nx,
                [&](double t) { return gain * x[static_cast<std::ptrdiff_t>(t)]; });
}

int HighQualityResampler::processShort(unsigned short* in, int inSamples, unsigned short* out,
                                       unsigned int& outSamples, const bool& mute,
                                       const bool& flush)
{
    return process(reinterpret_cast<short*>(in), inSamples, reinterpret_cast<short*>(out),
                   outSamples, mute, flush);
}

int HighQualityResampler::processInt(unsigned int* in, int inSamples, unsigned int* out,
                                     unsigned int& outSamples, const bool& mute, const bool& flush)
{
    return process(reinterpret_cast<int*>(in), inSamples, reinterpret_cast<int*>(out), outSamples,
                   mute, flush);
}

int HighQualityResampler::processFloat(float* in, int inSamples, float* out,
                                       unsigned int& outSamples, const bool& mute,
                                       const bool& flush)
{
    return process(in, inSamples, out, outSamples, mute, flush);
}

long HighQualityResampler::getCurrentLatencyNs() const
{
    return m_state->core.latencyNs();
}

unsigned int HighQualityResampler::getInputBufferSize() const
{
    return m_state->core.inBufferSize();
}

long HighQualityResampler::getOutPosForInPos(unsigned int inPos) const
{
    return static_cast<long>(inPos / m_state->core.factor());
}

template int HighQualityResampler::process(short*, int, short*, unsigned int&, const bool&,
                                           const bool&);
template int HighQualityResampler::process(int*, int, int*, unsigned int&, const bool&,
                                           const bool&);
template int HighQualityResampler::process(float*, int, float*, unsigned int&, const bool&,
                                           const bool&);

} // namespace audioUtils
