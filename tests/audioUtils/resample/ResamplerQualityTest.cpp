// How good the resamplers are: limits for each quality and pair of rates, and what a changing ratio
// does to a sine. docs/resampling.md has the curves.

#include <cmath>
#include <vector>

#include <gmock/gmock.h>

#include "audioUtils/resample/HighQualityResamplerShort.h"
#include "support/Sine.h"

using audioUtils::HighQualityResampler;
using audioUtils::HighQualityResamplerShort;
using testSupport::SineFit;

namespace {

constexpr double headroom = 0.8912509;
constexpr double amplitude = 0.9;

std::vector<double> sine(double frequency, std::size_t count)
{
    std::vector<double> samples(count);
    for (std::size_t i = 0; i < count; ++i) {
        samples[i] = amplitude * std::sin(2 * M_PI * frequency * static_cast<double>(i));
    }
    return samples;
}

std::vector<double> convert(HighQualityResampler& resampler, const std::vector<double>& signal)
{
    std::vector<float> in(signal.begin(), signal.end());
    std::vector<float> out(in.size() * 8 + 100);
    std::size_t written = 0;
    for (std::size_t read = 0; read < in.size();) {
        auto count = static_cast<unsigned int>(out.size() - written);
        read += static_cast<std::size_t>(
            resampler.processFloat(in.data() + read, static_cast<int>(in.size() - read),
                                   out.data() + written, count, false, false));
        written += count;
    }
    return {out.begin(), out.begin() + static_cast<std::ptrdiff_t>(written)};
}

std::vector<double> convertShorts(HighQualityResamplerShort& resampler,
                                  const std::vector<double>& signal)
{
    std::vector<unsigned short> in;
    for (const double sample : signal) {
        in.push_back(static_cast<unsigned short>(std::lround(sample * 32767)));
    }
    std::vector<unsigned short> out(in.size() * 8 + 100);
    std::vector<double> result;
    for (std::size_t read = 0; read < in.size();) {
        auto count = static_cast<unsigned int>(out.size());
        read += static_cast<std::size_t>(resampler.processShort(
            in.data() + read, static_cast<int>(in.size() - read), out.data(), count, false, false));
        for (unsigned int i = 0; i < count; ++i) {
            result.push_back(static_cast<short>(out[i]) / 32767.0);
        }
    }
    return result;
}

struct Rates
{
    double in;
    double out;
};

/// Rates whose ratio a float holds, so that nothing but the resampler is measured.
constexpr Rates rates[] = {{441, 480}, {480, 441},       {960, 480},
                           {480, 960}, {10'000, 10'001}, {10'001, 10'000}};

double exactRatio(const Rates& pair)
{
    return static_cast<float>(pair.in) / static_cast<float>(pair.out);
}

/// @param frequency as a fraction of the lower rate
SineFit measure(HighQualityResampler::FilterQuality quality, const Rates& pair, double frequency)
{
    const double ratio = exactRatio(pair);
    const double inFrequency = frequency / std::max(1.0, ratio);
    HighQualityResampler resampler(1, quality);
    resampler.setSamplingRate(static_cast<float>(pair.in), static_cast<float>(pair.out));
    std::vector<double> out = convert(resampler, sine(inFrequency, 20'000));
    out.erase(out.begin(), out.begin() + 1000);
    return {out, inFrequency * ratio};
}

} // namespace

TEST(ResamplerQuality, KeepsSinesClean)
{
    // dB, for tones at 0.02, 0.2 and 0.35 of the lower rate
    const double limits[4][3] = {{135, 135, 38}, {135, 135, 75}, {135, 135, 135}, {135, 135, 135}};
    for (int quality = 0; quality < 4; ++quality) {
        for (const Rates& pair : rates) {
            const double frequencies[] = {0.02, 0.2, 0.35};
            for (int i = 0; i < 3; ++i) {
                const SineFit fit =
                    measure(static_cast<HighQualityResampler::FilterQuality>(quality), pair,
                            frequencies[i]);
                EXPECT_GT(fit.snr, limits[quality][i])
                    << "quality " << quality << ", " << pair.in << " to " << pair.out << ", "
                    << frequencies[i];
            }
        }
    }
}

TEST(ResamplerQuality, PassesWhatLiesBelowItsEdge)
{
    // of the lower rate: where the response is 0.1 dB down at most
    const double edges[] = {0.25, 0.3, 0.36, 0.405};
    for (int quality = 0; quality < 4; ++quality) {
        for (const Rates& pair : rates) {
            const auto filter = static_cast<HighQualityResampler::FilterQuality>(quality);
            for (const double part : {0.1, 0.5, 1.0}) {
                const SineFit fit = measure(filter, pair, edges[quality] * part);
                EXPECT_NEAR(20 * std::log10(fit.amplitude / amplitude / headroom), 0, 0.1)
                    << "quality " << quality << ", " << pair.in << " to " << pair.out << ", "
                    << edges[quality] * part;
            }
        }
    }
}

// A sweep through the pass-band is at every frame what it is at that frame's place in the input.
TEST(ResamplerQuality, KeepsChirpsInPlace)
{
    const double edges[] = {0.15, 0.22, 0.32, 0.38}; // of the lower rate
    const double limits[] = {-88, -115, -105, -125}; // of the worst frame, dB of full scale
    for (int quality = 0; quality < 4; ++quality) {
        for (const Rates& pair : rates) {
            const double ratio = exactRatio(pair);
            constexpr double length = 20'000;
            const double rise = edges[quality] / std::max(1.0, ratio) / length;
            const auto chirp = [rise](double t) {
                return amplitude * std::sin(M_PI * rise * t * t);
            };
            std::vector<double> signal;
            for (double t = 0; t < length; ++t) {
                signal.push_back(chirp(t));
            }
            HighQualityResampler resampler(
                1, static_cast<HighQualityResampler::FilterQuality>(quality));
            resampler.setSamplingRate(static_cast<float>(pair.in), static_cast<float>(pair.out));
            const std::vector<double> out = convert(resampler, signal);
            double worst = 0;
            for (std::size_t i = 1000; i < out.size(); ++i) {
                const double expected = headroom * chirp(static_cast<double>(i) * ratio);
                worst = std::max(worst, std::abs(out[i] - expected));
            }
            EXPECT_LT(20 * std::log10(worst), limits[quality])
                << "quality " << quality << ", " << pair.in << " to " << pair.out;
        }
    }
}

// A tone that the lower rate can't carry must not come back as another.
TEST(ResamplerQuality, StopsWhatTheLowerRateCantCarry)
{
    const double limits[] = {29, 46, 135, 135}; // dB below full scale, at 0.6 of the lower rate
    for (int quality = 0; quality < 4; ++quality) {
        HighQualityResampler resampler(1,
                                       static_cast<HighQualityResampler::FilterQuality>(quality));
        resampler.setSamplingRate(960, 480);
        std::vector<double> out = convert(resampler, sine(0.6 / 2, 20'000));
        double power = 0;
        for (std::size_t i = 1000; i < out.size(); ++i) {
            power += out[i] * out[i];
        }
        const double level = 10 * std::log10(2 * power / static_cast<double>(out.size() - 1000));
        EXPECT_LT(level, -limits[quality]) << quality;
    }
}

TEST(ResamplerQuality, KeepsAConstantLevel)
{
    for (int quality = 0; quality < 4; ++quality) {
        for (const Rates& pair : rates) {
            const auto filter = static_cast<HighQualityResampler::FilterQuality>(quality);
            HighQualityResampler floats(1, filter);
            HighQualityResamplerShort shorts(1, filter);
            floats.setSamplingRate(static_cast<float>(pair.in), static_cast<float>(pair.out));
            shorts.setSamplingRate(static_cast<float>(pair.in), static_cast<float>(pair.out));
            const std::vector<double> level(5000, 0.5);
            const std::vector<double> out = convert(floats, level);
            const std::vector<double> shortOut = convertShorts(shorts, level);
            for (std::size_t i = 1000; i < out.size(); ++i) {
                ASSERT_NEAR(out[i], 0.5 * headroom, 1e-5);
            }
            for (std::size_t i = 1000; i < shortOut.size(); ++i) {
                ASSERT_NEAR(shortOut[i], 0.5, 4 / 32767.0) << "the scale is cut to an integer";
            }
        }
    }
}

TEST(ResamplerQuality, OfShortsIsLimitedByTheirTime)
{
    for (const Rates& pair : rates) {
        const double ratio = exactRatio(pair);
        const double frequency = 0.02 / std::max(1.0, ratio);
        HighQualityResamplerShort resampler(1, HighQualityResampler::Best);
        resampler.setSamplingRate(static_cast<float>(pair.in), static_cast<float>(pair.out));
        std::vector<double> out = convertShorts(resampler, sine(frequency, 20'000));
        out.erase(out.begin(), out.begin() + 1000);
        const SineFit fit(out, frequency * ratio);
        EXPECT_GT(fit.snr, 75) << pair.in << " to " << pair.out;
    }
}

// The ratio changes at every block; each frame is still where the ratios' integral puts it.
TEST(ResamplerQuality, FollowsAChangingRatioWithoutAStep)
{
    for (const double centre : {1.0002, 0.9998, 44100.0 / 48000, 2.0}) {
        HighQualityResampler resampler(1, HighQualityResampler::Best);
        const double frequency = 0.021;
        std::vector<double> signal = sine(frequency, 100'000);
        std::vector<float> in(signal.begin(), signal.end());
        std::vector<float> out(2000);
        double position = 0;
        double worst = 0;
        std::size_t read = 0;
        for (int block = 0; read + 480 < in.size(); ++block) {
            const double swing = 100e-6 * std::sin(block * 0.7);
            const auto ratio = static_cast<float>(centre * (1 + swing));
            resampler.setSamplingRate(ratio, 1);
            auto count = static_cast<unsigned int>(out.size());
            read += static_cast<std::size_t>(
                resampler.processFloat(in.data() + read, 480, out.data(), count, false, false));
            for (unsigned int i = 0; i < count; ++i) {
                const double expected =
                    amplitude * headroom * std::sin(2 * M_PI * frequency * position);
                if (position > 500) {
                    worst = std::max(worst, std::abs(out[i] - expected));
                }
                position += ratio;
            }
        }
        EXPECT_LT(worst, 4e-6) << centre;
    }
}

TEST(ResamplerQuality, CountsForADayWithoutADrift)
{
    HighQualityResampler resampler(1, HighQualityResampler::Low);
    const auto ratio = static_cast<float>(1 + 50e-6);
    resampler.setSamplingRate(ratio, 1);
    constexpr unsigned long day = 24UL * 3600 * 8000; // at 8 kHz
    std::vector<float> in(480);
    std::vector<float> out(1000);
    unsigned long read = 0;
    unsigned long written = 0;
    while (read < day) {
        auto count = static_cast<unsigned int>(out.size());
        read += static_cast<unsigned long>(
            resampler.processFloat(in.data(), 480, out.data(), count, true, false));
        written += count;
    }
    EXPECT_NEAR(static_cast<double>(written), static_cast<double>(read - 74) / ratio, 1);
}
