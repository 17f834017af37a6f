#include "audioUtils/pid/Pid.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "PidModel.h"

using audioUtils::PID;

TEST(PidTest, IsManualAtFirst)
{
    PID pid(1, 1, 1, PID::Direct);
    EXPECT_EQ(pid.compute(100, 1000), 0.0);
    EXPECT_EQ(pid.compute(-100, 2000), 0.0);
    static_assert(PID::Mode::Automatic == 1 && PID::Reverse == 1);
}

TEST(PidTest, ComputesOnceASampleTime)
{
    PID pid(1, 0, 0, PID::Direct);
    pid.setMode(PID::Automatic);
    pid.setSetPoint(10);
    EXPECT_EQ(pid.compute(4, 1000), 6);
    EXPECT_EQ(pid.compute(1, 1049), 6);
    EXPECT_EQ(pid.compute(1, 1050), 9);
    EXPECT_EQ(pid.compute(2, 1099), 9) << "49 ms after the computation, not the call";
    EXPECT_EQ(pid.compute(2, 10), 8) << "time went backwards";
}

TEST(PidTest, SeesNoDerivativeAtFirst)
{
    PID pid(1, 0, 1, PID::Direct);
    pid.setOutputLimits(-1000, 1000);
    pid.setMode(PID::Automatic);
    EXPECT_EQ(pid.compute(-5, 1000), 5);
    // The error rises by 5 in 50 ms: 100 a second, times 1 / 0.05, subtracted.
    EXPECT_EQ(pid.compute(-10, 1050), -1000);
    pid.setOutputLimits(-10'000, 10'000);
    EXPECT_EQ(pid.compute(-15, 1100), 15 - 20 * 100.0);
    pid.reset();
    EXPECT_EQ(pid.compute(-30, 1150), 30);
    pid.setMode(PID::Manual);
    pid.setMode(PID::Automatic);
    EXPECT_EQ(pid.compute(-40, 1250), 40 + 30) << "the integral goes on from the output";
}

TEST(PidTest, IgnoresLimitsThatAreNone)
{
    PID pid(1, 0, 0, PID::Direct);
    pid.setMode(PID::Automatic);
    pid.setOutputLimits(5, 5);
    pid.setOutputLimits(6, 5);
    pid.setOutputLimits(std::numeric_limits<double>::infinity(), 5);
    EXPECT_EQ(pid.compute(-1, 1000), 1);
    EXPECT_EQ(pid.compute(-1000, 2000), 255);
    EXPECT_EQ(pid.compute(1000, 3000), 0);
}

TEST(PidTest, StopsTheIntegralAtTheLimit)
{
    PID pid(0.5, 20, 0, PID::Direct); // 1 for each sample time
    pid.setMode(PID::Automatic);
    EXPECT_EQ(pid.compute(-1000, 1000), 255);
    // Had the integral gone beyond 255, it would not be back at once.
    EXPECT_EQ(pid.compute(100, 1050), -50 + 155);
}

TEST(PidTest, LimitsAnAutomaticOutputAtOnceAndAManualOneLater)
{
    PID pid(1, 0, 0, PID::Direct);
    pid.setMode(PID::Automatic);
    EXPECT_EQ(pid.compute(-200, 1000), 200);
    pid.setOutputLimits(0, 100);
    EXPECT_EQ(pid.compute(-200, 1001), 100);
    pid.setMode(PID::Manual);
    pid.setOutputLimits(0, 50);
    EXPECT_EQ(pid.compute(-200, 2000), 100);
    pid.setMode(PID::Automatic);
    EXPECT_EQ(pid.compute(-200, 2000), 50);
}

TEST(PidTest, ReversesAManualControllersGainsAtTheNextTunings)
{
    PID pid(1, 0, 0, PID::Direct);
    pid.setOutputLimits(-100, 100);
    pid.setControllerDirection(PID::Reverse);
    pid.setMode(PID::Automatic);
    EXPECT_EQ(pid.compute(10, 1000), -10);
    pid.setTunings(1, 0, 0);
    EXPECT_EQ(pid.compute(10, 1050), 10);
    pid.setControllerDirection(PID::Direct); // an automatic one's at once
    EXPECT_EQ(pid.compute(10, 1100), -10);
    pid.setControllerDirection(PID::Direct);
    EXPECT_EQ(pid.compute(10, 1150), -10);
}

TEST(PidTest, KeepsTheMeaningOfTheGainsAtANewSampleTime)
{
    PID pid(1, 1, 1, PID::Direct);
    pid.setOutputLimits(-1e6, 1e6);
    pid.setMode(PID::Automatic);
    pid.setSampleTime(0);
    pid.setSampleTime(-7);
    pid.setSampleTime(100);
    EXPECT_EQ(pid.compute(-1, 1000), 1 + 0.1);
    EXPECT_EQ(pid.compute(-1, 1099), 1 + 0.1);
    EXPECT_DOUBLE_EQ(pid.compute(-2, 1100), 2 + 0.3 - 10 * (1 * 1000.0 / 100));
}

TEST(PidTest, TestsForTheValue1Only)
{
    PID pid(1, 0, 0, PID::ControllerDirection(2));
    pid.setOutputLimits(-100, 100);
    pid.setMode(PID::Mode(2));
    EXPECT_EQ(pid.compute(10, 1000), 0);
    pid.setMode(PID::Automatic);
    EXPECT_EQ(pid.compute(10, 1000), -10);
}

TEST(PidDeathTest, AbortsOnGainsThatAreNone)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const char* message = "void audioUtils::PID::setTunings\\(double, double, double\\): Assertion "
                          "`\\(Kp > 0\\) && \\(Ki >= 0\\) && \\(Kd >= 0\\)' failed";
    EXPECT_DEATH(PID(0, 1, 1, PID::Direct), message);
    EXPECT_DEATH(PID(1, -1, 1, PID::Direct), message);
    EXPECT_DEATH(PID(1, 1, -1, PID::Direct), message);
    EXPECT_DEATH(PID(NAN, 1, 1, PID::Direct), message);
    EXPECT_DEATH(PID(1, NAN, 1, PID::Direct), message);
}
