#pragma once

#include <string>

#include "audioUtils/PcmDataStructures.h"

namespace audioUtils {

/// Asks an ALSA playback device what it is able to.
///
/// The device is opened for the question only, without waiting for one that is in use, and nothing
/// is played. Each field is tested by itself: a card may refuse some combinations all the same.
/// Rates are an interval where the device takes every rate in it, and else those of the usual rates
/// that it takes, in ascending order; channel counts (up to 32) likewise.
///
/// @param out                what the device takes
/// @param deviceName         as for AlsaOutputDevice::open()
/// @param enableRateResample whether rates that libasound would convert count, too
/// @return false, with `out` untouched, when it can't be asked; the log ("AudioUtils") tells why.
[[nodiscard]] KELDA_EXPORT bool getAlsaCapabilities(PcmAudioCapabilities& out,
                                                    const std::string& deviceName,
                                                    bool enableRateResample);

} // namespace audioUtils
