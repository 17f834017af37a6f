#include "DsdReader.h"

#include <algorithm>

namespace keldaPlay {

namespace {

constexpr std::uint64_t mostChannels = 32;
constexpr std::uint64_t baseRates[] = {44100, 48000};
constexpr std::uint64_t multiples[] = {64, 128, 256, 512};

std::uint64_t multipleOf(std::uint64_t bitrate)
{
    for (const std::uint64_t base : baseRates) {
        for (const std::uint64_t multiple : multiples) {
            if (bitrate == base * multiple) {
                return multiple;
            }
        }
    }
    return 0;
}

} // namespace

void DsdReader::accept(const DsdStream& stream)
{
    if (multipleOf(stream.bitrate) == 0) {
        m_input.refuse("has " + std::to_string(stream.bitrate) +
                       " one-bit samples a second, which is none of DSD64 to DSD512");
    }
    if (stream.numChannels == 0 || stream.numChannels > mostChannels) {
        m_input.refuse("has " + std::to_string(stream.numChannels) + " channels instead of 1 to " +
                       std::to_string(mostChannels));
    }
    m_stream = stream;
}

std::string dsdName(std::uint64_t bitrate)
{
    return "DSD" + std::to_string(multipleOf(bitrate));
}

} // namespace keldaPlay
