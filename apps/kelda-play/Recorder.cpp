#include "Recorder.h"

namespace keldaPlay {

namespace {

SF_INFO wavOf(const SampleLayout& layout, unsigned int sampleRate, unsigned int numChannels)
{
    SF_INFO info{};
    info.samplerate = static_cast<int>(sampleRate);
    info.channels = static_cast<int>(numChannels);
    info.format = SF_FORMAT_WAV | (layout.isFloat      ? SF_FORMAT_FLOAT
                                   : layout.bits == 16 ? SF_FORMAT_PCM_16
                                   : layout.bits == 24 ? SF_FORMAT_PCM_24
                                                       : SF_FORMAT_PCM_32);
    return info;
}

} // namespace

Recorder::Recorder(const std::string& path, const SampleLayout& layout, unsigned int sampleRate,
                   unsigned int numChannels)
    : m_layout(layout), m_file(path, wavOf(layout, sampleRate, numChannels))
{
}

void Recorder::write(std::span<const unsigned char> block)
{
    if (m_layout.isFloat) {
        writeAs(m_floats, block, unpackFloat, sf_write_float);
    } else {
        writeAs(m_integers, block, unpackInteger, sf_write_int);
    }
}

template<typename Sample, typename Unpack, typename WriteSamples>
void Recorder::writeAs(std::vector<Sample>& samples, std::span<const unsigned char> block,
                       Unpack unpack, WriteSamples writeSamples)
{
    const auto sampleBytes = static_cast<std::size_t>(m_layout.bytes);
    samples.resize(block.size() / sampleBytes);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = unpack(m_layout, block.data() + i * sampleBytes);
    }
    const auto count = static_cast<sf_count_t>(samples.size());
    if (writeSamples(m_file.get(), samples.data(), count) != count) {
        m_file.fail();
    }
}

} // namespace keldaPlay
