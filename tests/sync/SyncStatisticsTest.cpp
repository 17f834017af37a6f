// What is measured of a stream: errors, lock, events, losses.

#include "SyncStatistics.h"

#include <gmock/gmock.h>

#include "Records.h"

using keldaSync::BlockRecord;
using keldaSync::SizeHistogram;
using keldaSync::SyncStatistics;
using syncTest::Stream;
using testing::DoubleNear;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

struct SyncTest : testing::Test
{
    SyncStatistics sync;
    Stream stream{sync};
};

} // namespace

TEST_F(SyncTest, TellsTheErrorOfAStreamThatNeverLocks)
{
    stream.begin().play(60, 20'000);
    EXPECT_FALSE(sync.hasLocked());
    EXPECT_NEAR(sync.errors().rms(), 20'000, 1);
    EXPECT_NEAR(sync.errors().percentile(0.99), 20'000, 40);
    EXPECT_DOUBLE_EQ(sync.errors().signedWorst(), 20'000);
    EXPECT_EQ(sync.lockedErrors().count(), 0U);
}

TEST_F(SyncTest, TellsTheErrorOfAShortOneToo)
{
    stream.begin().play(0.5, -700);
    EXPECT_DOUBLE_EQ(sync.errors().worst(), 700);
    EXPECT_DOUBLE_EQ(sync.errors().mean(), -700);
}

TEST_F(SyncTest, CountsNoErrorOfTheTimeThatLockingTakes)
{
    stream.begin().play(3, 400).play(10, 5);
    EXPECT_NEAR(sync.lockTime(), 3, 0.02);
    EXPECT_DOUBLE_EQ(sync.errors().worst(), 5);
}

TEST_F(SyncTest, CountsTheErrorsOfAStreamThatTakesLongerThanThatToLock)
{
    stream.begin().play(6, 400).play(10, 5);
    EXPECT_NEAR(sync.lockTime(), 6, 0.02);
    EXPECT_DOUBLE_EQ(sync.errors().worst(), 400);
}

TEST_F(SyncTest, CountsTheSameAfterAnEvent)
{
    stream.begin().play(10, 5).pad(0.2).play(2, 900).play(10, 5);
    EXPECT_DOUBLE_EQ(sync.errors().worst(), 5);
    EXPECT_NEAR(sync.worstRelockTime(), 2, 0.02);
    stream.pad(0.2).play(7, 900);
    EXPECT_DOUBLE_EQ(sync.errors().worst(), 900);
    EXPECT_FALSE(sync.isLocked());
}

TEST_F(SyncTest, CallsWhatTheQueuePutsIntoAGapAnEventWhenItIsHeard)
{
    stream.begin().play(4).gap(9600).play(4);
    ASSERT_THAT(sync.events(), SizeIs(1));
    EXPECT_TRUE(sync.events()[0].silent);
    EXPECT_NEAR(sync.events()[0].seconds, 4.02 + 0.3 - 0.2, 0.02);
    EXPECT_EQ(sync.counts().gapFrames(), 9600U);
    EXPECT_EQ(sync.counts().lostFrames(), 0U);
}

TEST_F(SyncTest, ForgetsAGapThatAJumpHasDiscarded)
{
    BlockRecord reset;
    reset.resets = 1;
    stream.begin().play(4).gap(2400).add(reset).play(4);
    EXPECT_THAT(sync.eventTimes(), ElementsAre(DoubleNear(4.02, 0.001)));
}

TEST_F(SyncTest, CallsSilenceBeforeAndAfterTheSoundNoEvent)
{
    BlockRecord silence;
    silence.silenceFrames = syncTest::framesPerBlock;
    stream.add(silence).pad(1).begin().play(4).pad(1);
    EXPECT_THAT(sync.events(), IsEmpty());
    EXPECT_EQ(sync.counts().lostFrames(), 0U);
}

TEST_F(SyncTest, CountsPiecesThatAreCloseAsOneEvent)
{
    stream.begin().play(4).pad(0.1).play(0.05).pad(0.1).play(4).pad(0.1).play(4);
    EXPECT_THAT(sync.eventTimes(), ElementsAre(DoubleNear(4, 0.02), DoubleNear(8.2, 0.1)));
    EXPECT_EQ(sync.silences(), 2U);
}

TEST_F(SyncTest, CountsWhatIsLostBeforeAnythingIsHeard)
{
    BlockRecord skipped;
    skipped.skippedFrames = 50'000;
    skipped.paddedFrames = syncTest::framesPerBlock;
    stream.add(skipped).begin().play(4);
    EXPECT_THAT(sync.events(), SizeIs(1));
    EXPECT_EQ(sync.skips(), 1U);
    EXPECT_EQ(sync.counts().lostFrames(), 50'000U);
}

TEST_F(SyncTest, CountsAnUnderrunAtTheVeryEnd)
{
    BlockRecord dry;
    dry.result = audioUtils::OutputDevice::Underrun;
    stream.begin().play(4).add(dry);
    EXPECT_THAT(sync.events(), SizeIs(1));
    EXPECT_FALSE(sync.isLocked());
}

TEST_F(SyncTest, FollowsADeviceThatIsGoneAndBack)
{
    stream.begin().play(4).loseDevice(2).play(4);
    EXPECT_THAT(sync.events(), SizeIs(1));
    EXPECT_EQ(sync.counts().unheardFrames(), 96'000U);
    EXPECT_TRUE(sync.isLocked());
}

// A day of 1 ms steps and outliers of an hour: percentiles are told to a thousandth.
TEST(SizeHistogramTest, TellsPercentilesOfAnyMagnitude)
{
    for (const double scale : {0.01, 1.0, 1000.0, 1e6}) {
        SizeHistogram sizes;
        for (int i = 1; i <= 1000; ++i) {
            sizes.add(i * scale);
        }
        sizes.add(3.6e9);
        EXPECT_NEAR(sizes.percentile(0.5), 500 * scale, 2 * scale) << scale;
        EXPECT_NEAR(sizes.percentile(0.99), 990 * scale, 3 * scale) << scale;
        EXPECT_EQ(sizes.worst(), 3.6e9);
    }
}
