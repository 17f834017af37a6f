#include <cmath>
#include <stdexcept>

#include "audioUtils/resample/HighQualityResampler.h"
#include "audioUtils/resample/HighQualityResamplerShort.h"
#include "cApi/detail/Resampler.h"

namespace {

using audioUtils::HighQualityResampler;
using audioUtils::HighQualityResamplerShort;

constexpr float leastRatio = 0.125F;
constexpr float largestRatio = 8.0F;

bool takesRatio(const HighQualityResampler& /*kind*/, float ratio)
{
    return ratio >= leastRatio && ratio <= largestRatio;
}

bool takesRatio(const HighQualityResamplerShort& /*kind*/, float ratio)
{
    return ratio > leastRatio && ratio < largestRatio;
}

HighQualityResampler::FilterQuality qualityOf(const kelda_resampler_config& config)
{
    if (config.quality < HighQualityResampler::Low || config.quality > HighQualityResampler::Best) {
        throw std::invalid_argument("no quality");
    }
    return static_cast<HighQualityResampler::FilterQuality>(config.quality);
}

template<typename Class>
class HighQuality final : public kelda_resampler
{
public:
    explicit HighQuality(const kelda_resampler_config& config)
        : m_channels(config.channels),
          m_sampleType(config.sample_type),
          m_resampler(static_cast<int>(config.channels), qualityOf(config))
    {
    }

    [[nodiscard]] kelda_status setRates(double inRate, double outRate) override
    {
        const auto in = static_cast<float>(inRate);
        const auto out = static_cast<float>(outRate);
        if (!takesRatio(m_resampler, in / out)) {
            return KELDA_INVALID_ARGUMENT;
        }
        m_resampler.setSamplingRate(in, out);
        m_inRate = inRate;
        m_outRate = outRate;
        return KELDA_OK;
    }

    /// At exactly 1 the resamplers copy, and jump by a part of a frame.
    [[nodiscard]] kelda_status setPpm(double ppm) override
    {
        auto in = static_cast<float>(m_inRate * (1 + ppm / 1'000'000));
        const auto out = static_cast<float>(m_outRate);
        if (in == out) {
            in = std::nextafter(in, 0.0F);
        }
        if (!takesRatio(m_resampler, in / out)) {
            return KELDA_INVALID_ARGUMENT;
        }
        m_resampler.setSamplingRate(in, out);
        return KELDA_OK;
    }

    [[nodiscard]] kelda_status process(const void* in, std::size_t& inFrames, void* out,
                                       std::size_t& outFrames, bool mute, bool flush) override
    {
        auto outSamples = static_cast<unsigned int>(outFrames * m_channels);
        const int taken =
            process(const_cast<void*>(in), // it is only read
                    static_cast<int>(inFrames * m_channels), out, outSamples, mute, flush);
        inFrames = static_cast<std::size_t>(taken) / m_channels;
        outFrames = outSamples / m_channels;
        return KELDA_OK;
    }

    void reset() override
    {
        m_resampler.reset();
        m_resampler.setSamplingRate(static_cast<float>(m_inRate), static_cast<float>(m_outRate));
    }

    [[nodiscard]] std::int64_t latencyNs() const override
    {
        return m_resampler.getCurrentLatencyNs();
    }

    [[nodiscard]] std::optional<std::size_t> room(std::size_t /*inFrames*/) const override
    {
        return std::nullopt;
    }

    [[nodiscard]] std::uint32_t channels() const override { return m_channels; }

private:
    int process(void* in, int inSamples, void* out, unsigned int& outSamples, bool mute, bool flush)
    {
        switch (m_sampleType) {
        case KELDA_INT16:
            return m_resampler.processShort(static_cast<unsigned short*>(in), inSamples,
                                            static_cast<unsigned short*>(out), outSamples, mute,
                                            flush);
        case KELDA_INT32:
            return m_resampler.processInt(static_cast<unsigned int*>(in), inSamples,
                                          static_cast<unsigned int*>(out), outSamples, mute, flush);
        default:
            return m_resampler.processFloat(static_cast<float*>(in), inSamples,
                                            static_cast<float*>(out), outSamples, mute, flush);
        }
    }

    const std::uint32_t m_channels;
    const kelda_sample_type m_sampleType;
    double m_inRate = 1;
    double m_outRate = 1;
    Class m_resampler;
};

} // namespace

namespace cApi {

std::unique_ptr<kelda_resampler> floatResampler(const kelda_resampler_config& config)
{
    return std::make_unique<HighQuality<HighQualityResampler>>(config);
}

std::unique_ptr<kelda_resampler> shortResampler(const kelda_resampler_config& config)
{
    static_cast<void>(qualityOf(config));
    return config.sample_type == KELDA_INT16
               ? std::make_unique<HighQuality<HighQualityResamplerShort>>(config)
               : nullptr;
}

} // namespace cApi
