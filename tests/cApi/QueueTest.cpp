#include "audioUtils/PcmQueue.h"

#include <numeric>
#include <random>
#include <vector>

#include <gmock/gmock.h>

#include "Handles.h"
#include "support/AllocationCounter.h"
#include "support/BlockedCall.h"
#include "support/LogCapture.h"

using testing::Each;
using testSupport::AllocationCounter;
using testSupport::blockedCall;
using testSupport::LogCapture;
using testSupport::resultOf;

namespace {

constexpr std::uint64_t ms = 1'000'000;
constexpr std::uint64_t start = 5000 * ms;
constexpr std::size_t block = 480; // frames: 10 ms

constexpr kelda_queue_config usual = {1, 200, 48000, 2, 2, "q", 1, 20 * ms, 10 * ms};

using Samples = std::vector<std::int16_t>;

class KeldaQueue : public testing::Test
{
protected:
    void configure(const kelda_queue_config& config = usual)
    {
        ASSERT_EQ(kelda_queue_configure(queue.get(), &config), KELDA_OK);
    }

    kelda_status write(std::uint64_t pts, std::size_t frames = block)
    {
        const Samples packet(frames * 2, 7);
        return kelda_queue_write(queue.get(), pts, packet.data(), frames);
    }

    void fill()
    {
        configure();
        for (std::uint64_t i = 0; i < 20; ++i) {
            ASSERT_EQ(write(start + i * 10 * ms), KELDA_OK);
        }
    }

    void readBlock()
    {
        Samples out(block * 2);
        std::size_t frames = 0;
        EXPECT_EQ(kelda_queue_read(queue.get(), start, out.data(), block, &frames, nullptr),
                  KELDA_OK);
        EXPECT_EQ(frames, block);
    }

    testSupport::BlockedCall<kelda_status> blockedWrite()
    {
        fill();
        return blockedCall([this] { return write(start + 200 * ms); });
    }

    [[nodiscard]] kelda_status refused(const kelda_queue_config& config)
    {
        return kelda_queue_configure(queue.get(), &config);
    }

    LogCapture log{"PcmQueue", log4cplus::ERROR_LOG_LEVEL};
    Queue queue = made<Queue>(kelda_queue_create);
};

} // namespace

