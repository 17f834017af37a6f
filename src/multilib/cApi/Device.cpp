#include <memory>
#include <string>

#include "audioUtils/device/AlsaOutputDevice.h"
#include "audioUtils/device/FakeOutputDevice.h"
#include "cApi/detail/Arguments.h"
#include "cApi/detail/Create.h"

using audioUtils::OutputDevice;
using cApi::guarded;

struct kelda_device
{
    explicit kelda_device(std::unique_ptr<OutputDevice> device_) : device(std::move(device_)) {}

    const std::unique_ptr<OutputDevice> device;
};

namespace {

std::unique_ptr<OutputDevice> made(kelda_device_kind kind)
{
    if (kind == KELDA_DEVICE_ALSA) {
        return std::make_unique<audioUtils::AlsaOutputDevice>();
    }
    return std::make_unique<audioUtils::FakeOutputDevice>();
}

bool isGeometry(std::uint64_t bufferSize, std::uint64_t periodSize, std::uint64_t startThreshold)
{
    const auto isSize = [](std::uint64_t size) { return size >= 1 && size <= cApi::largestInt; };
    return isSize(bufferSize) && isSize(periodSize) && startThreshold <= cApi::largestInt;
}

bool isRight(const kelda_device_config& config)
{
    constexpr std::uint32_t largestRate = 1'000'000'000; // a period of a frame lasts 1 ns
    return cApi::isFormat(config.format) && config.sample_rate >= 1 &&
           config.sample_rate <= largestRate && config.channels >= 1 &&
           isGeometry(config.buffer_size, config.period_size, config.start_threshold);
}

/// A device that could not be configured is open, but of no use.
kelda_status open(OutputDevice& device, const char* name, const kelda_device_config& config)
{
    if (device.isOpened()) {
        return KELDA_ALREADY_OPEN;
    }
    const std::string channelMap = config.channel_map != nullptr ? config.channel_map : "";
    if (device.open(name, static_cast<audioUtils::PcmFormat>(config.format), config.sample_rate,
                    config.channels, config.buffer_size, config.period_size, config.start_threshold,
                    config.allow_resampling != 0, channelMap)) {
        return KELDA_OK;
    }
    device.close();
    return KELDA_DEVICE_ERROR;
}

kelda_status statusOf(OutputDevice::WriteReturnValue result)
{
    switch (result) {
    case OutputDevice::Success:
        return KELDA_OK;
    case OutputDevice::Underrun:
        return KELDA_UNDERRUN;
    case OutputDevice::NotOpened:
        return KELDA_NOT_OPEN;
    case OutputDevice::PrepareFailed:
        return KELDA_PREPARE_FAILED;
    case OutputDevice::RecoverFailed:
        return KELDA_RECOVER_FAILED;
    }
    return KELDA_INTERNAL_ERROR;
}

/// Calls a function with the device, when it is open.
template<typename Handle, typename Function>
kelda_status whenOpen(Handle* handle, bool argumentsAreRight, Function function) noexcept
{
    if (handle == nullptr || !argumentsAreRight) {
        return KELDA_INVALID_ARGUMENT;
    }
    if (!handle->device->isOpened()) {
        return KELDA_NOT_OPEN;
    }
    return guarded([&] { return function(*handle->device); });
}

/// The same, for a function that gives a value.
template<typename Result, typename Function>
kelda_status getWhenOpen(const kelda_device* handle, Result* result, Function function) noexcept
{
    return whenOpen(handle, result != nullptr, [&](const OutputDevice& device) {
        *result = function(device);
        return KELDA_OK;
    });
}

constexpr std::int64_t nanosecondsPerMicrosecond = 1000;

} // namespace

kelda_status kelda_device_create(kelda_device_kind kind, kelda_device** device) noexcept
{
    return cApi::create(device, kind == KELDA_DEVICE_FAKE || kind == KELDA_DEVICE_ALSA,
                        [&] { return std::make_unique<kelda_device>(made(kind)); });
}

