// The click remover in the steady state (signal, no fade), against what any delay line has to do:
// two copies of the block and one look at it. Stereo, blocks of 10 ms at 48 kHz.

#include <cstdint>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

#include "audioUtils/clickRemover/ClickRemover.h"

namespace {

constexpr std::size_t frames = 480;
constexpr std::size_t channels = 2;

template<typename T>
std::vector<T> signal()
{
    std::vector<T> block(frames * channels);
    for (std::size_t i = 0; i < block.size(); ++i) {
        block[i] = static_cast<T>(i % 100 + 1);
    }
    return block;
}

template<typename T>
void clickRemover(benchmark::State& state)
{
    audioUtils::ClickRemover<T> remover(10, 5, 5, false);
    std::vector<T> block = signal<T>();
    for (int i = 0; i < 20; ++i) { // beyond the fade at the start
        remover.process(block.data(), 48000, channels, frames);
        block = signal<T>();
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(remover.process(block.data(), 48000, channels, frames));
        benchmark::ClobberMemory();
    }
}

template<typename T>
void twoCopiesAndALook(benchmark::State& state)
{
    std::vector<T> block = signal<T>();
    std::vector<T> line = signal<T>();
    std::vector<T> other = signal<T>();
    for (auto _ : state) {
        std::memcpy(line.data(), block.data(), block.size() * sizeof(T));
        benchmark::ClobberMemory();
        std::memcpy(block.data(), other.data(), block.size() * sizeof(T));
        benchmark::ClobberMemory();
        std::uint64_t seen = 0;
        for (std::size_t at = 0; at < block.size() * sizeof(T); at += sizeof seen) {
            std::uint64_t word = 0;
            std::memcpy(&word, reinterpret_cast<const char*>(block.data()) + at, sizeof word);
            seen |= word;
        }
        benchmark::DoNotOptimize(seen);
    }
}

} // namespace

BENCHMARK(clickRemover<short>)->Name("clickRemover/short");
BENCHMARK(clickRemover<int>)->Name("clickRemover/int");
BENCHMARK(clickRemover<float>)->Name("clickRemover/float");
BENCHMARK(twoCopiesAndALook<short>)->Name("twoCopiesAndALook/short");
BENCHMARK(twoCopiesAndALook<int>)->Name("twoCopiesAndALook/int");
BENCHMARK(twoCopiesAndALook<float>)->Name("twoCopiesAndALook/float");
