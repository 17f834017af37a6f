#include "audioUtils/PcmQueue.h"

#include <algorithm>
#include <iterator>
#include <numeric>

#include <gmock/gmock.h>

#include "support/BlockedCall.h"
#include "support/LogCapture.h"

using audioUtils::PcmQueue;
using miscUtils::NoTimeValue;
using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testSupport::LogCapture;

namespace {

constexpr TimeValue us = 1'000;
constexpr TimeValue ms = 1'000'000;
constexpr TimeValue second = 1000 * ms;
constexpr TimeValue hour = 3600 * second;
constexpr TimeValue start = 5000 * ms;
constexpr std::size_t bytesPerMs = 192; // 48 kHz, 2 channels, 2 bytes

using Bytes = std::vector<unsigned char>;

Bytes audio(std::size_t milliseconds, unsigned char value = 1)
{
    return Bytes(milliseconds * bytesPerMs, value);
}

Bytes joined(std::initializer_list<Bytes> pieces)
{
    Bytes all;
    for (const Bytes& piece : pieces) {
        std::ranges::copy(piece, std::back_inserter(all));
    }
    return all;
}

/// A queue of 200 ms at 48 kHz, 2 channels, 2 bytes, with a jump threshold of 20 ms.
class PcmQueueTest : public testing::Test
{
protected:
    void configure(bool timestamping = true, std::size_t fillMs = 200)
    {
        queue.configure(timestamping, fillMs, 48000, 2, 2, "q", true, 20 * ms, 10 * ms);
        log.clear();
    }

    /// Writes 100 ms from `start` on.
    void fill(unsigned char value = 1)
    {
        ASSERT_TRUE(queue.write(start, audio(100, value)));
        log.clear();
    }

    /// Reads into a block of 0xEE; the bytes beyond the result must stay so.
    Bytes read(TimeValue time, std::size_t milliseconds)
    {
        Bytes out = audio(milliseconds, 0xEE);
        frames = queue.read(time, out, delta);
        EXPECT_THAT(Bytes(out.begin() + static_cast<std::ptrdiff_t>(frames * 4), out.end()),
                    Each(0xEE));
        out.resize(frames * 4);
        return out;
    }

    /// Has read real data in time before, and holds the rest of 100 ms.
    void synchronise()
    {
        read(start, 1);
        log.clear();
    }

    [[nodiscard]] std::size_t heldBytes()
    {
        return static_cast<std::size_t>(queue.bufferedDuration(NoTimeValue) / us * bytesPerMs /
                                        1000);
    }

    LogCapture log{"PcmQueue"};
    PcmQueue queue;
    std::size_t frames = 0;
    TimeValueDelta delta = 0;
};

class PcmQueueDeathTest : public PcmQueueTest
{
protected:
    PcmQueueDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); } // log4cplus has threads
};

} // namespace

