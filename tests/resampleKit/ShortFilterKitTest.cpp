#include "resampleKit/ShortFilterKit.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include <gmock/gmock.h>

#include "resampleKit/FloatFilterKit.h"
#include "resampleKit/ShortBlockFilter.h"
#include "support/EachInstructionSet.h"

namespace {

constexpr int entries = 256;
constexpr int fullScale = 32768;

struct Wing
{
    explicit Wing(int zeroCrossings)
        : imp(static_cast<std::size_t>(zeroCrossings * entries)), impD(imp.size())
    {
        EXPECT_EQ(makeFilter(imp.data(), impD.data(), &lpScl, size(), 0.9, 15.0), 0);
    }

    [[nodiscard]] unsigned short size() const { return static_cast<unsigned short>(imp.size()); }

    int up(short* x, int phase, short inc, bool interpolate = true)
    {
        return FilterUp(imp.data(), impD.data(), size(), interpolate, x, static_cast<short>(phase),
                        inc);
    }

    int upOrDown(short* x, int phase, short inc, unsigned short dhb)
    {
        return FilterUD(imp.data(), impD.data(), size(), true, x, static_cast<short>(phase), inc,
                        dhb);
    }

    int output(short* x, int phase)
    {
        return scaled(up(x, phase, -1) + up(x + 1, -phase & 32767, +1), lpScl);
    }

    static int scaled(int wings, int scale) { return ((wings >> 2) * scale + 4096) >> 13; }

    std::vector<short> imp;
    std::vector<short> impD;
    unsigned short lpScl = 0;
};

constexpr int allWings[] = {7, 10, 17, 32};

} // namespace

TEST(ShortFilterKit, DesignsATableAndItsDifferences)
{
    for (const int zeroCrossings : allWings) {
        const Wing wing(zeroCrossings);
        EXPECT_NEAR(wing.imp[0], 0.9 * fullScale, 2);
        EXPECT_EQ(wing.lpScl, 8192);
        for (std::size_t i = 0; i + 1 < wing.imp.size(); ++i) {
            ASSERT_EQ(wing.impD[i], wing.imp[i + 1] - wing.imp[i]);
        }
        EXPECT_EQ(wing.impD.back(), -wing.imp.back());
    }
}

TEST(ShortFilterKit, DesignsTheFilterOfTheFloatKitInRoundedNumbers)
{
    for (const int zeroCrossings : allWings) {
        const Wing wing(zeroCrossings);
        std::vector<double> exact(wing.imp.size());
        lrsLpFilter(exact.data(), static_cast<int>(exact.size()), 0.45, 15.0, entries);
        for (std::size_t i = 0; i < exact.size(); ++i) {
            ASSERT_NEAR(wing.imp[i], exact[i] * 32768, 1.5) << "entry " << i;
        }
    }
}

TEST(ShortFilterKit, EndsAtZeroBehindAWindowThatDoesNot)
{
    std::vector<short> imp(512);
    std::vector<short> impD(512);
    unsigned short lpScl = 0;
    EXPECT_EQ(makeFilter(imp.data(), impD.data(), &lpScl, 512, 0.7, 0.0), 0);
    EXPECT_NE(imp.back(), 0);
    EXPECT_EQ(impD.back(), -imp.back());
}

TEST(ShortFilterKit, HasUnityGainAtEveryPhase)
{
    for (const int zeroCrossings : allWings) {
        Wing wing(zeroCrossings);
        for (const int level : {-32768, -12345, -1, 0, 1, 100, 20'000, 32'767}) {
            std::vector<short> x(600, static_cast<short>(level));
            for (int phase = 0; phase < 32768; phase += 61) {
                ASSERT_NEAR(wing.output(&x[300], phase), level, 1) << "phase " << phase;
            }
        }
    }
}

