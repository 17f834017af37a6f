#include "RawFormat.h"

#include <string_view>

#include "Errors.h"
#include "NumberText.h"

namespace keldaPlay {

namespace {

constexpr unsigned int highestRate = 6'144'000;
constexpr unsigned int mostChannels = 256;

} // namespace

RawFormat parseRawFormat(const std::string& text)
{
    const auto wrong = [&text] {
        return UsageError("not RATE:CHANNELS:FORMAT, e.g. 48000:2:S16LE: " + text);
    };
    const std::size_t first = text.find(':');
    const std::size_t second = text.find(':', first == text.npos ? first : first + 1);
    if (second == text.npos) {
        throw wrong();
    }
    const auto rate = numberIn<unsigned int>(std::string_view(text).substr(0, first));
    const auto numChannels =
        numberIn<unsigned int>(std::string_view(text).substr(first + 1, second - first - 1));
    if (!rate || *rate == 0 || *rate > highestRate || !numChannels || *numChannels == 0 ||
        *numChannels > mostChannels) {
        throw wrong();
    }
    RawFormat raw;
    raw.rate = *rate;
    raw.numChannels = *numChannels;
    const std::string name = text.substr(second + 1);
    if (!audioUtils::fromString(raw.format, name) || !layoutOf(raw.format)) {
        throw UsageError("format " + name + " can't be played");
    }
    return raw;
}

} // namespace keldaPlay
