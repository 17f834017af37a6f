#include "audioUtils/device/FakeOutputDevice.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/AllocationCounter.h"
#include "support/LogCapture.h"
#include "support/VirtualClock.h"

using audioUtils::FakeOutputDevice;
using audioUtils::OutputDevice;
using audioUtils::PcmFormat;
using audioUtils::RenderingDelay;
using miscUtils::TimeValue;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testSupport::AllocationCounter;
using testSupport::LogCapture;
using testSupport::LogRecord;
using testSupport::VirtualClock;

namespace {

constexpr TimeValue us = 1'000;
constexpr TimeValue ms = 1'000 * us;
constexpr TimeValue start = 1'000'000'000'000;
constexpr std::uint64_t frames32 = std::uint64_t{1} << 32;

struct Geometry
{
    std::uint64_t bufferSize = 1920;
    std::uint64_t periodSize = 480; // 10 ms at 48 kHz
    std::uint64_t startThreshold = 960;
    unsigned int sampleRate = 48000;
};

bool openWith(FakeOutputDevice& device, const Geometry& geometry = {},
              const std::string& name = "fake")
{
    return device.open(name, PcmFormat::S16LE, geometry.sampleRate, 2, geometry.bufferSize,
                       geometry.periodSize, geometry.startThreshold, false, "");
}

/// A device in virtual time. The buffer given to write() is always null: it is never read.
class FakeOutputDeviceTest : public testing::Test
{
protected:
    [[nodiscard]] bool open(const Geometry& geometry = {}, const std::string& name = "fake")
    {
        return openWith(device, geometry, name);
    }

    OutputDevice::WriteReturnValue write(std::uint64_t numFrames)
    {
        return device.write(nullptr, numFrames);
    }

    /// Opens and starts the device: 960 frames (20 ms) buffered at `start`.
    void startRunning(const Geometry& geometry = {})
    {
        ASSERT_TRUE(open(geometry));
        ASSERT_EQ(write(geometry.startThreshold), OutputDevice::Success);
        ASSERT_EQ(device.lastRenderingDelay().timestamp, static_cast<long>(start / us));
        log.clear();
    }

    /// What the last write reported.
    void expectDelay(TimeValue delay, TimeValue timestamp)
    {
        EXPECT_EQ(device.lastRenderingDelay().delay, static_cast<long>(delay / us));
        EXPECT_EQ(device.lastRenderingDelay().timestamp, static_cast<long>(timestamp / us));
    }

    void expectClearedDelay()
    {
        EXPECT_EQ(device.lastRenderingDelay().delay, 0);
        EXPECT_EQ(device.lastRenderingDelay().timestamp, RenderingDelay::noTimestamp);
    }

    void expectGeometry(std::uint64_t bufferSize, std::uint64_t periodSize,
                        std::uint64_t startThreshold)
    {
        EXPECT_EQ(device.bufferSize(), bufferSize);
        EXPECT_EQ(device.periodSize(), periodSize);
        EXPECT_EQ(device.startThreshold(), startThreshold);
    }

