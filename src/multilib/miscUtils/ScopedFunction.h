#pragma once

/// @file
/// Names of functions for entry traces.

#include <string>

#include "miscUtils/Export.h"

/// A short, readable name for a function, for entry traces ("Enter AlsaOutputDevice::drain: ").
///
/// Return type, parameters, qualifiers and template arguments lists are left out, and so is the
/// outermost namespace where it only repeats the logger's name (compared without case).
///
/// @param function   the compiler's full signature, e.g. __PRETTY_FUNCTION__:
///                   "virtual void audioUtils::AlsaOutputDevice::drain()"
/// @param loggerName the logger that the trace goes to, e.g. "AudioUtils"
/// @return "AlsaOutputDevice::drain" for these; a text that is no signature is returned unchanged.
[[nodiscard]] KELDA_EXPORT std::string dbglog_scopedFunction(const std::string& function,
                                                             const std::string& loggerName);
