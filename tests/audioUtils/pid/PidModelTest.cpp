// Random sequences of calls, the results compared bit by bit with the arithmetic written out.

#include <bit>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "PidModel.h"
#include "audioUtils/LowPassFilter.h"
#include "audioUtils/PllDriftCompensator.h"
#include "audioUtils/pid/Pid.h"

using audioUtils::PID;

namespace {

constexpr int sequences = 5000;

class Random
{
public:
    explicit Random(unsigned int seed) : m_engine(seed) {}

    double real(double from, double to)
    {
        return std::uniform_real_distribution<double>(from, to)(m_engine);
    }
    int whole(int from, int to) { return std::uniform_int_distribution<int>(from, to)(m_engine); }

private:
    std::mt19937 m_engine;
};

std::uint64_t bits(double value)
{
    return std::bit_cast<std::uint64_t>(value);
}

} // namespace

TEST(PidModelTest, ComputesToTheLastBit)
{
    for (unsigned int sequence = 0; sequence < sequences; ++sequence) {
        Random random(sequence);
        const double p = random.real(0.001, 100);
        const double i = random.real(0, 10);
        const double d = random.real(0, 1);
        const int direction = random.whole(0, 2);
        PID pid(p, i, d, PID::ControllerDirection(direction));
        pidModel::Pid model(p, i, d, direction);
        unsigned long now = 1'000'000;
        for (int step = 0; step < 60; ++step) {
            switch (random.whole(0, 12)) {
            case 0: {
                const int mode = random.whole(0, 2);
                pid.setMode(PID::Mode(mode));
                model.setMode(mode);
                break;
            }
            case 1: {
                const int newDirection = random.whole(0, 2);
                pid.setControllerDirection(PID::ControllerDirection(newDirection));
                model.setControllerDirection(newDirection);
                break;
            }
            case 2: {
                const double min = random.real(-1000, 1000);
                const double max = random.real(-1000, 1000);
                pid.setOutputLimits(min, max);
                model.setOutputLimits(min, max);
                break;
            }
            case 3: {
                const int time = random.whole(-1, 200);
                pid.setSampleTime(time);
                model.setSampleTime(time);
                break;
            }
            case 4: {
                const double gain = random.real(0.001, 10);
                pid.setTunings(gain, gain / 3, gain / 7);
                model.setTunings(gain, gain / 3, gain / 7);
                break;
            }
            case 5: {
                const double point = random.real(-100, 100);
                pid.setSetPoint(point);
                model.setPoint = point;
                break;
            }
            case 6:
                pid.reset();
                model.reset();
                break;
            default: {
                now += static_cast<unsigned long>(random.whole(-20, 120));
                const double input = random.real(-1000, 1000);
                ASSERT_EQ(bits(pid.compute(input, now)), bits(model.compute(input, now)))
                    << sequence << ", " << step;
            }
            }
        }
    }
}

TEST(LowPassFilterModelTest, FiltersToTheLastBit)
{
    for (unsigned int sequence = 0; sequence < sequences; ++sequence) {
        Random random(sequence);
        audioUtils::LowPassFilter filter;
        pidModel::LowPass model;
        for (int step = 0; step < 60; ++step) {
            if (random.whole(0, 9) == 0) {
                const double alpha = random.whole(0, 3) == 0 ? 1.0 : random.real(1e-6, 1);
                filter.setAlpha(alpha);
                model.setAlpha(alpha);
            }
            if (random.whole(0, 19) == 0) {
                filter.reset();
                model.first = true;
            }
            const double sample = random.real(-1e9, 1e9);
            ASSERT_EQ(bits(filter.filter(sample)), bits(model.filter(sample)));
        }
    }
}

TEST(PllDriftCompensatorModelTest, ReportsTheSame)
{
    for (unsigned int sequence = 0; sequence < sequences; ++sequence) {
        Random random(sequence);
        const int span = random.whole(1, 100'000);
        const double p = random.real(0.001, 10);
        const double i = random.real(0, 1);
        const double d = random.real(0, 0.01);
        const int time = random.whole(1, 100);
        const double alpha = random.whole(0, 3) == 0 ? 1.0 : random.real(0.001, 1);
        std::vector<int> reports;
        std::vector<int> expected;
        PllDriftCompensator compensator(
            -span, span, p, i, d, [&](int value) { reports.push_back(value); }, time, alpha);
        pidModel::Compensator model(
            -span, span, p, i, d, [&](int value) { expected.push_back(value); }, time, alpha);
        unsigned long now = 5'000'000'000;
        for (int step = 0; step < 100; ++step) {
            now += static_cast<unsigned long>(random.whole(0, 40'000'000));
            if (random.whole(0, 30) == 0) {
                compensator.restart();
                model.pending = true;
            }
            const long drift = random.whole(-200'000, 200'000);
            compensator.update(drift, now);
            model.update(drift, now);
        }
        ASSERT_EQ(reports, expected) << sequence;
    }
}
