#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <gst/gst.h>

#include "audioUtils/resample/GStreamerResampler.h"
#include "cApi/detail/Log.h"
#include "cApi/detail/Resampler.h"

namespace {

using audioUtils::GStreamerResampler;

static_assert(static_cast<int>(KELDA_INT16) == GStreamerResampler::Int16);
static_assert(static_cast<int>(KELDA_INT32) == GStreamerResampler::Int32);
static_assert(static_cast<int>(KELDA_FLOAT32) == GStreamerResampler::Float32);

constexpr std::uint32_t mostChannels = 63;

/// Between rates further apart audioresample's tables can outgrow the memory, and GLib then aborts.
bool takesRate(double rate)
{
    return rate >= 1000 && rate <= 1'536'000 && rate == std::floor(rate);
}

/// Whether GStreamer has what the pipeline is made of.
bool hasElements()
{
    GStreamerResampler::initGstreamer();
    const char* const names[] = {"appsrc", "volume", "audioresample", "appsink"};
    return std::ranges::all_of(names, [](const char* name) {
        GstElementFactory* const factory = gst_element_factory_find(name);
        if (factory != nullptr) {
            gst_object_unref(factory);
        }
        return factory != nullptr;
    });
}

class GStreamer final : public kelda_resampler
{
public:
    explicit GStreamer(const kelda_resampler_config& config)
        : m_channels(config.channels),
          m_type(static_cast<GStreamerResampler::SampleDataType>(config.sample_type)),
          m_inRate(static_cast<unsigned int>(config.in_rate)),
          m_outRate(static_cast<unsigned int>(config.out_rate)),
          m_resampler(m_channels, m_inRate, m_outRate, m_type, config.quality)
    {
        cApi::restoreLog(); // each one sets its logger up anew
    }

    [[nodiscard]] kelda_status setRates(double inRate, double outRate) override
    {
        if (!takesRate(inRate) || !takesRate(outRate)) {
            return KELDA_INVALID_ARGUMENT;
        }
        const auto in = static_cast<unsigned int>(inRate);
        const auto out = static_cast<unsigned int>(outRate);
        if (!m_resampler.setAudioFormatAndRate(m_type, in, out)) {
            return KELDA_INTERNAL_ERROR;
        }
        m_inRate = in;
        m_outRate = out;
        return KELDA_OK;
    }

    [[nodiscard]] kelda_status setPpm(double /*ppm*/) override { return KELDA_NOT_SUPPORTED; }

    [[nodiscard]] kelda_status process(const void* in, std::size_t& inFrames, void* out,
                                       std::size_t& outFrames, bool mute, bool flush) override
    {
        if (mute) {
            return KELDA_NOT_SUPPORTED;
        }
        // It begins anew where the last stream has ended.
        if (!m_resampler.setAudioFormatAndRate(m_type, m_inRate, m_outRate)) {
            return KELDA_INTERNAL_ERROR;
        }
        if (m_inRate == m_outRate) { // copied, as far as there is room
            inFrames = std::min(inFrames, outFrames);
        }
        auto outSamples = static_cast<unsigned int>(outFrames * m_channels);
        process(const_cast<void*>(in), // it is only read
                static_cast<int>(inFrames * m_channels), out, outSamples, flush);
        outFrames = outSamples / m_channels;
        return KELDA_OK;
    }

    void reset() override { m_resampler.reset(); }

    [[nodiscard]] std::int64_t latencyNs() const override
    {
        return m_resampler.getCurrentLatencyNs();
    }

    /// The resampler's own answer, which wraps at 2^32, of no input is what it keeps.
    [[nodiscard]] std::optional<std::size_t> room(std::size_t inFrames) const override
    {
        if (m_inRate == m_outRate) {
            return inFrames;
        }
        return inFrames * 2 * m_outRate / m_inRate + m_resampler.calculateOutputBufferSize(0);
    }

    [[nodiscard]] std::uint32_t channels() const override { return m_channels; }

private:
    void process(void* in, int inSamples, void* out, unsigned int& outSamples, bool flush)
    {
        switch (m_type) {
        case GStreamerResampler::Int16:
            m_resampler.processShort(static_cast<unsigned short*>(in), inSamples,
                                     static_cast<unsigned short*>(out), outSamples, false, flush);
            break;
        case GStreamerResampler::Int32:
            m_resampler.processInt(static_cast<unsigned int*>(in), inSamples,
                                   static_cast<unsigned int*>(out), outSamples, false, flush);
            break;
        case GStreamerResampler::Float32:
            m_resampler.processFloat(static_cast<float*>(in), inSamples, static_cast<float*>(out),
                                     outSamples, false, flush);
            break;
        }
    }

    const std::uint32_t m_channels;
    const GStreamerResampler::SampleDataType m_type;
    unsigned int m_inRate;
    unsigned int m_outRate;
    GStreamerResampler m_resampler;
};

} // namespace

namespace cApi {

std::unique_ptr<kelda_resampler> gstreamerResampler(const kelda_resampler_config& config)
{
    if (config.channels > mostChannels || config.quality < 1 || config.quality > 10 ||
        !takesRate(config.in_rate) || !takesRate(config.out_rate)) {
        throw std::invalid_argument("not for this resampler");
    }
    return hasElements() ? std::make_unique<GStreamer>(config) : nullptr;
}

} // namespace cApi
