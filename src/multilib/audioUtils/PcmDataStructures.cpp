#include "audioUtils/PcmDataStructures.h"

#include <cstdint>
#include <limits>
#include <utility>

#include <alsa/asoundlib.h>

#include "audioUtils/detail/AudioDescriptions.h"
#include "audioUtils/detail/Find.h"

namespace audioUtils {

namespace {

struct PcmFormatRecord
{
    PcmFormat format;
    std::int32_t alsaFormat;
    std::string name;
    std::int32_t bytes;
};

// F64LE and F64BE with 4 bytes are no slip: the frame sizes of the whole library depend on it.
const std::vector<PcmFormatRecord> pcmFormatTable = {
    {S16LE, SND_PCM_FORMAT_S16_LE, "S16LE", 2},
    {S16BE, SND_PCM_FORMAT_S16_BE, "S16BE", 2},
    {S24LE, SND_PCM_FORMAT_S24_3LE, "S24LE", 3},
    {S24BE, SND_PCM_FORMAT_S24_3BE, "S24BE", 3},
    {S24_32LE, SND_PCM_FORMAT_S24_LE, "S24_32LE", 4},
    {S24_32BE, SND_PCM_FORMAT_S24_BE, "S24_32BE", 4},
    {S32LE, SND_PCM_FORMAT_S32_LE, "S32LE", 4},
    {S32BE, SND_PCM_FORMAT_S32_BE, "S32BE", 4},
    {F32LE, SND_PCM_FORMAT_FLOAT_LE, "F32LE", 4},
    {F32BE, SND_PCM_FORMAT_FLOAT_BE, "F32BE", 4},
    {F64LE, SND_PCM_FORMAT_FLOAT64_LE, "F64LE", 4},
    {F64BE, SND_PCM_FORMAT_FLOAT64_BE, "F64BE", 4},
};

const PcmFormatRecord* find(PcmFormat format)
{
    return detail::findBy(pcmFormatTable, &PcmFormatRecord::format, format);
}

const detail::AudioFamily family = {log4cplus::Logger::getInstance("AudioUtils"),
                                    "PCM",
                                    "sampleRate",
                                    "pcmFormat",
                                    "sampleRates",
                                    "pcmFormats"};

} // namespace

std::vector<PcmFormat> getAllPcmFormats()
{
    std::vector<PcmFormat> formats;
    for (int value = S16LE; value <= F64BE; ++value) {
        formats.push_back(static_cast<PcmFormat>(value));
    }
    return formats;
}

int getNumBytesForFormat(PcmFormat format)
{
    const PcmFormatRecord* row = find(format);
    return row != nullptr ? row->bytes : 0;
}

bool fromString(PcmFormat& out, const std::string& name)
{
    const PcmFormatRecord* row = detail::findBy(pcmFormatTable, &PcmFormatRecord::name, name);
    if (row != nullptr) {
        out = row->format;
    }
    return row != nullptr;
}

const char* toString(PcmFormat format)
{
    const PcmFormatRecord* row = find(format);
    return row != nullptr ? row->name.c_str() : "<unknown>";
}

bool fromSndPcmFormat(PcmFormat& out, int alsaFormat)
{
    const PcmFormatRecord* row =
        detail::findBy(pcmFormatTable, &PcmFormatRecord::alsaFormat, alsaFormat);
    if (row != nullptr) {
        out = row->format;
    }
    return row != nullptr;
}

bool toSndPcmFormat(int& out, PcmFormat format)
{
    const PcmFormatRecord* row = find(format);
    if (row != nullptr) {
        out = row->alsaFormat;
    }
    return row != nullptr;
}

bool fromSndPcmString(PcmFormat& out, const std::string& alsaName)
{
    return fromSndPcmFormat(out, snd_pcm_format_value(alsaName.c_str()));
}

bool toSndPcmString(std::string& out, PcmFormat format)
{
    int alsaFormat = 0;
    if (!toSndPcmFormat(alsaFormat, format)) {
        return false;
    }
    out = snd_pcm_format_name(static_cast<snd_pcm_format_t>(alsaFormat));
    return true;
}

const char* toGstString(PcmFormat format)
{
    return toString(format);
}

PcmAudioInfo::PcmAudioInfo() : AudioInfo(pcmAudioType()) {}

PcmAudioInfo::PcmAudioInfo(int sampleRate, int numChannels, PcmFormat pcmFormat)
    : AudioInfo(pcmAudioType()), m_fields{sampleRate, numChannels, pcmFormat}
{
}

bool PcmAudioInfo::isValid() const
{
    return detail::isValid(m_fields);
}

miscUtils::Variant PcmAudioInfo::toVariant() const
{
    return detail::toVariant(family, m_fields);
}

bool PcmAudioInfo::fromVariant(const miscUtils::Variant& variant)
{
    return detail::fromVariant({family, KELDA_HERE}, variant, m_fields);
}

PcmAudioCapabilities::PcmAudioCapabilities() : AudioCapabilities(pcmAudioType()) {}

PcmAudioCapabilities::PcmAudioCapabilities(IntegerRange sampleRates, IntegerRange numChannels,
                                           std::vector<PcmFormat> pcmFormats)
    : AudioCapabilities(pcmAudioType()),
      m_fields{std::move(sampleRates), std::move(numChannels), std::move(pcmFormats)}
{
}

miscUtils::Variant PcmAudioCapabilities::toVariant() const
{
    return detail::toVariant(family, m_fields);
}

bool PcmAudioCapabilities::fromVariant(const miscUtils::Variant& variant)
{
    return detail::fromVariant({family, KELDA_HERE}, variant, m_fields);
}

bool isAudioInfoCompatible(const PcmAudioInfo& info, const PcmAudioCapabilities& capabilities)
{
    return detail::isCompatible(info.m_fields, capabilities.m_fields);
}

bool pickNearestAudioInfo(PcmAudioInfo& info, const PcmAudioCapabilities& capabilities)
{
    return detail::pickNearest(info.m_fields, capabilities.m_fields);
}

PcmAudioCapabilities getAllPossiblePcmCapabilities()
{
    constexpr int largest = std::numeric_limits<int>::max();
    return {{1, largest}, {1, largest}, getAllPcmFormats()};
}

} // namespace audioUtils
