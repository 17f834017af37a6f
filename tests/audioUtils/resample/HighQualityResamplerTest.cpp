#include "audioUtils/resample/HighQualityResampler.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include <gmock/gmock.h>

#include "audioUtils/resample/HighQualityResamplerShort.h"
#include "support/AllocationCounter.h"

using audioUtils::HighQualityResampler;
using audioUtils::HighQualityResamplerShort;
using testing::Each;
using testSupport::AllocationCounter;

namespace {

constexpr float headroom = 0.8912509F;
constexpr unsigned int xoffLow = 74;

struct Result
{
    int consumed = 0;
    std::vector<float> out;
};

Result process(HighQualityResampler& resampler, std::vector<float> in, std::size_t room,
               bool mute = false, bool flush = false)
{
    Result result;
    result.out.resize(room);
    auto count = static_cast<unsigned int>(room);
    result.consumed = resampler.processFloat(in.data(), static_cast<int>(in.size()),
                                             result.out.data(), count, mute, flush);
    result.out.resize(count);
    return result;
}

std::vector<short> processShort(HighQualityResampler& resampler, std::vector<short> in,
                                std::size_t room)
{
    std::vector<short> out(room);
    auto count = static_cast<unsigned int>(room);
    resampler.processShort(reinterpret_cast<unsigned short*>(in.data()),
                           static_cast<int>(in.size()),
                           reinterpret_cast<unsigned short*>(out.data()), count, false, false);
    out.resize(count);
    return out;
}

std::vector<float> ramp(std::size_t count)
{
    std::vector<float> values(count);
    std::iota(values.begin(), values.end(), 1.0F);
    return values;
}

} // namespace

TEST(HighQualityResampler, AcceptsRatiosUpTo8EitherWay)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    HighQualityResampler resampler(2, HighQualityResampler::Low);
    resampler.setSamplingRate(1, 8);
    resampler.setSamplingRate(8, 1);
    EXPECT_DEATH(resampler.setSamplingRate(0.1249F, 1),
                 "HighQualityResampler.*\\(factor >= MIN_RATIO\\) && \\(factor <= MAX_RATIO\\)");
    EXPECT_DEATH(resampler.setSamplingRate(8.01F, 1), "factor >= MIN_RATIO");

    HighQualityResamplerShort shorts(2, HighQualityResampler::Low);
    shorts.setSamplingRate(1, 7.99F);
    shorts.setSamplingRate(7.99F, 1);
    EXPECT_DEATH(shorts.setSamplingRate(1, 8),
                 "HighQualityResamplerShort.*\\(factor > MIN_RATIO\\) && \\(factor < MAX_RATIO\\)");
    EXPECT_DEATH(shorts.setSamplingRate(8, 1), "factor > MIN_RATIO");
}

TEST(HighQualityResampler, KnowsFourQualities)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const unsigned int sizes[] = {660, 708, 820, 1060};
    const unsigned int shortSizes[] = {586, 610, 666, 786};
    for (int quality = 0; quality < 4; ++quality) {
        const auto filter = static_cast<HighQualityResampler::FilterQuality>(quality);
        EXPECT_EQ(HighQualityResampler(1, filter).getInputBufferSize(), sizes[quality]);
        EXPECT_EQ(HighQualityResamplerShort(1, filter).getInputBufferSize(), shortSizes[quality]);
    }
    EXPECT_DEATH(HighQualityResampler(1, static_cast<HighQualityResampler::FilterQuality>(4)), "");
}

TEST(HighQualityResampler, TakesARateOf0For1To1)
{
    HighQualityResampler resampler(1, HighQualityResampler::Low);
    for (const auto& [in, out] : {std::pair(0.0F, 48000.0F), std::pair(48000.0F, 0.0F)}) {
        resampler.setSamplingRate(2, 1);
        EXPECT_EQ(resampler.getOutPosForInPos(100), 50);
        resampler.setSamplingRate(in, out);
        EXPECT_EQ(resampler.getOutPosForInPos(100), 100);
    }
}

TEST(HighQualityResampler, CopiesAt1To1WithItsHeadroom)
{
    HighQualityResampler resampler(1, HighQualityResampler::Low);
    const std::vector<float> in = ramp(500);
    const Result result = process(resampler, in, 1000);
    EXPECT_EQ(result.consumed, 500);
    ASSERT_EQ(result.out.size(), 500 - xoffLow) << "the rest waits for what follows on it";
    for (std::size_t i = 0; i < result.out.size(); ++i) {
        ASSERT_FLOAT_EQ(result.out[i], in[i] * headroom);
    }
}

