#pragma once

#include <string>

namespace keldaFiles {

/// To be called first: keeps files from becoming standard output where that is closed, and has a
/// write that fails (nobody reads any more, the file gets too large) return an error instead of
/// ending the program.
void prepareStandardStreams();

/// To be called last: tells on standard error when not all of what was printed to standard output
/// could be written. When the one that read it has gone the program ends as it would have: by
/// SIGPIPE.
///
/// @param program its name
/// @param status what the program is to exit with
/// @return it; 1 if that is 0 and not all could be written
[[nodiscard]] int finishStandardOutput(const std::string& program, int status);

/// Whether standard output leads to a program that has gone.
[[nodiscard]] bool hasReaderGone();

} // namespace keldaFiles
