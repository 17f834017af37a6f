#include "support/LogCapture.h"

#include <mutex>
#include <ostream>
#include <utility>

#include <log4cplus/spi/loggingevent.h>

namespace testSupport {

namespace {

std::vector<std::string> textsOf(const std::vector<LogRecord>& records)
{
    std::vector<std::string> texts;
    texts.reserve(records.size());
    for (const LogRecord& record : records) {
        texts.push_back(record.text());
    }
    return texts;
}

} // namespace

std::string LogRecord::text() const
{
    return log4cplus::getLogLevelManager().toString(level) + " " + message;
}

std::ostream& operator<<(std::ostream& out, const LogRecord& record)
{
    return out << record.text() << " (" << record.logger << ", " << record.file << ":"
               << record.line << ", " << record.function << ")";
}

// The logger may hand it an event of another thread while the capture ends, so it owns the records.
class LogCapture::Store : public log4cplus::Appender
{
public:
    ~Store() override { destructorImpl(); }

    void close() override { closed = true; }

    [[nodiscard]] std::vector<LogRecord> records() const
    {
        const std::lock_guard lock(m_mutex);
        return m_records;
    }

    std::vector<LogRecord> take()
    {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_records, {});
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        const std::lock_guard lock(m_mutex);
        m_records.push_back({event.getLogLevel(), event.getMessage(), event.getLoggerName(),
                             event.getFile(), event.getLine(), event.getFunction()});
    }

private:
    mutable std::mutex m_mutex;
    std::vector<LogRecord> m_records;
};

LogCapture::LogCapture(const std::string& loggerName, log4cplus::LogLevel level)
    : m_logger(log4cplus::Logger::getInstance(loggerName)),
      m_previousLevel(m_logger.getLogLevel()),
      m_previousAdditivity(m_logger.getAdditivity()),
      m_store(new Store)
{
    m_logger.addAppender(log4cplus::SharedAppenderPtr(m_store.get()));
    m_logger.setAdditivity(false);
    m_logger.setLogLevel(level);
}

LogCapture::~LogCapture()
{
    m_logger.setLogLevel(m_previousLevel);
    m_logger.setAdditivity(m_previousAdditivity);
    m_logger.removeAppender(log4cplus::SharedAppenderPtr(m_store.get()));
}

void LogCapture::setLevel(log4cplus::LogLevel level)
{
    m_logger.setLogLevel(level);
}

std::vector<LogRecord> LogCapture::records() const
{
    return m_store->records();
}

std::vector<std::string> LogCapture::lines() const
{
    return textsOf(records());
}

std::vector<std::string> LogCapture::messages() const
{
    std::vector<std::string> messages;
    for (LogRecord& record : records()) {
        messages.push_back(std::move(record.message));
    }
    return messages;
}

std::vector<std::string> LogCapture::messages(log4cplus::LogLevel level) const
{
    std::vector<std::string> messages;
    for (LogRecord& record : records()) {
        if (record.level == level) {
            messages.push_back(std::move(record.message));
        }
    }
    return messages;
}

void LogCapture::clear()
{
    m_store->take();
}

std::vector<std::string> LogCapture::takeLines()
{
    return textsOf(m_store->take());
}

} // namespace testSupport
