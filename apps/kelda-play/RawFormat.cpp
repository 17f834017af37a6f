#include "RawFormat.h"

#include <sstream>

#include "Errors.h"

namespace keldaPlay {

namespace {

constexpr unsigned int highestRate = 6'144'000;
constexpr unsigned int mostChannels = 256;

} // namespace

RawFormat parseRawFormat(const std::string& text)
{
    RawFormat raw;
    char colons[2] = {};
    std::string name;
    std::istringstream in(text);
    const bool isWhole =
        static_cast<bool>(in >> raw.rate >> colons[0] >> raw.numChannels >> colons[1] >> name) &&
        in.eof();
    if (!isWhole || colons[0] != ':' || colons[1] != ':' || raw.rate == 0 ||
        raw.rate > highestRate || raw.numChannels == 0 || raw.numChannels > mostChannels) {
        throw UsageError("not RATE:CHANNELS:FORMAT, e.g. 48000:2:S16LE: " + text);
    }
    if (!audioUtils::fromString(raw.format, name) || !layoutOf(raw.format)) {
        throw UsageError("format " + name + " can't be played");
    }
    return raw;
}

} // namespace keldaPlay
