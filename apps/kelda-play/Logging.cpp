#include "Logging.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <sstream>

#include <alsa/asoundlib.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <log4cplus/spi/loggingevent.h>

#include "Color.h"
#include "RepeatLimiter.h"

namespace keldaPlay {

using namespace log4cplus;

namespace {

constexpr const char* timePattern = "%d{%H:%M:%S.%q} ";
constexpr const char* levelPattern = "%-5p";
constexpr const char* messagePattern = " %c: %m%n";

class CalmAppender : public ConsoleAppender
{
public:
    CalmAppender() : ConsoleAppender(true, true) {}
    ~CalmAppender() override { destructorImpl(); }

    void close() override
    {
        for (const auto& [message, count] : m_limiter.takeRest()) {
            write("kelda-play", WARN_LOG_LEVEL, message, count);
        }
        ConsoleAppender::close();
    }

protected:
    // The logger lets one thread at a time in.
    void append(const spi::InternalLoggingEvent& event) override
    {
        if (event.getLogLevel() < WARN_LOG_LEVEL) {
            ConsoleAppender::append(event);
            return;
        }
        const std::string& message = event.getMessage();
        if (const auto heldBack = m_limiter.pass(message, std::chrono::steady_clock::now())) {
            write(event.getLoggerName(), event.getLogLevel(), message, *heldBack);
        }
    }

private:
    void write(const std::string& loggerName, LogLevel level, const std::string& message,
               std::uint64_t heldBack)
    {
        const std::string count =
            heldBack == 0 ? "" : " (and " + std::to_string(heldBack) + " times more)";
        ConsoleAppender::append(
            spi::InternalLoggingEvent(loggerName, level, message + count, "", 0, ""));
    }

    RepeatLimiter m_limiter{std::chrono::seconds(10)};
};

/// The level alone is coloured: it stands between two parts that are laid out by patterns.
class ColoredLayout : public Layout
{
public:
    void formatAndAppend(tostream& out, const spi::InternalLoggingEvent& event) override
    {
        const LogLevel level = event.getLogLevel();
        std::ostringstream name;
        m_level.formatAndAppend(name, event);
        m_time.formatAndAppend(out, event);
        out << inColor(name.str(), level >= ERROR_LOG_LEVEL  ? Color::Red
                                   : level >= WARN_LOG_LEVEL ? Color::Yellow
                                                             : Color::None);
        m_message.formatAndAppend(out, event);
    }

private:
    PatternLayout m_time{timePattern};
    PatternLayout m_level{levelPattern};
    PatternLayout m_message{messagePattern};
};

std::unique_ptr<Layout> createLayout(bool isColored)
{
    if (isColored) {
        return std::make_unique<ColoredLayout>();
    }
    return std::make_unique<PatternLayout>(std::string(timePattern) + levelPattern +
                                           messagePattern);
}

__attribute__((format(printf, 5, 6))) void
logAlsaError(const char* file, int line, const char* function, int error, const char* format, ...)
{
    static const Logger logger = Logger::getInstance("ALSA");
    std::array<char, 512> text{};
    std::va_list arguments;
    va_start(arguments, format);
    // A false alarm: it was started. NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    LOG4CPLUS_INFO(logger, file << ":" << line << " " << function << ": " << text.data()
                                << (error == 0 ? "" : ": ")
                                << (error == 0 ? "" : snd_strerror(error)));
}

} // namespace

Logging::Logging(const std::string& level, bool isColored)
{
    const SharedAppenderPtr appender(new CalmAppender);
    appender->setLayout(createLayout(isColored));
    std::string upperCase = level;
    std::ranges::transform(upperCase, upperCase.begin(),
                           [](char c) { return static_cast<char>(std::toupper(c)); });
    Logger root = Logger::getRoot();
    root.addAppender(appender);
    root.setLogLevel(getLogLevelManager().fromString(upperCase));
    snd_lib_error_set_handler(logAlsaError);
}

Logging::~Logging()
{
    snd_lib_error_set_handler(nullptr);
}

} // namespace keldaPlay
