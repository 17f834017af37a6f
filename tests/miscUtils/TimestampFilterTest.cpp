#include "miscUtils/TimestampFilter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>

#include <gtest/gtest.h>

using miscUtils::NoTimeValue;
using miscUtils::TimestampFilter;
using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;

namespace {

constexpr TimeValue ms = 1'000'000;
constexpr TimeValue us = 1'000;
constexpr TimeValue second = 1'000 * ms;
constexpr TimeValue start =
    1'700'000'000 * second; // near 1.7e18 ns, where a double resolves 256 ns
constexpr int framesPerPacket = 480;
constexpr TimeValue packet = 10 * ms;

TimestampFilter filterFor(double sampleRate, TimeValue maxError)
{
    TimestampFilter filter(250 * ms, "test");
    filter.setSampleRate(sampleRate);
    filter.setEnabled(true);
    filter.setMaxErrorThreshold(maxError);
    return filter;
}

double errorOf(TimeValue filtered, TimeValue expected)
{
    return static_cast<double>(static_cast<TimeValueDelta>(filtered - expected));
}

/// A stream at 48 kHz in packets of 10 ms.
class TimestampFilterTest : public testing::Test
{
protected:
    /// Filters the next packet's timestamp, `offset` ns off its true time.
    TimeValue next(TimeValueDelta offset = 0)
    {
        const TimeValue time = filter.filter(raw(offset));
        filter.advance(framesPerPacket);
        trueTime += packet;
        return time;
    }

    /// The error of the next packet's timestamp against its true time, in ns.
    double nextError(TimeValueDelta offset = 0)
    {
        const TimeValue expected = trueTime;
        return errorOf(next(offset), expected);
    }

    [[nodiscard]] TimeValue raw(TimeValueDelta offset) const
    {
        return trueTime + static_cast<TimeValue>(offset);
    }

    void run(int packets)
    {
        for (int i = 0; i < packets; ++i) {
            static_cast<void>(next());
        }
    }

    TimestampFilter filter = filterFor(48000, 20 * ms);
    TimeValue trueTime = start;
};

} // namespace

TEST_F(TimestampFilterTest, ReducesWhiteJitterAtLeastFourTimes)
{
    std::mt19937 random(1);
    std::uniform_int_distribution<TimeValueDelta> jitter(-3'000'000, 3'000'000);
    run(200);
    double rawSquares = 0;
    double filteredSquares = 0;
    for (int i = 0; i < 60'000; ++i) {
        const TimeValueDelta offset = jitter(random);
        const double filteredError = nextError(offset);
        rawSquares += static_cast<double>(offset) * static_cast<double>(offset);
        filteredSquares += filteredError * filteredError;
    }
    const double reduction = std::sqrt(rawSquares / filteredSquares);
    RecordProperty("reduction", std::to_string(reduction));
    EXPECT_GE(reduction, 4.0);
}

TEST_F(TimestampFilterTest, ReducesWhiteJitterFromTheStartOn)
{
    // However unlucky the first timestamp was: after 130 ms the average has taken its error away.
    std::mt19937 random(1);
    std::uniform_int_distribution<TimeValueDelta> jitter(-3'000'000, 3'000'000);
    double squares = 0;
    constexpr int runs = 2000;
    for (int i = 0; i < runs; ++i) {
        filter.reset(NoTimeValue);
        double error = 0;
        for (int k = 0; k < 13; ++k) {
            error = nextError(jitter(random));
        }
        squares += error * error / runs;
    }
    const double rawRms = 3'000'000 / std::sqrt(3.0);
    EXPECT_GE(rawRms / std::sqrt(squares), 3.2);
}

TEST_F(TimestampFilterTest, FollowsASourceThatRuns1000PpmOff)
{
    for (const double ppm : {1000.0, -1000.0}) {
        filter.reset(NoTimeValue);
        double peak = 0;
        double late = 0;
        for (int i = 0; i < 2000; ++i) {
            const double time = i * static_cast<double>(packet) * (1 + ppm * 1e-6);
            const auto rawTime = start + static_cast<TimeValue>(std::llround(time));
            const double error = std::abs(errorOf(filter.filter(rawTime), rawTime));
            filter.advance(framesPerPacket);
            (i < 1000 ? peak : late) = std::max(i < 1000 ? peak : late, error);
        }
        RecordProperty("peak_us", std::to_string(peak / 1000));
        RecordProperty("after_10_s_us", std::to_string(late / 1000));
        EXPECT_LE(peak, 200 * us) << ppm;
        EXPECT_LT(late, 1 * us) << ppm;
    }
}

