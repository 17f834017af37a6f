// The frequency response and the accuracy of the resampler's four qualities, for plotting:
// scripts/plots.
//
// Columns: frequency as a part of half the lower rate; then for each quality the gain in dB at
// 96 -> 48 kHz (beyond 1: what comes back as an alias), and the SNR in dB at 44.1 -> 48 kHz.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "audioUtils/resample/HighQualityResampler.h"
#include "support/Sine.h"

namespace {

using audioUtils::HighQualityResampler;

constexpr float headroom = 0.8912509F;

/// @param frequency in turns an input sample
std::vector<double> convert(int quality, float in, float out, double frequency)
{
    HighQualityResampler resampler(1, static_cast<HighQualityResampler::FilterQuality>(quality));
    resampler.setSamplingRate(in, out);
    std::vector<float> input(16'000);
    for (std::size_t i = 0; i < input.size(); ++i) {
        input[i] =
            static_cast<float>(std::sin(2 * M_PI * frequency * static_cast<double>(i))) / headroom;
    }
    std::vector<float> output(40'000);
    std::size_t read = 0;
    std::size_t written = 0;
    while (read < input.size()) {
        auto count = static_cast<unsigned int>(output.size() - written);
        read += static_cast<std::size_t>(
            resampler.processFloat(input.data() + read, static_cast<int>(input.size() - read),
                                   output.data() + written, count, false, false));
        written += count;
    }
    return {output.begin() + 1000, output.begin() + static_cast<std::ptrdiff_t>(written)};
}

double gainInDb(int quality, double part)
{
    double power = 0;
    const std::vector<double> signal = convert(quality, 96, 48, part / 4);
    for (const double sample : signal) {
        power += sample * sample;
    }
    return std::max(-160.0, 10 * std::log10(2 * power / static_cast<double>(signal.size())));
}

double snrInDb(int quality, double part)
{
    const double ratio = 44100.0F / 48000.0F;
    return testSupport::SineFit(convert(quality, 44100, 48000, part / 2), part / 2 * ratio).snr;
}

} // namespace

int main()
{
    for (double part = 0.0123; part < 1.6; part += 0.0137) {
        std::printf("%.4f", part);
        for (int quality = 0; quality < 4; ++quality) {
            std::printf(" %.3f", gainInDb(quality, part));
        }
        for (int quality = 0; quality < 4; ++quality) {
            part < 1 ? std::printf(" %.2f", snrInDb(quality, part)) : std::printf(" nan");
        }
        std::printf("\n");
    }
}
