// What a new ratio costs, in the steady state of playback: no table is built.

#include <vector>

#include <benchmark/benchmark.h>

#include "audioUtils/resample/HighQualityResampler.h"

namespace {

void setSamplingRate(benchmark::State& state)
{
    audioUtils::HighQualityResampler resampler(2, audioUtils::HighQualityResampler::Best);
    std::vector<float> in(960);
    std::vector<float> out(2000);
    auto count = static_cast<unsigned int>(out.size());
    resampler.processFloat(in.data(), 960, out.data(), count, false, false);
    float rate = 48000;
    for (auto _ : state) {
        rate = rate == 48001 ? 48002 : 48001;
        resampler.setSamplingRate(rate, 48000);
    }
}

} // namespace

BENCHMARK(setSamplingRate);
