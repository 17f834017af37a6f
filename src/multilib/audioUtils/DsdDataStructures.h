#pragma once

#include <string>
#include <vector>

#include "miscUtils/Export.h"

namespace audioUtils {

/// The DSD sample layouts: 8, 16 or 32 one-bit samples of a channel side by side.
enum DsdFormat : int {
    DSDU8,
    DSDU16LE,
    DSDU16BE,
    DSDU32LE,
    DSDU32BE,
};

/// All formats, in ascending order.
[[nodiscard]] KELDA_EXPORT std::vector<DsdFormat> getAllDsdFormats();

/// Bytes of one group of samples of one channel; 0 for a value that is no format.
[[nodiscard]] KELDA_EXPORT int getNumBytesForFormat(DsdFormat format);

/// Finds a format by its exact name ("DSDU16LE"; case and blanks matter).
/// @return false, with `out` untouched, when there is none.
[[nodiscard]] KELDA_EXPORT bool fromString(DsdFormat& out, const std::string& name);

/// The format's name; "<unknown>" for a value that is no format. Valid for the life of the process.
[[nodiscard]] KELDA_EXPORT const char* toString(DsdFormat format);

} // namespace audioUtils