    VirtualClock clock{start};
    LogCapture log{"AudioUtils"};
    FakeOutputDevice device;
};

// Opening

TEST_F(FakeOutputDeviceTest, IsClosedAtFirst)
{
    EXPECT_FALSE(device.isOpened());
    expectClearedDelay();
    EXPECT_EQ(device.getCompensatedRenderingDelay(), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FakeOutputDeviceTest, AnswersWithTheConfigurationItWasOpenedWith)
{
    EXPECT_TRUE(device.open("hw:0", PcmFormat::S24LE, 44100, 6, 4096, 512, 2048, true, "FL FR"));
    EXPECT_TRUE(device.isOpened());
    EXPECT_EQ(device.sampleFormat(), PcmFormat::S24LE);
    EXPECT_EQ(device.sampleRate(), 44100U);
    EXPECT_EQ(device.numChannels(), 6U);
    EXPECT_EQ(device.numBytesPerSample(), 3U);
    expectGeometry(4096, 512, 2048);
    expectClearedDelay();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FakeOutputDeviceTest, TakesTheSampleSizeFromTheFormatTable)
{
    for (const auto& [format, bytes] : {std::pair{PcmFormat::S16BE, 2U},
                                        {PcmFormat::S24BE, 3U},
                                        {PcmFormat::S24_32LE, 4U},
                                        {PcmFormat::S32LE, 4U},
                                        {PcmFormat::F64LE, 4U}}) {
        FakeOutputDevice other;
        ASSERT_TRUE(other.open("fake", format, 48000, 2, 1920, 480, 960, false, ""));
        EXPECT_EQ(other.sampleFormat(), format);
        EXPECT_EQ(other.numBytesPerSample(), bytes);
    }
}

TEST_F(FakeOutputDeviceTest, RoundsTheBufferUpToWholePeriods)
{
    EXPECT_TRUE(open({.bufferSize = 1000, .periodSize = 256, .startThreshold = 512}));
    expectGeometry(1024, 256, 512);
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG Buffer size adjusted from: 1000 to: 1024"));
}

TEST_F(FakeOutputDeviceTest, LowersTheStartThresholdToTheRoundedBuffer)
{
    EXPECT_TRUE(open({.bufferSize = 1000, .periodSize = 256, .startThreshold = 2000}));
    expectGeometry(1024, 256, 1024);
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG Buffer size adjusted from: 1000 to: 1024",
                                         "DEBUG Start threshold adjusted from: 2000 to: 1024"));
}

TEST_F(FakeOutputDeviceTest, LeavesAFittingGeometryAlone)
{
    EXPECT_TRUE(open({.bufferSize = 1024, .periodSize = 256, .startThreshold = 1024}));
    expectGeometry(1024, 256, 1024);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FakeOutputDeviceTest, HoldsAtLeastOnePeriod)
{
    EXPECT_TRUE(open({.bufferSize = 1, .periodSize = 256, .startThreshold = 0}));
    expectGeometry(256, 256, 0);
}

TEST_F(FakeOutputDeviceTest, CountsThePeriodsOfTheBufferInSigned32Bits)
{
    constexpr std::uint64_t period = 4;
    for (const auto& [quotient, periods] : {
             std::pair{frames32 / 2 - 1, frames32 / 2},
             {frames32 / 2, std::uint64_t{1} - frames32 / 2},
             {frames32 - 1, std::uint64_t{0}},
             {frames32, std::uint64_t{1}},
         }) {
        FakeOutputDevice other;
        EXPECT_TRUE(openWith(other, {quotient * period + 1, period, 0}));
        EXPECT_EQ(other.bufferSize(), periods * period) << "for a quotient of " << quotient;
    }
}

TEST_F(FakeOutputDeviceTest, RefusesASecondOpenInTheNameOfTheFirst)
{
    ASSERT_TRUE(open({}, "first"));
    ASSERT_EQ(write(480), OutputDevice::Success);

    EXPECT_FALSE(device.open("second", PcmFormat::S32LE, 96000, 8, 64, 32, 32, true, ""));
    EXPECT_THAT(log.lines(), ElementsAre("ERROR Fake output device \"first\" already opened"));
    EXPECT_TRUE(device.isOpened());
    EXPECT_EQ(device.sampleFormat(), PcmFormat::S16LE);
    EXPECT_EQ(device.sampleRate(), 48000U);
    EXPECT_EQ(device.numChannels(), 2U);
    EXPECT_EQ(device.numBytesPerSample(), 2U);
    expectGeometry(1920, 480, 960);
    EXPECT_EQ(write(0), OutputDevice::Success);
    expectDelay(10 * ms, 0); // what was buffered still is
}

TEST_F(FakeOutputDeviceTest, SaysThatItIsOpenBeforeItLooksAtTheNewConfiguration)
{
    ASSERT_TRUE(open());
    EXPECT_FALSE(open({.periodSize = 0}));
    EXPECT_THAT(log.lines(), ElementsAre("ERROR Fake output device \"fake\" already opened"));
}

TEST_F(FakeOutputDeviceTest, RefusesAPeriodWithoutFrames)
{
    EXPECT_FALSE(open({.periodSize = 0}, "zero"));
    EXPECT_FALSE(device.isOpened());
    expectGeometry(0, 0, 0);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR Failed to open fake output device \"zero\" with "
                                         "period size: 0 and sample rate: 48000, neither can be "
                                         "0"));
}

