#pragma once

#include <string>

#include "Options.h"
#include "Source.h"
#include "audioUtils/PcmDataStructures.h"

namespace keldaPlay {

/// How a device with these abilities is to be opened so that it gets a source of DSD bit for bit.
///
/// Throws std::runtime_error with the source's name and the reason when the device is not able to
/// it, or the user asked for something else.
[[nodiscard]] audioUtils::PcmAudioInfo negotiateDop(const Options& options, const Source& source,
                                                    const audioUtils::PcmAudioCapabilities& device);

/// The same for the device that is to be played to. One that may change samples is refused; where
/// nobody can tell (a sound server, say) a warning is logged.
[[nodiscard]] audioUtils::PcmAudioInfo negotiateDop(const Options& options, const Source& source);

/// "DSD64 as DoP"
[[nodiscard]] std::string nameOfDop(const Source& source);

} // namespace keldaPlay
