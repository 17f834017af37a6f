#include "Statistics.h"

#include <gmock/gmock.h>

#include "JsonPresenter.h"
#include "StatusLine.h"
#include "StreamObserver.h"

using keldaPlay::BlockRecord;
using keldaPlay::Statistics;
using keldaPlay::StatusLine;
using keldaPlay::summaryOf;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

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

TEST(Statistics, MeasuresTheTimingErrorOfWhatGoesOn)
{
    Statistics statistics;
    statistics.beginStream(48000);
    statistics.add(silence());
    BlockRecord first = block(9'000'000); // it only begins
    first.silenceFrames = 100;
    statistics.add(first);
    statistics.add(block(3'000));
    statistics.add(block(-4'000));
    statistics.add(silence());
    EXPECT_DOUBLE_EQ(statistics.errors().mean(), -0.5);
    EXPECT_DOUBLE_EQ(statistics.errors().rms(), std::sqrt(12.5));
    EXPECT_DOUBLE_EQ(statistics.errors().signedWorst(), -4);
    EXPECT_EQ(statistics.counts().dataFrames(), 3U * 480 - 100);
    EXPECT_DOUBLE_EQ(statistics.counts().silenceSeconds(), (2 * 480 + 100) / 48000.0);
}

TEST(Statistics, CountsAsMissingOnlyWhatIsMissingInside)
{
    Statistics statistics;
    statistics.add(padded(480)); // nothing has come yet
    statistics.add(block());
    statistics.add(padded(100));
    statistics.add(padded(480));
    EXPECT_EQ(statistics.counts().missingFrames(), 0U) << "it may have been the end";
    statistics.add(block());
    EXPECT_EQ(statistics.counts().missingFrames(), 580U);
    statistics.add(padded(200));
    EXPECT_EQ(statistics.counts().missingFrames(), 580U);
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
    const std::string text = summaryOf(statistics);
    EXPECT_THAT(text, HasSubstr("played        0.020 s in 2 blocks\n"));
    EXPECT_THAT(text, HasSubstr("14 frames in gaps\n"));
    EXPECT_THAT(text, HasSubstr("10 frames skipped, 0 missing, 2 underruns\n"));
    EXPECT_THAT(text, HasSubstr("verdict       Interrupted: 1 event, 10 frames lost, 14 of silence "
                                "in gaps, 2 underruns; only 0.0 s"));
}

// What a queue that starts afresh on a jump held is never heard.
TEST(Statistics, CountsWhatAJumpHasDiscarded)
{
    Statistics statistics;
    statistics.beginStream(48000);
    BlockRecord before = block();
    before.queueFill = 100'000'000;
    BlockRecord after = block();
    after.resets = 1;
    statistics.add(before);
    statistics.add(after);
    EXPECT_EQ(statistics.counts().discardedFrames(), 4800U);
    EXPECT_THAT(summaryOf(statistics), HasSubstr("0 underruns, 4800 dropped on jumps\n"));
}

// As when nobody reads what the player prints for half a minute.
TEST(Journal, CountsWhatNobodyHasTaken)
{
    Statistics statistics;
    statistics.beginStream(48000);
    keldaPlay::JsonPresenter presenter(keldaPlay::ColorChoice::Never);
    testing::internal::CaptureStdout();
    keldaPlay::StreamObserver observer({}, presenter, statistics);
    for (std::size_t i = 0; i < keldaPlay::Journal::capacity + 7; ++i) {
        observer.journal().append(block());
    }
    observer.update();
    EXPECT_EQ(statistics.counts().blocks(), keldaPlay::Journal::capacity);
    EXPECT_EQ(statistics.counts().unrecordedBlocks(), 7U);
    observer.journal().append(block());
    observer.finish(false);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(statistics.counts().blocks(), keldaPlay::Journal::capacity + 1) << "goes on";
    EXPECT_EQ(statistics.counts().unrecordedBlocks(), 7U) << "once";
    EXPECT_THAT(keldaPlay::lossOf(statistics), StartsWith("7 blocks unrecorded: "));
    EXPECT_THAT(summaryOf(statistics), AllOf(HasSubstr("0 underruns, 7 blocks unrecorded\n"),
                                             HasSubstr("verdict       Not measured: ")));
}

TEST(Statistics, OfNothingAreNotMeasured)
{
    EXPECT_THAT(summaryOf(Statistics()), HasSubstr("timing error  not measured\n"
                                                   "verdict       Nothing heard: "));
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
