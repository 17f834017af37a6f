#include "audioUtils/DsdDataStructures.h"

#include <limits>
#include <utility>

#include "audioUtils/detail/AudioDescriptions.h"

namespace audioUtils {

namespace {

constexpr DsdFormat dsdFormatTable[] = {DSDU8, DSDU16LE, DSDU16BE, DSDU32LE, DSDU32BE};

const detail::AudioFamily family = {log4cplus::Logger::getInstance("AudioUtils"),
                                    "DSD",
                                    "bitrate",
                                    "dsdFormat",
                                    "bitrates",
                                    "dsdFormats"};

} // namespace

std::vector<DsdFormat> getAllDsdFormats()
{
    return {std::begin(dsdFormatTable), std::end(dsdFormatTable)};
}

int getNumBytesForFormat(DsdFormat format)
{
    switch (format) {
    case DSDU8:
        return 1;
    case DSDU16LE:
    case DSDU16BE:
        return 2;
    case DSDU32LE:
    case DSDU32BE:
        return 4;
    }
    return 0;
}

bool fromString(DsdFormat& out, const std::string& name)
{
    for (const DsdFormat format : dsdFormatTable) {
        if (name == toString(format)) {
            out = format;
            return true;
        }
    }
    return false;
}

const char* toString(DsdFormat format)
{
    switch (format) {
    case DSDU8:
        return "DSDU8";
    case DSDU16LE:
        return "DSDU16LE";
    case DSDU16BE:
        return "DSDU16BE";
    case DSDU32LE:
        return "DSDU32LE";
    case DSDU32BE:
        return "DSDU32BE";
    }
    return "<unknown>";
}

DsdAudioInfo::DsdAudioInfo() : AudioInfo(dsdAudioType()) {}

DsdAudioInfo::DsdAudioInfo(int bitrate, int numChannels, DsdFormat dsdFormat)
    : AudioInfo(dsdAudioType()), m_fields{bitrate, numChannels, dsdFormat}
{
}

bool DsdAudioInfo::isValid() const
{
    return detail::isValid(m_fields);
}

miscUtils::Variant DsdAudioInfo::toVariant() const
{
    return detail::toVariant(family, m_fields);
}

bool DsdAudioInfo::fromVariant(const miscUtils::Variant& variant)
{
    return detail::fromVariant({family, KELDA_HERE}, variant, m_fields);
}

DsdAudioCapabilities::DsdAudioCapabilities() : AudioCapabilities(dsdAudioType()) {}

DsdAudioCapabilities::DsdAudioCapabilities(IntegerRange bitrates, IntegerRange numChannels,
                                           std::vector<DsdFormat> dsdFormats)
    : AudioCapabilities(dsdAudioType()),
      m_fields{std::move(bitrates), std::move(numChannels), std::move(dsdFormats)}
{
}

miscUtils::Variant DsdAudioCapabilities::toVariant() const
{
    return detail::toVariant(family, m_fields);
}

bool DsdAudioCapabilities::fromVariant(const miscUtils::Variant& variant)
{
    return detail::fromVariant({family, KELDA_HERE}, variant, m_fields);
}

bool isAudioInfoCompatible(const DsdAudioInfo& info, const DsdAudioCapabilities& capabilities)
{
    return detail::isCompatible(info.m_fields, capabilities.m_fields);
}

bool pickNearestAudioInfo(DsdAudioInfo& info, const DsdAudioCapabilities& capabilities)
{
    return detail::pickNearest(info.m_fields, capabilities.m_fields);
}

DsdAudioCapabilities getAllPossibleDsdCapabilities()
{
    constexpr int largest = std::numeric_limits<int>::max();
    return {{1, largest}, {1, largest}, getAllDsdFormats()};
}

} // namespace audioUtils
