#include "audioUtils/PllDriftCompensator.h"

#include <limits>
#include <sstream>
#include <vector>

#include <gmock/gmock.h>

#include "audioUtils/LowPassFilter.h"
#include "support/LogCapture.h"

using audioUtils::LowPassFilter;
using testing::ElementsAre;
using testing::IsEmpty;
using testSupport::LogCapture;

namespace {

constexpr unsigned long millisecond = 1'000'000;

/// A compensator that keeps what it reports. Gain 1: an adjustment of 1 a us.
class PllDriftCompensatorTest : public testing::Test
{
protected:
    PllDriftCompensator compensator(double alpha = 1.0, double Ki = 0)
    {
        return {-1000, 1000, 1, Ki, 0, [this](int value) { reports.push_back(value); }, 50, alpha};
    }

    std::vector<int> taken() { return std::exchange(reports, {}); }

    std::vector<int> reports;
};

} // namespace

TEST_F(PllDriftCompensatorTest, ReportsZeroAtFirstWhateverTheDrift)
{
    PllDriftCompensator pll = compensator(0.1);
    EXPECT_THAT(taken(), IsEmpty());
    pll.update(500'000, 1'000'000 * millisecond);
    EXPECT_THAT(taken(), ElementsAre(0));
    pll.update(7'900, 100 * millisecond); // neither the drift nor the time of before counts
    EXPECT_THAT(taken(), ElementsAre(7));
}

TEST_F(PllDriftCompensatorTest, ReportsTheSecondOutputEvenIfItIsZero)
{
    PllDriftCompensator pll = compensator();
    pll.update(0, 0);
    EXPECT_THAT(taken(), ElementsAre(0));
    pll.update(0, 100 * millisecond);
    EXPECT_THAT(taken(), ElementsAre(0));
    pll.update(0, 200 * millisecond);
    EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(PllDriftCompensatorTest, GrowsWithTheDriftAndTruncatesTowardsZero)
{
    PllDriftCompensator pll = compensator();
    pll.update(0, 0);
    pll.update(-3'700, 100 * millisecond);
    pll.update(3'700, 200 * millisecond);
    pll.update(2'000'000, 300 * millisecond);
    pll.update(-2'000'000, 400 * millisecond);
    EXPECT_THAT(taken(), ElementsAre(0, -3, 3, 1000, -1000));
}

TEST_F(PllDriftCompensatorTest, ReportsOnlyWhatMovesByAWholeUnit)
{
    PllDriftCompensator pll = compensator();
    pll.update(0, 0);
    pll.update(2'900, 100 * millisecond);
    taken();
    pll.update(3'500, 200 * millisecond); // another whole number, but not 1 more
    pll.update(1'950, 300 * millisecond);
    EXPECT_THAT(taken(), IsEmpty());
    pll.update(3'900, 400 * millisecond);
    EXPECT_THAT(taken(), ElementsAre(3));
    pll.update(2'950, 500 * millisecond);
    EXPECT_THAT(taken(), IsEmpty());
    pll.update(2'900, 600 * millisecond);
    EXPECT_THAT(taken(), ElementsAre(2));
}

TEST_F(PllDriftCompensatorTest, WaitsForTheSampleTime)
{
    PllDriftCompensator pll = compensator();
    pll.update(0, 0);
    pll.update(5'000, 100 * millisecond);
    taken();
    pll.update(50'000, 149 * millisecond + 999'999); // whole milliseconds count
    EXPECT_THAT(taken(), IsEmpty());
    pll.update(50'000, 150 * millisecond);
    EXPECT_THAT(taken(), ElementsAre(50));
}

TEST_F(PllDriftCompensatorTest, SmoothesAllButTheFirstDrift)
{
    PllDriftCompensator pll = compensator(0.5);
    pll.update(0, 0);
    pll.update(100'000, 100 * millisecond);
    EXPECT_THAT(taken(), ElementsAre(0, 100));
    pll.update(200'000, 200 * millisecond);
    const std::vector<int> second = taken();
    ASSERT_EQ(second.size(), 1U);
    EXPECT_THAT(second[0], testing::AllOf(testing::Gt(100), testing::Lt(130)));
}

TEST_F(PllDriftCompensatorTest, IntegratesWhatStays)
{
    PllDriftCompensator pll = compensator(1.0, 20); // 1 for each 50 ms
    pll.update(0, 0);
    for (unsigned int i = 1; i <= 3; ++i) {
        pll.update(10'000, i * 50 * millisecond);
    }
    EXPECT_THAT(taken(), ElementsAre(0, 20, 30, 40));
}

TEST_F(PllDriftCompensatorTest, RestartsAtTheNextUpdate)
{
    PllDriftCompensator pll = compensator(0.5, 20);
    pll.update(0, 0);
    pll.update(100'000, 100 * millisecond);
    taken();
    LogCapture log("AudioUtils", log4cplus::DEBUG_LOG_LEVEL);
    pll.restart();
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG Restarting PLL drift compensator"));
    EXPECT_THAT(taken(), IsEmpty());
    pll.update(400'000, 120 * millisecond);
    EXPECT_THAT(taken(), ElementsAre(0));
    pll.update(8'000, 140 * millisecond);
    EXPECT_THAT(taken(), ElementsAre(0)) << "the sample time goes on from before the restart";
    pll.update(8'000, 150 * millisecond);
    EXPECT_THAT(taken(), ElementsAre(16));
}

TEST_F(PllDriftCompensatorTest, TellsWhatItObserves)
{
    PllDriftCompensator pll = compensator();
    pll.update(0, 0);
    LogCapture log("AudioUtils");
    pll.update(-1'500, 100 * millisecond);
    EXPECT_THAT(log.lines(), ElementsAre("TRACE Observed drift: -1.5us  filtered drift: -1.5 us"));
}

TEST_F(PllDriftCompensatorTest, TellsWhatItsFilterMakesOfWhatItObserves)
{
    PllDriftCompensator pll = compensator(0.5);
    LowPassFilter filter;
    filter.setAlpha(0.5);
    pll.update(0, 0);
    pll.update(static_cast<long>(filter.filter(0)), 100 * millisecond);
    LogCapture log("AudioUtils");
    pll.update(2'000, 200 * millisecond);
    std::ostringstream expected;
    expected << "TRACE Observed drift: 2us  filtered drift: " << filter.filter(2'000) / 1000
             << " us";
    EXPECT_THAT(log.lines(), ElementsAre(expected.str()));
}

TEST_F(PllDriftCompensatorTest, ReportsTheSmallestNumberForGainsThatOverflow)
{
    PllDriftCompensator pll(
        -1000, 1000, 1, 0, 1e308, [this](int value) { reports.push_back(value); }, 50, 1.0);
    pll.update(0, 0);
    pll.update(5'000, 100 * millisecond); // 0 times infinity
    EXPECT_THAT(taken(), ElementsAre(0, std::numeric_limits<int>::min()));
}

TEST_F(PllDriftCompensatorTest, KeepsThePidsLimitsInsteadOfNone)
{
    PllDriftCompensator pll(
        5, 5, 1, 0, 0, [this](int value) { reports.push_back(value); }, 50, 1.0);
    pll.update(0, 0);
    pll.update(900'000, 100 * millisecond);
    pll.update(-900'000, 200 * millisecond);
    EXPECT_THAT(taken(), ElementsAre(0, 255, 0));
}

TEST_F(PllDriftCompensatorTest, TakesTheWidestLimits)
{
    constexpr int largest = std::numeric_limits<int>::max();
    PllDriftCompensator pll(
        -largest - 1, largest, 1, 0, 0, [this](int value) { reports.push_back(value); }, 50, 1.0);
    pll.update(0, 0);
    pll.update(5'000, 100 * millisecond);
    EXPECT_THAT(taken(), ElementsAre(0, 5));
    pll.update(std::numeric_limits<long>::max(), 200 * millisecond);
    EXPECT_THAT(taken(), ElementsAre(largest));
}

TEST(PllDriftCompensatorDeathTest, AbortsOnWhatCannotWork)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto create = [](const PllDriftCompensator::AdjustPllCallback& callback, double Kp,
                           double alpha) {
        const PllDriftCompensator pll(-1, 1, Kp, 0, 0, callback, 50, alpha);
    };
    const auto ignore = [](int) {};
    const std::string where =
        "PllDriftCompensator::PllDriftCompensator\\(int, int, double, double, double, "
        "(PllDriftCompensator::)?AdjustPllCallback, int, double\\): Assertion ";
    EXPECT_DEATH(create({}, 1, 1), where + "`!!m_adjustPllCallback' failed");
    for (const double alpha : {0.0, -1.0, 1.0001}) {
        EXPECT_DEATH(create(ignore, 1, alpha),
                     where + "`\\(m_filterAlpha > 0\\) && \\(m_filterAlpha <= 1.0\\)' failed");
    }
    EXPECT_DEATH(create(ignore, 0, 1), "setTunings");
}

TEST(LowPassFilterTest, PassesEverythingAtFirst)
{
    LowPassFilter filter;
    for (const double sample : {3.0, -7.5, 0.0, 1e9}) {
        EXPECT_EQ(filter.filter(sample), sample);
    }
}

TEST(LowPassFilterTest, TakesItsFirstSampleForWhatHasAlwaysBeen)
{
    LowPassFilter filter;
    filter.setAlpha(0.3);
    EXPECT_DOUBLE_EQ(filter.filter(100), 100);
    EXPECT_DOUBLE_EQ(filter.filter(100), 100);
    EXPECT_LT(filter.filter(0), 100);
    filter.reset();
    EXPECT_DOUBLE_EQ(filter.filter(-5), -5);
}

// A sine at the cut-off comes out at about -3 dB, one far above hardly at all.
TEST(LowPassFilterTest, CutsOffWhereAlphaSays)
{
    constexpr double alpha = 0.1;
    const auto gainAt = [](double radians) {
        LowPassFilter filter;
        filter.setAlpha(alpha);
        double peak = 0;
        for (int n = 0; n < 5000; ++n) {
            const double y = filter.filter(std::sin(radians * n));
            peak = n > 2000 ? std::max(peak, std::abs(y)) : 0;
        }
        return peak;
    };
    const double cutOff = 2 * M_PI * alpha / 15;
    EXPECT_NEAR(gainAt(cutOff), std::sqrt(0.5), 0.01);
    EXPECT_NEAR(gainAt(cutOff / 20), 1, 0.01);
    EXPECT_LT(gainAt(1.5), 0.03);
}
