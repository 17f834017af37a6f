#pragma once

#include <string>
#include <vector>

namespace log4cplus {
class Logger;
}

namespace audioUtils::detail {

/// A message for the log that was put together under a lock and is appended once it is given up.
struct DeferredLine
{
    const log4cplus::Logger* logger;
    int level;
    std::string text;
    const char* file;
    int line;
    const char* function;
};

/// Appends the lines in their order. What an appender throws is lost, and the line with it.
void appendLines(const std::vector<DeferredLine>& lines) noexcept;

} // namespace audioUtils::detail