TEST_F(KeldaQueue, DoesWhatTheClassDoes)
{
    configure();
    audioUtils::PcmQueue model;
    model.configure(true, 200, 48000, 2, 2, "q", true, 20 * ms, 10 * ms);
    std::minstd_rand random(1);
    std::uniform_int_distribution<int> jitter(-2'000'000, 2'000'000);
    std::uint64_t pts = start;
    std::uint64_t now = start - 20 * ms;
    for (int i = 0; i < 1000; ++i, pts += 10 * ms, now += 10 * ms) {
        pts += i % 100 == 50 ? 30 * ms : 0;  // gaps
        now += i % 150 == 75 ? 35 * ms : 0;  // a late reader
        now -= i % 150 == 149 ? 60 * ms : 0; // an early one
        const std::uint64_t stamp = pts + static_cast<std::uint64_t>(jitter(random));
        Samples packet(block * 2);
        std::iota(packet.begin(), packet.end(), static_cast<std::int16_t>(i));
        std::uint64_t held = 0;
        EXPECT_EQ(kelda_queue_get_buffered_duration(queue.get(), KELDA_NO_TIME, &held), KELDA_OK);
        if (held <= 90 * ms) { // so that it never blocks: a gap doubles it at most
            const auto* const bytes = reinterpret_cast<const unsigned char*>(packet.data());
            ASSERT_TRUE(model.write(stamp, {bytes, packet.size() * 2}));
            ASSERT_EQ(kelda_queue_write(queue.get(), stamp, packet.data(), block), KELDA_OK);
        }
        if (i % 200 == 199) {
            model.flushOldData(now + 15 * ms);
            EXPECT_EQ(kelda_queue_flush_old_data(queue.get(), now + 15 * ms), KELDA_OK);
        }
        if (i % 300 == 299) {
            model.resyncRead();
            EXPECT_EQ(kelda_queue_resync_read(queue.get()), KELDA_OK);
        }
        if (i == 500) {
            model.reset();
            EXPECT_EQ(kelda_queue_reset(queue.get()), KELDA_OK);
        }

        const std::uint64_t due = now + static_cast<std::uint64_t>(jitter(random));
        Samples expected(block * 2, -1);
        Samples out(block * 2, -1);
        std::int64_t expectedDelta = 77;
        std::int64_t delta = 77;
        std::size_t frames = 0;
        const std::size_t expectedFrames = model.read(
            due, {reinterpret_cast<unsigned char*>(expected.data()), expected.size() * 2},
            expectedDelta);
        ASSERT_EQ(kelda_queue_read(queue.get(), due, out.data(), block, &frames, &delta), KELDA_OK);
        ASSERT_EQ(frames, expectedFrames) << i;
        ASSERT_EQ(out, expected) << i;
        ASSERT_EQ(delta, expectedDelta) << i;

        std::uint64_t time = 0;
        EXPECT_EQ(kelda_queue_get_read_pts(queue.get(), &time), KELDA_OK);
        EXPECT_EQ(time, model.getReadPts());
        EXPECT_EQ(kelda_queue_get_write_pts(queue.get(), &time), KELDA_OK);
        EXPECT_EQ(time, model.getWritePts());
        EXPECT_EQ(kelda_queue_get_buffered_duration(queue.get(), now, &time), KELDA_OK);
        EXPECT_EQ(time, model.bufferedDuration(now));
    }
    const audioUtils::PcmQueueCounters expected = model.counters();
    kelda_queue_counters counters{};
    EXPECT_EQ(kelda_queue_get_counters(queue.get(), &counters), KELDA_OK);
    EXPECT_EQ(counters.inserted_frames, expected.insertedFrames);
    EXPECT_EQ(counters.resets, expected.resets);
    EXPECT_EQ(counters.silence_frames, expected.silenceFrames);
    EXPECT_EQ(counters.skipped_frames, expected.skippedFrames);
    EXPECT_EQ(counters.underruns, expected.underruns);
    for (const std::uint64_t count :
         {counters.inserted_frames, counters.silence_frames, counters.skipped_frames}) {
        EXPECT_GT(count, 0U);
    }
}

TEST_F(KeldaQueue, TakesItsConfigurationOver)
{
    const LogCapture lines("PcmQueue");
    configure({0, 100, 44100, 6, 4, nullptr, 0, 0, 0});
    EXPECT_THAT(
        lines.messages(),
        testing::ElementsAre(": Configured queue:  timestamping enabled: 0  max fill level: "
                             "100 ms  sample rate: 44100 Hz  number of channels: 6  bytes "
                             "per sample: 4"));
    const std::vector<float> packet(441 * 6, 0.5F);
    EXPECT_EQ(kelda_queue_write(queue.get(), 0, packet.data(), 441), KELDA_OK);
    std::uint64_t held = 0;
    EXPECT_EQ(kelda_queue_get_buffered_duration(queue.get(), KELDA_NO_TIME, &held), KELDA_OK);
    EXPECT_EQ(held, 10 * ms);
}

TEST_F(KeldaQueue, LeavesWhatItDidNotFillAndADeltaThatItDidNotTake)
{
    configure();
    ASSERT_EQ(write(KELDA_NO_TIME, 100), KELDA_OK);
    Samples out(block * 2, -1);
    std::size_t frames = 0;
    std::int64_t delta = 77;
    EXPECT_EQ(kelda_queue_read(queue.get(), KELDA_NO_TIME, out.data(), block, &frames, &delta),
              KELDA_OK);
    EXPECT_EQ(frames, 100U);
    EXPECT_EQ(delta, 77);
    EXPECT_THAT(Samples(out.begin(), out.begin() + 200), Each(7));
    EXPECT_THAT(Samples(out.begin() + 200, out.end()), Each(-1));
    EXPECT_EQ(kelda_queue_read(queue.get(), start, out.data(), block, &frames, nullptr), KELDA_OK);
    EXPECT_EQ(frames, 0U);
}

