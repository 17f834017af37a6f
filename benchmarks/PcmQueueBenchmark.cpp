// What the timestamps cost: a PcmQueue against a bare ring behind a mutex, in the same run.
//
//     build-release/bin/kelda-benchmarks
//
// Both are written and read in blocks of 10 ms, 16-bit stereo at 48 kHz, and stay half full, as in
// playback. The last line prints the ratio of the medians.

#include <algorithm>
#include <array>
#include <cstring>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

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

/// Prints the table as usual and keeps the medians.
class MedianReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.aggregate_name == "median") {
                m_medians[run.run_name.function_name] = run.GetAdjustedCPUTime();
            }
        }
    }

    void printRatio(const std::string& name, const std::string& peer) const
    {
        const auto a = m_medians.find(name);
        const auto b = m_medians.find(peer);
        if (a != m_medians.end() && b != m_medians.end()) {
            std::cout << name << " / " << peer << " = " << a->second / b->second << "  ("
                      << a->second << " ns / " << b->second << " ns)\n";
        }
    }

private:
    std::map<std::string, double> m_medians;
};

} // namespace

int main(int argc, char** argv)
{
    const log4cplus::Initializer logging;
    log4cplus::Logger::getRoot().addAppender(
        log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);

    const auto prepare = [](benchmark::internal::Benchmark* benchmark) {
        benchmark->Repetitions(15)->ReportAggregatesOnly(true);
    };
    prepare(benchmark::RegisterBenchmark("bareRing", bareRing));
    prepare(benchmark::RegisterBenchmark("PcmQueue", pcmQueue, true));
    prepare(benchmark::RegisterBenchmark("PcmQueueWithoutTimestamps", pcmQueue, false));

    // Interleaved, so that a change of the machine's speed meets all of them.
    std::vector<char*> arguments(argv, argv + argc);
    std::string interleave = "--benchmark_enable_random_interleaving=true";
    arguments.insert(arguments.begin() + 1, interleave.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("PcmQueue", "bareRing");
    reporter.printRatio("PcmQueueWithoutTimestamps", "bareRing");
    return 0;
}
