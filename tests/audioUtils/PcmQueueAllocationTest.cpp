// The audio threads must not meet the heap's locks: what they call allocates nothing.

#include <gtest/gtest.h>

#include "audioUtils/PcmQueue.h"
#include "support/AllocationCounter.h"
#include "support/LogCapture.h"

using miscUtils::NoTimeValue;
using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;
using testSupport::AllocationCounter;

namespace {

constexpr TimeValue ms = 1'000'000;
constexpr TimeValue start = 5000 * ms;

class PcmQueueAllocationTest : public testing::Test
{
protected:
    PcmQueueAllocationTest()
    {
        queue.configure(true, 200, 48000, 2, 2, "queue with a name too long for any short string",
                        true, 20 * ms, 10 * ms);
    }

    testSupport::LogCapture log{"PcmQueue", log4cplus::ERROR_LOG_LEVEL};
    audioUtils::PcmQueue queue;
    std::vector<unsigned char> block = std::vector<unsigned char>(1920, 1);
};

} // namespace

TEST_F(PcmQueueAllocationTest, PlayingInTimeAllocatesNothing)
{
    const AllocationCounter allocations;
    TimeValueDelta delta = 0;
    for (TimeValue i = 0; i < 100; ++i) {
        queue.write(start + i * 10 * ms, block);
        queue.read(start + i * 10 * ms, block, delta);
        static_cast<void>(queue.bufferedDuration(start));
        static_cast<void>(queue.getReadPts() + queue.getWritePts());
        static_cast<void>(queue.counters());
    }
    EXPECT_EQ(allocations.count(), 0U);
}

TEST_F(PcmQueueAllocationTest, RepairingJumpsAllocatesNothing)
{
    const AllocationCounter allocations;
    for (TimeValue i = 0; i < 15; ++i) {
        queue.write(start + i * 10 * ms, block);
    }
    queue.write(start + 180 * ms, block); // inserts silence
    EXPECT_EQ(queue.counters().insertedFrames, 1440U);
    queue.read(start - 5 * ms, block);  // hands out silence
    queue.read(start + 55 * ms, block); // skips
    queue.flushOldData(start + 100 * ms);
    queue.resyncRead();
    queue.write(start + 5000 * ms, block);  // starts afresh
    queue.read(start + 10'000 * ms, block); // finds everything late
    queue.flushOldData(start + 20'000 * ms);
    queue.abortWrite();
    EXPECT_FALSE(queue.write(start, block));
    queue.reset();
    EXPECT_EQ(allocations.count(), 0U);
    EXPECT_EQ(queue.counters().resets, 1U);
    EXPECT_EQ(queue.counters().underruns, 1U);
}

TEST_F(PcmQueueAllocationTest, ConfiguringIsSeenToAllocate)
{
    const AllocationCounter allocations;
    queue.configure(true, 400, 48000, 2, 2, "q", true, 20 * ms, 10 * ms);
    EXPECT_GT(allocations.count(), 0U) << "else the other tests prove nothing";
}
