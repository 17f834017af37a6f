#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

#include "kelda_audio.h"

// What the C interface asks of its arguments, where more than one function asks it.
namespace cApi {

constexpr std::uint64_t largestInt = std::numeric_limits<std::int32_t>::max();
constexpr std::uint32_t mostChannels = 256;

[[nodiscard]] constexpr bool isFormat(kelda_format format)
{
    return format >= KELDA_S16LE && format <= KELDA_F64BE;
}

/// Room or content: a pointer is needed where there are frames.
[[nodiscard]] constexpr bool isBuffer(const void* data, std::size_t count)
{
    return data != nullptr || count == 0;
}

/// Whether so many units of a size are below 2^31 in all.
[[nodiscard]] constexpr bool fitsInt(std::size_t count, std::uint32_t size)
{
    return count <= largestInt / size;
}

} // namespace cApi
