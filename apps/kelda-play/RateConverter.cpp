#include "RateConverter.h"

#include <cmath>
#include <type_traits>

#include "audioUtils/resample/GStreamerResampler.h"
#include "audioUtils/resample/HighQualityResamplerShort.h"

namespace keldaPlay {

using audioUtils::GStreamerResampler;
using audioUtils::HighQualityResampler;
using audioUtils::HighQualityResamplerShort;

namespace {

void pack(const SampleLayout& layout, short sample, unsigned char* to)
{
    if (layout.isFloat) {
        packFloat(layout, static_cast<float>(sample) / 32768, to);
    } else {
        packInteger(layout, sample * 65536, to);
    }
}

void pack(const SampleLayout& layout, float sample, unsigned char* to)
{
    if (layout.isFloat) {
        packFloat(layout, sample, to);
    } else {
        packInteger(layout, toFullRange(static_cast<double>(sample)), to);
    }
}

template<typename Class>
struct HighQuality : Class
{
    HighQuality(const ResamplerChoice& choice, double inRate, double outRate, std::size_t channels)
        : Class(static_cast<int>(channels), choice.quality)
    {
        setRatio(inRate / outRate);
    }

    /// At exactly 1 they copy, and jump by a part of a frame.
    void setRatio(double wanted)
    {
        ratio = static_cast<float>(wanted);
        if (ratio == 1.0F) {
            ratio = std::nextafter(1.0F, 0.0F);
        }
        Class::setSamplingRate(ratio, 1.0F);
    }

    float ratio = 1;
};

struct FloatAdapter : HighQuality<HighQualityResampler>
{
    using Sample = float;
    using HighQuality::HighQuality;

    int convert(float* in, int count, float* out, unsigned int& written, bool flush)
    {
        return processFloat(in, count, out, written, false, flush);
    }
};

struct ShortAdapter : HighQuality<HighQualityResamplerShort>
{
    using Sample = short;
    using HighQuality::HighQuality;

    int convert(short* in, int count, short* out, unsigned int& written, bool flush)
    {
        return processShort(reinterpret_cast<unsigned short*>(in), count,
                            reinterpret_cast<unsigned short*>(out), written, false, flush);
    }
};

struct GStreamerAdapter : GStreamerResampler
{
    using Sample = float;

    GStreamerAdapter(const ResamplerChoice& choice, double inRate, double outRate,
                     std::size_t channels)
        : GStreamerResampler(static_cast<unsigned int>(channels), static_cast<unsigned int>(inRate),
                             static_cast<unsigned int>(outRate), Float32,
                             choice.gstreamerQuality()),
          ratio(inRate / outRate)
    {
    }

    int convert(float* in, int count, float* out, unsigned int& written, bool flush)
    {
        return processFloat(in, count, out, written, false, flush);
    }

    void setRatio(double /*wanted*/) {}

    double ratio;
};

} // namespace

int ResamplerChoice::gstreamerQuality() const
{
    constexpr int qualities[] = {1, 4, 7, 10};
    return qualities[quality];
}

/// One of the three, behind one face.
struct RateConverter::Resampler
{
    virtual ~Resampler() = default;
    virtual void setRatio(double ratio) = 0;
    virtual void clear() = 0;
    /// What was made of it, input frames for each output frame.
    [[nodiscard]] virtual double ratio() const = 0;
    virtual void convert(std::span<unsigned char> input, bool flush, const FrameLayout& device,
                         std::vector<unsigned char>& output) = 0;
};

template<typename Adapter>
struct RateConverter::ResamplerOf : Resampler
{
    using Sample = typename Adapter::Sample;

    ResamplerOf(const ResamplerChoice& choice, double inRate, double outRate, std::size_t channels)
        : resampler(choice, inRate, outRate, channels)
    {
    }

    void setRatio(double ratio) override { resampler.setRatio(ratio); }
    void clear() override
    {
        resampler.reset();
        resampler.setRatio(resampler.ratio); // which a reset forgets
    }
    [[nodiscard]] double ratio() const override { return resampler.ratio; }