TEST_F(TimestampFilterTest, FollowsAStepBelowTheMaximumErrorWithLittleOvershoot)
{
    constexpr auto step = static_cast<TimeValueDelta>(5 * ms);
    run(200);
    double overshoot = 0;
    double late = 0;
    for (int i = 0; i < 500; ++i) {
        const double beyond = nextError(step) - static_cast<double>(step);
        overshoot = std::max(overshoot, beyond / step);
        if (i >= 150) {
            late = std::max(late, std::abs(beyond) / step);
        }
    }
    RecordProperty("overshoot", std::to_string(overshoot));
    RecordProperty("after_1500_ms", std::to_string(late));
    EXPECT_LE(overshoot, 0.25);
    EXPECT_LE(late, 0.05);
}

TEST_F(TimestampFilterTest, TakesAJumpAtOnceWhenTheGapIsNotFilled)
{
    for (const TimeValueDelta jump : {50'000'000L, -50'000'000L}) {
        run(200);
        trueTime += static_cast<TimeValue>(jump);
        EXPECT_EQ(nextError(), 0);
        for (int i = 0; i < 500; ++i) {
            ASSERT_LT(std::abs(nextError()), 1 * us) << i;
        }
    }
}

TEST_F(TimestampFilterTest, TakesAJumpAtOnceWhenTheGapIsFilledWithSilence)
{
    run(200);
    trueTime += 50 * ms;
    const TimeValue time = filter.filter(trueTime);
    EXPECT_EQ(time, trueTime);
    filter.advance(5 * framesPerPacket); // the silence is reported after the jump has been filtered
    filter.advance(framesPerPacket);
    trueTime += packet;
    for (int i = 0; i < 500; ++i) {
        ASSERT_LT(std::abs(nextError()), 1 * us) << i;
    }
}

TEST_F(TimestampFilterTest, GoesOnSmoothingRightAfterAJump)
{
    for (const bool filled : {false, true}) {
        run(200);
        trueTime += 50 * ms;
        static_cast<void>(filter.filter(trueTime));
        filter.advance(filled ? 6 * framesPerPacket : framesPerPacket);
        trueTime += packet;
        // Not filled, the jump is one timestamp among two; filled, the old prediction goes on.
        EXPECT_LT(std::abs(nextError(4'000'000)), filled ? 1'600'000 : 2'000'001)
            << (filled ? "filled" : "not filled");
        run(200);
    }
}

TEST_F(TimestampFilterTest, KeepsTheLearntRateOverAJump)
{
    const auto rawAt = [](int i) {
        return start +
               static_cast<TimeValue>(std::llround(i * static_cast<double>(packet) * 1.0005));
    };
    for (int i = 0; i < 3000; ++i) {
        const TimeValue rawTime = rawAt(i) + (i < 2000 ? 0 : 50 * ms);
        const double error = std::abs(errorOf(filter.filter(rawTime), rawTime));
        filter.advance(framesPerPacket);
        if (i >= 1500) {
            ASSERT_LT(error, 1 * us) << i;
        }
    }
}

TEST_F(TimestampFilterTest, ReturnsTheRawTimeForEveryOneOfSeveralJumpsInARow)
{
    run(200);
    for (int i = 0; i < 5; ++i) {
        trueTime += 50 * ms;
        EXPECT_EQ(nextError(), 0) << i;
    }
    EXPECT_LT(std::abs(nextError()), 1 * us);
}

TEST_F(TimestampFilterTest, PollingAnEmptyQueueMakesItNeitherLagNorLose)
{
    run(200);
    static_cast<void>(filter.filter(trueTime)); // the first poll comes in time,
    for (int i = 0; i < 1000; ++i) {            // the others go on for a second without data
        trueTime += ms;
        ASSERT_LT(std::abs(errorOf(filter.filter(trueTime), trueTime)), 1 * us) << i;
    }
    for (int i = 0; i < 200; ++i) {
        ASSERT_LT(std::abs(nextError()), 1 * us) << i;
    }
}

