// What recovery and timing cost: AlsaOutputDevice::write() against a bare snd_pcm_writei().
//
// All write blocks of 10 ms, 16-bit stereo at 48 kHz, to ALSA's own "null" device, which takes them
// at once: the least that any device costs, so that nothing hides what is added. The device asks
// for the state before and after each write; a second peer does just that.

#include <array>

#include <alsa/asoundlib.h>
#include <benchmark/benchmark.h>

#include "audioUtils/device/AlsaOutputDevice.h"

namespace {

constexpr std::size_t numFrames = 480;

using Block = std::array<short, 2 * numFrames>;

void bareWritei(benchmark::State& state, bool asksForState)
{
    snd_pcm_t* pcm = nullptr;
    if (snd_pcm_open(&pcm, "null", SND_PCM_STREAM_PLAYBACK, 0) < 0 ||
        snd_pcm_set_params(pcm, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED, 2, 48000, 0,
                           80'000) < 0) {
        state.SkipWithError("no null device");
        return;
    }
    Block block{};
    for (auto _ : state) {
        if (asksForState) {
            benchmark::DoNotOptimize(snd_pcm_state(pcm));
        }
        benchmark::DoNotOptimize(snd_pcm_writei(pcm, block.data(), numFrames));
        if (asksForState) {
            benchmark::DoNotOptimize(snd_pcm_state(pcm));
        }
    }
    snd_pcm_close(pcm);
}

void alsaOutputDevice(benchmark::State& state)
{
    audioUtils::AlsaOutputDevice device;
    if (!device.open("null", audioUtils::S16LE, 48000, 2, 3840, 480, 3840, false, "")) {
        state.SkipWithError("no null device");
        return;
    }
    Block block{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(device.write(block.data(), numFrames));
    }
}

} // namespace

BENCHMARK_CAPTURE(bareWritei, alone, false);
BENCHMARK_CAPTURE(bareWritei, andState, true);
BENCHMARK(alsaOutputDevice);
