#include "DeviceRequest.h"

#include <algorithm>
#include <stdexcept>

#include "audioUtils/device/AlsaOutputDevice.h"
#include "audioUtils/device/FakeOutputDevice.h"

namespace keldaPlay {

using audioUtils::OutputDevice;

DeviceRequest requestFor(const Options& options, const Playlist& playlist,
                         audioUtils::PcmFormat format)
{
    if (options.rate != 0 && options.rate != playlist.rate()) {
        throw std::runtime_error("the files have " + std::to_string(playlist.rate()) +
                                 " Hz, not the device's " + std::to_string(options.rate) +
                                 " Hz, and nothing here converts sample rates");
    }
    const auto orElse = [](std::uint64_t asked, std::uint64_t otherwise) {
        return asked != 0 ? asked : otherwise;
    };
    const std::uint64_t period = orElse(options.period, std::max(1U, playlist.rate() / 100));
    const std::uint64_t buffer = orElse(options.buffer, 8 * period);
    const std::uint64_t startThreshold = orElse(options.startThreshold, buffer);
    return {options.device, format,         playlist.rate(),      playlist.numChannels(), buffer,
            period,         startThreshold, options.rateResample, options.channelMap};
}

std::unique_ptr<OutputDevice> createDevice(const std::string& name)
{
    if (name == "fake") {
        return std::make_unique<audioUtils::FakeOutputDevice>();
    }
    return std::make_unique<audioUtils::AlsaOutputDevice>();
}

std::string open(OutputDevice& device, const DeviceRequest& request)
{
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
        return "device " + request.name + " runs at " + granted + " Hz, not the files' " +
               std::to_string(request.sampleRate) + " Hz, and nothing here converts sample rates";
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