TEST(HighQualityResampler, CopiesShortsAt1To1BitForBit)
{
    HighQualityResamplerShort resampler(1, HighQualityResampler::Low);
    std::vector<short> in(500);
    std::iota(in.begin(), in.end(), short{-32768});
    std::vector<short> out = processShort(resampler, in, 1000);
    ASSERT_EQ(out.size(), 500 - xoffLow);
    in.resize(out.size());
    EXPECT_EQ(out, in);
}

TEST(HighQualityResampler, KeepsItsCountsWhenTheRatioStays)
{
    HighQualityResampler resampler(1, HighQualityResampler::Low);
    HighQualityResampler other(1, HighQualityResampler::Low);
    for (HighQualityResampler* each : {&resampler, &other}) {
        each->setSamplingRate(2, 1);
        process(*each, ramp(333), 50);
    }
    resampler.setSamplingRate(96000, 48000);
    EXPECT_EQ(process(resampler, ramp(200), 500).out, process(other, ramp(200), 500).out);
    process(resampler, ramp(100), 10);
    process(other, ramp(100), 10);
    EXPECT_EQ(resampler.getCurrentLatencyNs(), other.getCurrentLatencyNs() / 48000)
        << "but takes the new rate for the latency";
}

TEST(HighQualityResampler, MutesAtTheCurrentRatio)
{
    HighQualityResampler resampler(2, HighQualityResampler::Low);
    resampler.setSamplingRate(1, 2);
    const Result muted = process(resampler, ramp(800), 2000, true);
    EXPECT_EQ(muted.consumed, 800);
    EXPECT_EQ(muted.out.size(), 2 * 2 * (400 - xoffLow));
    EXPECT_THAT(muted.out, Each(0.0F));
    EXPECT_THAT(process(resampler, std::vector<float>(200), 2000).out, Each(0.0F))
        << "silence took the input's place";
}

TEST(HighQualityResampler, TakesNothingWithoutRoomForAFrame)
{
    HighQualityResampler resampler(2, HighQualityResampler::Low);
    const Result result = process(resampler, ramp(800), 1);
    EXPECT_EQ(result.consumed, 0);
    EXPECT_EQ(result.out.size(), 0U);
}

TEST(HighQualityResampler, TakesNothingOfANegativeNumberOfSamples)
{
    HighQualityResampler resampler(1, HighQualityResampler::Low);
    std::vector<float> in = ramp(5000);
    std::vector<float> out(5000);
    unsigned int count = 5000;
    EXPECT_EQ(resampler.processFloat(in.data(), -2000, out.data(), count, false, false), 0);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(resampler.getCurrentLatencyNs(), 0);
}

TEST(HighQualityResampler, OfNoChannelsTakesAndGivesNothing)
{
    HighQualityResampler resampler(0, HighQualityResampler::Low);
    const Result result = process(resampler, ramp(500), 500);
    EXPECT_EQ(result.consumed, 0);
    EXPECT_TRUE(result.out.empty());
}

TEST(HighQualityResampler, OffersWhatDidNotFitFirst)
{
    HighQualityResampler inPieces(1, HighQualityResampler::Low);
    HighQualityResampler atOnce(1, HighQualityResampler::Low);
    inPieces.setSamplingRate(44100, 48000);
    atOnce.setSamplingRate(44100, 48000);
    const std::vector<float> in = ramp(400);
    const std::vector<float> expected = process(atOnce, in, 1000).out;
    Result first = process(inPieces, in, 100);
    EXPECT_EQ(first.consumed, 400);
    std::vector<float> out = first.out;
    while (out.size() < expected.size()) {
        const Result more = process(inPieces, {}, 50);
        ASSERT_FALSE(more.out.empty());
        out.insert(out.end(), more.out.begin(), more.out.end());
    }
    EXPECT_EQ(out, expected);
}

TEST(HighQualityResampler, FlushesItsEndOutAndNoMore)
{
    HighQualityResampler resampler(1, HighQualityResampler::Low);
    const std::vector<float> in = ramp(300);
    std::vector<float> out = process(resampler, in, 1000).out;
    for (int i = 0; i < 3; ++i) {
        const std::vector<float> more = process(resampler, {}, 1000, false, true).out;
        EXPECT_EQ(more.size(), i == 0 ? xoffLow : 0U) << "call " << i;
        out.insert(out.end(), more.begin(), more.end());
    }
    ASSERT_EQ(out.size(), in.size());
    EXPECT_FLOAT_EQ(out.back(), 300 * headroom);
}

