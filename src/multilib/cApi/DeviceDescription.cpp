#include <cstring>
#include <string>

#include "audioUtils/device/AlsaCapabilities.h"
#include "cApi/detail/Arguments.h"
#include "cApi/detail/Guard.h"
#include "cApi/detail/Log.h"
#include "miscUtils/Json.h"

namespace {

/// Hands out a text with its ending 0, where there is room for all of it, and its length.
kelda_status handOut(const std::string& text, char* out, std::size_t size, std::size_t* length)
{
    if (length != nullptr) {
        *length = text.size();
    }
    if (text.size() >= size) {
        return KELDA_BUFFER_TOO_SMALL;
    }
    std::memcpy(out, text.c_str(), text.size() + 1);
    return KELDA_OK;
}

} // namespace

kelda_status kelda_describe_alsa_device(const char* name, int allow_resampling, char* json,
                                        size_t size, size_t* length) noexcept
{
    if (name == nullptr || !cApi::isBuffer(json, size)) {
        return KELDA_INVALID_ARGUMENT;
    }
    return cApi::guarded([&] {
        cApi::prepareLog();
        audioUtils::PcmAudioCapabilities capabilities;
        return audioUtils::getAlsaCapabilities(capabilities, name, allow_resampling != 0)
                   ? handOut(miscUtils::toJson(capabilities.toVariant()), json, size, length)
                   : KELDA_DEVICE_ERROR;
    });
}