TEST_F(PcmQueueTest, ConvertsBetweenBytesAndTime)
{
    configure();
    EXPECT_EQ(queue.calculateBytesFromDuration(1'000'000), 192U);
    EXPECT_EQ(queue.calculateBytesFromDuration(1'010'000), 192U) << "whole frames";
    EXPECT_EQ(queue.calculateBytesFromDuration(0), 0U);
    EXPECT_EQ(queue.calculateDurationFromBytes(4), 20833U);
    EXPECT_EQ(queue.calculateDurationFromBytes(192'000), second);
}

TEST_F(PcmQueueTest, ConvertsTimesOfDaysWithoutOverflow)
{
    configure();
    EXPECT_EQ(queue.calculateBytesFromDuration(1000 * hour), 1000UL * 3600 * 192'000);
    EXPECT_EQ(queue.calculateDurationFromBytes(1000UL * 3600 * 192'000), 1000 * hour);
}

TEST_F(PcmQueueTest, CalculatesBytesPerSecondIn32Bits)
{
    // 65536 · 4 · 32768 is 2³³, of which 32 bits keep nothing; 2³³ + 2¹⁸ leaves 2¹⁸.
    queue.configure(true, 1, 32769, 65536, 4, "wide", true, 0, 0);
    EXPECT_EQ(queue.calculateDurationFromBytes(262'144), second);
}

TEST_F(PcmQueueTest, HoldsAsMuchAsConfigured)
{
    configure(true, 100);
    ASSERT_TRUE(queue.write(start, audio(100)));
    EXPECT_EQ(heldBytes(), 19200U);
    auto oneFrameMore =
        testSupport::blockedCall([this] { return queue.write(start + 100 * ms, Bytes(4)); });
    queue.abortWrite();
    EXPECT_FALSE(resultOf(oneFrameMore));
}

TEST_F(PcmQueueTest, LogsItsConfiguration)
{
    queue.configure(true, 200, 48000, 2, 2, "main", true, 20 * ms, 10 * ms);
    queue.configure(false, 5, 96000, 6, 3, "rear", true, 20 * ms, 10 * ms);
    EXPECT_THAT(
        log.lines(),
        ElementsAre("DEBUG main: Configured queue:  timestamping enabled: 1  max fill level: "
                    "200 ms  sample rate: 48000 Hz  number of channels: 2  bytes per sample: 2",
                    "DEBUG rear: Configured queue:  timestamping enabled: 0  max fill level: "
                    "5 ms  sample rate: 96000 Hz  number of channels: 6  bytes per sample: 3"));
    EXPECT_EQ(queue.name(), "rear");
}

TEST_F(PcmQueueTest, LogsWithItsSourceAndFunction)
{
    configure();
    fill();
    queue.write(start, {});
    const auto records = log.records();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records[0].logger, "PcmQueue");
    EXPECT_THAT(records[0].file, HasSubstr("src/multilib/audioUtils/PcmQueue"));
    EXPECT_THAT(records[0].function, HasSubstr("audioUtils::PcmQueue::"));
    EXPECT_GT(records[0].line, 0);
}

TEST_F(PcmQueueTest, StartsAtTheFirstTimestamp)
{
    configure();
    EXPECT_EQ(queue.getReadPts(), NoTimeValue);
    EXPECT_EQ(queue.getWritePts(), NoTimeValue);
    ASSERT_TRUE(queue.write(start, audio(100)));
    EXPECT_EQ(queue.getReadPts(), start);
    EXPECT_EQ(queue.getWritePts(), start + 100 * ms);
    EXPECT_EQ(queue.getReadPtsInternal(), start);
    EXPECT_EQ(queue.getWritePtsInternal(), start + 100 * ms);
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG q: Buffer is empty, start reading pts = 5.000000",
                                         "INFO q: Buffer is empty, startPts = 5.000000",
                                         "DEBUG q: new writePts: 5.100000 from 19200 bytes"));
}

TEST_F(PcmQueueTest, AppendsAcrossASmallGap)
{
    configure();
    fill();
    ASSERT_TRUE(queue.write(start + 110 * ms, audio(10)));
    EXPECT_EQ(heldBytes(), 110 * bytesPerMs) << "no silence";
    EXPECT_EQ(queue.getWritePts(), start + 120 * ms);
    EXPECT_THAT(log.messages(log4cplus::WARN_LOG_LEVEL), IsEmpty());
    EXPECT_EQ(queue.counters().insertedFrames, 0U);
}

TEST_F(PcmQueueTest, FillsAGapShorterThanWhatItHolds)
{
    configure();
    fill();
    ASSERT_TRUE(queue.write(start + 150 * ms, audio(10, 2)));
    EXPECT_THAT(
        log.lines(),
        Contains("WARN q: Pts jump of 50.000000 ms detected. Inserting 2400 silence frames"));
    EXPECT_EQ(queue.counters().insertedFrames, 2400U);
    EXPECT_EQ(queue.getReadPts(), start);
    EXPECT_EQ(queue.getWritePts(), start + 160 * ms);
    EXPECT_EQ(read(start, 160), joined({audio(100, 1), audio(50, 0), audio(10, 2)}));
}

TEST_F(PcmQueueTest, DropsTheSilenceThatDoesNotFitButNamesAllOfIt)
{
    configure(true, 130);
    fill();
    ASSERT_TRUE(queue.write(start + 150 * ms, {}));
    EXPECT_THAT(
        log.lines(),
        Contains("WARN q: Pts jump of 50.000000 ms detected. Inserting 2400 silence frames"));
    EXPECT_EQ(heldBytes(), 130 * bytesPerMs);
    EXPECT_EQ(queue.counters().insertedFrames, 30U * 48);
}

TEST_F(PcmQueueTest, StartsAfreshAfterAGapAsLongAsWhatItHolds)
{
    for (const TimeValue gap : {100 * ms, 500 * ms, 40 * 24 * hour}) {
        configure();
        fill();
        ASSERT_TRUE(queue.write(start + 100 * ms + gap, audio(10, 2)));
        EXPECT_THAT(log.lines(), Contains(HasSubstr(" ms detected. Resetting ringbuffer")));
        EXPECT_EQ(queue.getReadPts(), start + 100 * ms + gap);
        EXPECT_EQ(heldBytes(), 10 * bytesPerMs);
        EXPECT_EQ(queue.counters().resets, 1U);
        EXPECT_EQ(read(start + 100 * ms + gap, 10), audio(10, 2));
    }
}

TEST_F(PcmQueueTest, StartsAfreshAfterABackwardJump)
{
    configure();
    fill();
    ASSERT_TRUE(queue.write(start + 79 * ms, audio(10, 2)));
    EXPECT_THAT(log.lines(),
                ElementsAre("WARN q: Pts jump of -21.000000 ms detected. Resetting ringbuffer",
                            "INFO q: Buffer is empty, startPts = 5.079000",
                            "DEBUG q: new writePts: 5.089000 from 1920 bytes"));
    EXPECT_EQ(queue.getReadPts(), start + 79 * ms);
    EXPECT_EQ(heldBytes(), 10 * bytesPerMs);
}

TEST_F(PcmQueueTest, LeavesDeviationsUpToTheThresholdAlone)
{
    for (const TimeValueDelta deviation : {20'000'000L, -20'000'000L}) {
        queue.configure(true, 200, 48000, 2, 2, "q", false, 20 * ms, 10 * ms);
        fill();
        ASSERT_TRUE(queue.write(start + 100 * ms + static_cast<TimeValue>(deviation), audio(10)));
        EXPECT_THAT(log.messages(log4cplus::WARN_LOG_LEVEL), IsEmpty());
        ASSERT_TRUE(queue.write(start + 110 * ms + 2 * static_cast<TimeValue>(deviation) +
                                    (deviation > 0 ? 1UL : -1UL),
                                audio(10)));
        EXPECT_THAT(log.messages(log4cplus::WARN_LOG_LEVEL), Not(IsEmpty()));
    }
}

TEST_F(PcmQueueTest, FirstReadLogsAJumpOfNothing)
{
    configure();
    EXPECT_EQ(read(start, 1), Bytes());
    EXPECT_THAT(log.lines(), ElementsAre("INFO q: Pts jump of 0.000000 ms detected when reading",
                                         "INFO q: Creating 0 of silence bytes"));
}

TEST_F(PcmQueueTest, ReadsWhatIsDue)
{
    configure();
    fill(7);
    EXPECT_EQ(read(start, 10), audio(10, 7));
    EXPECT_EQ(frames, 480U);
    EXPECT_EQ(delta, 0);
    EXPECT_EQ(queue.getReadPts(), start + 10 * ms);
    EXPECT_THAT(log.lines(), Contains("DEBUG q: new readPts: 5.010000"));
}

TEST_F(PcmQueueTest, ReportsTheTimingErrorWithoutActingOnIt)
{
    queue.configure(true, 200, 48000, 2, 2, "q", false, 20 * ms, 10 * ms);
    fill();
    synchronise();
    EXPECT_EQ(read(start + 1 * ms + 5 * ms, 1), audio(1));
    EXPECT_EQ(delta, 5'000'000);
    EXPECT_EQ(read(start + 2 * ms - 5 * ms, 1), audio(1));
    EXPECT_EQ(delta, -5'000'000);
    EXPECT_THAT(log.messages(log4cplus::INFO_LOG_LEVEL), IsEmpty());
}

TEST_F(PcmQueueTest, PadsWithSilenceUntilTheFirstFrameIsDue)
{
    configure();
    fill(7);
    EXPECT_EQ(read(start - 5 * ms, 10), joined({audio(5, 0), audio(5, 7)}));
    EXPECT_EQ(delta, 0);
    EXPECT_THAT(log.messages(log4cplus::INFO_LOG_LEVEL),
                Contains("q: Creating 960 of silence bytes"));
    EXPECT_EQ(queue.counters().silenceFrames, 240U);
}

TEST_F(PcmQueueTest, StartsOnItsFrameAfterBlocksOfSilence)
{
    configure();
    fill(7);
    for (TimeValue early = 35; early > 5; early -= 10) {
        EXPECT_EQ(read(start - early * ms, 10), audio(10, 0)) << early;
    }
    EXPECT_EQ(read(start - 5 * ms, 10), joined({audio(5, 0), audio(5, 7)}))
        << "not up to a threshold early";
}

TEST_F(PcmQueueTest, SkipsWhatIsLate)
{
    configure();
    fill();
    EXPECT_EQ(read(start + 30 * ms, 10), audio(10));
    EXPECT_EQ(delta, 0);
    EXPECT_THAT(log.lines(),
                testing::IsSupersetOf({"INFO q: Pts jump of 30.000000 ms detected when reading",
                                       "INFO q: Skipping 5760 bytes"}));
    EXPECT_EQ(queue.getReadPts(), start + 40 * ms);
    EXPECT_EQ(queue.counters().skippedFrames, 30U * 48);
}

TEST_F(PcmQueueTest, ReportsAnUnderrunWhenAllIsLate)
{
    for (const TimeValue late : {150 * ms, 40 * 24 * hour}) {
        configure();
        fill();
        EXPECT_EQ(read(start + late, 10), Bytes());
        EXPECT_EQ(delta, 0);
        EXPECT_THAT(log.messages(log4cplus::INFO_LOG_LEVEL),
                    ElementsAre(StartsWith("q: Pts jump of "),
                                "q: Skipping " + std::to_string(late / ms * bytesPerMs) + " bytes",
                                "q: No data available for reading - buffer underrun"));
        EXPECT_EQ(heldBytes(), 0U);
        EXPECT_EQ(queue.counters().underruns, 1U);
        EXPECT_EQ(queue.counters().skippedFrames, 4800U);
    }
}

TEST_F(PcmQueueTest, ReadsNothingFromAnEmptySyncedQueue)
{
    configure();
    fill();
    EXPECT_EQ(read(start, 100), audio(100));
    log.clear();
    EXPECT_EQ(read(start + 100 * ms, 10), Bytes()) << "and leaves the output as it was";
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PcmQueueTest, ReadsAsMuchAsThereIs)
{
    configure();
    fill();
    EXPECT_EQ(read(start, 150), audio(100));
}

TEST_F(PcmQueueTest, ReadWithoutADeltaIsTheSame)
{
    configure();
    fill(3);
    Bytes out = audio(10, 0);
    EXPECT_EQ(queue.read(start, out), 480U);
    EXPECT_EQ(out, audio(10, 3));
}

TEST_F(PcmQueueTest, ReadAtNoTimeLooksAtNoTime)
{
    configure();
    ASSERT_TRUE(queue.write(start, audio(10)));
    delta = 77;
    EXPECT_EQ(read(NoTimeValue, 20), audio(10)) << "though a second pass finds the queue empty";
    EXPECT_EQ(delta, 77);
    EXPECT_THAT(log.messages(log4cplus::INFO_LOG_LEVEL), Not(Contains(HasSubstr("when reading"))));
}

TEST_F(PcmQueueTest, WriteAtNoTimeAppendsWithoutLookingAtTime)
{
    configure();
    fill();
    ASSERT_TRUE(queue.write(NoTimeValue, audio(10, 2)));
    EXPECT_TRUE(queue.write(NoTimeValue, {}));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(queue.getWritePts(), start + 100 * ms);
    EXPECT_EQ(heldBytes(), 110 * bytesPerMs);
}

TEST_F(PcmQueueTest, KnowsNoReadTimeWhereItKnowsNoWriteTime)
{
    configure();
    ASSERT_TRUE(queue.write(NoTimeValue, audio(20)));
    EXPECT_EQ(read(start, 10), audio(10));
    EXPECT_EQ(queue.getReadPts(), NoTimeValue);
    EXPECT_EQ(read(start + hour, 5), audio(5)) << "nothing is known to be late";
    EXPECT_EQ(queue.bufferedDuration(start), 5 * ms);
}

TEST_F(PcmQueueTest, EmptyPacketSetsTheTime)
{
    configure();
    EXPECT_TRUE(queue.write(start, {}));
    EXPECT_EQ(queue.getReadPts(), start);
    EXPECT_EQ(queue.getWritePts(), start);
    EXPECT_THAT(log.lines(), Contains("DEBUG q: new writePts: 5.000000 from 0 bytes"));
}

TEST_F(PcmQueueTest, WithoutTimestampingIsAPlainRing)
{
    configure(false);
    ASSERT_TRUE(queue.write(start, audio(10, 1)));
    ASSERT_TRUE(queue.write(start - hour, audio(10, 2)));
    ASSERT_TRUE(queue.write(start, {}));
    delta = 77;
    EXPECT_EQ(read(start + hour, 10), audio(10, 1));
    EXPECT_EQ(read(0, 20), audio(10, 2));
    EXPECT_EQ(delta, 77);
    EXPECT_EQ(queue.getReadPts(), NoTimeValue);
    EXPECT_EQ(queue.bufferedDuration(start), 0U);
    queue.write(start, audio(10));
    queue.flushOldData(start + hour);
    EXPECT_EQ(queue.bufferedDuration(start + hour), 10 * ms);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PcmQueueTest, ResyncAlignsTheNextReadExactly)
{
    queue.configure(true, 200, 48000, 2, 2, "q", false, 20 * ms, 10 * ms);
    fill();
    synchronise();
    queue.resyncRead();
    EXPECT_EQ(read(start + 1 * ms + 4 * ms, 10), audio(10));
    EXPECT_EQ(delta, 0);
    EXPECT_EQ(queue.getReadPts(), start + 15 * ms);
    EXPECT_THAT(log.lines(), Contains("INFO q: Skipping 768 bytes"));
}

TEST_F(PcmQueueTest, FlushesWhatIsLate)
{
    configure();
    fill();
    queue.flushOldData(start + 30 * ms);
    EXPECT_THAT(log.lines(), ElementsAre("INFO q: Skipping 5760 bytes"));
    EXPECT_EQ(queue.getReadPts(), start + 30 * ms);
    EXPECT_EQ(heldBytes(), 70 * bytesPerMs);
}

TEST_F(PcmQueueTest, FlushesEverythingWhenAllIsLate)
{
    configure();
    fill();
    queue.flushOldData(start + 101 * ms);
    EXPECT_THAT(log.lines(),
                ElementsAre("INFO q: all data in the buffer is in the past, flushing the "
                            "whole buffer"));
    EXPECT_EQ(queue.getReadPts(), start + 101 * ms);
    EXPECT_EQ(queue.getWritePts(), start + 101 * ms);
    EXPECT_EQ(heldBytes(), 0U);
    EXPECT_EQ(queue.counters().skippedFrames, 4800U);
}

TEST_F(PcmQueueTest, FlushesAsSkippedWhatEndsJustNow)
{
    configure();
    fill();
    queue.flushOldData(start + 100 * ms);
    EXPECT_THAT(log.lines(), ElementsAre("INFO q: Skipping 19200 bytes"));
    EXPECT_EQ(queue.getReadPts(), start + 100 * ms);
    EXPECT_EQ(heldBytes(), 0U);
}

TEST_F(PcmQueueTest, FlushesNothingThatIsInTime)
{
    configure();
    queue.flushOldData(start); // nothing is known yet
    fill();
    queue.flushOldData(start);
    queue.flushOldData(NoTimeValue);
    EXPECT_EQ(heldBytes(), 100 * bytesPerMs);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PcmQueueTest, TellsHowMuchCanStillBePlayed)
{
    configure();
    fill();
    EXPECT_EQ(queue.bufferedDuration(NoTimeValue), 100 * ms);
    EXPECT_EQ(queue.bufferedDuration(start - hour), 100 * ms);
    EXPECT_EQ(queue.bufferedDuration(start + 40 * ms), 60 * ms);
    EXPECT_EQ(queue.bufferedDuration(start + 100 * ms + 250 * us), 0U);
    EXPECT_THAT(
        log.lines(),
        ElementsAre("DEBUG q: actual buffered duration = 100.000000 ms",
                    "DEBUG q: actual buffered duration = 60.000000 ms",
                    "DEBUG q: all buffered data is in the past, difference = - 0.000250 s"));
}

TEST_F(PcmQueueTest, HoldsNothingBeforeItIsConfigured)
{
    EXPECT_EQ(queue.bufferedDuration(start), 0U);
    EXPECT_EQ(queue.bufferedDuration(NoTimeValue), 0U);
    EXPECT_EQ(queue.name(), "");
    queue.drain();
    queue.flushOldData(start);
    queue.resyncRead();
    queue.reset();
    queue.abortWrite();
    configure();
    EXPECT_TRUE(queue.write(start, audio(1))) << "an abort before configure() aborts nothing";
}

TEST_F(PcmQueueTest, AnAbortedWriteDoesNothingAndSaysSo)
{
    configure();
    fill();
    queue.abortWrite();
    for (const TimeValue pts : {start + 100 * ms, start + 150 * ms, start, NoTimeValue}) {
        EXPECT_FALSE(queue.write(pts, audio(10)));
        EXPECT_FALSE(queue.write(pts, {}));
    }
    EXPECT_EQ(heldBytes(), 100 * bytesPerMs) << "nothing stored, inserted or flushed";
    EXPECT_THAT(log.lines(), Each("INFO q: Write aborted!"));
    EXPECT_EQ(log.lines().size(), 8U);
    queue.drain(); // returns at once
    queue.reset();
    EXPECT_FALSE(queue.write(start, audio(10))) << "a reset does not lift the abort";
    configure();
    EXPECT_TRUE(queue.write(start, audio(10))) << "configure() does";
}

TEST_F(PcmQueueTest, AfterAnAbortWhatIsHeldCanStillBeRead)
{
    configure();
    fill();
    queue.abortWrite();
    EXPECT_EQ(read(start, 100), audio(100));
}

TEST_F(PcmQueueTest, ResetForgetsDataAndTimes)
{
    configure();
    fill();
    synchronise();
    queue.reset();
    EXPECT_EQ(heldBytes(), 0U);
    EXPECT_EQ(queue.getReadPts(), NoTimeValue);
    EXPECT_EQ(queue.getWritePts(), NoTimeValue);
    ASSERT_TRUE(queue.write(start + hour, audio(10, 9)));
    EXPECT_THAT(log.messages(log4cplus::WARN_LOG_LEVEL), IsEmpty()) << "no jump";
    EXPECT_EQ(read(start + hour, 10), audio(10, 9));
}

TEST_F(PcmQueueTest, ConfigureStartsFromEmpty)
{
    configure();
    fill();
    read(start + hour, 10);
    configure();
    EXPECT_EQ(heldBytes(), 0U);
    EXPECT_EQ(queue.getReadPts(), NoTimeValue);
    EXPECT_EQ(queue.counters().underruns, 0U);
    fill(5);
    EXPECT_EQ(read(start, 100), audio(100, 5));
}

TEST_F(PcmQueueTest, CountsBytesOfOnePacketIn32SignedBits)
{
    configure();
    const Bytes memory = audio(10, 6);
    const auto forged = [&memory](std::size_t size) {
        return nonstd::span<const unsigned char>(memory.data(), size);
    };
    EXPECT_TRUE(queue.write(start, forged(1UL << 31))) << "a negative count: nothing to store";
    EXPECT_EQ(heldBytes(), 0U);
    EXPECT_TRUE(queue.write(start, forged((1UL << 32) + memory.size())));
    EXPECT_EQ(heldBytes(), memory.size());
}

TEST_F(PcmQueueTest, OfNoCapacityDividesByNothing)
{
    queue.configure(true, 1, 500, 2, 2, "none", true, 20 * ms, 10 * ms);
    EXPECT_TRUE(queue.write(start, {}));
    EXPECT_EQ(read(start, 1), Bytes());
    EXPECT_EQ(read(start + hour, 1), Bytes());
    queue.flushOldData(start + hour);
    EXPECT_EQ(queue.bufferedDuration(NoTimeValue), 0U);
}

TEST_F(PcmQueueTest, KeepsEveryByteWhileItWraps)
{
    configure(true, 7);
    Bytes written(3 * bytesPerMs);
    unsigned char next = 0;
    TimeValue time = start;
    for (int i = 0; i < 1000; ++i) {
        std::iota(written.begin(), written.end(), next);
        ASSERT_TRUE(queue.write(time, written));
        ASSERT_EQ(read(time, 3), written);
        time += 3 * ms;
        ++next;
    }
}

TEST_F(PcmQueueTest, SmoothsJitteringTimestamps)
{
    queue.configure(true, 10'000, 48000, 2, 2, "q", true, 20 * ms, 10 * ms);
    TimeValueDelta worst = 0;
    for (TimeValue i = 0; i < 500; ++i) {
        const TimeValue jitter = i % 2 == 0 ? 0 : 3 * ms;
        ASSERT_TRUE(queue.write(start + i * 10 * ms + jitter, audio(10)));
        const auto error =
            static_cast<TimeValueDelta>(queue.getWritePts() - (start + (i + 1) * 10 * ms)) -
            1'500'000;
        worst = i > 200 ? std::max(worst, std::abs(error)) : 0;
    }
    EXPECT_LT(worst, 300'000) << "of 1.5 ms";
}

TEST_F(PcmQueueDeathTest, ConfigureRefusesZeros)
{
    const auto configureWith = [this](std::size_t fillMs, unsigned int rate, unsigned int channels,
                                      unsigned int bytes) {
        queue.configure(true, fillMs, rate, channels, bytes, "q", true, 0, 0);
    };
    EXPECT_DEATH(configureWith(0, 0, 0, 0), "maxFillLevelInMS > 0");
    EXPECT_DEATH(configureWith(1, 0, 0, 0), "sampleRate > 0");
    EXPECT_DEATH(configureWith(1, 1, 0, 0), "channels > 0");
    EXPECT_DEATH(configureWith(1, 1, 1, 0), "numBytesPerSample > 0");
}

TEST_F(PcmQueueDeathTest, MustBeConfiguredBeforeUse)
{
    Bytes block = audio(1);
    EXPECT_DEATH(queue.write(start, block), "m_bytesPerFrame != 0");
    EXPECT_DEATH(queue.write(start, {}), "m_bytesPerFrame != 0");
    EXPECT_DEATH(queue.read(start, block), "m_bytesPerFrame != 0");
    EXPECT_DEATH(static_cast<void>(queue.calculateDurationFromBytes(1)), "m_bytesPerSecond != 0");
    EXPECT_DEATH(static_cast<void>(queue.calculateBytesFromDuration(1)), "m_bytesPerFrame != 0");
}
