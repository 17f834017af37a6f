#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "miscUtils/Export.h"
#include "miscUtils/Variant.h"

namespace miscUtils {

/// Where and why a text is no JSON for a Variant.
struct JsonError
{
    std::string message;    ///< in a sentence, for people
    std::size_t line = 0;   ///< from 1 on
    std::size_t column = 0; ///< in bytes, from 1 on; at or just behind what is wrong
};

/// A value as JSON (UTF-8): hashes become objects with their keys in order, an invalid value null.
///
/// Bytes of a string that are no UTF-8 become U+FFFD.
///
/// @param value  of any kind
/// @param indent blanks for each level; below 0 all stands on one line
[[nodiscard]] KELDA_EXPORT std::string toJson(const Variant& value, int indent = -1);

/// Reads what toJson() gave. Variants have no kind for truth values and for numbers that are no
/// 64-bit integers; these are errors, as are a key that occurs twice in an object and arrays and
/// objects more than 100 levels deep.
///
/// @return false when the text is not understood: `error` tells why, and `out` is untouched.
[[nodiscard]] KELDA_EXPORT bool fromJson(Variant& out, JsonError& error, std::string_view json);

} // namespace miscUtils
