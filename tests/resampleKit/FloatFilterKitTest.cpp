#include "resampleKit/FloatFilterKit.h"

#include <cmath>
#include <random>
#include <vector>

#include <gmock/gmock.h>

#include "resampleKit/FloatBlockFilter.h"
#include "support/EachInstructionSet.h"

namespace {

constexpr int entries = 4096;

/// A wing as the resamplers design it.
struct Wing
{
    explicit Wing(int zeroCrossings)
        : imp(static_cast<std::size_t>(zeroCrossings * entries)), impD(imp.size())
    {
        std::vector<double> taps(imp.size());
        lrsLpFilter(taps.data(), static_cast<int>(taps.size()), 0.45, 15.0, entries);
        imp.assign(taps.begin(), taps.end());
        for (std::size_t i = 0; i < imp.size(); ++i) {
            impD[i] = (i + 1 < imp.size() ? imp[i + 1] : 0) - imp[i];
        }
    }

    float up(float* x, double phase, int inc, bool interpolate = true)
    {
        return lrsFilterUp(imp.data(), impD.data(), static_cast<unsigned>(imp.size()), interpolate,
                           x, phase, inc);
    }

    float upOrDown(float* x, double phase, int inc, double dhb)
    {
        return lrsFilterUD(imp.data(), impD.data(), static_cast<unsigned>(imp.size()), true, x,
                           phase, inc, dhb);
    }

    std::vector<float> imp;
    std::vector<float> impD;
};

/// What weighing an impulse k samples away gives: the weight of that tap.
template<typename Weigh>
double weightOf(int k, Weigh weigh)
{
    std::vector<float> x(601);
    x[static_cast<std::size_t>(300 + k)] = 1;
    return weigh(x.data() + 300);
}

} // namespace

