// Every way in which a blocked writer and a caller of drain() are released.

#include "audioUtils/PcmQueue.h"

#include <atomic>
#include <cstdlib>
#include <memory>
#include <random>
#include <thread>

#include <gmock/gmock.h>

#include "support/BlockedCall.h"
#include "support/LogCapture.h"

using audioUtils::PcmQueue;
using miscUtils::NoTimeValue;
using miscUtils::TimeValue;
using testing::Contains;
using testing::Not;
using testSupport::BlockedCall;
using testSupport::blockedCall;
using testSupport::callElsewhere;
using testSupport::isBlocked;
using testSupport::resultOf;

namespace {

constexpr TimeValue ms = 1'000'000;
constexpr TimeValue start = 5000 * ms;
constexpr std::size_t bytesPerMs = 192;

using Bytes = std::vector<unsigned char>;

class PcmQueueThreadTest : public testing::TestWithParam<bool>
{
protected:
    PcmQueueThreadTest() { configure(); }

    void configure(unsigned int channels = 2)
    {
        queue->configure(GetParam(), 100, 48000, channels, 2, "q", true, 20 * ms, 10 * ms);
    }

    void fill() { ASSERT_TRUE(queue->write(start, Bytes(100 * bytesPerMs, 1))); }

    /// A write of 10 ms into a full queue.
    BlockedCall<bool> blockedWrite()
    {
        fill();
        return blockedCall([&target = *queue] {
            return target.write(start + 100 * ms, Bytes(10 * bytesPerMs, 2));
        });
    }

    BlockedCall<void> blockedDrain()
    {
        return blockedCall([&target = *queue] { target.drain(); });
    }

    Bytes read(TimeValue time, std::size_t milliseconds)
    {
        Bytes out(milliseconds * bytesPerMs);
        out.resize(queue->read(time, out) * 4);
        return out;
    }