TEST(ShortFilterKit, KeepsUnityGainWhenStretched)
{
    for (const int zeroCrossings : allWings) {
        Wing wing(zeroCrossings);
        for (const int factor : {1, 2, 4, 8}) {
            const auto dhb = static_cast<unsigned short>(32768 / factor);
            std::vector<short> x(700, 30'000);
            for (int phase = 0; phase < 32768; phase += 1024 / factor) {
                const int wings = wing.upOrDown(&x[350], phase, -1, dhb) +
                                  wing.upOrDown(&x[351], -phase & 32767, +1, dhb);
                ASSERT_NEAR(Wing::scaled(wings, wing.lpScl / factor), 30'000, 1)
                    << factor << ", phase " << phase;
            }
        }
    }
}

// The worst input for a table has its signs.
TEST(ShortFilterKit, DoesNotOverflow)
{
    Wing wing(32);
    for (int phase = 0; phase < entries; ++phase) {
        long sum = 0;
        for (std::size_t i = static_cast<std::size_t>(phase); i < wing.imp.size(); i += entries) {
            sum += std::abs(wing.imp[i]);
        }
        EXPECT_LT(sum, 65'536) << "times 32768 it must fit into 32 bits";
    }
    std::vector<short> x(600);
    for (int k = 0; k < 32; ++k) {
        x[static_cast<std::size_t>(300 - k)] =
            wing.imp[static_cast<std::size_t>(k * entries + 77)] < 0 ? -32768 : 32767;
    }
    EXPECT_GT(wing.up(&x[300], 77 * 128, -1), 100'000);
}

TEST(ShortFilterKit, TakesPhase0OnTheRightForAWholeSample)
{
    Wing wing(32);
    std::vector<short> x(600);
    for (const int level : {1, 5'000, 12'345, -16'383}) {
        x[300] = static_cast<short>(level);
        EXPECT_EQ(wing.up(&x[300], 0, +1), (wing.imp[entries] * level + 4096) >> 13);
        EXPECT_EQ(wing.up(&x[300], 0, -1), (wing.imp[0] * level + 4096) >> 13);
        EXPECT_EQ(wing.upOrDown(&x[300], 0, +1, 16'384), (wing.imp[128] * level + 4096) >> 13);
    }
}

TEST(ShortFilterKit, InterpolatesBetweenEntriesWhenAsked)
{
    Wing wing(32);
    std::vector<short> x(600);
    x[300] = 32'767;
    const int phase = 100 * 128 + 64;
    const double between = (wing.imp[100] + wing.imp[101]) / 2.0;
    EXPECT_NEAR(wing.up(&x[300], phase, -1), between * 32'767 / 8192, 0.51);
    EXPECT_NEAR(wing.up(&x[300], phase, -1, false), wing.imp[100] * 32'767 / 8192.0, 0.51);
}

namespace {

using ShortBlockFilter = testSupport::EachInstructionSet;

INSTANTIATE_TEST_SUITE_P(, ShortBlockFilter, testing::ValuesIn(testSupport::instructionSets()),
                         testSupport::nameOfInstructionSet);

} // namespace

TEST_P(ShortBlockFilter, AgreesWithThePlainFunctionsBitForBit)
{
    std::mt19937 random(1);
    for (const int zeroCrossings : allWings) {
        Wing wing(zeroCrossings);
        const resampleKit::ShortBlockFilter block(wing.imp);
        const unsigned int reach = static_cast<unsigned int>(zeroCrossings) * 8 + 18;
        for (const std::size_t channels : {1U, 2U, 3U, 8U}) {
            for (const double step :
                 {0.1251, 0.5, 0.91875, 0.9999, 1.00001, 1.0001, 1.0884, 2.0, 3.7, 7.9}) {
                constexpr unsigned int count = 40;
                std::vector<std::vector<short>> x(channels), y(channels);
                std::vector<const short*> in;
                std::vector<short*> out;
                for (std::size_t c = 0; c < channels; ++c) {
                    x[c].resize(2 * reach + count);
                    std::generate(x[c].begin(), x[c].end(),
                                  [&] { return static_cast<short>(random()); });
                    y[c].resize(static_cast<std::size_t>(count / step + 2));
                    in.push_back(x[c].data());
                    out.push_back(y[c].data());
                }
                const auto start = static_cast<unsigned int>((reach << 15) + random() % 32768);
                const resampleKit::ShortBlockFilter::Times times{
                    start, start + (count << 15), static_cast<unsigned int>(step * 32768 + 0.5)};
                const auto scale = static_cast<unsigned short>(step > 1 ? 8192 / step : 8192);
                const auto dhb =
                    static_cast<unsigned short>(step > 1 ? 256 / step * 128 + 0.5 : 32768);
                const std::size_t frames =
                    step < 1 ? block.upsample(in.data(), out.data(), channels, times, scale)
                             : block.downsample(in.data(), out.data(), channels, times, scale, dhb);
                std::size_t frame = 0;
                for (unsigned int time = start; time < times.end; time += times.step, ++frame) {
                    const int phase = static_cast<int>(time & 32767);
                    for (std::size_t c = 0; c < channels; ++c) {
                        short* const at = x[c].data() + (time >> 15);
                        const int wings =
                            step < 1 ? wing.up(at, phase, -1) + wing.up(at + 1, -phase & 32767, +1)
                                     : wing.upOrDown(at, phase, -1, dhb) +
                                           wing.upOrDown(at + 1, -phase & 32767, +1, dhb);
                        ASSERT_EQ(y[c][frame],
                                  std::clamp(Wing::scaled(wings, scale), -32768, 32767))
                            << zeroCrossings << " zero crossings, " << channels
                            << " channels, step " << step << ", frame " << frame;
                    }
                }
                ASSERT_EQ(frames, frame);
            }
        }
    }
}
