#pragma once

#include "miscUtils/Export.h"

/// @file
/// Where the log of the libraries goes.

namespace audioUtils {

/// How much is logged: each level includes those before it.
enum LogLevel : int {
    LogNothing,  ///< nothing
    LogErrors,   ///< what failed
    LogWarnings, ///< what was repaired: gaps in the audio, underruns
    LogInfos,    ///< starts, jumps, what a device was opened with
    LogDebug,    ///< each block
    LogTrace,    ///< each operation
};

/// Shows what the libraries log, a line each ("WARN - tone: Write aborted!"), on standard error.
///
/// For programs with no more to say about it. The libraries log by log4cplus, to "PcmQueue",
/// "AudioUtils", "ClickRemover" and "GStreamerResampler", and configure none of it: a program that
/// wants its log elsewhere, or filtered, configures log4cplus itself instead, and is linked with
/// it. This is a configuration of its root logger: one appender, and a level. Without either
/// log4cplus complains once that it was not configured, and nothing is logged.
///
/// Call it first in main(); again, to change the level. Safe to call from any thread.
KELDA_EXPORT void logToStandardError(LogLevel level = LogWarnings);

} // namespace audioUtils
