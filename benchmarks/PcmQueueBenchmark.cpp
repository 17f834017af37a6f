// What the timestamps cost: a PcmQueue against a bare ring behind a mutex, in the same run.
// Both are written and read in blocks of 10 ms, 16-bit stereo at 48 kHz, and stay half full, as in
// playback.

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>
#include <vector>

#include <benchmark/benchmark.h>

#include "audioUtils/PcmQueue.h"

namespace {

constexpr unsigned int sampleRate = 48000;
constexpr unsigned int numChannels = 2;
constexpr unsigned int numBytesPerSample = 2;
constexpr std::size_t queueMs = 200;
constexpr std::size_t bytesPerMs = sampleRate / 1000 * numChannels * numBytesPerSample;
constexpr std::size_t blockMs = 10;
constexpr miscUtils::TimeValue nanosecondsPerBlock = blockMs * 1'000'000;

using Block = std::array<unsigned char, blockMs * bytesPerMs>;

/// The least that a thread-safe ring does: no timestamps, no waiting, no log. As in a library, a
/// call is a call: inlined, it would copy blocks of a size that the compiler knows.
class BareRing
{
public:
    [[gnu::noinline]] bool write(const unsigned char* data, std::size_t count)
    {
        const std::lock_guard lock(m_mutex);
        if (m_buffer.size() - m_fillLevel < count) {
            return false;
        }
        const std::size_t first = std::min(count, m_buffer.size() - m_writeIndex);
        std::memcpy(m_buffer.data() + m_writeIndex, data, first);
        std::memcpy(m_buffer.data(), data + first, count - first);
        m_writeIndex = (m_writeIndex + count) % m_buffer.size();
        m_fillLevel += count;
        return true;
    }

    [[gnu::noinline]] std::size_t read(unsigned char* out, std::size_t count)
    {
        const std::lock_guard lock(m_mutex);
        count = std::min(count, m_fillLevel);
        const std::size_t first = std::min(count, m_buffer.size() - m_readIndex);
        std::memcpy(out, m_buffer.data() + m_readIndex, first);
        std::memcpy(out + first, m_buffer.data(), count - first);
        m_readIndex = (m_readIndex + count) % m_buffer.size();
        m_fillLevel -= count;
        return count;
    }

private:
    std::mutex m_mutex;
    std::vector<unsigned char> m_buffer = std::vector<unsigned char>(queueMs * bytesPerMs);
    std::size_t m_readIndex = 0;
    std::size_t m_writeIndex = 0;
    std::size_t m_fillLevel = 0;
};

void bareRing(benchmark::State& state)
{
    BareRing ring;
    Block block{};
    for (std::size_t i = 0; i < queueMs / blockMs / 2; ++i) {
        ring.write(block.data(), block.size());
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(ring.write(block.data(), block.size()));
        benchmark::DoNotOptimize(ring.read(block.data(), block.size()));
        benchmark::ClobberMemory();
    }
}

void pcmQueue(benchmark::State& state, bool timestamping)
{
    audioUtils::PcmQueue queue;
    queue.configure(timestamping, queueMs, sampleRate, numChannels, numBytesPerSample, "benchmark",
                    true, 20'000'000, 10'000'000);
    Block block{};
    miscUtils::TimeValue writeTime = 1'700'000'000'000'000'000;
    miscUtils::TimeValue readTime = writeTime;
    for (std::size_t i = 0; i < queueMs / blockMs / 2; ++i) {
        queue.write(writeTime, block);
        writeTime += nanosecondsPerBlock;
    }
    for (auto _ : state) {
        miscUtils::TimeValueDelta delta = 0;
        benchmark::DoNotOptimize(queue.write(writeTime, block));
        benchmark::DoNotOptimize(queue.read(readTime, block, delta));
        benchmark::ClobberMemory();
        writeTime += nanosecondsPerBlock;
        readTime += nanosecondsPerBlock;
    }
    if (queue.counters().skippedFrames + queue.counters().silenceFrames != 0) {
        state.SkipWithError("the queue fell out of sync: not the steady state");
    }
}

} // namespace

BENCHMARK(bareRing);
BENCHMARK_CAPTURE(pcmQueue, withTimestamps, true);
BENCHMARK_CAPTURE(pcmQueue, withoutTimestamps, false);
