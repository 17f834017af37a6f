#include "Converters.h"

#include <stdexcept>

#include <samplerate.h>
#include <soxr.h>
#include <speex/speex_resampler.h>
#include <zita-resampler/resampler.h>
#include <zita-resampler/vresampler.h>

#include "audioUtils/resample/GStreamerResampler.h"
#include "audioUtils/resample/HighQualityResamplerShort.h"

namespace {

using audioUtils::GStreamerResampler;
using audioUtils::HighQualityResampler;
using audioUtils::HighQualityResamplerShort;

class OurFloat : public Converter
{
public:
    OurFloat(double inRate, double outRate, unsigned int channels,
             HighQualityResampler::FilterQuality quality)
        : m_channels(channels), m_resampler(static_cast<int>(channels), quality)
    {
        m_resampler.setSamplingRate(static_cast<float>(inRate), static_cast<float>(outRate));
    }

    std::size_t process(const float* in, std::size_t frames, float* out, std::size_t room) override
    {
        auto* input = const_cast<float*>(in); // which it does not change
        auto left = static_cast<int>(frames * m_channels);
        std::size_t written = 0;
        while (left > 0) {
            auto count = static_cast<unsigned int>((room - written) * m_channels);
            const int taken = m_resampler.processFloat(input, left, out + written * m_channels,
                                                       count, false, false);
            input += taken;
            left -= taken;
            written += count / m_channels;
        }
        return written;
    }

private:
    std::size_t m_channels;
    HighQualityResampler m_resampler;
};

class OurShort : public Converter
{
public:
    OurShort(double inRate, double outRate, unsigned int channels,
             HighQualityResampler::FilterQuality quality)
        : m_channels(channels), m_resampler(static_cast<int>(channels), quality)
    {
        m_resampler.setSamplingRate(static_cast<float>(inRate), static_cast<float>(outRate));
    }

    std::size_t process(const float* in, std::size_t frames, float* out, std::size_t room) override
    {
        // Shorts are what it is given in practice: their conversion is not part of its time when
        // the input is the same as before.
        if (in != m_converted) {
            m_in.clear();
            for (std::size_t i = 0; i < frames * m_channels; ++i) {
                m_in.push_back(static_cast<unsigned short>(static_cast<short>(in[i] * 32767)));
            }
            m_converted = in;
        }
        m_out.resize(room * m_channels);
        auto* input = m_in.data();
        auto left = static_cast<int>(m_in.size());
        std::size_t written = 0;
        while (left > 0) {
            auto count = static_cast<unsigned int>(m_out.size() - written);
            const int taken =
                m_resampler.processShort(input, left, m_out.data() + written, count, false, false);
            input += taken;
            left -= taken;
            written += count;
        }
        if (out != nullptr) {
            for (std::size_t i = 0; i < written; ++i) {
                out[i] = static_cast<float>(static_cast<short>(m_out[i])) / 32767;
            }
        }
        return written / m_channels;
    }

private:
    std::size_t m_channels;
    HighQualityResamplerShort m_resampler;
    const float* m_converted = nullptr;
    std::vector<unsigned short> m_in;
    std::vector<unsigned short> m_out;
};

class OurGStreamer : public Converter
{
public:
    OurGStreamer(double inRate, double outRate, unsigned int channels, int quality)
        : m_resampler(channels, static_cast<unsigned int>(inRate),
                      static_cast<unsigned int>(outRate), GStreamerResampler::Float32, quality)
    {
    }

    std::size_t process(const float* in, std::size_t frames, float* out, std::size_t room) override
    {
        return static_cast<std::size_t>(
            m_resampler.resample(const_cast<float*>(in), static_cast<unsigned int>(frames), out,
                                 static_cast<unsigned int>(room), false));
    }

private:
    GStreamerResampler m_resampler;
};

/// zita's Resampler and VResampler have the same face.
template<typename Class>
class Zita : public Converter
{
public:
    template<typename... Arguments>
    explicit Zita(Arguments... arguments)
    {
        if (m_resampler.setup(arguments...) != 0) {
            throw std::invalid_argument("zita");
        }
    }

    std::size_t process(const float* in, std::size_t frames, float* out, std::size_t room) override
    {
        m_resampler.inp_count = static_cast<unsigned int>(frames);
        m_resampler.inp_data = const_cast<float*>(in);
        m_resampler.out_count = static_cast<unsigned int>(room);
        m_resampler.out_data = out;
        m_resampler.process();
        return room - m_resampler.out_count;
    }

private:
    Class m_resampler;
};

class Soxr : public Converter
{
public:
    Soxr(double inRate, double outRate, unsigned int channels, bool variable)
    {
        const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, variable ? SOXR_VR : 0);
        m_soxr.reset(soxr_create(inRate, outRate, channels, nullptr, nullptr, &quality, nullptr));
        if (variable) {
            soxr_set_io_ratio(m_soxr.get(), inRate / outRate, 0);
        }
    }

