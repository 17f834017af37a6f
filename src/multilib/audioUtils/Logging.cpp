#include "audioUtils/Logging.h"

#include <algorithm>
#include <array>

#include <log4cplus/consoleappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

namespace audioUtils {

namespace {

constexpr std::array levels = {log4cplus::OFF_LOG_LEVEL,   log4cplus::ERROR_LOG_LEVEL,
                               log4cplus::WARN_LOG_LEVEL,  log4cplus::INFO_LOG_LEVEL,
                               log4cplus::DEBUG_LOG_LEVEL, log4cplus::TRACE_LOG_LEVEL};

log4cplus::SharedAppenderPtr makeAppender()
{
    log4cplus::SharedAppenderPtr appender(new log4cplus::ConsoleAppender(true, true));
    appender->setLayout(std::make_unique<log4cplus::SimpleLayout>());
    return appender;
}

} // namespace

void logToStandardError(LogLevel level)
{
    static const log4cplus::SharedAppenderPtr appender = makeAppender();
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.addAppender(appender); // once, however often it is called
    const int last = static_cast<int>(levels.size()) - 1;
    root.setLogLevel(levels[static_cast<std::size_t>(std::clamp<int>(level, 0, last))]);
}

} // namespace audioUtils