TEST_F(TimestampFilterTest, StaysWithinANanosecondFor24Hours)
{
    for (const int frames : {441, 1024}) {
        filter = filterFor(44100, 20 * ms);
        double worst = 0;
        std::uint64_t position = 0;
        while (position < 24ULL * 3600 * 44100) {
            const TimeValue rawTime = start + position * second / 44100;
            worst = std::max(worst, std::abs(errorOf(filter.filter(rawTime), rawTime)));
            filter.advance(frames);
            position += static_cast<std::uint64_t>(frames);
        }
        RecordProperty("worst_ns_" + std::to_string(frames), std::to_string(worst));
        EXPECT_LE(worst, 1) << frames;
    }
}

TEST_F(TimestampFilterTest, LosesNothingWhenHoursPassBetweenTwoTimestamps)
{
    run(200);
    for (int i = 0; i < 24 * 3600; ++i) {
        filter.advance(48000);
        trueTime += second;
    }
    EXPECT_LE(std::abs(nextError()), 1);
}

TEST_F(TimestampFilterTest, IsStableForPacketsLongerThanItsTimeConstant)
{
    static_cast<void>(filter.filter(start));
    for (int i = 1; i < 100; ++i) {
        filter.advance(96000);
        const TimeValue time = start + static_cast<TimeValue>(i) * 2 * second;
        const TimeValue offset = i == 1 ? 10 * ms : 0;
        const double error = std::abs(errorOf(filter.filter(time + offset), time + offset));
        ASSERT_LT(error, i < 10 ? 10.0 * ms : 1.0 * us) << i;
    }
}

TEST_F(TimestampFilterTest, RecoversFromAReaderThatGotHalfOfItsFrames)
{
    run(200);
    for (int i = 0; i < 500; ++i) { // 5 s in which only half of each packet's frames arrive
        static_cast<void>(filter.filter(trueTime));
        filter.advance(framesPerPacket / 2);
        trueTime += packet;
    }
    // What lag it is left with, at most the maximum error, goes as after a step: it has not learnt
    // a rate that no clock has.
    EXPECT_LE(std::abs(nextError()), 20.0 * ms);
    double worst = 0;
    for (int i = 0; i < 300; ++i) {
        const double error = std::abs(nextError());
        worst = i >= 150 ? std::max(worst, error) : 0;
    }
    EXPECT_LE(worst, 20.0 * ms * 0.05);
    EXPECT_LT(std::abs(nextError()), 10 * us);
}

// The documented loop, in numbers that need no fraction kept apart; the first timestamps are off by
// more than a packet.
TEST_F(TimestampFilterTest, FollowsItsFormulaToTheNanosecondForPacketsOfAnyLength)
{
    constexpr long double timeConstant = 250e6L;
    constexpr long double nominal = 1e9L / 48000;
    for (unsigned int seed = 0; seed < 20; ++seed) {
        TimestampFilter loop = filterFor(48000, second);
        std::mt19937 random(seed);
        std::uniform_int_distribution<long> jitter(-3'000'000, 3'000'000);
        long double nsPerFrame = nominal;
        long double expected = 0; // ns since the start
        long double whole = 0;    // frames since the start
        int numFrames = 0;
        for (int k = 1; k <= 500; ++k) {
            const long offset = jitter(random) * (k < 10 ? 20 : 1) + (k < 250 ? 2'000'000 : 0);
            const auto rawTime = static_cast<std::int64_t>(whole * nominal) + offset;
            const auto frames = static_cast<long double>(numFrames);
            if (k == 1) {
                expected = static_cast<long double>(rawTime);
            } else {
                const long double theta = std::exp(-frames * nominal / timeConstant);
                const long double predicted = expected + frames * nsPerFrame;
                const long double error = static_cast<long double>(rawTime) - predicted;
                expected = predicted + error * std::max(1 - theta * theta, 1.0L / k);
                nsPerFrame = std::clamp(nsPerFrame + (1 - theta) * (1 - theta) * error / frames,
                                        nominal * 0.99L, nominal * 1.01L);
            }
            const TimeValue filtered = loop.filter(start + static_cast<TimeValue>(rawTime));
            const auto sinceStart = static_cast<std::int64_t>(filtered - start);
            ASSERT_LE(std::abs(static_cast<long double>(sinceStart) - expected), 0.55L)
                << "seed " << seed << ", timestamp " << k;
            numFrames = k % 7 == 0 ? 1000 : 480;
            loop.advance(numFrames);
            whole += numFrames;
        }
    }
}

