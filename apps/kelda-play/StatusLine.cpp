#include "StatusLine.h"

#include <array>
#include <cstdio>

#include <unistd.h>

namespace keldaPlay {

StatusLine::StatusLine() : m_terminal(isatty(STDOUT_FILENO) != 0) {}

void StatusLine::show(const Progress& progress)
{
    if (Clock::now() < m_next) {
        return;
    }
    m_next += m_terminal ? std::chrono::milliseconds(100) : std::chrono::seconds(1);
    const std::string line = text(progress.statistics, progress.last);
    std::printf(m_terminal ? "\r%s\033[K" : "%s\n", line.c_str());
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
    const double position = statistics.dataSeconds();
    const auto minutes = static_cast<unsigned int>(position / 60);
    std::array<char, 160> line{};
    std::snprintf(line.data(), line.size(),
                  "%02u:%04.1f  queue %3.0f ms  delay %5.1f ms  error %+6.0f us  underruns %lu",
                  minutes, position - minutes * 60.0, static_cast<double>(last.queueFill) / 1e6,
                  static_cast<double>(last.deviceDelay) / 1e6,
                  static_cast<double>(last.delta) / 1e3, statistics.underruns());
    return line.data();
}

} // namespace keldaPlay
