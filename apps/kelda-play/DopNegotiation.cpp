#include "DopNegotiation.h"

#include <algorithm>
#include <vector>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "DopDevice.h"
#include "DsdReader.h"
#include "Errors.h"
#include "Negotiation.h"

namespace keldaPlay {

using namespace audioUtils;

namespace {

const std::vector<PcmFormat> formatsOf24Bits = {S24LE, S24BE, S24_32LE, S24_32BE, S32LE, S32BE};

bool carriesDop(PcmFormat format)
{
    return std::ranges::find(formatsOf24Bits, format) != std::end(formatsOf24Bits);
}

std::string inWords(const IntegerRange& range)
{
    if (!range.hasAllowedIntegers()) {
        return std::to_string(range.getMinInteger()) + " to " +
               std::to_string(range.getMaxInteger());
    }
    std::string text;
    for (const int value : range.getAllowedIntegers()) {
        text += (text.empty() ? "" : " ") + std::to_string(value);
    }
    return text;
}

std::string inWords(const PcmAudioCapabilities& device)
{
    return inWords(device.getSampleRates()) + " Hz; " + namesOf(device.getPcmFormats()) + "; " +
           inWords(device.getNumChannels()) + " channels";
}

/// What stands in the way of a user's wishes.
std::string contradiction(const Options& options, unsigned int rate)
{
    if (options.rate != 0 && options.rate != rate) {
        return "needs " + std::to_string(rate) + " Hz, not " + std::to_string(options.rate);
    }
    if (options.format && !carriesDop(*options.format)) {
        return std::string("needs 24 bits, not ") + toString(*options.format) + ", but " +
               namesOf(formatsOf24Bits);
    }
    if (options.drift.correction == Correction::Resample) {
        return "can't be resampled: --correct none or device";
    }
    return "";
}

void checkPassage(const std::string& deviceName, const std::string& what)
{
    const snd_pcm_type_t type = typeOf(deviceName);
    const std::string device =
        "device " + deviceName + " (ALSA's plugin " + snd_pcm_type_name(type) + ")";
    switch (passageThrough(type)) {
    case Passage::Unchanged:
        break;
    case Passage::Unknown:
        LOG4CPLUS_WARN(log4cplus::Logger::getInstance("kelda-play"),
                       what << " only where nothing behind " << device << " changes a bit");
        break;
    case Passage::Converted:
        throw DeviceError(what + " needs a card, e.g. hw:0: " + device + " may change the samples");
    }
}

} // namespace

PcmAudioInfo negotiateDop(const Options& options, const Source& source)
{
    PcmAudioInfo info = negotiateDop(options, source, capabilitiesOf(options.device, false));
    checkPassage(options.device, source.name() + ": " + nameOfDop(source));
    return info;
}

PcmAudioInfo negotiateDop(const Options& options, const Source& source,
                          const PcmAudioCapabilities& device)
{
    const std::string what = source.name() + ": " + nameOfDop(source);
    if (const std::string text = contradiction(options, source.rate()); !text.empty()) {
        throw UsageError(what + " " + text);
    }
    std::vector<PcmFormat> formats = device.getPcmFormats();
    std::erase_if(formats, [&](PcmFormat format) {
        return !carriesDop(format) || (options.format && format != *options.format);
    });
    PcmAudioInfo info = describe(source);
    const auto format = nearestFormat(info.getPcmFormat(), formats);
    info.setPcmFormat(format.value_or(info.getPcmFormat()));
    if (!format || !isAudioInfoCompatible(info, device)) {
        throw DeviceError(what + " needs " + std::to_string(source.rate()) + " Hz, " +
                          (options.format ? toString(*options.format) : "24 bits") + " and " +
                          std::to_string(source.numChannels()) + " channels, which device " +
                          options.device + " does not take (it takes " + inWords(device) + ")");
    }
    return info;
}

std::string nameOfDop(const Source& source)
{
    return dsdName(static_cast<std::uint64_t>(source.dsd()->getBitrate())) + " as DoP";
}

} // namespace keldaPlay