TEST(FloatFilterKit, DesignsAKaiserWindowedSinc)
{
    constexpr int size = 32 * entries;
    std::vector<double> taps(size);
    lrsLpFilter(taps.data(), size, 0.45, 15.0, entries);
    EXPECT_DOUBLE_EQ(taps[0], 0.9);
    const auto exact = [](int i) {
        const double t = static_cast<double>(i) / entries;
        const double position = static_cast<double>(i) / (size - 1);
        return std::sin(2 * M_PI * 0.45 * t) / (M_PI * t) *
               std::cyl_bessel_i(0, 15 * std::sqrt(1 - position * position)) /
               std::cyl_bessel_i(0, 15);
    };
    for (const int i : {1, 100, 4096, 5000, 50'000, size - 1}) {
        EXPECT_NEAR(taps[static_cast<std::size_t>(i)], exact(i), 1e-14) << i;
    }
}

TEST(FloatFilterKit, DesignsAWingOfOneEntry)
{
    double centre = 0;
    lrsLpFilter(&centre, 1, 0.45, 15.0, 4096);
    EXPECT_DOUBLE_EQ(centre, 0.9);
}

TEST(FloatFilterKit, HasUnityGainAtEveryPhase)
{
    for (const int zeroCrossings : {7, 10, 17, 32}) {
        Wing wing(zeroCrossings);
        std::vector<float> ones(601, 1.0F);
        for (const double phase : {0.0, 0.1, 0.33333, 0.5, 0.9999}) {
            EXPECT_NEAR(wing.up(&ones[300], phase, -1) + wing.up(&ones[301], 1 - phase, +1), 1,
                        4e-6)
                << zeroCrossings << " " << phase;
            EXPECT_NEAR((wing.upOrDown(&ones[300], phase, -1, 2048) +
                         wing.upOrDown(&ones[301], 1 - phase, +1, 2048)) /
                            2,
                        1, 4e-6)
                << zeroCrossings << " " << phase;
        }
    }
}

TEST(FloatFilterKit, WeighsEachSampleByItsDistance)
{
    Wing wing(32);
    for (const int k : {0, 1, 5, 31}) {
        const auto entry = static_cast<std::size_t>(k * entries + 1024);
        EXPECT_FLOAT_EQ(
            static_cast<float>(weightOf(-k, [&](float* x) { return wing.up(x, 0.25, -1); })),
            wing.imp[entry]);
        EXPECT_FLOAT_EQ(
            static_cast<float>(weightOf(k, [&](float* x) { return wing.up(x, 0.25, +1); })),
            wing.imp[entry]);
    }
    EXPECT_EQ(weightOf(-32, [&](float* x) { return wing.up(x, 0.25, -1); }), 0);
    EXPECT_EQ(weightOf(31, [&](float* x) { return wing.up(x, 1.0, +1); }), 0)
        << "a whole sample away the wing is a sample shorter";
    EXPECT_FLOAT_EQ(static_cast<float>(weightOf(0, [&](float* x) { return wing.up(x, 1.0, +1); })),
                    wing.imp[entries]);
}

TEST(FloatFilterKit, InterpolatesBetweenEntriesWhenAsked)
{
    Wing wing(32);
    const double phase = 1000.25 / entries;
    EXPECT_NEAR(weightOf(0, [&](float* x) { return wing.up(x, phase, -1); }),
                0.75 * wing.imp[1000] + 0.25 * wing.imp[1001], 1e-7);
    EXPECT_EQ(weightOf(0, [&](float* x) { return wing.up(x, phase, -1, false); }), wing.imp[1000]);
}

TEST(FloatFilterKit, StretchesTheFilter)
{
    Wing wing(32);
    for (const int k : {0, 1, 40, 63}) {
        const auto entry = static_cast<std::size_t>(k * 2048 + 512);
        EXPECT_FLOAT_EQ(static_cast<float>(weightOf(
                            -k, [&](float* x) { return wing.upOrDown(x, 0.25, -1, 2048); })),
                        wing.imp[entry]);
    }
    EXPECT_EQ(weightOf(-64, [&](float* x) { return wing.upOrDown(x, 0.25, -1, 2048); }), 0);
}

namespace {

using FloatBlockFilter = testSupport::EachInstructionSet;

INSTANTIATE_TEST_SUITE_P(, FloatBlockFilter, testing::ValuesIn(testSupport::instructionSets()),
                         testSupport::nameOfInstructionSet);

} // namespace

TEST_P(FloatBlockFilter, AgreesWithThePlainFunctions)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> noise(-1, 1);
    for (const int zeroCrossings : {7, 10, 17, 32}) {
        Wing wing(zeroCrossings);
        const resampleKit::FloatBlockFilter block(wing.imp);
        const int reach = zeroCrossings * 8 + 18;
        for (const std::size_t channels : {1U, 2U, 3U, 8U, 13U}) {
            for (const double step :
                 {0.125, 0.5, 0.91875, 0.9999, 1.00000001, 1.0001, 1.0007, 1.0011, 1.002, 1.0884,
                  1.9995, 2.0, 2.0004, 3.0001, 3.7, 5.0, 8.0}) {
                const int count = channels == 2 ? 2500 : 40;
                std::vector<std::vector<float>> x(channels), y(channels);
                std::vector<const float*> in;
                std::vector<float*> out;
                for (std::size_t c = 0; c < channels; ++c) {
                    x[c].resize(static_cast<std::size_t>(2 * reach + count));
                    std::generate(x[c].begin(), x[c].end(), [&] { return noise(random); });
                    y[c].resize(static_cast<std::size_t>(count / step + 1));
                    in.push_back(x[c].data());
                    out.push_back(y[c].data());
                }
                const double start = reach + std::abs(static_cast<double>(noise(random)));
                const std::size_t frames =
                    block.process(in.data(), out.data(), channels, step, 0.9F, start, count);
                const double dhb = std::min(4096.0, 4096.0 / step);
                std::size_t frame = 0;
                for (double t = start; t < start + count; t += step, ++frame) {
                    const auto whole = static_cast<std::size_t>(t);
                    const double phase = t - static_cast<double>(whole);
                    for (std::size_t c = 0; c < channels; ++c) {
                        float* const at = x[c].data() + whole;
                        const float plain =
                            step < 1 ? wing.up(at, phase, -1) + wing.up(at + 1, 1 - phase, +1)
                                     : wing.upOrDown(at, phase, -1, dhb) +
                                           wing.upOrDown(at + 1, 1 - phase, +1, dhb);
                        ASSERT_NEAR(y[c][frame], 0.9F * plain, 2e-6 * std::max(1.0, step))
                            << zeroCrossings << " zero crossings, " << channels
                            << " channels, step " << step << ", frame " << frame;
                    }
                }
                ASSERT_EQ(frames, frame);
            }
        }
    }
}
