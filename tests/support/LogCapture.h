#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>

namespace testSupport {

/// One message, with where it came from.
struct LogRecord
{
    log4cplus::LogLevel level = log4cplus::NOT_SET_LOG_LEVEL;
    std::string message;
    std::string logger;
    std::string file;
    int line = 0;
    std::string function; ///< the full signature

    /// "WARN Underrun occurred": what most tests look at.
    [[nodiscard]] std::string text() const;
};

std::ostream& operator<<(std::ostream& out, const LogRecord& record);

/// Collects what one logger emits, for as long as it lives, and keeps it off the console.
///
/// The logger's level, additivity and appenders are as before afterwards. Captures of one logger
/// may be nested. The accessors are safe to call while other threads log.
///
///     LogCapture log("AudioUtils");
///     device.adjustParams(1024, 256, 512);
///     EXPECT_THAT(log.lines(), ElementsAre("ERROR Failed to adjust params, ..."));
class LogCapture
{
public:
    explicit LogCapture(const std::string& loggerName,
                        log4cplus::LogLevel level = log4cplus::TRACE_LOG_LEVEL);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// Changes the level that is logged from now on; OFF_LOG_LEVEL silences the logger.
    void setLevel(log4cplus::LogLevel level);

    [[nodiscard]] std::vector<LogRecord> records() const;

    /// The records as "LEVEL message", in the order of their arrival.
    [[nodiscard]] std::vector<std::string> lines() const;

    [[nodiscard]] std::vector<std::string> messages() const;

    /// The messages of exactly this level.
    [[nodiscard]] std::vector<std::string> messages(log4cplus::LogLevel level) const;

    /// Forgets what has been captured so far.
    void clear();

    /// lines(), which are then forgotten.
    [[nodiscard]] std::vector<std::string> takeLines();

private:
    class Store;

    log4cplus::Logger m_logger;
    log4cplus::LogLevel m_previousLevel;
    bool m_previousAdditivity;
    log4cplus::helpers::SharedObjectPtr<Store> m_store;
};

} // namespace testSupport
