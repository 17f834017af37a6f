#pragma once

#include <string>

#include "miscUtils/Export.h"

namespace audioUtils {

/// The families of audio stream, as they are named in descriptions. The references stay valid for
/// the life of the process. Safe to call from any thread.
[[nodiscard]] KELDA_EXPORT const std::string& pcmAudioType();    ///< "pcm"
[[nodiscard]] KELDA_EXPORT const std::string& dsdAudioType();    ///< "dsd"
[[nodiscard]] KELDA_EXPORT const std::string& opaqueAudioType(); ///< "opaque": neither of the two

/// The type of getDefaultChannelMask: empty, a tag without behaviour.
struct DefaultChannelMask
{
};

/// A tag that callers may name; the library itself never reads it.
KELDA_EXPORT extern const DefaultChannelMask getDefaultChannelMask;

} // namespace audioUtils
