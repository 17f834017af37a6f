#include "Statistics.h"

#include <gmock/gmock.h>

#include "StatusLine.h"

using keldaPlay::BlockRecord;
using keldaPlay::Statistics;
using keldaPlay::StatusLine;
using testing::HasSubstr;

namespace {

BlockRecord block(miscUtils::TimeValueDelta delta = 0)
{
    BlockRecord record;
    record.numFrames = 480;
    record.delta = delta;
    return record;
}

BlockRecord silence()
{
    BlockRecord record = block();
    record.silenceFrames = record.numFrames;
    return record;
}

BlockRecord padded(std::uint64_t frames)
{
    BlockRecord record = block();
    record.paddedFrames = frames;
    return record;
}

} // namespace

TEST(Statistics, MeasuresTheTimingErrorOfTheAudioAlone)
{
    Statistics statistics;
    statistics.add(silence());
    statistics.add(block(9'000'000)); // the first block only begins
    statistics.add(block(3'000));
    statistics.add(block(-4'000));
    statistics.add(silence());
    EXPECT_DOUBLE_EQ(statistics.meanError(), -0.5);
    EXPECT_DOUBLE_EQ(statistics.rmsError(), std::sqrt(12.5));
    EXPECT_DOUBLE_EQ(statistics.worstError(), -4);
    EXPECT_EQ(statistics.dataFrames(), 3U * 480);
    EXPECT_EQ(statistics.silenceFrames(), 2U * 480);
}

TEST(Statistics, CountsAsMissingOnlyWhatIsMissingInside)
{
    Statistics statistics;
    statistics.add(padded(480)); // nothing has come yet
    statistics.add(block());
    statistics.add(padded(100));
    statistics.add(padded(480));
    EXPECT_EQ(statistics.paddedFrames(), 0U) << "it may have been the end";
    statistics.add(block());
    EXPECT_EQ(statistics.paddedFrames(), 580U);
    statistics.add(padded(200));
    EXPECT_EQ(statistics.paddedFrames(), 580U);
}

TEST(Statistics, SumsUpWhatHappened)
{
    Statistics statistics;
    statistics.beginStream(48000);
    BlockRecord record = block();
    record.insertedFrames = 7;
    record.skippedFrames = 5;
    record.result = audioUtils::OutputDevice::Underrun;
    statistics.add(record);
    statistics.add(record);
    const std::string text = statistics.summary();
    EXPECT_THAT(text, HasSubstr("played        0.020 s in 2 blocks\n"));
    EXPECT_THAT(text, HasSubstr("14 frames in gaps\n"));
    EXPECT_THAT(text, HasSubstr("10 frames skipped, 0 missing, 2 underruns\n"));
}

TEST(Statistics, OfNothingAreZero)
{
    EXPECT_THAT(Statistics().summary(), HasSubstr("mean 0.0 us, rms 0.0 us, worst 0.0 us\n"));
}

TEST(StatusLine, ShowsPositionFillDelayErrorAndUnderruns)
{
    Statistics statistics;
    statistics.beginStream(48000);
    BlockRecord record = block(12'400);
    record.queueFill = 480'000'000;
    record.deviceDelay = 80'000'000;
    for (int i = 0; i < 6320; ++i) {
        statistics.add(record);
    }
    EXPECT_EQ(StatusLine::text(statistics, record),
              "01:03.2  queue 480 ms  delay  80.0 ms  error    +12 us  underruns 0");
}