TEST_F(KeldaQueue, AbortReleasesAWriterUntilItIsConfiguredAgain)
{
    auto written = blockedWrite();
    EXPECT_EQ(kelda_queue_abort_write(queue.get()), KELDA_OK);
    EXPECT_EQ(resultOf(written), KELDA_ABORTED);
    EXPECT_EQ(write(start), KELDA_ABORTED);
    configure();
    EXPECT_EQ(write(start), KELDA_OK);
}

TEST_F(KeldaQueue, AConfigurationReleasesAWriter)
{
    auto written = blockedWrite();
    configure();
    EXPECT_EQ(resultOf(written), KELDA_ABORTED);
}

TEST_F(KeldaQueue, ItsEndReleasesAWriter)
{
    fill();
    const Samples packet(block * 2);
    auto written = blockedCall([&, handle = queue.get()] {
        return kelda_queue_write(handle, start + 200 * ms, packet.data(), block);
    });
    queue.reset();
    EXPECT_EQ(resultOf(written), KELDA_ABORTED);
}

TEST_F(KeldaQueue, AReaderMakesRoomForAWriter)
{
    auto written = blockedWrite();
    readBlock();
    EXPECT_EQ(resultOf(written), KELDA_OK);
}

TEST_F(KeldaQueue, DrainWaitsUntilAllIsRead)
{
    configure();
    EXPECT_EQ(kelda_queue_drain(queue.get()), KELDA_OK);
    ASSERT_EQ(write(start), KELDA_OK);
    auto drained = blockedCall([this] { return kelda_queue_drain(queue.get()); });
    readBlock();
    EXPECT_EQ(resultOf(drained), KELDA_OK);
}

TEST_F(KeldaQueue, WritingAndReadingAllocateNothing)
{
    configure();
    Samples samples(block * 2);
    const AllocationCounter allocations;
    std::size_t frames = 0;
    std::int64_t delta = 0;
    for (std::uint64_t i = 0; i < 100; ++i) {
        kelda_queue_write(queue.get(), start + i * 10 * ms, samples.data(), block);
        kelda_queue_read(queue.get(), start + i * 10 * ms, samples.data(), block, &frames, &delta);
    }
    EXPECT_EQ(allocations.count(), 0U);
}

TEST_F(KeldaQueue, MustBeConfigured)
{
    Samples out(block * 2);
    std::size_t frames = 77;
    EXPECT_EQ(write(start), KELDA_NOT_CONFIGURED);
    EXPECT_EQ(kelda_queue_read(queue.get(), start, out.data(), block, &frames, nullptr),
              KELDA_NOT_CONFIGURED);
    EXPECT_EQ(kelda_queue_flush_old_data(queue.get(), start), KELDA_NOT_CONFIGURED);
    EXPECT_EQ(frames, 77U);

    std::uint64_t time = 77;
    EXPECT_EQ(kelda_queue_get_buffered_duration(queue.get(), start, &time), KELDA_OK);
    EXPECT_EQ(time, 0U);
    EXPECT_EQ(kelda_queue_get_read_pts(queue.get(), &time), KELDA_OK);
    EXPECT_EQ(time, KELDA_NO_TIME);
    EXPECT_EQ(kelda_queue_get_write_pts(queue.get(), &time), KELDA_OK);
    EXPECT_EQ(time, KELDA_NO_TIME);
    EXPECT_EQ(kelda_queue_drain(queue.get()), KELDA_OK);
    EXPECT_EQ(kelda_queue_abort_write(queue.get()), KELDA_OK);
}

