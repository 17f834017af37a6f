#include "audioUtils/Logging.h"

#include <gtest/gtest.h>
#include <log4cplus/logger.h>

namespace {

using namespace audioUtils;

// What is configured is the root logger, which other tests are to find as it was.
class LoggingTest : public testing::Test
{
protected:
    ~LoggingTest() override
    {
        m_root.removeAllAppenders();
        m_root.setLogLevel(m_level);
    }

    std::string logged(LogLevel level)
    {
        logToStandardError(level);
        testing::internal::CaptureStderr();
        m_logger.log(log4cplus::ERROR_LOG_LEVEL, "failed");
        m_logger.log(log4cplus::WARN_LOG_LEVEL, "repaired");
        m_logger.log(log4cplus::INFO_LOG_LEVEL, "begun");
        m_logger.log(log4cplus::DEBUG_LOG_LEVEL, "a block");
        m_logger.log(log4cplus::TRACE_LOG_LEVEL, "an operation");
        return testing::internal::GetCapturedStderr();
    }

private:
    log4cplus::Logger m_root = log4cplus::Logger::getRoot();
    log4cplus::LogLevel m_level = m_root.getLogLevel();
    log4cplus::Logger m_logger = log4cplus::Logger::getInstance("PcmQueue");
};

TEST_F(LoggingTest, ShowsEachLineOnce)
{
    EXPECT_EQ(logged(LogWarnings), "ERROR - failed\nWARN - repaired\n");
    EXPECT_EQ(logged(LogWarnings), "ERROR - failed\nWARN - repaired\n");
}

TEST_F(LoggingTest, EachLevelIncludesThoseBeforeIt)
{
    EXPECT_EQ(logged(LogNothing), "");
    EXPECT_EQ(logged(LogErrors), "ERROR - failed\n");
    EXPECT_EQ(logged(LogInfos), "ERROR - failed\nWARN - repaired\nINFO - begun\n");
    EXPECT_EQ(logged(LogDebug), "ERROR - failed\nWARN - repaired\nINFO - begun\nDEBUG - a block\n");
    EXPECT_EQ(logged(LogTrace), "ERROR - failed\nWARN - repaired\nINFO - begun\nDEBUG - a block\n"
                                "TRACE - an operation\n");
}

} // namespace
