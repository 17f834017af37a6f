#pragma once

#include <string>
#include <vector>

#include "miscUtils/Export.h"

namespace audioUtils {

/// The PCM sample layouts. Each is named by its own spelling, which GStreamer shares.
enum PcmFormat : int {
    S16LE,
    S16BE,
    S24LE, ///< packed into 3 bytes
    S24BE,
    S24_32LE, ///< the low 24 bits of a 32-bit container
    S24_32BE,
    S32LE,
    S32BE,
    F32LE,
    F32BE,
    F64LE,
    F64BE,
};

/// All formats, in ascending order.
[[nodiscard]] KELDA_EXPORT std::vector<PcmFormat> getAllPcmFormats();

/// Bytes of one sample of one channel; 0 for a value that is no format.
///
/// F64LE and F64BE give 4, not 8: every frame size in the library is calculated so.
[[nodiscard]] KELDA_EXPORT int getNumBytesForFormat(PcmFormat format);

/// Finds a format by its exact name ("S24_32LE"; case and blanks matter).
/// @return false, with `out` untouched, when there is none.
[[nodiscard]] KELDA_EXPORT bool fromString(PcmFormat& out, const std::string& name);

/// The format's name; "<unknown>" for a value that is no format. Valid for the life of the process.
[[nodiscard]] KELDA_EXPORT const char* toString(PcmFormat format);

/// Finds a format by ALSA's snd_pcm_format_t code.
/// @return false, with `out` untouched, when there is none.
[[nodiscard]] KELDA_EXPORT bool fromSndPcmFormat(PcmFormat& out, int alsaFormat);

/// ALSA's snd_pcm_format_t code of a format.
/// @return false, with `out` untouched, for a value that is no format.
[[nodiscard]] KELDA_EXPORT bool toSndPcmFormat(int& out, PcmFormat format);

/// Finds a format by ALSA's name, which is not always ours: "S24_LE" is S24_32LE.
/// @return false, with `out` untouched, when there is none.
[[nodiscard]] KELDA_EXPORT bool fromSndPcmString(PcmFormat& out, const std::string& alsaName);

/// ALSA's name of a format.
/// @return false, with `out` untouched, for a value that is no format.
[[nodiscard]] KELDA_EXPORT bool toSndPcmString(std::string& out, PcmFormat format);

/// GStreamer's name of a format: the same as toString().
[[nodiscard]] KELDA_EXPORT const char* toGstString(PcmFormat format);

} // namespace audioUtils
