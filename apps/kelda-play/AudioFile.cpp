#include "AudioFile.h"

#include <stdexcept>

namespace keldaPlay {

AudioFile::AudioFile(const std::string& path)
    : m_path(path), m_file(sf_open(path.c_str(), SFM_READ, &m_info))
{
    if (!m_file) {
        std::string reason = sf_strerror(nullptr);
        reason.erase(reason.find_last_not_of(" .\n") + 1);
        throw std::runtime_error(path + ": " + reason);
    }
    if (m_info.samplerate <= 0 || m_info.channels <= 0) {
        throw std::runtime_error(path + ": no sample rate or no channels");
    }
}

bool AudioFile::fitsInto16Bits() const
{
    switch (m_info.format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
        return true;
    default:
        return false;
    }
}

namespace {

// Only these decode into integers without a scale of the library's own choice.
bool holdsIntegers(const SF_INFO& info)
{
    switch (info.format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_PCM_32:
        return true;
    default:
        return false;
    }
}

} // namespace

std::size_t AudioFile::read(const SampleLayout& layout, std::span<unsigned char> out)
{
    const auto sampleBytes = static_cast<std::size_t>(layout.bytes);
    const std::size_t numFrames = out.size() / (sampleBytes * numChannels());
    const auto place = [&](std::size_t i) { return out.data() + i * sampleBytes; };
    if (layout.isFloat) {
        return readAs(m_floats, numFrames, sf_readf_float,
                      [&](std::size_t i, float sample) { packFloat(layout, sample, place(i)); });
    }
    if (holdsIntegers(m_info)) {
        return readAs(m_integers, numFrames, sf_readf_int,
                      [&](std::size_t i, int sample) { packInteger(layout, sample, place(i)); });
    }
    return readAs(m_doubles, numFrames, sf_readf_double, [&](std::size_t i, double sample) {
        packInteger(layout, toFullRange(sample), place(i));
    });
}

template<typename Sample, typename ReadFrames, typename Pack>
std::size_t AudioFile::readAs(std::vector<Sample>& samples, std::size_t numFrames,
                              ReadFrames readFrames, Pack pack)
{
    samples.resize(numFrames * numChannels());
    const sf_count_t frames =
        readFrames(m_file.get(), samples.data(), static_cast<sf_count_t>(numFrames));
    if (sf_error(m_file.get()) != SF_ERR_NO_ERROR) {
        throw std::runtime_error(m_path + ": " + sf_strerror(m_file.get()));
    }
    const auto count = static_cast<std::size_t>(frames);
    for (std::size_t i = 0; i < count * numChannels(); ++i) {
        pack(i, samples[i]);
    }
    return count;
}

void AudioFile::rewind()
{
    if (sf_seek(m_file.get(), 0, SEEK_SET) != 0) {
        throw std::runtime_error(m_path + ": can't be played again from its start");
    }
}

} // namespace keldaPlay
