// Whether a device keeps time, in time that passes at once.

#include "DevicePace.h"

#include <gtest/gtest.h>

using keldaPlay::DevicePace;
using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;

namespace {

constexpr TimeValue ms = 1'000'000;
constexpr TimeValue second = 1000 * ms;
constexpr TimeValue hour = 3600 * second;
constexpr unsigned int rate = 48000;
constexpr unsigned int period = 480;
constexpr unsigned int buffer = 4800; // 100 ms

class DevicePaceTest : public testing::Test
{
protected:
    /// A writer that the device lets sleep: it takes a buffer at once and then what it plays.
    void playToCard(TimeValue duration, double ppm, TimeValueDelta told, bool measured)
    {
        const TimeValue start = m_now;
        const double periodNs = 10.0 * ms / (1 + ppm * 1e-6);
        const auto numPeriods =
            static_cast<std::uint64_t>(static_cast<double>(duration) / periodNs);
        for (std::uint64_t i = 0; i < numPeriods; ++i) {
            const auto blocked = i < buffer / period ? 0.0 : static_cast<double>(i) * periodNs;
            m_now = start + static_cast<TimeValue>(blocked);
            ASSERT_FALSE(m_pace.written(m_now, period, told, measured)) << i;
            ASSERT_EQ(m_pace.wait(m_now), 0);
        }
    }

    /// @return the blocks that it has taken in no time
    unsigned int writeUntilKept(TimeValueDelta told, bool measured)
    {
        unsigned int blocks = 1;
        while (blocks < 10'000 && !m_pace.written(m_now, period, told, measured)) {
            ++blocks;
        }
        return blocks;
    }

    TimeValue m_now = 1000 * second;
    DevicePace m_pace{rate, buffer};
};

} // namespace

TEST_F(DevicePaceTest, LeavesACardAloneHoweverLongItPlaysTooFast)
{
    playToCard(5 * hour, 1000, 100 * ms, true);
}

TEST_F(DevicePaceTest, LeavesACardAloneThatTellsNothing)
{
    playToCard(hour, 1000, 0, false);
    playToCard(hour, -1000, 0, false);
}

TEST_F(DevicePaceTest, LeavesASoundServerAloneThatFetchesForASlowDevice)
{
    const std::uint64_t fetched = 2 * rate; // and its delay reads less than nothing
    ASSERT_FALSE(m_pace.written(m_now, fetched, -1759 * TimeValueDelta{ms}, true));
    playToCard(hour, 0, 100 * ms, true);
}

TEST_F(DevicePaceTest, LeavesADeviceAloneThatTellsAsMuchOnItsWay)
{
    ASSERT_FALSE(m_pace.written(m_now, 9 * rate, 7 * TimeValueDelta{second}, true));
    EXPECT_TRUE(m_pace.written(m_now, 2 * rate, 7 * TimeValueDelta{second}, true));
}

TEST_F(DevicePaceTest, LeavesACardAloneThatDropsWhatItHoldsAgainAndAgain)
{
    for (int i = 0; i < 1000; ++i) {
        ASSERT_FALSE(m_pace.written(m_now, buffer, 0, false));
        m_now += 100 * ms;
        m_pace.repaired(m_now);
        ASSERT_FALSE(m_pace.written(m_now, buffer, 0, false));
        m_now += 10 * ms;
    }
}

TEST_F(DevicePaceTest, KeepsADeviceThatTakesAllAtOnce)
{
    EXPECT_EQ(writeUntilKept(0, false), 21U) << "a buffer and 100 ms";
    EXPECT_TRUE(m_pace.isKept());
}

TEST_F(DevicePaceTest, KeepsADeviceThatMeasuresNonsenseAndTakesAllAtOnce)
{
    EXPECT_LE(writeUntilKept(0, true), 400U);
    EXPECT_TRUE(m_pace.isKept());
}

TEST_F(DevicePaceTest, KeepsADeviceThatIsRepairedAtEachBlockAndTakesAllAtOnce)
{
    for (int i = 0; i < 1000 && !m_pace.isKept(); ++i) {
        m_pace.repaired(m_now);
        static_cast<void>(m_pace.written(m_now, period, 0, false));
    }
    EXPECT_TRUE(m_pace.isKept());
}

// As any device with a buffer of that size: filled at once, then a block for each that has passed.
TEST_F(DevicePaceTest, LetsAKeptDeviceTakeWhatTheTimeHasPlayed)
{
    writeUntilKept(0, false);
    for (unsigned int i = 0; i < buffer / period; ++i) {
        EXPECT_EQ(m_pace.wait(m_now), 0);
        EXPECT_EQ(m_pace.delay(m_now), static_cast<TimeValueDelta>(i * 10 * ms));
        EXPECT_FALSE(m_pace.written(m_now, period, 0, false));
    }
    const TimeValue full = m_now;
    for (unsigned int i = 1; i <= 3600 * 100; ++i) {
        ASSERT_FALSE(m_pace.written(m_now, period, 0, false));
        const TimeValueDelta wait = m_pace.wait(m_now);
        ASSERT_NEAR(static_cast<double>(wait), 10.0 * ms, 100);
        m_now += static_cast<TimeValue>(wait);
    }
    EXPECT_NEAR(static_cast<double>(m_now - full), static_cast<double>(hour), 1e6);
}

TEST_F(DevicePaceTest, TellsNothingHeldAfterAWriterWasHeldUp)
{
    writeUntilKept(0, false);
    static_cast<void>(m_pace.written(m_now, buffer, 0, false));
    m_now += 60 * ms;
    EXPECT_EQ(m_pace.delay(m_now), 40 * TimeValueDelta{ms});
    m_now += second;
    EXPECT_EQ(m_pace.delay(m_now), 0);
    EXPECT_EQ(m_pace.wait(m_now), 0);
    static_cast<void>(m_pace.written(m_now, period, 0, false));
    EXPECT_EQ(m_pace.delay(m_now), 10 * TimeValueDelta{ms}) << "goes on, and does not catch up";
}