TEST_F(FakeOutputDeviceTest, RefusesASampleRateOfZeroAndKeepsItsOldConfiguration)
{
    ASSERT_TRUE(open());
    device.close();
    EXPECT_FALSE(open({.bufferSize = 64, .periodSize = 32, .sampleRate = 0}));
    EXPECT_FALSE(device.isOpened());
    expectGeometry(1920, 480, 960);
    EXPECT_EQ(device.sampleRate(), 48000U);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR Failed to open fake output device \"fake\" with "
                                         "period size: 32 and sample rate: 0, neither can be 0"));
    EXPECT_TRUE(open());
}

TEST_F(FakeOutputDeviceTest, LogsWithTheLoggerOfTheDevicesAndItsOwnSourceLocation)
{
    ASSERT_TRUE(open());
    ASSERT_FALSE(open());
    ASSERT_THAT(log.records(), SizeIs(1));
    const LogRecord record = log.records().front();
    EXPECT_EQ(record.level, log4cplus::ERROR_LOG_LEVEL);
    EXPECT_EQ(record.logger, "AudioUtils");
    EXPECT_THAT(record.file, EndsWith("src/multilib/audioUtils/device/FakeOutputDevice.cpp"));
    EXPECT_GT(record.line, 0);
    EXPECT_THAT(record.function, HasSubstr("audioUtils::FakeOutputDevice::open(const"));
}

// Closing and draining

