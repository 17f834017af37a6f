#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

#include "Handles.h"
#include "support/VirtualClock.h"

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testSupport::VirtualClock;

namespace {

using Lines = std::vector<std::string>;

void append(void* user, kelda_log_level level, const char* source, const char* message)
{
    static_cast<Lines*>(user)->push_back(std::to_string(level) + " " + source + ": " + message);
}

/// A device that opens, runs dry and is open already: lines of several levels.
void makeLines()
{
    VirtualClock clock;
    const Device device = makeDevice(KELDA_DEVICE_FAKE);
    const kelda_device_config config = {KELDA_S16LE, 48000, 2, 1919, 480, 480, 0, nullptr};
    kelda_device_open(device.get(), "fake", &config); // DEBUG: the buffer size is adjusted
    const std::vector<short> block(960);
    kelda_device_write(device.get(), block.data(), 480);
    clock.advance(100'000'000);
    kelda_device_write(device.get(), block.data(), 480); // WARN: an underrun
}

class KeldaLog : public testing::Test
{
protected:
    KeldaLog() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    ~KeldaLog() override { kelda_set_log(KELDA_LOG_WARNING, nullptr, nullptr); }

    Lines lines;
};

} // namespace

TEST_F(KeldaLog, HandsLinesToTheCallersFunction)
{
    ASSERT_EQ(kelda_set_log(KELDA_LOG_WARNING, append, &lines), KELDA_OK);
    makeLines();
    EXPECT_THAT(lines, ElementsAre("2 AudioUtils: Underrun occurred"));
}

TEST_F(KeldaLog, TellsErrorsApart)
{
    ASSERT_EQ(kelda_set_log(KELDA_LOG_ERROR, append, &lines), KELDA_OK);
    makeLines();
    EXPECT_THAT(lines, IsEmpty());
    const Device device = makeDevice(KELDA_DEVICE_ALSA);
    const kelda_device_config config = {KELDA_S16LE, 48000, 2, 1920, 480, 480, 0, nullptr};
    kelda_device_open(device.get(), "nonsense", &config);
    EXPECT_THAT(lines, ElementsAre(StartsWith("1 AudioUtils: Error while opening ALSA")));
}

TEST_F(KeldaLog, GivesAsMuchAsIsAskedFor)
{
    ASSERT_EQ(kelda_set_log(KELDA_LOG_INFO, append, &lines), KELDA_OK);
    makeLines();
    EXPECT_EQ(lines.size(), 1U);
    ASSERT_EQ(kelda_set_log(KELDA_LOG_DEBUG, append, &lines), KELDA_OK);
    makeLines();
    EXPECT_THAT(lines, Contains("4 AudioUtils: Buffer size adjusted from: 1919 to: 1920"));
    EXPECT_THAT(lines, Not(Contains(StartsWith("5"))));

    const kelda_compensator_config config = {-9, 9, 1, 0, 0, 50, 1};
    const auto compensator = made<Compensator>([&](kelda_compensator** handle) {
        return kelda_compensator_create(&config, nullptr, nullptr, handle);
    });
    ASSERT_EQ(kelda_set_log(KELDA_LOG_TRACE, append, &lines), KELDA_OK);
    kelda_compensator_update(compensator.get(), 0, 0);
    kelda_compensator_update(compensator.get(), 0, 0);
    EXPECT_THAT(lines, Contains(StartsWith("5 AudioUtils: Observed drift")));

    lines.clear();
    ASSERT_EQ(kelda_set_log(KELDA_LOG_OFF, append, &lines), KELDA_OK);
    makeLines();
    EXPECT_THAT(lines, IsEmpty());
}

TEST_F(KeldaLog, TellsWhichPartLogs)
{
    ASSERT_EQ(kelda_set_log(KELDA_LOG_DEBUG, append, &lines), KELDA_OK);
    const auto queue = made<Queue>(kelda_queue_create);
    const kelda_queue_config config = {1, 100, 48000, 2, 2, "main", 1, 0, 0};
    kelda_queue_configure(queue.get(), &config);
    EXPECT_THAT(lines, ElementsAre(StartsWith("4 PcmQueue: main: Configured queue")));
}

TEST_F(KeldaLog, ANewFunctionTakesTheFormersPlace)
{
    Lines others;
    kelda_set_log(KELDA_LOG_WARNING, append, &lines);
    kelda_set_log(KELDA_LOG_WARNING, append, &others);
    makeLines();
    EXPECT_THAT(lines, IsEmpty());
    EXPECT_EQ(others.size(), 1U);
    testing::internal::CaptureStderr();
    kelda_set_log(KELDA_LOG_WARNING, nullptr, nullptr);
    makeLines();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "WARN AudioUtils: Underrun occurred\n");
    EXPECT_EQ(others.size(), 1U);
}

TEST_F(KeldaLog, RefusesALevelThatIsNone)
{
    kelda_set_log(KELDA_LOG_WARNING, append, &lines);
    for (const int level : {-1, 6}) {
        EXPECT_EQ(kelda_set_log(static_cast<kelda_log_level>(level), nullptr, nullptr),
                  KELDA_INVALID_ARGUMENT);
    }
    makeLines();
    EXPECT_EQ(lines.size(), 1U) << "all is as it was";
}

TEST_F(KeldaLog, WithoutACallGivesWarningsOnStandardError)
{
    EXPECT_EXIT(
        {
            makeLines();
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "^WARN AudioUtils: Underrun occurred\n$");
}

TEST_F(KeldaLog, WithoutACallIsAsTheProgramHasConfiguredIt)
{
    EXPECT_EXIT(
        {
            log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(),
                                                      true);
            log4cplus::Logger::getRoot().setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
            makeLines();
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "^DEBUG - Buffer size adjusted.*\nWARN - Underrun occurred\n$");
}

TEST_F(KeldaLog, TakesThePlaceOfWhatTheProgramHasConfigured)
{
    EXPECT_EXIT(
        {
            log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(),
                                                      true);
            kelda_set_log(KELDA_LOG_WARNING, nullptr, nullptr);
            makeLines();
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "^WARN AudioUtils: Underrun occurred\n$");
}

TEST_F(KeldaLog, OutlivesTheSetUpOfGStreamersResampler)
{
    ASSERT_EQ(kelda_set_log(KELDA_LOG_DEBUG, append, &lines), KELDA_OK);
    testing::internal::CaptureStderr();
    const kelda_resampler_config config = {
        KELDA_RESAMPLER_GSTREAMER, KELDA_INT16, 2, 5, 44100, 48000};
    const auto resampler = made<Resampler>(
        [&](kelda_resampler** handle) { return kelda_resampler_create(&config, handle); });
    kelda_resampler_set_rates(resampler.get(), 48000, 44100);
    EXPECT_THAT(lines, Contains(HasSubstr("4 GStreamerResampler: Successfully reconfigured")));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
