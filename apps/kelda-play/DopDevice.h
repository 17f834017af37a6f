#pragma once

#include <string>

#include <alsa/asoundlib.h>

namespace keldaPlay {

/// What becomes of the samples in a device.
enum class Passage { Unchanged, Unknown, Converted };

/// Of plugins within others only the outermost is known: those that convert are within "plug" as a
/// rule.
[[nodiscard]] Passage passageThrough(snd_pcm_type_t type);

/// What libasound makes of a device's name; the simulated device counts as a card.
[[nodiscard]] snd_pcm_type_t typeOf(const std::string& deviceName);

} // namespace keldaPlay
