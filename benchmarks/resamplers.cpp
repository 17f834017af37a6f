// How fast and how good sample rate converters are, ours and those that engineers would pick
// instead, in one run: ns for each output frame, in blocks of 480 frames, and for each converter
// what it makes of a sine and where its pass-band ends.
//
//     scripts/bench

#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "Converters.h"
#include "support/Sine.h"

namespace {

constexpr std::size_t blockFrames = 480;

struct Case
{
    double in;
    double out;
    unsigned int channels;
    const char* name;
};

constexpr std::array cases = {Case{44100, 48000, 2, "44.1->48"},
                              Case{48000, 44100, 2, "48->44.1"},
                              Case{96000, 48000, 2, "96->48"},
                              Case{48000, 48004.8, 2, "48->48.0048"},
                              Case{48004.8, 48000, 2, "48.0048->48"},
                              Case{44100, 48000, 8, "44.1->48, 8 ch"},
                              Case{48004.8, 48000, 8, "48.0048->48, 8 ch"}};

bool isWhole(double rate)
{
    return rate == std::floor(rate);
}

void run(benchmark::State& state, const ConverterKind& kind, const Case& conversion)
{
    const auto converter = kind.create(conversion.in, conversion.out, conversion.channels);
    std::vector<float> in(blockFrames * conversion.channels);
    for (std::size_t i = 0; i < in.size(); ++i) {
        in[i] = 0.5F * std::sin(static_cast<float>(i) * 0.01F);
    }
    constexpr std::size_t room = 4000;
    std::vector<float> out(room * conversion.channels);
    std::size_t frames = 0;
    for (auto _ : state) {
        frames += converter->process(in.data(), blockFrames, out.data(), room);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(frames));
}

/// Keeps ns for each item, the median of the repetitions.
class Reporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& each : runs) {
            const auto rate = each.counters.find("items_per_second");
            if (each.aggregate_name == "median" && rate != each.counters.end()) {
                m_times[each.run_name.function_name] = 1e9 / rate->second.value;
            }
        }
    }

    [[nodiscard]] double time(const std::string& converter, const std::string& conversion) const
    {
        const auto entry = m_times.find(converter + "/" + conversion);
        return entry == m_times.end() ? 0 : entry->second;
    }

private:
    std::map<std::string, double> m_times;
};

/// What a converter makes of a tone at 44.1 -> 48 kHz.
testSupport::SineFit measure(const ConverterKind& kind, double frequency)
{
    const auto converter = kind.create(44100, 48000, 1);
    std::vector<double> result;
    std::vector<std::vector<float>> blocks; // kept, for ours in shorts looks at the address
    std::vector<float> out(4000);
    for (int i = 0; i < 60; ++i) {
        std::vector<float>& in = blocks.emplace_back(blockFrames);
        for (std::size_t n = 0; n < blockFrames; ++n) {
            const double t = static_cast<double>(static_cast<std::size_t>(i) * blockFrames + n);
            in[n] = static_cast<float>(0.9 * std::sin(2 * M_PI * frequency / 44100 * t));
        }
        const std::size_t frames = converter->process(in.data(), blockFrames, out.data(), 4000);
        result.insert(result.end(), out.begin(), out.begin() + static_cast<std::ptrdiff_t>(frames));
    }
    result.erase(result.begin(), result.begin() + 4000);
    // Ours has its ratio as a float: what that is off is not noise.
    const testSupport::SineFit exact(result, frequency / 48000);
    const testSupport::SineFit rounded(result, frequency / 44100 * (44100.0F / 48000.0F));
    return rounded.snr > exact.snr ? rounded : exact;
}

/// Where the response has fallen by 3 dB, as a part of 22.05 kHz.
double passBandEdge(const ConverterKind& kind)
{
    const double level = measure(kind, 1000).amplitude;
    double frequency = 14000;
    while (frequency < 22000 && measure(kind, frequency).amplitude > level * std::sqrt(0.5)) {
        frequency += 100;
    }
    return frequency / 22050;
}

void printTable(const Reporter& reporter)
{
    std::printf("| ns a frame |");
    for (const Case& conversion : cases) {
        std::printf(" %s |", conversion.name);
    }
    std::printf(" SNR at 1 kHz, dB | -3 dB at |\n| --- |");
    for (std::size_t i = 0; i < cases.size() + 2; ++i) {
        std::printf(" ---: |");
    }
    std::printf("\n");
    for (const ConverterKind& kind : converterKinds()) {
        std::printf("| %s |", kind.name.c_str());
        for (const Case& conversion : cases) {
            const double time = reporter.time(kind.name, conversion.name);
            time == 0 ? std::printf(" |") : std::printf(" %.1f |", time);
        }
        std::printf(" %.0f | %.2f |\n", measure(kind, 1000).snr, passBandEdge(kind));
    }
}

void printRatios(const Reporter& reporter)
{
    const struct
    {
        const char* what;
        const char* converter;
        const char* conversion;
        const char* peer;
        double aim;
    } ratios[] = {
        {"just below 1", "kelda float best", "48->48.0048", "zita VResampler 32", 0.5},
        {"just below 1", "kelda float best", "48->48.0048", "speexdsp q5", 0.25},
        {"just above 1", "kelda float best", "48.0048->48", "zita VResampler 32", 1},
        {"44.1 to 48 kHz", "kelda float best", "44.1->48", "soxr HQ", 1},
        {"96 to 48 kHz", "kelda float best", "96->48", "zita VResampler 32", 1},
        {"16-bit, 44.1 to 48 kHz", "kelda 16-bit best", "44.1->48", "kelda float best", 1},
        {"16-bit, 96 to 48 kHz", "kelda 16-bit best", "96->48", "kelda float best", 1},
        {"16-bit, just above 1", "kelda 16-bit best", "48.0048->48", "kelda float best", 1},
    };
    for (const auto& [what, converter, conversion, peer, aim] : ratios) {
        std::printf("%s: %s / %s = %.2f (aim: at most %.2f)\n", what, converter, peer,
                    reporter.time(converter, conversion) / reporter.time(peer, conversion), aim);
    }
    std::printf("8 channels, each of them / stereo, each: %.2f (aim: at most 0.80)\n",
                reporter.time("kelda float best", "44.1->48, 8 ch") / 4 /
                    reporter.time("kelda float best", "44.1->48"));
}

} // namespace

int main(int argc, char** argv)
{
    for (const ConverterKind& kind : converterKinds()) {
        for (const Case& conversion : cases) {
            if (kind.isFixed && !(isWhole(conversion.in) && isWhole(conversion.out))) {
                continue;
            }
            // The clock's time, for some convert in a thread of their own.
            benchmark::RegisterBenchmark((kind.name + "/" + conversion.name).c_str(), run, kind,
                                         conversion)
                ->UseRealTime();
        }
    }
    std::vector<std::string> options = {
        "--benchmark_enable_random_interleaving=true", "--benchmark_repetitions=5",
        "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.05"};
    std::vector<char*> arguments(argv, argv + argc);
    for (std::string& option : options) {
        arguments.insert(arguments.begin() + 1, option.data());
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    Reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    printTable(reporter);
    printRatios(reporter);
    return 0;
}
