#include "AudioFile.h"

#include <limits>
#include <stdexcept>

#include "ChannelMapping.h"

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

audioUtils::PcmFormat AudioFile::format() const
{
    switch (m_info.format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
        return audioUtils::S16LE;
    case SF_FORMAT_PCM_24:
        return audioUtils::S24LE;
    case SF_FORMAT_PCM_32:
        return audioUtils::S32LE;
    case SF_FORMAT_DOUBLE:
        return audioUtils::F64LE;
    default:
        return audioUtils::F32LE;
    }
}

std::optional<std::uint64_t> AudioFile::numFrames() const
{
    if (m_info.frames < 0 || m_info.frames == std::numeric_limits<sf_count_t>::max()) {
        return std::nullopt; // the file does not tell
    }
    return static_cast<std::uint64_t>(m_info.frames);
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

std::size_t AudioFile::read(const FrameLayout& layout, std::span<unsigned char> out)
{
    const SampleLayout& sample = layout.sample;
    if (sample.isFloat) {
        return readAs<double>(
            m_floats, layout, out, sf_readf_float,
            [&](float value, unsigned char* to) { packFloat(sample, value, to); });
    }
    if (holdsIntegers(m_info)) {
        return readAs<std::int64_t>(
            m_integers, layout, out, sf_readf_int,
            [&](int value, unsigned char* to) { packInteger(sample, value, to); });
    }
    return readAs<double>(
        m_doubles, layout, out, sf_readf_double,
        [&](double value, unsigned char* to) { packInteger(sample, toFullRange(value), to); });
}

template<typename Sum, typename Sample, typename ReadFrames, typename Pack>
std::size_t AudioFile::readAs(std::vector<Sample>& samples, const FrameLayout& layout,
                              std::span<unsigned char> out, ReadFrames readFrames, Pack pack)
{
    const std::size_t numFrames = out.size() / layout.bytes();
    samples.resize(numFrames * numChannels());
    const sf_count_t frames =
        readFrames(m_file.get(), samples.data(), static_cast<sf_count_t>(numFrames));
    if (sf_error(m_file.get()) != SF_ERR_NO_ERROR) {
        throw std::runtime_error(m_path + ": " + sf_strerror(m_file.get()));
    }
    const std::span<const Sample> decoded(samples.data(),
                                          static_cast<std::size_t>(frames) * numChannels());
    packFrames<Sum>(decoded, numChannels(), layout, out.data(), pack);
    return static_cast<std::size_t>(frames);
}

void AudioFile::rewind()
{
    if (sf_seek(m_file.get(), 0, SEEK_SET) != 0) {
        throw std::runtime_error(m_path + ": can't be played again from its start");
    }
}

} // namespace keldaPlay
