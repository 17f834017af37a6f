#include "SampleLayout.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>
#include <limits>

namespace keldaPlay {

namespace {

void store(const SampleLayout& layout, std::uint32_t value, unsigned char* out)
{
    for (int i = 0; i < layout.bytes; ++i) {
        out[layout.isBigEndian ? layout.bytes - 1 - i : i] =
            static_cast<unsigned char>(value >> (8 * i));
    }
}

std::uint32_t load(const SampleLayout& layout, const unsigned char* in)
{
    std::uint32_t value = 0;
    for (int i = 0; i < layout.bytes; ++i) {
        const std::uint32_t byte = in[layout.isBigEndian ? layout.bytes - 1 - i : i];
        value |= byte << (8 * i);
    }
    return value;
}

} // namespace

std::optional<SampleLayout> layoutOf(audioUtils::PcmFormat format)
{
    // The formats come in pairs of little and big endian.
    static constexpr SampleLayout pairs[] = {
        {2, 16, false}, {3, 24, false}, {4, 24, false}, {4, 32, false}, {4, 32, true}};
    const auto pair = static_cast<std::size_t>(format) / 2;
    if (pair >= std::size(pairs)) {
        return std::nullopt;
    }
    SampleLayout layout = pairs[pair];
    layout.isBigEndian = format % 2 != 0;
    return layout;
}

void packInteger(const SampleLayout& layout, std::int32_t sample, unsigned char* out)
{
    const int excess = 32 - layout.bits;
    const std::int64_t half = excess > 0 ? std::int64_t{1} << (excess - 1) : 0;
    const std::int64_t largest = (std::int64_t{1} << (layout.bits - 1)) - 1;
    const std::int64_t rounded = std::min((sample + half) >> excess, largest);
    store(layout, static_cast<std::uint32_t>(rounded), out);
}

std::int32_t unpackInteger(const SampleLayout& layout, const unsigned char* in)
{
    return static_cast<std::int32_t>(load(layout, in) << (32 - layout.bits));
}

void packFloat(const SampleLayout& layout, float sample, unsigned char* out)
{
    store(layout, std::bit_cast<std::uint32_t>(sample), out);
}

float unpackFloat(const SampleLayout& layout, const unsigned char* in)
{
    return std::bit_cast<float>(load(layout, in));
}

std::int32_t toFullRange(double sample)
{
    constexpr double fullScale = 2147483648.0;
    constexpr double largest = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(
        std::lround(std::clamp(sample * fullScale, -fullScale, largest)));
}

} // namespace keldaPlay
