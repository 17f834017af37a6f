#include "Negotiation.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "DopNegotiation.h"
#include "Errors.h"
#include "Opening.h"
#include "SampleLayout.h"
#include "audioUtils/device/AlsaCapabilities.h"
#include "miscUtils/Json.h"

namespace keldaPlay {

using namespace audioUtils;

namespace {

/// The bits that a format has to offer; floating point also has room beyond full scale.
int quality(PcmFormat format)
{
    const auto layout = layoutOf(format);
    return !layout ? 64 : layout->isFloat ? 33 : layout->bits;
}

void print(const miscUtils::Variant& description)
{
    std::printf("%s\n", miscUtils::toJson(description, 2).c_str());
}

} // namespace

std::string namesOf(const std::vector<PcmFormat>& formats)
{
    std::string names;
    for (const PcmFormat format : formats) {
        names += std::string(names.empty() ? "" : " ") + toString(format);
    }
    return names;
}

PcmAudioInfo describe(const Source& source)
{
    return {static_cast<int>(source.rate()), static_cast<int>(source.numChannels()),
            source.format()};
}

PcmAudioInfo describe(std::span<const Track> tracks)
{
    const auto demand = [](const Track& track) { return quality(track.info.getPcmFormat()); };
    return std::ranges::max_element(tracks, {}, demand)->info;
}

PcmAudioCapabilities capabilitiesOf(const std::string& deviceName, bool rateResample)
{
    PcmAudioCapabilities device = getAllPossiblePcmCapabilities();
    if (deviceName != "fake") {
        const Opening opening("device " + deviceName);
        if (!getAlsaCapabilities(device, deviceName, rateResample)) {
            throw DeviceError("device " + deviceName + " can't be opened");
        }
    }
    std::vector<PcmFormat> formats = device.getPcmFormats();
    std::erase_if(formats, [](PcmFormat format) { return !layoutOf(format); });
    return {device.getSampleRates(), device.getNumChannels(), std::move(formats)};
}

std::optional<PcmFormat> nearestFormat(PcmFormat wanted, const std::vector<PcmFormat>& supported)
{
    std::optional<PcmFormat> nearest;
    const auto loss = [wanted](PcmFormat format) { // what is lost weighs more than what is wasted
        const int surplus = quality(format) - quality(wanted);
        return surplus >= 0 ? surplus : -100 * surplus;
    };
    for (const PcmFormat format : supported) {
        if (layoutOf(format) && (!nearest || loss(format) < loss(*nearest))) {
            nearest = format;
        }
    }
    return nearest;
}

namespace {

/// What a device that takes it would get, if a resampler makes that of the stream.
PcmAudioInfo checked(const Options& options, const PcmAudioInfo& device, const PcmAudioInfo& stream)
{
    const auto isWithinReach = [&](const ResamplerChoice& choice, double adjustmentPpm) {
        return RateConverter::isWithinReach(choice, stream.getSampleRate(), device.getSampleRate(),
                                            adjustmentPpm);
    };
    const std::string rates = ": " + std::to_string(stream.getSampleRate()) + " Hz to " +
                              std::to_string(device.getSampleRate()) + " Hz";
    if (!isWithinReach({}, 0)) {
        throw DeviceError("no sample rate is converted by more than a factor of 8" + rates);
    }
    if (!isWithinReach(options.resampler, 0)) {
        throw UsageError("--resampler short converts by less than a factor of 8" + rates);
    }
    if (options.drift.correction == Correction::Resample &&
        !isWithinReach(options.resampler, options.drift.limitPpm)) {
        throw UsageError("--correct resample needs room below a factor of 8 for its "
                         "--adjust-limit" +
                         rates);
    }
    return device;
}

} // namespace

PcmAudioInfo negotiate(const Options& options, const PcmAudioInfo& stream,
                       const PcmAudioCapabilities& device)
{
    PcmAudioInfo info = stream;
    info.setPcmFormat(options.format.value_or(stream.getPcmFormat()));
    if (options.format && !layoutOf(*options.format)) {
        throw UsageError(std::string("format ") + toString(*options.format) + " can't be played");
    }
    if (options.rate != 0) {
        info.setSampleRate(static_cast<int>(options.rate));
    }
    if (isAudioInfoCompatible(info, device) && layoutOf(info.getPcmFormat())) {
        return checked(options, info, stream);
    }
    const auto format = nearestFormat(info.getPcmFormat(), device.getPcmFormats());
    if (!format || (options.format && *format != *options.format)) {
        throw DeviceError(
            "device " + options.device + " does not take " + toString(info.getPcmFormat()) +
            (device.getPcmFormats().empty() ? " or any other format that can be played"
                                            : ", but " + namesOf(device.getPcmFormats())));
    }
    info.setPcmFormat(*format);
    static_cast<void>(pickNearestAudioInfo(info, device)); // the format is one of the device's
    return checked(options, info, stream);
}

PcmAudioInfo negotiate(const Options& options, const Playlist& playlist)
{
    if (playlist.isDsd()) {
        return negotiateDop(options, *openSource(playlist.tracks().front().path));
    }
    return negotiate(options, describe(playlist.tracks()),
                     capabilitiesOf(options.device, options.rateResample));
}

std::string changes(const PcmAudioInfo& stream, const PcmAudioInfo& device)
{
    std::string text;
    if (device.getPcmFormat() != stream.getPcmFormat()) {
        text += std::string("format ") + toString(device.getPcmFormat()) + " instead of " +
                toString(stream.getPcmFormat());
    }
    if (device.getSampleRate() != stream.getSampleRate()) {
        text += (text.empty() ? "" : ", ") + std::to_string(device.getSampleRate()) +
                " Hz instead of " + std::to_string(stream.getSampleRate());
    }
    if (device.getNumChannels() != stream.getNumChannels()) {
        text += (text.empty() ? "" : ", ") + std::to_string(device.getNumChannels()) +
                (device.getNumChannels() == 1 ? " channel" : " channels") + " instead of " +
                std::to_string(stream.getNumChannels());
    }
    return text;
}

void printDescriptions(const Options& options)
{
    if (!options.describeFile.empty()) {
        const std::unique_ptr<Source> source = openSource(options.describeFile);
        const auto dsd = source->dsd();
        print(dsd ? dsd->toVariant() : describe(*source).toVariant());
    }
    if (!options.describeDevice.empty()) {
        print(capabilitiesOf(options.describeDevice, options.rateResample).toVariant());
    }
}

} // namespace keldaPlay