TEST(HighQualityResampler, TruncatesAndClips32BitSamples)
{
    HighQualityResampler resampler(1, HighQualityResampler::Low);
    std::vector<unsigned int> in(200, 10);
    in[0] = 0x7FFFFFFF;
    in[1] = 0x80000000;
    in[2] = static_cast<unsigned int>(-10);
    std::vector<unsigned int> out(200);
    unsigned int count = 200;
    resampler.processInt(in.data(), 200, out.data(), count, false, false);
    EXPECT_EQ(static_cast<int>(out[2]), -8) << "towards zero";
    EXPECT_EQ(out[3], 8U);
    EXPECT_EQ(out[0], static_cast<unsigned int>(2147483648.0F * headroom));

    // A square wave rings beyond full scale.
    HighQualityResampler ringing(1, HighQualityResampler::Low);
    ringing.setSamplingRate(1, 2);
    for (std::size_t i = 0; i < in.size(); ++i) {
        in[i] = i / 10 % 2 == 0 ? 0x7FFFFFFF : 0x80000000;
    }
    out.resize(400);
    count = 400;
    ringing.processInt(in.data(), 200, out.data(), count, false, false);
    out.resize(count);
    const auto asSigned = [](unsigned int sample) { return static_cast<int>(sample); };
    const auto [least, most] = std::ranges::minmax(out, {}, asSigned);
    EXPECT_EQ(least, 0x80000000);
    EXPECT_EQ(most, 0x7FFFFFFFU);
}