TEST_F(FakeOutputDeviceTest, ClearsTheDelayWhenClosed)
{
    startRunning();
    EXPECT_EQ(device.getCompensatedRenderingDelay(), 20'000'000);
    device.close();
    EXPECT_FALSE(device.isOpened());
    expectClearedDelay();
    EXPECT_EQ(device.getCompensatedRenderingDelay(), 0);
    expectGeometry(1920, 480, 960); // the getters go on answering
    device.close();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FakeOutputDeviceTest, StartsAfreshWhenOpenedAgain)
{
    startRunning();
    device.close();
    clock.advance(1'000 * ms); // a device still running would report an underrun
    ASSERT_TRUE(open());
    expectClearedDelay();
    EXPECT_EQ(write(480), OutputDevice::Success);
    expectDelay(10 * ms, 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FakeOutputDeviceTest, TakesANewConfigurationWhenOpenedAgain)
{
    ASSERT_TRUE(open({}, "first"));
    device.close();
    ASSERT_TRUE(device.open("second", PcmFormat::S32LE, 96000, 8, 64, 32, 32, true, ""));
    EXPECT_EQ(device.sampleFormat(), PcmFormat::S32LE);
    EXPECT_EQ(device.sampleRate(), 96000U);
    EXPECT_EQ(device.numChannels(), 8U);
    EXPECT_EQ(device.numBytesPerSample(), 4U);
    expectGeometry(64, 32, 32);
    EXPECT_FALSE(open());
    EXPECT_THAT(log.lines(), ElementsAre("ERROR Fake output device \"second\" already opened"));
}

TEST_F(FakeOutputDeviceTest, DrainsAtOnceAndWithoutEffect)
{
    startRunning();
    device.drain();
    EXPECT_EQ(clock.now(), start);
    EXPECT_TRUE(device.isOpened());
    expectDelay(20 * ms, start);
    clock.advance(1 * ms);
    EXPECT_EQ(write(480), OutputDevice::Success);
    expectDelay(30 * ms, start);
    EXPECT_THAT(clock.sleeps(), IsEmpty());
}

// Writing: start and consumption

TEST_F(FakeOutputDeviceTest, RefusesToWriteWhenNeverOpened)
{
    EXPECT_EQ(write(1'000'000), OutputDevice::NotOpened);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR Failed to write, device has not been opened yet"));
    EXPECT_THAT(clock.sleeps(), IsEmpty());
    expectClearedDelay();
}

TEST_F(FakeOutputDeviceTest, RefusesToWriteWhenClosed)
{
    startRunning();
    device.close();
    EXPECT_EQ(write(1'000'000), OutputDevice::NotOpened);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR Failed to write, device has not been opened yet"));
    EXPECT_THAT(clock.sleeps(), IsEmpty());
    expectClearedDelay();
}

TEST_F(FakeOutputDeviceTest, StartsAtTheStartThreshold)
{
    ASSERT_TRUE(open({.startThreshold = 960}));
    EXPECT_EQ(write(480), OutputDevice::Success);
    expectDelay(10 * ms, 0); // never started

    clock.advance(5 * ms);
    EXPECT_EQ(write(480), OutputDevice::Success);
    expectDelay(20 * ms, start + 5 * ms);
    EXPECT_THAT(clock.sleeps(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FakeOutputDeviceTest, DoesNotStartOneFrameBelowTheThreshold)
{
    ASSERT_TRUE(open({.startThreshold = 960}));
    EXPECT_EQ(write(959), OutputDevice::Success);
    EXPECT_EQ(device.lastRenderingDelay().timestamp, 0);
    clock.advance(1'000 * ms); // nothing is played meanwhile
    EXPECT_EQ(write(0), OutputDevice::Success);
    EXPECT_EQ(device.lastRenderingDelay().delay, 19'979); // 959 frames
    EXPECT_EQ(device.lastRenderingDelay().timestamp, 0);
}

TEST_F(FakeOutputDeviceTest, StartsWithTheFirstWriteWithoutAThreshold)
{
    ASSERT_TRUE(open({.startThreshold = 0}));
    EXPECT_EQ(write(48), OutputDevice::Success);
    expectDelay(1 * ms, start);
}

TEST_F(FakeOutputDeviceTest, PlaysWholePeriodsOnly)
{
    startRunning();
    clock.advance(10 * ms - 1);
    EXPECT_EQ(write(48), OutputDevice::Success);
    expectDelay(21 * ms, start); // nothing was played yet

    clock.advance(1);
    EXPECT_EQ(write(48), OutputDevice::Success);
    expectDelay(12 * ms, start + 10 * ms);

    clock.advance(9 * ms);
    EXPECT_EQ(write(480), OutputDevice::Success);
    expectDelay(22 * ms, start + 10 * ms);

    clock.advance(15 * ms); // 24 ms after the boundary: two periods
    EXPECT_EQ(write(0), OutputDevice::Success);
    expectDelay(2 * ms, start + 30 * ms);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(FakeOutputDeviceTest, RefreshesTheDelayWithAWriteOfNothing)
{
    startRunning();
    clock.advance(10 * ms);
    expectDelay(20 * ms, start); // only a write accounts for what was played
    EXPECT_EQ(write(0), OutputDevice::Success);
    expectDelay(10 * ms, start + 10 * ms);
}

TEST_F(FakeOutputDeviceTest, TruncatesPeriodsToNanosecondsAndDelaysToMicroseconds)
{
    constexpr TimeValue period = 11'609'977; // 512 / 44100 s
    ASSERT_TRUE(open({2048, 512, 1024, 44100}));
    ASSERT_EQ(write(1), OutputDevice::Success);
    EXPECT_EQ(device.lastRenderingDelay().delay, 22);
    ASSERT_EQ(write(1024), OutputDevice::Success);
    EXPECT_EQ(device.lastRenderingDelay().delay, 23'242); // 1025 frames

    clock.advance(period - 1);
    ASSERT_EQ(write(0), OutputDevice::Success);
    EXPECT_EQ(device.lastRenderingDelay().delay, 23'242);
    clock.advance(1);
    ASSERT_EQ(write(0), OutputDevice::Success);
    EXPECT_EQ(device.lastRenderingDelay().delay, 11'632); // 513 frames
    EXPECT_EQ(device.lastRenderingDelay().timestamp, static_cast<long>((start + period) / us));
}

// Writing: waiting for room

TEST_F(FakeOutputDeviceTest, DoesNotBlockUntilTheBufferIsExactlyFull)
{
    ASSERT_TRUE(open());
    EXPECT_EQ(write(1920), OutputDevice::Success);
    expectDelay(40 * ms, start);
    EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(FakeOutputDeviceTest, BlocksForOnePeriodWhenOneFrameTooMany)
{
    ASSERT_TRUE(open());
    EXPECT_EQ(write(1921), OutputDevice::Success);
    EXPECT_THAT(clock.sleeps(), ElementsAre(10'000));
    EXPECT_EQ(device.lastRenderingDelay().delay, 30'020); // 1441 frames
    EXPECT_EQ(device.lastRenderingDelay().timestamp, static_cast<long>((start + 10 * ms) / us));
}

TEST_F(FakeOutputDeviceTest, BlocksForTheFewestPeriodsThatMakeRoom)
{
    for (const auto& [frames, periods] : {std::pair{2399U, 1U},
                                          {2400U, 1U},
                                          {2401U, 2U},
                                          {2880U, 2U},
                                          {2881U, 3U},
                                          {1920U + 480 * 7, 7U}}) {
        FakeOutputDevice other;
        ASSERT_TRUE(openWith(other));
        const TimeValue before = clock.now();
        EXPECT_EQ(other.write(nullptr, frames), OutputDevice::Success);
        EXPECT_EQ(clock.now() - before, 10 * ms * periods);
        EXPECT_EQ(other.lastRenderingDelay().delay, (frames - periods * 480L) * 1'000'000 / 48'000);
        EXPECT_EQ(other.lastRenderingDelay().timestamp, static_cast<long>(clock.now() / us));
        EXPECT_LE(other.lastRenderingDelay().delay, 40'000) << "more than the buffer holds";
    }
}

TEST_F(FakeOutputDeviceTest, SleepsOnlyForTheRestOfThePeriod)
{
    startRunning();
    clock.advance(3 * ms + 250 * us);
    EXPECT_EQ(write(1440), OutputDevice::Success);
    EXPECT_THAT(clock.sleeps(), ElementsAre(6'750));
    expectDelay(40 * ms, start + 10 * ms);

    clock.advance(25 * ms); // two periods more are played, half of a third
    EXPECT_EQ(write(1440), OutputDevice::Success);
    EXPECT_THAT(clock.sleeps(), ElementsAre(6'750, 5'000));
    expectDelay(40 * ms, start + 40 * ms);
}

TEST_F(FakeOutputDeviceTest, SettlesIntoOneSleepOfOnePeriodAWrite)
{
    ASSERT_TRUE(open({.startThreshold = 1920}));
    for (int block = 0; block < 100; ++block) {
        EXPECT_EQ(write(480), OutputDevice::Success);
        clock.advance(1 * ms); // the time to make the next block
    }
    const std::vector<useconds_t> sleeps = clock.sleeps();
    EXPECT_THAT(sleeps, SizeIs(96)); // four blocks fill the buffer
    EXPECT_THAT(sleeps, testing::Each(9'000));
    expectDelay(40 * ms, start + 3 * ms + 960 * ms);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FakeOutputDeviceTest, SleepsForAMicrosecondAtLeast)
{
    for (const auto& [remaining, sleeps] : {
             std::pair{TimeValue{1}, std::vector<useconds_t>{1}},
             {TimeValue{999}, {1}},
             {TimeValue{1'000}, {1}},
             {TimeValue{1'001}, {1, 1}},
             {TimeValue{1'999}, {1, 1}},
             {TimeValue{2'000}, {2}},
             {TimeValue{2'500}, {2, 1}},
         }) {
        FakeOutputDevice other;
        ASSERT_TRUE(openWith(other));
        ASSERT_EQ(other.write(nullptr, 1920), OutputDevice::Success);
        clock.advance(10 * ms - remaining);
        EXPECT_EQ(other.write(nullptr, 1), OutputDevice::Success);
        EXPECT_EQ(clock.takeSleeps(), sleeps) << "with " << remaining << " ns to go";
    }
}

TEST_F(FakeOutputDeviceTest, SleepsAgainWhenWokenEarly)
{
    ASSERT_TRUE(open());
    clock.setReadingDuration(1 * ms);
    clock.setOversleep(-3 * static_cast<long>(ms));
    EXPECT_EQ(write(2400), OutputDevice::Success);
    // 10 ms asked for, 7 ms slept and 1 ms used by the reading; then only readings pass the time.
    EXPECT_THAT(clock.sleeps(), ElementsAre(10'000, 2'000, 1'000));
    EXPECT_EQ(clock.now(), start + 11 * ms);
    expectDelay(40 * ms, start + 11 * ms);
}

TEST_F(FakeOutputDeviceTest, StaysOnThePeriodGridHoweverLateItWakes)
{
    ASSERT_TRUE(open());
    clock.setOversleep(4 * ms);
    EXPECT_EQ(write(2400), OutputDevice::Success);
    EXPECT_EQ(clock.now(), start + 14 * ms);
    expectDelay(40 * ms, start + 10 * ms);

    EXPECT_EQ(write(480), OutputDevice::Success); // in time: woken 4 ms into the period
    EXPECT_THAT(clock.sleeps(), ElementsAre(10'000, 6'000));
    expectDelay(40 * ms, start + 20 * ms);
}

TEST_F(FakeOutputDeviceTest, HandsASleepOfMoreThan32BitsOnInParts)
{
    // A period of 5000 s is 5 · 10⁹ µs, of which usleep's argument holds the low 32 bits.
    ASSERT_TRUE(open({.bufferSize = 5000, .periodSize = 5000, .sampleRate = 1}));
    clock.setOversleep(1 * ms);
    EXPECT_EQ(write(5001), OutputDevice::Success);
    EXPECT_THAT(clock.sleeps(), ElementsAre(705'032'704U, 4'294'966'296U));
    EXPECT_EQ(device.lastRenderingDelay().delay, 1'000'000);
}

TEST_F(FakeOutputDeviceTest, KeepsNothingInABufferOfNoFrames)
{
    ASSERT_TRUE(open({.bufferSize = 0}));
    expectGeometry(0, 480, 0);
    EXPECT_EQ(write(100), OutputDevice::Success);
    EXPECT_THAT(clock.sleeps(), ElementsAre(10'000));
    expectDelay(0, start + 10 * ms);
}

// Writing: underruns

TEST_F(FakeOutputDeviceTest, ReportsAnUnderrunAndStartsANewFill)
{
    startRunning();
    clock.advance(25 * ms);
    EXPECT_EQ(write(480), OutputDevice::Underrun);
    EXPECT_THAT(log.takeLines(), ElementsAre("WARN Underrun occurred"));
    EXPECT_THAT(clock.sleeps(), IsEmpty());
    expectDelay(10 * ms, start); // stopped: stamped with the last boundary that it accounted for

    clock.advance(1 * ms);
    EXPECT_EQ(write(480), OutputDevice::Success);
    expectDelay(20 * ms, start + 26 * ms);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FakeOutputDeviceTest, CountsAnExactlyEmptyBufferAsDry)
{
    startRunning();
    clock.advance(20 * ms);
    EXPECT_EQ(write(480), OutputDevice::Underrun);
    expectDelay(10 * ms, start);
}

TEST_F(FakeOutputDeviceTest, GoesOnWithOneFrameLeft)
{
    startRunning();
    clock.advance(1);
    ASSERT_EQ(write(1), OutputDevice::Success);
    clock.advance(20 * ms);
    EXPECT_EQ(write(0), OutputDevice::Success);
    EXPECT_EQ(device.lastRenderingDelay().delay, 20);
    EXPECT_EQ(device.lastRenderingDelay().timestamp, static_cast<long>((start + 20 * ms) / us));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FakeOutputDeviceTest, RestartsWithinTheWriteThatFoundTheUnderrun)
{
    startRunning();
    clock.advance(50 * ms);
    EXPECT_EQ(write(960), OutputDevice::Underrun);
    expectDelay(20 * ms, start + 50 * ms);

    clock.advance(10 * ms);
    EXPECT_EQ(write(480), OutputDevice::Success);
    expectDelay(20 * ms, start + 60 * ms);
    EXPECT_THAT(log.lines(), ElementsAre("WARN Underrun occurred"));
}

TEST_F(FakeOutputDeviceTest, BlocksWithinTheWriteThatFoundTheUnderrun)
{
    startRunning();
    clock.advance(50 * ms);
    EXPECT_EQ(write(2400), OutputDevice::Underrun);
    EXPECT_THAT(clock.sleeps(), ElementsAre(10'000));
    expectDelay(40 * ms, start + 60 * ms);
}

TEST_F(FakeOutputDeviceTest, WarnsOfEachUnderrunOnceWhileTheWriterIsAway)
{
    startRunning();
    for (int pause = 0; pause < 3; ++pause) {
        clock.advance(100 * ms);
        EXPECT_EQ(write(0), pause == 0 ? OutputDevice::Underrun : OutputDevice::Success);
    }
    EXPECT_THAT(log.lines(), ElementsAre("WARN Underrun occurred"));
    expectDelay(0, start);
}

// Changing the geometry

TEST_F(FakeOutputDeviceTest, RefusesToAdjustWhenNotOpened)
{
    EXPECT_FALSE(device.adjustParams(1024, 256, 512));
    expectGeometry(0, 0, 0);
    EXPECT_THAT(log.takeLines(),
                ElementsAre("ERROR Failed to adjust params, device has not been opened yet"));

    ASSERT_TRUE(open());
    device.close();
    EXPECT_FALSE(device.adjustParams(1024, 256, 512));
    expectGeometry(1920, 480, 960);
    EXPECT_THAT(log.lines(),
                ElementsAre("ERROR Failed to adjust params, device has not been opened yet"));
}

TEST_F(FakeOutputDeviceTest, AdjustsItsGeometryByTheRulesOfOpen)
{
    ASSERT_TRUE(open());
    EXPECT_TRUE(device.adjustParams(1000, 256, 2000));
    expectGeometry(1024, 256, 1024);
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG Buffer size adjusted from: 1000 to: 1024",
                                         "DEBUG Start threshold adjusted from: 2000 to: 1024"));
}

TEST_F(FakeOutputDeviceTest, RefusesToAdjustToAPeriodWithoutFrames)
{
    startRunning();
    EXPECT_FALSE(device.adjustParams(1024, 0, 512));
    expectGeometry(1920, 480, 960);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR Failed to adjust params, period size cannot be 0"));
    clock.advance(10 * ms);
    EXPECT_EQ(write(480), OutputDevice::Success);
    expectDelay(20 * ms, start + 10 * ms);
}

TEST_F(FakeOutputDeviceTest, GoesOnRunningWithItsFillWhenAdjusted)
{
    startRunning();
    EXPECT_TRUE(device.adjustParams(3840, 240, 3840)); // the threshold is for the next start only
    expectDelay(20 * ms, start);
    clock.advance(7 * ms); // one of the shorter periods
    EXPECT_EQ(write(48), OutputDevice::Success);
    expectDelay(16 * ms, start + 5 * ms);
}

TEST_F(FakeOutputDeviceTest, BlocksUntilTheFillFitsASmallerBuffer)
{
    ASSERT_TRUE(open());
    ASSERT_EQ(write(1920), OutputDevice::Success);
    EXPECT_TRUE(device.adjustParams(480, 240, 240));
    clock.advance(1 * ms);
    EXPECT_EQ(write(0), OutputDevice::Success);
    EXPECT_THAT(clock.sleeps(), ElementsAre(29'000));
    expectDelay(10 * ms, start + 30 * ms);
}

TEST_F(FakeOutputDeviceTest, StartsAtTheNextWriteWhenTheThresholdIsLowered)
{
    ASSERT_TRUE(open());
    ASSERT_EQ(write(480), OutputDevice::Success);
    EXPECT_TRUE(device.adjustParams(1920, 480, 480));
    clock.advance(5 * ms);
    expectDelay(10 * ms, 0); // only a write starts it
    EXPECT_EQ(write(0), OutputDevice::Success);
    expectDelay(10 * ms, start + 5 * ms);
}

// Timing queries

TEST_F(FakeOutputDeviceTest, DoesNotReduceTheRenderingDelayByTheTimePassed)
{
    startRunning();
    clock.advance(7 * ms);
    EXPECT_EQ(device.getCompensatedRenderingDelay(), 20'000'000);
}

TEST_F(FakeOutputDeviceTest, UsesTheSystemClockAsItsAudioClock)
{
    EXPECT_EQ(device.currentAudioTimestamp(), start); // open or not
    ASSERT_TRUE(open());
    clock.advance(12'345);
    EXPECT_EQ(device.currentAudioTimestamp(), start + 12'345);
}

TEST_F(FakeOutputDeviceTest, IsAlwaysReadyForOnePeriod)
{
    EXPECT_EQ(device.framesReady(), 0); // before it knows of any
    ASSERT_TRUE(open());
    EXPECT_EQ(device.framesReady(), 480);
    ASSERT_EQ(write(1920), OutputDevice::Success); // full
    EXPECT_EQ(device.framesReady(), 480);
    EXPECT_TRUE(device.adjustParams(1920, 240, 960));
    EXPECT_EQ(device.framesReady(), 240);
    device.close();
    EXPECT_EQ(device.framesReady(), 240);
}

TEST_F(FakeOutputDeviceTest, AsksASubclassForThePeriodThatItIsReadyFor)
{
    class OtherPeriod : public FakeOutputDevice
    {
    public:
        [[nodiscard]] std::uint64_t periodSize() const override { return 123; }
    };
    EXPECT_EQ(OtherPeriod().framesReady(), 123);
}

TEST_F(FakeOutputDeviceTest, WritesThroughTheInterface)
{
    const std::unique_ptr<OutputDevice> output = std::make_unique<FakeOutputDevice>();
    EXPECT_EQ(output->write(nullptr, 480), OutputDevice::NotOpened);
    ASSERT_TRUE(output->open("fake", PcmFormat::S16LE, 48000, 2, 1920, 480, 960, false, ""));
    std::array<std::int16_t, 960> block{};
    EXPECT_EQ(output->write(block.data(), 480), OutputDevice::Success);
    EXPECT_EQ(output->getCompensatedRenderingDelay(), 10'000'000);
}

TEST_F(FakeOutputDeviceTest, WritesWithoutAllocating)
{
    log.setLevel(log4cplus::OFF_LOG_LEVEL);
    const AllocationCounter allocations;
    ASSERT_TRUE(open({}, std::string(100, 'x'))); // the name does not fit into the object
    const std::uint64_t before = allocations.count();
    EXPECT_GT(before, 0U);

    EXPECT_EQ(write(480), OutputDevice::Success);
    EXPECT_EQ(write(480), OutputDevice::Success); // starts
    clock.advance(1 * ms);
    EXPECT_EQ(write(1920), OutputDevice::Success); // sleeps
    clock.advance(1'000 * ms);
    EXPECT_EQ(write(4800), OutputDevice::Underrun); // and sleeps
    EXPECT_EQ(allocations.count(), before);
    EXPECT_THAT(clock.sleeps(), SizeIs(2));
}

// Programming errors

class FakeOutputDeviceDeathTest : public FakeOutputDeviceTest
{
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(FakeOutputDeviceDeathTest, AbortsOnAPeriodBelowOneNanosecond)
{
    ASSERT_TRUE(open({.periodSize = 1, .sampleRate = 4'000'000'000}));
    EXPECT_DEATH(write(1), "periodDurationNs > 0");
}

TEST_F(FakeOutputDeviceDeathTest, AbortsWhenTheClockStandsStillWhileRunning)
{
    startRunning();
    EXPECT_DEATH(write(480), "now > m_writeMonotonicRaw");
}

// Real time

TEST(FakeOutputDeviceRealTimeTest, TakesASecondForASecondOfAudio)
{
    const LogCapture log("AudioUtils"); // a busy machine may well cause an underrun
    FakeOutputDevice device;
    ASSERT_TRUE(openWith(device, {.startThreshold = 1920}));
    const TimeValue before = miscUtils::getMonotonicRawSysclockTime();
    for (int block = 0; block < 100; ++block) {
        ASSERT_LE(device.write(nullptr, 480), OutputDevice::Underrun);
    }
    const TimeValue elapsed = miscUtils::getMonotonicRawSysclockTime() - before;
    EXPECT_GE(elapsed, 960 * ms); // all but the buffer has been played
}

TEST(FakeOutputDeviceRealTimeTest, NeverReturnsBeforeTheBoundaryThatMadeRoom)
{
    const LogCapture log("AudioUtils");
    FakeOutputDevice device;
    ASSERT_TRUE(openWith(device, {.bufferSize = 96, .periodSize = 48, .startThreshold = 96}));
    for (int block = 0; block < 200; ++block) {
        ASSERT_LE(device.write(nullptr, 48), OutputDevice::Underrun);
        const auto now = static_cast<long>(device.currentAudioTimestamp() / us);
        ASSERT_LE(device.lastRenderingDelay().timestamp, now);
        ASSERT_LE(device.lastRenderingDelay().delay, 2'000);
    }
}

} // namespace
