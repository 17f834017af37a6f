#pragma once

#include <string>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "miscUtils/ScopedFunction.h"

/// Logs a message, streamed together with << and built only when the level is enabled:
///
///     KELDA_LOG(logger, WARN, "Period of " << periodSize << " frames refused");
///
/// It does what LOG4CPLUS_WARN does but for one thing: that macro copies the logger first, and the
/// two atomic operations on the logger's reference count, for a message that nobody reads, cost as
/// much as copying a block of audio.
#define KELDA_LOG(logger, level, message) KELDA_LOG_AT(KELDA_HERE, logger, level, message)

/// The same for a place that was handed over, a variable or KELDA_HERE: code that several sources
/// share lets the record name the one that called it.
///
///     KELDA_LOG_AT(caller, logger, ERROR, "Not a hash");
#define KELDA_LOG_AT(place, logger, level, message)                                                \
    KELDA_LOG_BY(::audioUtils::detail::logNow, (place).file, (place).line, (place).function,       \
                 logger, level, message)

/// This line, as log records name it.
#define KELDA_HERE (::audioUtils::detail::Place{__FILE__, __LINE__, __PRETTY_FUNCTION__})

/// The same while a detail::Mutex is held, which appends the message once it is given up:
///
///     KELDA_LOG_LATER(m_mutex, logger, INFO, m_name << ": Write aborted!");
///
/// The logger must live for ever.
#define KELDA_LOG_LATER(mutex, logger, level, message)                                             \
    KELDA_LOG_BY((mutex).log, __FILE__, __LINE__, __PRETTY_FUNCTION__, logger, level, message)

// What they share; `append` takes the level, text, file, line, function and logger.
#define KELDA_LOG_BY(append, file, line, function, logger, level, message)                         \
    do {                                                                                           \
        if ((logger).isEnabledFor(log4cplus::level##_LOG_LEVEL)) [[unlikely]] {                    \
            log4cplus::tostringstream& text = log4cplus::detail::get_macro_body_oss();             \
            text << message;                                                                       \
            append(log4cplus::level##_LOG_LEVEL, text.str(), file, line, function, &(logger));     \
        }                                                                                          \
    } while (false)

namespace audioUtils::detail {

/// Where in the source a log record comes from.
struct Place
{
    const char* file;
    int line;
    const char* function; ///< the full signature
};

inline void logNow(int level, const std::string& text, const char* file, int line,
                   const char* function, const log4cplus::Logger* logger)
{
    logger->forcedLog(level, text, file, line, function);
}

} // namespace audioUtils::detail

/// Logs that a function begins, and the details:
///
///     KELDA_LOG_ENTRY(logger, TRACE, "Opened: " << isOpened());
///
/// gives "Enter AlsaOutputDevice::open: Opened: 0".
#define KELDA_LOG_ENTRY(logger, level, details)                                                    \
    KELDA_LOG(logger, level,                                                                       \
              "Enter " << dbglog_scopedFunction(__PRETTY_FUNCTION__, (logger).getName()) << ": "   \
                       << details)
