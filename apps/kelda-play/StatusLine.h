#pragma once

#include <string>

#include "Interval.h"
#include "Presenter.h"

namespace keldaPlay {

/// How playing goes, on standard output: one line that is drawn again and again on a terminal,
/// a line a second elsewhere.
class StatusLine
{
public:
    explicit StatusLine(bool isColored);

    void show(const Progress& progress);

    /// Leaves a terminal's line as it stands, so that what follows starts on one of its own.
    void end();

    /// "00:03.2  queue 480 ms  delay 80.0 ms  error +12 us  underruns 0"
    [[nodiscard]] static std::string text(const Statistics& statistics, const BlockRecord& last);

private:
    bool m_isColored;
    bool m_terminal;
    bool m_drawn = false;
    Interval m_interval;
};

} // namespace keldaPlay
