#pragma once

namespace cApi {

/// Sets the log up as it is without kelda_set_log(), unless the program has configured log4cplus
/// itself. Whatever can log calls it first; only the first call does anything.
void prepareLog();

/// Takes back what another part of the process has set for the loggers since kelda_set_log().
void restoreLog();

} // namespace cApi