    testSupport::LogCapture log{"PcmQueue"};
    std::unique_ptr<PcmQueue> queue = std::make_unique<PcmQueue>();
};

class TimedPcmQueueThreadTest : public PcmQueueThreadTest
{
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Timestamping, PcmQueueThreadTest, testing::Bool());
INSTANTIATE_TEST_SUITE_P(Timestamping, TimedPcmQueueThreadTest, testing::Values(true));

TEST_P(PcmQueueThreadTest, AReadReleasesTheWriter)
{
    auto written = blockedWrite();
    EXPECT_EQ(read(start, 5), Bytes(5 * bytesPerMs, 1));
    EXPECT_TRUE(isBlocked(written)) << "half of the packet still waits";
    EXPECT_EQ(read(start + 5 * ms, 5), Bytes(5 * bytesPerMs, 1));
    EXPECT_TRUE(resultOf(written));
    Bytes expected(90 * bytesPerMs, 1);
    expected.resize(100 * bytesPerMs, 2);
    EXPECT_EQ(read(start + 10 * ms, 100), expected);
}

TEST_P(TimedPcmQueueThreadTest, ABlockedWriterHasAlreadyMovedTheWriteTime)
{
    auto written = blockedWrite();
    EXPECT_EQ(queue->getWritePts(), start + 100 * ms);
    read(start, 4);
    while (queue->getWritePts() != start + 104 * ms) {
        std::this_thread::yield(); // ends with the test's timeout if the time never comes
    }
    EXPECT_TRUE(isBlocked(written));
    queue->abortWrite();
    EXPECT_FALSE(resultOf(written));
    EXPECT_EQ(queue->getWritePts(), start + 104 * ms) << "what was stored stays";
}

TEST_P(TimedPcmQueueThreadTest, APacketThatWasStoredInPiecesMovesNoLaterTimestamp)
{
    auto written = blockedWrite();
    read(start, 5);
    while (queue->getWritePts() != start + 105 * ms) {
        std::this_thread::yield();
    }
    read(start + 5 * ms, 5);
    EXPECT_TRUE(resultOf(written));
    read(start + 10 * ms, 10);
    ASSERT_TRUE(queue->write(start + 110 * ms, Bytes(10 * bytesPerMs, 3)));
    EXPECT_EQ(queue->getWritePts(), start + 120 * ms);
}

TEST_P(TimedPcmQueueThreadTest, AFlushReleasesTheWriter)
{
    auto written = blockedWrite();
    queue->flushOldData(start + 50 * ms);
    EXPECT_TRUE(resultOf(written));
}

TEST_P(TimedPcmQueueThreadTest, AFlushOfEverythingReleasesTheWriter)
{
    auto written = blockedWrite();
    queue->flushOldData(start + 500 * ms);
    EXPECT_TRUE(resultOf(written));
    EXPECT_EQ(queue->bufferedDuration(NoTimeValue), 10 * ms);
}

TEST_P(TimedPcmQueueThreadTest, AReadThatSkipsEverythingReleasesTheWriter)
{
    auto written = blockedWrite();
    EXPECT_EQ(read(start + 1000 * ms, 5), Bytes());
    EXPECT_TRUE(resultOf(written));
}

TEST_P(PcmQueueThreadTest, AResetReleasesTheWriterWhoGoesOn)
{
    auto written = blockedWrite();
    queue->reset();
    EXPECT_TRUE(resultOf(written));
    EXPECT_EQ(queue->bufferedDuration(NoTimeValue), 10 * ms);
}

TEST_P(PcmQueueThreadTest, ConfigureReleasesTheWriterWhoStoresNothingMore)
{
    auto written = blockedWrite();
    configure(1);
    EXPECT_FALSE(resultOf(written));
    EXPECT_EQ(queue->bufferedDuration(NoTimeValue), 0U);
    EXPECT_TRUE(queue->write(start, Bytes(96)));
}

TEST_P(PcmQueueThreadTest, AnAbortReleasesTheWriter)
{
    auto written = blockedWrite();
    queue->abortWrite();
    EXPECT_FALSE(resultOf(written));
    EXPECT_THAT(log.lines(), Contains("INFO q: Write aborted!"));
}

TEST_P(PcmQueueThreadTest, AnAbortFollowedAtOnceByConfigureReleasesTheOldWriter)
{
    for (int i = 0; i < 20; ++i) {
        auto written = blockedWrite();
        queue->abortWrite();
        configure();
        EXPECT_FALSE(resultOf(written));
        EXPECT_EQ(queue->bufferedDuration(NoTimeValue), 0U) << "nothing of the old packet";
    }
}

TEST_P(PcmQueueThreadTest, AnAbortedWriterLeavesEvenWhenTheNextOneIsAlreadyBlocked)
{
    for (int i = 0; i < 20; ++i) {
        auto oldWrite = blockedWrite();
        queue->abortWrite();
        configure();
        fill();
        auto newWrite = callElsewhere([&target = *queue] {
            return target.write(start + 100 * ms, Bytes(10 * bytesPerMs, 3));
        });
        EXPECT_FALSE(resultOf(oldWrite));
        EXPECT_TRUE(isBlocked(newWrite));
        read(start, 10);
        EXPECT_TRUE(resultOf(newWrite));
        configure();
    }
}

TEST_P(PcmQueueThreadTest, TheDestructorReleasesTheWriterAndWaitsForHim)
{
    auto written = blockedWrite();
    queue.reset();
    EXPECT_FALSE(resultOf(written));
    EXPECT_THAT(log.lines(), Contains("INFO q: Write aborted!"));
}

TEST_P(PcmQueueThreadTest, TheDestructorReleasesSeveralCallsAtOnce)
{
    auto written = blockedWrite();
    auto drained = blockedDrain();
    auto drainedToo = blockedDrain();
    queue.reset();
    EXPECT_FALSE(resultOf(written));
    resultOf(drained);
    resultOf(drainedToo);
}

TEST_P(PcmQueueThreadTest, DrainReturnsAtOnceFromAnEmptyOrAbortedQueue)
{
    queue->drain();
    fill();
    queue->abortWrite();
    queue->drain();
}

TEST_P(PcmQueueThreadTest, DrainWaitsForTheLastByte)
{
    fill();
    auto drained = blockedDrain();
    read(start, 99);
    EXPECT_TRUE(isBlocked(drained));
    read(start + 99 * ms, 1);
    resultOf(drained);
}

TEST_P(TimedPcmQueueThreadTest, AReadThatSkipsEverythingReleasesDrain)
{
    fill();
    auto drained = blockedDrain();
    EXPECT_EQ(read(start + 1000 * ms, 5), Bytes());
    resultOf(drained);
}

TEST_P(TimedPcmQueueThreadTest, AFlushReleasesDrain)
{
    fill();
    auto drained = blockedDrain();
    queue->flushOldData(start + 500 * ms);
    resultOf(drained);
}

TEST_P(PcmQueueThreadTest, AnAbortReleasesDrain)
{
    fill();
    auto drained = blockedDrain();
    queue->abortWrite();
    resultOf(drained);
}

TEST_P(PcmQueueThreadTest, AResetReleasesDrainEvenWhenTheQueueFillsAgainAtOnce)
{
    for (int i = 0; i < 20; ++i) {
        fill();
        auto drained = blockedDrain();
        queue->reset();
        fill();
        resultOf(drained);
        queue->reset();
    }
}

TEST_P(PcmQueueThreadTest, ConfigureReleasesDrainEvenWhenTheQueueFillsAgainAtOnce)
{
    for (int i = 0; i < 20; ++i) {
        fill();
        auto drained = blockedDrain();
        configure();
        fill();
        resultOf(drained);
        configure();
    }
}

TEST_P(PcmQueueThreadTest, EveryByteArrivesInOrderAcrossThreads)
{
    log.setLevel(log4cplus::WARN_LOG_LEVEL);
    log.clear();
    constexpr std::size_t numFrames = 500'000;
    const auto byteAt = [](std::size_t i) {
        return static_cast<unsigned char>(i * 2654435761U >> 13);
    };

    std::thread writer([&] {
        std::mt19937 random(1);
        for (std::size_t done = 0; done < numFrames;) {
            const std::size_t count = std::min<std::size_t>(1 + random() % 9000, numFrames - done);
            Bytes packet(count * 4);
            for (std::size_t i = 0; i < packet.size(); ++i) {
                packet[i] = byteAt(done * 4 + i);
            }
            ASSERT_TRUE(queue->write(start + done * 1'000'000'000 / 48000, packet));
            done += count;
        }
        queue->drain();
    });
    std::mt19937 random(2);
    bool inOrder = true;
    for (std::size_t done = 0; done < numFrames;) {
        Bytes out((1 + random() % 3000) * 4);
        const std::size_t count = queue->read(start + done * 1'000'000'000 / 48000, out);
        for (std::size_t i = 0; i < count * 4; ++i) {
            inOrder = inOrder && out[i] == byteAt(done * 4 + i);
        }
        done += count;
    }
    writer.join();
    EXPECT_TRUE(inOrder);
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}