    std::size_t process(const float* in, std::size_t frames, float* out, std::size_t room) override
    {
        std::size_t taken = 0;
        std::size_t written = 0;
        soxr_process(m_soxr.get(), in, frames, &taken, out, room, &written);
        return written;
    }

private:
    struct Delete
    {
        void operator()(soxr* resampler) const { soxr_delete(resampler); }
    };

    std::unique_ptr<soxr, Delete> m_soxr;
};

class SampleRate : public Converter
{
public:
    SampleRate(double inRate, double outRate, unsigned int channels, int type)
        : m_ratio(outRate / inRate)
    {
        int error = 0;
        m_state.reset(src_new(type, static_cast<int>(channels), &error));
    }

    std::size_t process(const float* in, std::size_t frames, float* out, std::size_t room) override
    {
        SRC_DATA data{};
        data.data_in = in;
        data.input_frames = static_cast<long>(frames);
        data.data_out = out;
        data.output_frames = static_cast<long>(room);
        data.src_ratio = m_ratio;
        src_process(m_state.get(), &data);
        return static_cast<std::size_t>(data.output_frames_gen);
    }

private:
    struct Delete
    {
        void operator()(SRC_STATE* state) const { src_delete(state); }
    };

    double m_ratio;
    std::unique_ptr<SRC_STATE, Delete> m_state;
};

class Speex : public Converter
{
public:
    Speex(double inRate, double outRate, unsigned int channels, int quality)
    {
        // In tenths of Hz, so that rates just beside one another are what they are.
        const auto in = static_cast<spx_uint32_t>(inRate * 10 + 0.5);
        const auto out = static_cast<spx_uint32_t>(outRate * 10 + 0.5);
        int error = 0;
        m_state.reset(
            speex_resampler_init_frac(channels, in, out, in / 10, out / 10, quality, &error));
    }

    std::size_t process(const float* in, std::size_t frames, float* out, std::size_t room) override
    {
        auto taken = static_cast<spx_uint32_t>(frames);
        auto written = static_cast<spx_uint32_t>(room);
        speex_resampler_process_interleaved_float(m_state.get(), in, &taken, out, &written);
        return written;
    }

private:
    struct Delete
    {
        void operator()(SpeexResamplerState* state) const { speex_resampler_destroy(state); }
    };

    std::unique_ptr<SpeexResamplerState, Delete> m_state;
};

template<typename Class, typename... Arguments>
ConverterKind kind(const std::string& name, bool isFixed, Arguments... arguments)
{
    return {name, isFixed, [=](double inRate, double outRate, unsigned int channels) {
                return std::make_unique<Class>(inRate, outRate, channels, arguments...);
            }};
}

ConverterKind zita(unsigned int halfLength)
{
    return {"zita Resampler " + std::to_string(halfLength), true,
            [=](double inRate, double outRate, unsigned int channels) {
                return std::make_unique<Zita<Resampler>>(static_cast<unsigned int>(inRate),
                                                         static_cast<unsigned int>(outRate),
                                                         channels, halfLength);
            }};
}

ConverterKind zitaVariable(unsigned int halfLength)
{
    return {"zita VResampler " + std::to_string(halfLength), false,
            [=](double inRate, double outRate, unsigned int channels) {
                return std::make_unique<Zita<VResampler>>(outRate / inRate, channels, halfLength);
            }};
}

} // namespace

const std::vector<ConverterKind>& converterKinds()
{
    static const std::vector<ConverterKind> kinds = {
        kind<OurFloat>("kelda float best", false, HighQualityResampler::Best),
        kind<OurFloat>("kelda float high", false, HighQualityResampler::High),
        kind<OurFloat>("kelda float medium", false, HighQualityResampler::Medium),
        kind<OurFloat>("kelda float low", false, HighQualityResampler::Low),
        kind<OurShort>("kelda 16-bit best", false, HighQualityResampler::Best),
        kind<OurGStreamer>("kelda gstreamer 10", true, 10),
        kind<OurGStreamer>("kelda gstreamer 4", true, 4),
        zitaVariable(32),
        zitaVariable(48),
        zita(32),
        zita(48),
        kind<Soxr>("soxr HQ", true, false),
        kind<Soxr>("soxr HQ, variable", false, true),
        kind<SampleRate>("libsamplerate fastest", false, SRC_SINC_FASTEST),
        kind<SampleRate>("libsamplerate medium", false, SRC_SINC_MEDIUM_QUALITY),
        kind<Speex>("speexdsp q3", false, 3),
        kind<Speex>("speexdsp q5", false, 5),
        kind<Speex>("speexdsp q10", false, 10)};
    return kinds;
}