TEST(HighQualityResampler, WrapsShortsBeyondFullScaleButTheShortOneClips)
{
    std::vector<short> in(200);
    for (std::size_t i = 0; i < in.size(); ++i) {
        in[i] = i / 10 % 2 == 0 ? 32'767 : -32'768;
    }
    HighQualityResampler resampler(1, HighQualityResampler::Low);
    HighQualityResamplerShort shorts(1, HighQualityResampler::Low);
    resampler.setSamplingRate(1, 4);
    shorts.setSamplingRate(1, 4);
    const std::vector<short> wrapped = processShort(resampler, in, 800);
    const std::vector<short> clipped = processShort(shorts, in, 800);
    const auto jumps = [](const std::vector<short>& samples) {
        int count = 0;
        for (std::size_t i = 1; i < samples.size(); ++i) {
            count += std::abs(samples[i] - samples[i - 1]) > 60'000 ? 1 : 0;
        }
        return count;
    };
    EXPECT_GT(jumps(wrapped), 0);
    EXPECT_EQ(jumps(clipped), 0);
    EXPECT_EQ(*std::ranges::max_element(clipped), 32'767);
    EXPECT_EQ(*std::ranges::min_element(clipped), -32'768);
}

TEST(HighQualityResampler, RoundsWordsToShorts)
{
    EXPECT_EQ(HighQualityResamplerShort::wordToShort(4095, 13), 0);
    EXPECT_EQ(HighQualityResamplerShort::wordToShort(4096, 13), 1);
    EXPECT_EQ(HighQualityResamplerShort::wordToShort(-4096, 13), 0);
    EXPECT_EQ(HighQualityResamplerShort::wordToShort(-4097, 13), -1);
    EXPECT_EQ(HighQualityResamplerShort::wordToShort(32'768 << 13, 13), 32'767);
    EXPECT_EQ(HighQualityResamplerShort::wordToShort(-(40'000 << 13), 13), -32'768);
}

TEST(HighQualityResampler, CarriesAStereoFloatResamplerInTheShortOne)
{
    HighQualityResamplerShort resampler(1, HighQualityResampler::Best);
    resampler.setSamplingRate(1, 2);
    const std::vector<float> in = ramp(600);
    const Result result = process(resampler, in, 2000);
    EXPECT_EQ(result.consumed, 600);
    ASSERT_EQ(result.out.size(), 600 - 2 * 98U) << "stereo, medium quality, 1:1";
    for (std::size_t i = 0; i < result.out.size(); ++i) {
        ASSERT_FLOAT_EQ(result.out[i], in[i] * headroom);
    }
}

TEST(HighQualityResampler, ReturnsTo1To1WhenReset)
{
    HighQualityResampler resampler(1, HighQualityResampler::Low);
    resampler.setSamplingRate(44100, 48000);
    process(resampler, ramp(333), 20);
    resampler.reset();
    EXPECT_EQ(resampler.getOutPosForInPos(1000), 1000);
    EXPECT_EQ(resampler.getCurrentLatencyNs(), 0);
    const Result result = process(resampler, ramp(200), 1000);
    ASSERT_EQ(result.out.size(), 200 - xoffLow);
    EXPECT_FLOAT_EQ(result.out[0], headroom);
}

TEST(HighQualityResampler, TellsHowMuchWaits)
{
    HighQualityResampler resampler(1, HighQualityResampler::Low);
    resampler.setSamplingRate(48000, 24000);
    EXPECT_EQ(resampler.getCurrentLatencyNs(), 0);
    process(resampler, ramp(48), 10);
    EXPECT_EQ(resampler.getCurrentLatencyNs(), 1'000'000) << "48 frames in the history";
    process(resampler, ramp(76), 10); // 124 - 74 = 50 make 25, of which 10 are handed out
    EXPECT_EQ(resampler.getCurrentLatencyNs(), (74 + 30) * 1'000'000'000L / 48000);
    resampler.setSamplingRate(0, 24000);
    EXPECT_EQ(resampler.getCurrentLatencyNs(), 0);
}

TEST(HighQualityResampler, TellsWhereAPositionGoes)
{
    HighQualityResampler resampler(1, HighQualityResampler::Low);
    resampler.setSamplingRate(44100, 48000);
    EXPECT_EQ(resampler.getOutPosForInPos(44100), 48000);
    EXPECT_EQ(resampler.getOutPosForInPos(1), 1);
    const double ratio = 44100.0F / 48000.0F; // calculated as a float
    EXPECT_EQ(resampler.getOutPosForInPos(4'000'000'000), static_cast<long>(4e9 / ratio));
}

TEST(HighQualityResampler, AllocatesNothingAfterItsConstruction)
{
    HighQualityResampler resampler(2, HighQualityResampler::Best);
    HighQualityResamplerShort shorts(2, HighQualityResampler::Best);
    std::vector<float> in(960), out(20'000);
    std::vector<unsigned short> shortIn(960), shortOut(20'000);
    const AllocationCounter allocations;
    for (const float rate : {44100.0F, 48000.0F, 48004.8F, 96000.0F, 360000.0F}) {
        resampler.setSamplingRate(rate, 48000);
        shorts.setSamplingRate(rate, 48000);
        auto count = static_cast<unsigned int>(out.size());
        resampler.processFloat(in.data(), 960, out.data(), count, false, true);
        count = static_cast<unsigned int>(out.size());
        shorts.processShort(shortIn.data(), 960, shortOut.data(), count, false, true);
    }
    EXPECT_EQ(allocations.count(), 0U);
}

TEST(HighQualityResampler, StretchesItsFilterOnlyWhereTheRateFalls)
{
    HighQualityResampler resampler(1, HighQualityResampler::Low);
    std::vector<float> x = ramp(600);
    x[305] = 0;
    std::vector<float> up(20);
    std::vector<float> upOrDown(20);
    EXPECT_EQ(resampler.srcUpsample(x.data(), up.data(), 0.5, 1.0F, 300.25, 10, true), 20);
    EXPECT_EQ(resampler.srcUpOrDownsample(x.data(), upOrDown.data(), 0.5, 1.0F, 300.25, 10, true),
              20);
    EXPECT_EQ(upOrDown, up);
}

TEST(HighQualityResampler, DesignsAFilterOnce)
{
    auto& calculator = HighQualityResampler::FilterCalculator::instance();
    EXPECT_EQ(&calculator, &HighQualityResampler::FilterCalculator::instance());
    const std::vector<double> first = calculator.calculate(28672, 0.45, 15.0, 4096);
    EXPECT_EQ(first.size(), 28672U);
    EXPECT_EQ(first, calculator.calculate(28672, 0.45, 15.0, 4096));
    EXPECT_NE(first, calculator.calculate(28672, 0.4, 15.0, 4096));
    EXPECT_EQ(first, calculator.calculate(28672, 0.45, 15.0, 4096));
    EXPECT_NE(first, calculator.calculate(28672, 0.45, 14.0, 4096)) << "another window";
    EXPECT_EQ(first, calculator.calculate(28672, 0.45, 15.0, 4096));
    EXPECT_NE(first, calculator.calculate(28672, 0.45, 15.0, 2048)) << "of twice the width";

    std::vector<short> imp;
    std::vector<short> impD;
    unsigned short scale = 0;
    EXPECT_TRUE(HighQualityResamplerShort::FilterCalculator::instance().calculate(imp, impD, scale,
                                                                                  1792, 0.9, 15.0));
    std::vector<short> other;
    EXPECT_TRUE(HighQualityResamplerShort::FilterCalculator::instance().calculate(
        other, impD, scale, 1792, 0.9, 14.0));
    EXPECT_NE(imp, other);
    EXPECT_EQ(imp.size(), 1792U);
    EXPECT_EQ(impD.size(), 1792U);
    EXPECT_EQ(scale, 8192);
}
