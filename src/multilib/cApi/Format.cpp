#include <array>
#include <string>

#include "audioUtils/PcmDataStructures.h"
#include "cApi/detail/Arguments.h"
#include "cApi/detail/Guard.h"

namespace {

using audioUtils::PcmFormat;

static_assert(static_cast<int>(KELDA_S16LE) == audioUtils::S16LE);
static_assert(static_cast<int>(KELDA_S24_32LE) == audioUtils::S24_32LE);
static_assert(static_cast<int>(KELDA_F64BE) == audioUtils::F64BE);

constexpr std::size_t numFormats = KELDA_F64BE + 1;

PcmFormat inCpp(kelda_format format)
{
    return static_cast<PcmFormat>(format);
}

/// Asks for a format by one of the libraries' functions.
template<typename Key>
kelda_status find(bool (*search)(PcmFormat&, Key), Key key, kelda_format* format)
{
    PcmFormat found = audioUtils::S16LE;
    if (!search(found, key)) {
        return KELDA_NOT_FOUND;
    }
    *format = static_cast<kelda_format>(found);
    return KELDA_OK;
}

kelda_status findName(bool (*search)(PcmFormat&, const std::string&), const char* name,
                      kelda_format* format) noexcept
{
    if (name == nullptr || format == nullptr) {
        return KELDA_INVALID_ARGUMENT;
    }
    return cApi::guarded([&] { return find<const std::string&>(search, name, format); });
}

/// ALSA's names, kept for the life of the process.
const std::array<std::string, numFormats>& alsaNames()
{
    static const auto names = [] {
        std::array<std::string, numFormats> all;
        for (const PcmFormat format : audioUtils::getAllPcmFormats()) {
            if (!audioUtils::toSndPcmString(all.at(static_cast<std::size_t>(format)), format)) {
                throw std::logic_error("a format without a name");
            }
        }
        return all;
    }();
    return names;
}

} // namespace

const char* kelda_format_name(kelda_format format) noexcept
{
    return audioUtils::toString(inCpp(format));
}

kelda_status kelda_format_from_name(const char* name, kelda_format* format) noexcept
{
    return findName(audioUtils::fromString, name, format);
}

size_t kelda_format_bytes(kelda_format format) noexcept
{
    return static_cast<size_t>(audioUtils::getNumBytesForFormat(inCpp(format)));
}

kelda_status kelda_format_to_alsa(kelda_format format, int* code) noexcept
{
    return code != nullptr && audioUtils::toSndPcmFormat(*code, inCpp(format))
               ? KELDA_OK
               : KELDA_INVALID_ARGUMENT;
}

kelda_status kelda_format_from_alsa(int code, kelda_format* format) noexcept
{
    if (format == nullptr) {
        return KELDA_INVALID_ARGUMENT;
    }
    return find(audioUtils::fromSndPcmFormat, code, format);
}

const char* kelda_format_alsa_name(kelda_format format) noexcept
{
    const char* name = "<unknown>";
    if (cApi::isFormat(format)) {
        static_cast<void>(cApi::guardedIf(
            true, [&] { name = alsaNames()[static_cast<std::size_t>(format)].c_str(); }));
    }
    return name;
}

kelda_status kelda_format_from_alsa_name(const char* name, kelda_format* format) noexcept
{
    return findName(audioUtils::fromSndPcmString, name, format);
}