TEST_F(TimestampFilterTest, LearnsNoRateThatNoClockHas)
{
    filter.setMaxErrorThreshold(second);
    for (int i = 0; i < 3000; ++i) {
        static_cast<void>(next(i * 500'000)); // 5 % slow
    }
    const TimeValueDelta offset = 3000 * 500'000;
    EXPECT_LT(nextError(offset), static_cast<double>(offset) - 4.0 * ms)
        << "what it may not learn it lags behind";
}

TEST_F(TimestampFilterTest, ForgetsAtANewSampleRateHowMuchAPacketWeighed)
{
    run(200);
    filter.setSampleRate(8000); // 480 frames are 60 ms now
    TimestampFilter fresh = filterFor(8000, 20 * ms);
    for (TimeValue i = 0; i < 20; ++i) {
        const TimeValue time = start + i * 60 * ms + i % 3 * ms;
        EXPECT_EQ(filter.filter(time), fresh.filter(time));
        filter.advance(framesPerPacket);
        fresh.advance(framesPerPacket);
    }
}

TEST_F(TimestampFilterTest, TakesTheFirstTimestampAfterAResetAsItIs)
{
    run(200);
    filter.reset(NoTimeValue);
    EXPECT_EQ(nextError(4'000'000), 4'000'000);

    run(200);
    filter.reset(trueTime + 5 * ms);
    EXPECT_EQ(nextError(4'000'000), 4'000'000);
    run(200);
    filter.reset(trueTime);
    filter.advance(framesPerPacket);
    EXPECT_EQ(nextError(4'000'000), 4'000'000);
}

TEST_F(TimestampFilterTest, ForgetsTheLearntRateOnReset)
{
    for (int i = 0; i < 1000; ++i) {
        static_cast<void>(next(i * 5000)); // 500 ppm slow
    }
    filter.reset(NoTimeValue);
    EXPECT_EQ(nextError(), 0);
    EXPECT_EQ(nextError(), 0);
}

TEST_F(TimestampFilterTest, RestartsItsHistoryWithANewSampleRate)
{
    run(200);
    filter.setSampleRate(96000);
    EXPECT_EQ(nextError(4'000'000), 4'000'000);
    trueTime -= packet / 2; // 480 frames are 5 ms now
    EXPECT_EQ(nextError(4'000'000), 4'000'000);
}

TEST_F(TimestampFilterTest, PassesThroughWhenDisabledAndRestartsWhenEnabled)
{
    run(200);
    filter.setEnabled(false);
    for (const TimeValueDelta offset : {3'000'000L, -2'000'000L, 1L}) {
        EXPECT_EQ(nextError(offset), offset);
    }
    filter.setEnabled(true);
    EXPECT_EQ(nextError(4'000'000), 4'000'000);
    EXPECT_LT(nextError(0), 4'000'000) << "smoothing is on again";
    EXPECT_GT(nextError(0), 1'000'000);
}

TEST_F(TimestampFilterTest, PassesThroughWithoutASampleRate)
{
    TimestampFilter unset(250 * ms, "unset");
    EXPECT_EQ(unset.filter(start), start);
    unset.advance(480);
    EXPECT_EQ(unset.filter(start + 1), start + 1);
}

TEST_F(TimestampFilterTest, SmoothsAnErrorUpToTheMaximumAndNotBeyond)
{
    run(200);
    EXPECT_LT(nextError(20'000'000), 5'000'000);
    filter.reset(NoTimeValue);
    run(200);
    EXPECT_EQ(nextError(20'000'001), 20'000'001);
}

TEST_F(TimestampFilterTest, LetsNoTimeThroughWithoutATrace)
{
    run(200);
    EXPECT_EQ(filter.filter(NoTimeValue), NoTimeValue);
    EXPECT_EQ(nextError(), 0);
}

TEST_F(TimestampFilterTest, SurvivesTimesNearZero)
{
    trueTime = 0;
    filter.reset(NoTimeValue);
    run(100);
    EXPECT_EQ(nextError(), 0);
}

TEST_F(TimestampFilterTest, KeepsItsName)
{
    EXPECT_EQ(TimestampFilter(250 * ms, "read").name(), "read");
}
