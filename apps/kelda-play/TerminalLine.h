#pragma once

#include <string>

#include "Presenter.h"

namespace keldaPlay {

/// The status line of a terminal that is so many columns wide: the time in the file; as far as
/// there is room for it the underruns, what the queue holds, the timing error and the device's
/// delay; and in what is left over the file's name.
[[nodiscard]] std::string terminalLine(const Progress& progress, std::size_t columns,
                                       bool isColored);

/// "3:07/4:33", or "0:03:07/1:02:33" where either is an hour or more.
[[nodiscard]] std::string timeText(double position, std::optional<double> duration);

/// So much of a text as fits into so many columns; what can't be printed is shown as "?".
[[nodiscard]] std::string fitted(const std::string& text, std::size_t columns);

} // namespace keldaPlay
