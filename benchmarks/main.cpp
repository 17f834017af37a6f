// Runs all benchmarks and prints how each compares with its peer in the same run.
//
//     build-release/bin/kelda-benchmarks [--benchmark_filter=REGEX]

#include <iostream>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

namespace {

/// What is compared with what.
constexpr const char* pairs[][2] = {
    {"pcmQueue/withTimestamps", "bareRing"},
    {"pcmQueue/withoutTimestamps", "bareRing"},
    {"alsaOutputDevice", "bareWritei/alone"},
    {"alsaOutputDevice", "bareWritei/andState"},
    {"clickRemover/short", "twoCopiesAndALook/short"}, // aim: at most 2.5
    {"clickRemover/int", "twoCopiesAndALook/int"},
    {"clickRemover/float", "twoCopiesAndALook/float"},
};

/// Prints the table as usual and keeps the medians.
class MedianReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.aggregate_name == "median") {
                m_medians[nameOf(run)] = run.GetAdjustedCPUTime();
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
    // Without the benchmark's parameters, such as the number of repetitions.
    static std::string nameOf(const Run& run)
    {
        const std::string& arguments = run.run_name.args;
        return run.run_name.function_name + (arguments.empty() ? "" : "/" + arguments);
    }

    std::map<std::string, double> m_medians;
};

} // namespace

int main(int argc, char** argv)
{
    const log4cplus::Initializer logging;
    log4cplus::Logger::getRoot().addAppender(
        log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);

    // Interleaved, so that a change of the machine's speed meets all of them.
    std::vector<std::string> options = {"--benchmark_enable_random_interleaving=true",
                                        "--benchmark_repetitions=15",
                                        "--benchmark_report_aggregates_only=true"};
    std::vector<char*> arguments(argv, argv + argc);
    for (std::string& option : options) {
        arguments.insert(arguments.begin() + 1, option.data());
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const auto& [name, peer] : pairs) {
        reporter.printRatio(name, peer);
    }
    return 0;
}
