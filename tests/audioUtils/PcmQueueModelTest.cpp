// The queue against its model, over tens of thousands of random calls: bytes, results, times,
// counters and every line of the log must agree after each.

#include <random>

#include <gmock/gmock.h>

#include "audioUtils/PcmQueue.h"
#include "support/LogCapture.h"
#include "support/PcmQueueModel.h"

using audioUtils::PcmQueue;
using miscUtils::NoTimeValue;
using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;
using testSupport::LogCapture;
using testSupport::PcmQueueModel;

namespace {

constexpr TimeValue ms = 1'000'000;
constexpr TimeValue day = 24UL * 3600 * 1000 * ms;

struct Stream
{
    const char* name;
    bool timestamping;
    bool filter;
    std::size_t maxFillLevelInMS;
    unsigned int sampleRate;
    unsigned int channels;
    unsigned int numBytesPerSample;
    TimeValue jumpThreshold;
};

void PrintTo(const Stream& stream, std::ostream* out)
{
    *out << stream.name;
}

class PcmQueueModelTest : public testing::TestWithParam<std::tuple<Stream, unsigned int>>
{
protected:
    void configure()
    {
        const auto apply = [this](auto& target) {
            target.configure(stream.timestamping, stream.maxFillLevelInMS, stream.sampleRate,
                             stream.channels, stream.numBytesPerSample, "random", stream.filter,
                             stream.jumpThreshold, 10 * ms);
        };
        apply(queue);
        apply(model);
        now = 1'700'000'000'000 * ms;
        nextPts = now;
    }

    TimeValue anyOf(std::initializer_list<TimeValue> values)
    {
        return *(values.begin() + below(values.size()));
    }

    std::size_t below(std::size_t limit)
    {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
    }

    // Mostly small, at times beyond the threshold, seldom absurd; of either sign.
    TimeValue deviation()
    {
        const TimeValue size = below(10) < 7 ? below(2 * ms)
                               : below(10) < 8
                                   ? below(4 * stream.maxFillLevelInMS * ms)
                                   : anyOf({stream.jumpThreshold, stream.jumpThreshold + 1,
                                            3600 * 1000 * ms, 3 * day, 40 * day});
        return below(2) == 0 ? size : TimeValue{0} - size;
    }

    std::size_t anyLength()
    {
        const std::size_t frames = model.capacity / model.bytesPerFrame;
        return model.bytesPerFrame * below(frames / (below(4) == 0 ? 1 : 4) + 2);
    }

    void write()
    {
        std::vector<unsigned char> data(anyLength());
        for (unsigned char& byte : data) {
            byte = static_cast<unsigned char>(random());
        }
        const TimeValue pts =
            below(20) == 0 ? NoTimeValue : nextPts + (below(2) == 0 ? 0 : deviation());
        if (!model.hasRoomFor(pts, data)) {
            return;
        }
        ASSERT_EQ(queue.write(pts, data), model.write(pts, data));
        if (model.writePts != NoTimeValue) {
            nextPts = model.writePts;
        }
    }

    void read()
    {
        std::vector<unsigned char> out(anyLength(), 0xA5);
        std::vector<unsigned char> expected = out;
        TimeValueDelta delta = 12345;
        TimeValueDelta expectedDelta = delta;
        const TimeValue due = model.readPts == NoTimeValue ? now : model.readPts;
        const TimeValue time =
            below(20) == 0 ? NoTimeValue : due + (below(2) == 0 ? 0 : deviation());
        const std::size_t frames = queue.read(time, out, delta);
        ASSERT_EQ(frames, model.read(time, expected, expectedDelta));
        ASSERT_EQ(out, expected) << "also beyond the result, where it must be untouched";
        ASSERT_EQ(delta, expectedDelta);
    }

    void anyOperation()
    {
        switch (below(100)) {
        case 0:
            queue.reset();
            model.reset();
            break;
        case 1:
            configure();
            break;
        case 2:
            queue.resyncRead();
            model.resyncRead();
            break;
        case 3:
            if (below(10) == 0) {
                queue.abortWrite();
                model.abortWrite();
            }
            break;
        case 4:
        case 5: {
            const TimeValue time = below(10) == 0                 ? NoTimeValue
                                   : model.readPts == NoTimeValue ? now
                                                                  : model.readPts + deviation();
            queue.flushOldData(time);
            model.flushOldData(time);
            break;
        }
        case 6:
        case 7: {
            const TimeValue time = below(5) == 0 ? NoTimeValue : nextPts + deviation();
            ASSERT_EQ(queue.bufferedDuration(time), model.bufferedDuration(time));
            break;
        }
        default:
            below(2) == 0 ? write() : read();
        }
    }

    void compare()
    {
        ASSERT_EQ(log.takeLines(), model.log);
        model.log.clear();
        ASSERT_EQ(queue.getReadPts(), model.readPts);
        ASSERT_EQ(queue.getWritePts(), model.writePts);
        ASSERT_EQ(queue.bufferedDuration(NoTimeValue), model.bufferedDuration(NoTimeValue));
        const audioUtils::PcmQueueCounters counters = queue.counters();
        ASSERT_EQ(counters.insertedFrames, model.counters.insertedFrames);
        ASSERT_EQ(counters.resets, model.counters.resets);
        ASSERT_EQ(counters.silenceFrames, model.counters.silenceFrames);
        ASSERT_EQ(counters.skippedFrames, model.counters.skippedFrames);
        ASSERT_EQ(counters.underruns, model.counters.underruns);
    }

    const Stream stream = std::get<0>(GetParam());
    std::mt19937_64 random{std::get<1>(GetParam())};
    LogCapture log{"PcmQueue"};
    PcmQueue queue;
    PcmQueueModel model;
    TimeValue now = 0;
    TimeValue nextPts = 0;
};

constexpr Stream streams[] = {
    {"Cd", true, true, 60, 44100, 2, 2, 20 * ms},
    {"Unfiltered", true, false, 60, 44100, 2, 2, 20 * ms},
    {"Short", true, true, 5, 48000, 1, 3, 1 * ms},
    {"Surround", true, true, 20, 192000, 8, 4, 5 * ms},
    {"NoTolerance", true, false, 10, 48000, 2, 2, 0},
    {"OddRate", true, true, 30, 11025, 3, 3, 10 * ms},
    {"Untimed", false, true, 30, 48000, 2, 2, 20 * ms},
    {"NoCapacity", true, true, 1, 500, 2, 2, 20 * ms},
};

} // namespace

TEST_P(PcmQueueModelTest, AgreesAfterEveryCall)
{
    configure();
    for (int i = 0; i < 4000; ++i) {
        anyOperation();
        compare();
        if (HasFatalFailure()) {
            FAIL() << "in call " << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Random, PcmQueueModelTest,
                         testing::Combine(testing::ValuesIn(streams), testing::Range(1U, 4U)),
                         [](const auto& test) {
                             return std::get<0>(test.param).name +
                                    std::to_string(std::get<1>(test.param));
                         });
