#include "cApi/detail/Log.h"

#include <array>
#include <cstdio>
#include <mutex>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include "cApi/detail/Guard.h"

namespace {

constexpr std::array loggerNames = {"PcmQueue", "AudioUtils", "ClickRemover", "GStreamerResampler"};

constexpr std::array levels = {log4cplus::OFF_LOG_LEVEL,   log4cplus::ERROR_LOG_LEVEL,
                               log4cplus::WARN_LOG_LEVEL,  log4cplus::INFO_LOG_LEVEL,
                               log4cplus::DEBUG_LOG_LEVEL, log4cplus::TRACE_LOG_LEVEL};

/// The least level that includes lines of one of log4cplus'.
kelda_log_level levelOf(log4cplus::LogLevel level)
{
    int result = KELDA_LOG_ERROR;
    while (result < KELDA_LOG_TRACE && level < levels[static_cast<std::size_t>(result)]) {
        ++result;
    }
    return static_cast<kelda_log_level>(result);
}

/// Hands lines to the caller's function, or to standard error.
class CallersAppender : public log4cplus::Appender
{
public:
    ~CallersAppender() override { destructorImpl(); }
    CallersAppender() = default;
    CallersAppender(const CallersAppender&) = delete;
    CallersAppender& operator=(const CallersAppender&) = delete;

    void set(kelda_log_function function, void* user)
    {
        const std::lock_guard lock(m_mutex);
        m_function = function;
        m_user = user;
    }

    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        const std::lock_guard lock(m_mutex);
        const char* const source = event.getLoggerName().c_str();
        const char* const message = event.getMessage().c_str();
        if (m_function != nullptr) {
            m_function(m_user, levelOf(event.getLogLevel()), source, message);
            return;
        }
        std::fprintf(stderr, "%s %s: %s\n",
                     log4cplus::getLogLevelManager().toString(event.getLogLevel()).c_str(), source,
                     message);
    }

private:
    std::mutex m_mutex;
    kelda_log_function m_function = nullptr;
    void* m_user = nullptr;
};

/// What the process has set.
class Log
{
public:
    static Log& instance()
    {
        // Never destroyed: threads may log until the process is gone.
        static Log& log = *new Log; // NOLINT(cppcoreguidelines-owning-memory): see above
        return log;
    }

    void set(kelda_log_level level, kelda_log_function function, void* user)
    {
        const std::lock_guard lock(m_mutex);
        m_prepared = true;
        m_level = level;
        m_appender->set(function, user);
        attach();
    }

    void prepare()
    {
        const std::lock_guard lock(m_mutex);
        if (m_prepared) {
            return;
        }
        m_prepared = true;
        if (!isConfiguredByProgram()) {
            attach();
        }
    }

    void restore()
    {
        const std::lock_guard lock(m_mutex);
        if (m_attached) {
            attach();
        }
    }

private:
    Log() : m_appender(new CallersAppender) {}

    static bool isConfiguredByProgram()
    {
        bool configured = !log4cplus::Logger::getRoot().getAllAppenders().empty();
        for (const char* const name : loggerNames) {
            configured =
                configured || !log4cplus::Logger::getInstance(name).getAllAppenders().empty();
        }
        return configured;
    }

    void attach()
    {
        m_attached = true;
        for (const char* const name : loggerNames) {
            log4cplus::Logger logger = log4cplus::Logger::getInstance(name);
            logger.setLogLevel(levels[static_cast<std::size_t>(m_level)]);
            logger.setAdditivity(false);
            logger.removeAllAppenders();
            logger.addAppender(log4cplus::SharedAppenderPtr(m_appender.get()));
        }
    }

    std::mutex m_mutex;
    log4cplus::helpers::SharedObjectPtr<CallersAppender> m_appender;
    kelda_log_level m_level = KELDA_LOG_WARNING;
    bool m_prepared = false;
    bool m_attached = false;
};

} // namespace

namespace cApi {

void prepareLog()
{
    Log::instance().prepare();
}

void restoreLog()
{
    Log::instance().restore();
}

} // namespace cApi

kelda_status kelda_set_log(kelda_log_level level, kelda_log_function function, void* user) noexcept
{
    return cApi::guardedIf(level >= KELDA_LOG_OFF && level <= KELDA_LOG_TRACE,
                           [&] { Log::instance().set(level, function, user); });
}
