#include "DeviceRequest.h"

#include <algorithm>
#include <cstdlib>

#include <alsa/asoundlib.h>

#include "Errors.h"
#include "Opening.h"
#include "audioUtils/device/AlsaOutputDevice.h"
#include "audioUtils/device/FakeOutputDevice.h"

namespace keldaPlay {

using audioUtils::OutputDevice;

namespace {

std::string knownSpeakers()
{
    std::string names;
    for (int position = SND_CHMAP_MONO; position <= SND_CHMAP_LAST; ++position) {
        names +=
            std::string(" ") + snd_pcm_chmap_name(static_cast<snd_pcm_chmap_position>(position));
    }
    return names;
}

void checkChannelMap(const std::string& map, unsigned int numChannels)
{
    const unsigned int mapped = map.empty() ? numChannels : numChannelsOf(map);
    if (mapped != numChannels) {
        throw UsageError("--channel-map " + map + " is for " + std::to_string(mapped) +
                         (mapped == 1 ? " channel" : " channels") + ", but the device gets " +
                         std::to_string(numChannels));
    }
}

} // namespace

unsigned int numChannelsOf(const std::string& channelMap)
{
    const std::unique_ptr<snd_pcm_chmap_t, void (*)(void*)> map(
        snd_pcm_chmap_parse_string(channelMap.c_str()), std::free);
    if (!map) {
        throw UsageError("no map of speakers: " + channelMap + ", known are" + knownSpeakers());
    }
    return map->channels;
}

DeviceRequest requestFor(const Options& options, const audioUtils::PcmAudioInfo& stream)
{
    const auto sampleRate = static_cast<unsigned int>(stream.getSampleRate());
    const auto orElse = [](std::uint64_t asked, std::uint64_t otherwise) {
        return asked != 0 ? asked : otherwise;
    };
    DeviceRequest request;
    request.name = options.device;
    request.format = stream.getPcmFormat();
    request.sampleRate = sampleRate;
    request.numChannels = static_cast<unsigned int>(stream.getNumChannels());
    request.periodSize = orElse(options.period, std::max(1U, sampleRate / 100));
    request.bufferSize = orElse(options.buffer, 8 * request.periodSize);
    request.startThreshold = orElse(options.startThreshold, request.bufferSize);
    request.rateResample = options.rateResample;
    request.channelMap = options.channelMap;
    checkChannelMap(request.channelMap, request.numChannels);
    return request;
}

std::unique_ptr<OutputDevice> createDevice(const std::string& name)
{
    if (name == simulatedDevice) {
        return std::make_unique<audioUtils::FakeOutputDevice>();
    }
    return std::make_unique<audioUtils::AlsaOutputDevice>();
}

std::string open(OutputDevice& device, const DeviceRequest& request)
{
    const Opening opening("device " + request.name);
    if (!device.open(request.name, request.format, request.sampleRate, request.numChannels,
                     request.bufferSize, request.periodSize, request.startThreshold,
                     request.rateResample, request.channelMap)) {
        device.close();
        return "device " + request.name + " can't be opened for " +
               std::to_string(request.numChannels) +
               (request.numChannels == 1 ? " channel of " : " channels of ") +
               audioUtils::toString(request.format) + " at " + std::to_string(request.sampleRate) +
               " Hz";
    }
    if (device.sampleRate() != request.sampleRate) {
        const std::string granted = std::to_string(device.sampleRate());
        device.close();
        return "device " + request.name + " runs at " + granted + " Hz, though it takes " +
               std::to_string(request.sampleRate) + " Hz";
    }
    return "";
}

std::string differences(const DeviceRequest& request, const OutputDevice& device)
{
    std::string text;
    const auto compare = [&text](const char* what, std::uint64_t asked, std::uint64_t granted) {
        if (granted != asked) {
            text += std::string(text.empty() ? "" : ", ") + what + " " + std::to_string(granted) +
                    " instead of " + std::to_string(asked);
        }
    };
    compare("period", request.periodSize, device.periodSize());
    compare("buffer", request.bufferSize, device.bufferSize());
    compare("start", request.startThreshold, device.startThreshold());
    return text;
}

} // namespace keldaPlay