TEST_F(KeldaQueue, RefusesAConfigurationOutOfRangeAndKeepsTheFormer)
{
    configure();
    const auto with = [&](auto change) {
        kelda_queue_config config = usual;
        change(config);
        return refused(config);
    };
    EXPECT_EQ(with([](auto& c) { c.capacity_ms = 0; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.sample_rate = 0; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.channels = 0; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.bytes_per_sample = 0; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.channels = 44740; }), KELDA_INVALID_ARGUMENT) << "4 GiB/s";
    EXPECT_EQ(with([](auto& c) { c.channels = c.bytes_per_sample = 0x10000; }),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.jump_threshold = std::uint64_t{1} << 63; }),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) {
                  c.sample_rate = 999;
                  c.capacity_ms = 1;
              }),
              KELDA_INVALID_ARGUMENT)
        << "no room for a frame";
    EXPECT_EQ(write(start), KELDA_OK);
}

TEST_F(KeldaQueue, NullPointersAreRefused)
{
    configure();
    Samples out(block * 2);
    std::size_t frames = 77;
    std::uint64_t time = 77;
    kelda_queue_counters counters{};
    EXPECT_EQ(kelda_queue_create(nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_configure(nullptr, &usual), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_configure(queue.get(), nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_write(nullptr, 0, out.data(), 1), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_write(queue.get(), 0, nullptr, 1), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_read(nullptr, 0, out.data(), 1, &frames, nullptr),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_read(queue.get(), 0, nullptr, 1, &frames, nullptr),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_read(queue.get(), 0, out.data(), 1, nullptr, nullptr),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_abort_write(nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_resync_read(nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_flush_old_data(nullptr, 0), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_drain(nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_reset(nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_get_buffered_duration(nullptr, 0, &time), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_get_buffered_duration(queue.get(), 0, nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_get_read_pts(nullptr, &time), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_get_read_pts(queue.get(), nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_get_write_pts(nullptr, &time), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_get_write_pts(queue.get(), nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_get_counters(nullptr, &counters), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_queue_get_counters(queue.get(), nullptr), KELDA_INVALID_ARGUMENT);
    kelda_queue_destroy(nullptr);
    EXPECT_EQ(frames, 77U);
    EXPECT_EQ(time, 77U);
}

TEST_F(KeldaQueue, TakesNoFramesFromNowhereAndNotMoreThanItCanCount)
{
    configure();
    short sample = 0;
    std::size_t frames = 77;
    EXPECT_EQ(kelda_queue_write(queue.get(), start, nullptr, 0), KELDA_OK);
    EXPECT_EQ(kelda_queue_read(queue.get(), start, nullptr, 0, &frames, nullptr), KELDA_OK);
    EXPECT_EQ(frames, 0U);
    for (const std::size_t tooMany : {std::size_t{1} << 29, SIZE_MAX, SIZE_MAX / 4 + 2}) {
        EXPECT_EQ(kelda_queue_write(queue.get(), start, &sample, tooMany), KELDA_INVALID_ARGUMENT);
        EXPECT_EQ(kelda_queue_read(queue.get(), start, &sample, tooMany, &frames, nullptr),
                  KELDA_INVALID_ARGUMENT);
    }
}

#if !KELDA_SANITIZER_OWNS_HEAP // it ends the program then
TEST_F(KeldaQueue, WithoutMemoryItIsNotConfiguredAndReleasesAWriter)
{
    auto written = blockedWrite();
    kelda_queue_config config = usual;
    config.capacity_ms = UINT32_MAX;
    config.channels = 22369; // 2^54 bytes
    EXPECT_EQ(refused(config), KELDA_OUT_OF_MEMORY);
    EXPECT_EQ(resultOf(written), KELDA_ABORTED);
    EXPECT_EQ(write(start), KELDA_NOT_CONFIGURED);
    configure();
    EXPECT_EQ(write(start), KELDA_OK);
}
#endif
