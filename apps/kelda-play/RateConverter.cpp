#include "RateConverter.h"

#include <cmath>
#include <type_traits>

#include "audioUtils/resample/HighQualityResamplerShort.h"

namespace keldaPlay {

using audioUtils::HighQualityResampler;
using audioUtils::HighQualityResamplerShort;

/// One of the two, behind one face.
struct RateConverter::Resampler
{
    virtual ~Resampler() = default;
    [[nodiscard]] virtual long latencyNs() const = 0;
    virtual void convert(std::span<unsigned char> input, bool flush, const FrameLayout& device,
                         std::vector<unsigned char>& output) = 0;
};

template<typename Sample>
struct RateConverter::ResamplerOf : Resampler
{
    static constexpr bool isShort = std::is_same_v<Sample, short>;
    using Class = std::conditional_t<isShort, HighQualityResamplerShort, HighQualityResampler>;

    ResamplerOf(const ResamplerChoice& choice, double inRate, double outRate, std::size_t channels)
        : resampler(static_cast<int>(channels), choice.quality)
    {
        resampler.setSamplingRate(static_cast<float>(inRate), static_cast<float>(outRate));
    }

    [[nodiscard]] long latencyNs() const override { return resampler.getCurrentLatencyNs(); }

    static void pack(const SampleLayout& layout, Sample sample, unsigned char* to)
    {
        if constexpr (isShort) {
            if (layout.isFloat) {
                packFloat(layout, static_cast<float>(sample) / 32768, to);
            } else {
                packInteger(layout, sample * 65536, to);
            }
        } else {
            if (layout.isFloat) {
                packFloat(layout, sample, to);
            } else {
                packInteger(layout, toFullRange(static_cast<double>(sample)), to);
            }
        }
    }

    void convert(std::span<unsigned char> input, bool flush, const FrameLayout& device,
                 std::vector<unsigned char>& output) override
    {
        auto* in = reinterpret_cast<Sample*>(input.data());
        auto left = static_cast<int>(input.size() / sizeof(Sample));
        const auto sampleBytes = static_cast<std::size_t>(device.sample.bytes);
        output.clear();
        unsigned int written = 0;
        int taken = 0;
        do {
            written = static_cast<unsigned int>(staging.size());
            taken = process(in, left, written, flush && left == 0);
            in += taken;
            left -= taken;
            const std::size_t start = output.size();
            output.resize(start + written * sampleBytes);
            for (std::size_t i = 0; i < written; ++i) {
                pack(device.sample, staging[i], output.data() + start + i * sampleBytes);
            }
        } while (left > 0 || written > 0 || (flush && taken > 0));
    }

    int process(Sample* in, int count, unsigned int& written, bool flush)
    {
        if constexpr (isShort) {
            return resampler.processShort(reinterpret_cast<unsigned short*>(in), count,
                                          reinterpret_cast<unsigned short*>(staging.data()),
                                          written, false, flush);
        } else {
            return resampler.processFloat(in, count, staging.data(), written, false, flush);
        }
    }

    Class resampler;
    std::vector<Sample> staging = std::vector<Sample>(32768);
};

RateConverter::RateConverter(const ResamplerChoice& choice, double inRate, double outRate,
                             const FrameLayout& device)
    : m_device(device), m_framesPerFrame(inRate / outRate)
{
    if (choice.shorts) {
        m_resampler =
            std::make_unique<ResamplerOf<short>>(choice, inRate, outRate, device.numChannels);
    } else {
        m_resampler =
            std::make_unique<ResamplerOf<float>>(choice, inRate, outRate, device.numChannels);
    }
}

RateConverter::~RateConverter() = default;

audioUtils::PcmFormat RateConverter::inputFormat(const ResamplerChoice& choice)
{
    return choice.shorts ? audioUtils::S16LE : audioUtils::F32LE;
}

long RateConverter::latencyNs() const
{
    return m_resampler->latencyNs();
}

std::size_t RateConverter::inputFramesFor(std::size_t outFrames)
{
    m_framesOwed += static_cast<double>(outFrames) * m_framesPerFrame;
    const double frames = std::floor(m_framesOwed);
    m_framesOwed -= frames;
    return static_cast<std::size_t>(frames);
}

std::span<unsigned char> RateConverter::convert(std::span<unsigned char> input, bool flush)
{
    m_resampler->convert(input, flush, m_device, m_output);
    return m_output;
}

} // namespace keldaPlay
