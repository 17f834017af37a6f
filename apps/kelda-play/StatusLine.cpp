#include "StatusLine.h"

#include <array>
#include <cstdio>

#include <sys/ioctl.h>
#include <unistd.h>

#include "Color.h"
#include "TerminalLine.h"

namespace keldaPlay {

namespace {

/// Of the terminal, as it is now: its user may change it at any time.
std::size_t numColumns()
{
    constexpr std::size_t usual = 80;
    winsize size{};
    const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : usual;
}

} // namespace

StatusLine::StatusLine(bool isColored)
    : m_isColored(isColored),
      m_terminal(isDrawable(STDOUT_FILENO)),
      m_interval(m_terminal ? std::chrono::milliseconds(100) : std::chrono::seconds(1))
{
}

void StatusLine::show(const Progress& progress)
{
    if (!m_interval.isDue()) {
        return;
    }
    if (m_terminal) {
        // The last column stays free: some terminals wrap as soon as it is written to.
        std::printf("\r%s\033[K", terminalLine(progress, numColumns() - 1, m_isColored).c_str());
    } else {
        std::printf("%s\n", text(progress.statistics, progress.last).c_str());
    }
    std::fflush(stdout);
    m_drawn = m_terminal;
}

void StatusLine::end()
{
    if (m_drawn) {
        std::printf("\n");
        m_drawn = false;
    }
}

std::string StatusLine::text(const Statistics& statistics, const BlockRecord& last)
{
    const double position = statistics.counts().dataSeconds();
    const auto minutes = static_cast<unsigned int>(position / 60);
    std::array<char, 160> line{};
    std::snprintf(line.data(), line.size(),
                  "%02u:%04.1f  queue %3.0f ms  delay %5.1f ms  error %+6.0f us  underruns %lu",
                  minutes, position - minutes * 60.0, static_cast<double>(last.queueFill) / 1e6,
                  static_cast<double>(last.deviceDelay) / 1e6,
                  static_cast<double>(last.delta) / 1e3, statistics.counts().underruns());
    return line.data();
}

} // namespace keldaPlay