    void convert(std::span<unsigned char> input, bool flush, const FrameLayout& device,
                 std::vector<unsigned char>& output) override
    {
        auto* in = reinterpret_cast<Sample*>(input.data());
        auto left = static_cast<int>(input.size() / sizeof(Sample));
        const auto sampleBytes = static_cast<std::size_t>(device.sample.bytes);
        const auto room = static_cast<unsigned int>(staging.size());
        output.clear();
        unsigned int written = 0;
        int taken = 0;
        do {
            written = room;
            taken = resampler.convert(in, left, staging.data(), written, flush && left == 0);
            in += taken;
            left -= taken;
            const std::size_t start = output.size();
            output.resize(start + written * sampleBytes);
            for (std::size_t i = 0; i < written; ++i) {
                pack(device.sample, staging[i], output.data() + start + i * sampleBytes);
            }
        } while (left > 0 || written == room || (flush && (written > 0 || taken > 0)));
    }

    Adapter resampler;
    std::vector<Sample> staging = std::vector<Sample>(32768);
};

RateConverter::RateConverter(const ResamplerChoice& choice, double inRate, double outRate,
                             const FrameLayout& device)
    : m_device(device),
      m_inputBytesPerFrame(
          static_cast<std::size_t>(audioUtils::getNumBytesForFormat(inputFormat(choice))) *
          device.numChannels),
      m_inRate(inRate),
      m_framesPerFrame(inRate / outRate)
{
    const auto create = [&]<typename Adapter>(std::type_identity<Adapter>) {
        m_resampler =
            std::make_unique<ResamplerOf<Adapter>>(choice, inRate, outRate, device.numChannels);
    };
    switch (choice.kind) {
    case ResamplerChoice::Kind::Float:
        create(std::type_identity<FloatAdapter>());
        break;
    case ResamplerChoice::Kind::Short:
        create(std::type_identity<ShortAdapter>());
        break;
    case ResamplerChoice::Kind::GStreamer:
        create(std::type_identity<GStreamerAdapter>());
        break;
    }
}

RateConverter::~RateConverter() = default;

// The resamplers abort on what lies outside.
bool RateConverter::isWithinReach(const ResamplerChoice& choice, double inRate, double outRate,
                                  double adjustmentPpm)
{
    const double ratio = inRate / outRate;
    const auto least = static_cast<float>(ratio * (1 - adjustmentPpm * 1e-6));
    const auto most = static_cast<float>(ratio * (1 + adjustmentPpm * 1e-6));
    return choice.kind == ResamplerChoice::Kind::Short ? least > 0.125F && most < 8
                                                       : least >= 0.125F && most <= 8;
}

audioUtils::PcmFormat RateConverter::inputFormat(const ResamplerChoice& choice)
{
    return choice.kind == ResamplerChoice::Kind::Short ? audioUtils::S16LE : audioUtils::F32LE;
}

void RateConverter::adjust(double ppm)
{
    m_resampler->setRatio(m_framesPerFrame * (1 + ppm * 1e-6));
}

void RateConverter::clear()
{
    m_resampler->clear();
    m_position = 0;
}

// What the resamplers tell themselves is rounded to whole frames, 20 us.
long RateConverter::latencyNs() const
{
    return std::lround(-m_position * 1e9 / m_inRate);
}

double RateConverter::latencyFrames() const
{
    return -m_position / m_resampler->ratio();
}

std::size_t RateConverter::inputFramesFor(std::size_t outFrames)
{
    m_framesOwed += static_cast<double>(outFrames) * m_framesPerFrame;
    const double frames = std::floor(m_framesOwed);
    m_framesOwed -= frames;
    return static_cast<std::size_t>(frames);
}

void RateConverter::prepare(std::size_t outFrames)
{
    m_output.reserve(2 * outFrames * m_device.bytes()); // the blocks are not all of one length
}

std::span<unsigned char> RateConverter::convert(std::span<unsigned char> input, bool flush)
{
    m_resampler->convert(input, flush, m_device, m_output);
    const std::size_t framesIn = input.size() / m_inputBytesPerFrame;
    const std::size_t framesOut = m_output.size() / m_device.bytes();
    m_position +=
        static_cast<double>(framesOut) * m_resampler->ratio() - static_cast<double>(framesIn);
    return m_output;
}

} // namespace keldaPlay