void kelda_device_destroy(kelda_device* device) noexcept
{
    cApi::destroy(device);
}

kelda_status kelda_device_open(kelda_device* device, const char* name,
                               const kelda_device_config* config) noexcept
{
    if (device == nullptr || name == nullptr || config == nullptr || !isRight(*config)) {
        return KELDA_INVALID_ARGUMENT;
    }
    return guarded([&] { return open(*device->device, name, *config); });
}

kelda_status kelda_device_close(kelda_device* device) noexcept
{
    return cApi::guardedIf(device != nullptr, [&] { device->device->close(); });
}

int kelda_device_is_open(const kelda_device* device) noexcept
{
    return device != nullptr && device->device->isOpened() ? 1 : 0;
}

kelda_status kelda_device_write(kelda_device* device, const void* data, size_t frames) noexcept
{
    const bool isRight = cApi::isBuffer(data, frames) && cApi::fitsInt(frames, 1);
    return whenOpen(device, isRight, [&](OutputDevice& output) {
        return statusOf(output.write(const_cast<void*>(data), frames)); // it only reads
    });
}

kelda_status kelda_device_drain(kelda_device* device) noexcept
{
    return whenOpen(device, true, [](OutputDevice& output) {
        output.drain();
        return KELDA_OK;
    });
}

kelda_status kelda_device_adjust(kelda_device* device, uint64_t buffer_size, uint64_t period_size,
                                 uint64_t start_threshold) noexcept
{
    const bool isRight = isGeometry(buffer_size, period_size, start_threshold);
    return whenOpen(device, isRight, [&](OutputDevice& output) {
        return output.adjustParams(buffer_size, period_size, start_threshold) ? KELDA_OK
                                                                              : KELDA_DEVICE_ERROR;
    });
}

kelda_status kelda_device_get_properties(const kelda_device* device,
                                         kelda_device_properties* properties) noexcept
{
    return getWhenOpen(device, properties, [](const OutputDevice& output) {
        return kelda_device_properties{static_cast<kelda_format>(output.sampleFormat()),
                                       output.sampleRate(),
                                       output.numChannels(),
                                       output.numBytesPerSample(),
                                       output.bufferSize(),
                                       output.periodSize(),
                                       output.startThreshold()};
    });
}

kelda_status kelda_device_get_delay(const kelda_device* device, int64_t* delay) noexcept
{
    return getWhenOpen(device, delay, [](const OutputDevice& output) {
        return output.getCompensatedRenderingDelay();
    });
}

kelda_status kelda_device_get_last_delay(const kelda_device* device, int64_t* delay,
                                         uint64_t* timestamp) noexcept
{
    const bool isRight = delay != nullptr && timestamp != nullptr;
    return whenOpen(device, isRight, [&](const OutputDevice& output) {
        const audioUtils::RenderingDelay last = output.lastRenderingDelay();
        const bool isKnown = last.timestamp != audioUtils::RenderingDelay::noTimestamp;
        *delay = last.delay * nanosecondsPerMicrosecond;
        *timestamp = isKnown ? static_cast<uint64_t>(last.timestamp * nanosecondsPerMicrosecond)
                             : KELDA_NO_TIME;
        return KELDA_OK;
    });
}

kelda_status kelda_device_get_audio_timestamp(const kelda_device* device,
                                              uint64_t* timestamp) noexcept
{
    return getWhenOpen(device, timestamp,
                       [](const OutputDevice& output) { return output.currentAudioTimestamp(); });
}

kelda_status kelda_device_get_frames_ready(const kelda_device* device, size_t* frames) noexcept
{
    return whenOpen(device, frames != nullptr, [&](const OutputDevice& output) {
        const int ready = output.framesReady();
        if (ready < 0) {
            return KELDA_DEVICE_ERROR;
        }
        *frames = static_cast<size_t>(ready);
        return KELDA_OK;
    });
}
