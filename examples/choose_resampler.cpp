// What each resampler makes of a sine of 15 kHz from 44.1 to 48 kHz, and how long it takes on this
// machine.
#include "audioUtils/resample/GStreamerResampler.h"
#include "audioUtils/resample/HighQualityResamplerShort.h"
#include "miscUtils/TimeValue.h"
#include <cmath>
#include <cstdio>
#include <vector>

using namespace audioUtils;
constexpr float in = 44100, out = 48000; // their quotient is a float, 1e-8 off
constexpr double frequency = 15000, pi = 3.14159265358979;

/// dB by which all that is not the sine lies below it, in 1500 of its periods.
template<typename T>
double signalToNoise(const T* samples, double ratio)
{
    const double step = 2 * pi * frequency / in * ratio;
    double sine = 0, cosine = 0, noise = 0;
    for (int i = 0; i < 4800; ++i) {
        sine += static_cast<double>(samples[i]) * std::sin(step * i) / 2400;
        cosine += static_cast<double>(samples[i]) * std::cos(step * i) / 2400;
    }
    for (int i = 0; i < 4800; ++i) {
        const double fit = sine * std::sin(step * i) + cosine * std::cos(step * i);
        noise += std::pow(static_cast<double>(samples[i]) - fit, 2) / 2400;
    }
    return 10 * std::log10((sine * sine + cosine * cosine) / noise);
}

/// @param convert a block: takes all of it, for there is room
template<typename T, typename Convert>
bool measure(const char* name, double ratio, double amplitude, double leastDb,
             const Convert& convert)
{
    std::vector<T> input(44100), output(96000);
    for (std::size_t i = 0; i < input.size(); ++i) {
        const double sample =
            amplitude * std::sin(2 * pi * frequency * static_cast<double>(i) / in);
        input[i] = static_cast<T>(sizeof(T) == 2 ? std::round(sample) : sample);
    }
    std::size_t made = 0;
    const miscUtils::TimeValue start = miscUtils::getMonotonicRawSysclockTime();
    for (std::size_t taken = 0; taken < input.size(); taken += 441) {
        auto samples = static_cast<unsigned int>(output.size() - made); // in: room; out: written
        convert(&input[taken], 441, &output[made], samples);
        made += samples;
    }
    const auto time = static_cast<double>(miscUtils::getMonotonicRawSysclockTime() - start);
    const double dB = signalToNoise(&output[24000], ratio);
    std::printf("%-14s %6.1f ns a frame %6.1f dB\n", name, time / static_cast<double>(made), dB);
    return dB >= leastDb;
}

int main()
{
    bool good = true;
    const char* names[] = {"low", "medium", "high", "best"};
    const double atLeast[] = {40, 80, 135, 135};
    for (int quality = HighQualityResampler::Low; quality <= HighQualityResampler::Best;
         ++quality) {
        HighQualityResampler resampler(1, HighQualityResampler::FilterQuality(quality));
        resampler.setSamplingRate(in, out);
        good &= measure<float>(names[quality], in / out, 0.5, atLeast[quality],
                               [&](auto* x, int n, auto* y, auto& m) {
                                   resampler.processFloat(x, n, y, m, false, false);
                               });
    }
    HighQualityResamplerShort inShorts(1, HighQualityResampler::Best);
    inShorts.setSamplingRate(in, out);
    good &=
        measure<short>("16 bits, best", in / out, 16384, 50, [&](auto* x, int n, auto* y, auto& m) {
            inShorts.processShort(reinterpret_cast<unsigned short*>(x), n,
                                  reinterpret_cast<unsigned short*>(y), m, false, false);
        });
    GStreamerResampler inPipeline(1, 44100, 48000, GStreamerResampler::Float32, 10);
    good &= measure<float>("gstreamer 10", 44100.0 / 48000, 0.5, 120,
                           [&](auto* x, int n, auto* y, auto& m) {
                               inPipeline.processFloat(x, n, y, m, false, false);
                           });
    return good ? 0 : 1;
}
