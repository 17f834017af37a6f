// kelda-soak: the player on a sound card that fails at random, for minutes.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>
#include <string>

#include <CLI/CLI.hpp>

#include "CardSoak.h"

namespace {

using namespace keldaSoak;

constexpr long memoryGrowthKib = 256;
// Most faults are over at once. What opens the device anew, or lies about its delay by less than
// the queue takes for a jump, leaves milliseconds for the loop to correct, which it does by 1 ms a
// second.
constexpr double recoverySeconds = 15;
constexpr double usualSeconds = 5;

void printFaults(const CardSoak& soak)
{
    std::map<std::string, int> counts;
    for (const Fault& fault : soak.faults) {
        ++counts[fault.kind];
    }
    std::printf("%-34s %10zu\n", "faults", soak.faults.size());
    for (const auto& [kind, count] : counts) {
        std::printf("  %-32s %10d\n", kind.c_str(), count);
    }
    std::printf("%-34s %10zu\n", "ran dry by itself", soak.unexplainedUnderruns.size());
}

void print(const char* what, std::uint64_t frames)
{
    std::printf("%-34s %10llu\n", what, static_cast<unsigned long long>(frames));
}

bool printAccounts(const Accounts& accounts)
{
    print("frames sent", accounts.sent);
    print("heard", accounts.heard);
    print("lost: in xruns of the card", accounts.droppedByCard);
    print("lost: skipped, counted", accounts.skipped);
    print("lost: while it was gone, counted", accounts.unheard);
    print("lost: uncounted", accounts.lostUncounted);
    print("repeated", accounts.repeated);
    print("counted as lost, but taken", accounts.countedTwice);
    print("  which failed writes explain up to", accounts.inDoubt());
    print("silence heard", accounts.silenceHeard);
    print("silence counted", accounts.silenceCounted);
    print("drops without an underrun", accounts.dropsUncounted);
    return accounts.areBalanced();
}

bool printRecovery(const Recovery& recovery)
{
    std::printf("%-34s %10.2f\n", "recovery, median, s", recovery.medianSeconds());
    std::printf("%-34s %10.2f\n", "recovery, worst, s", recovery.worstSeconds());
    std::printf("%-34s %10.2f\n", "error after it, median, us", recovery.errorUs(0.5));
    std::printf("%-34s %10.2f\n", "error after it, p99, us", recovery.errorUs(0.99));
    std::printf("%-34s %10.2f\n", "a second's median, worst, us", recovery.worstMedianUs());
    for (const Recovery::After& after : recovery.faults) {
        if (after.seconds < 0 || after.seconds > usualSeconds) {
            std::printf("  %s%s: %.2f s\n", after.fault.kind.c_str(), after.fault.detail.c_str(),
                        after.seconds);
        }
    }
    return recovery.worstSeconds() <= recoverySeconds;
}

bool printMemory(const CardSoak& soak)
{
    if (soak.residentKib.size() < 3) {
        return false;
    }
    const auto [least, most] =
        std::minmax_element(soak.residentKib.begin() + 1, soak.residentKib.end());
    std::printf("%-34s %10ld\n", "memory at two tenths, KiB", soak.residentKib[1]);
    std::printf("%-34s %10ld\n", "memory at the end, KiB", soak.residentKib.back());
    return *most - *least <= memoryGrowthKib;
}

bool soakWithCard(Mode mode, const CardSoakOptions& options)
{
    std::printf("\n%s, seed %u, %.0f s\n",
                mode == Mode::Exact ? "Frame by frame" : "In sync with a source 80 ppm off",
                options.seed, options.seconds);
    const CardSoak soak = playOnFailingCard(mode, options);
    std::printf("\n");
    printFaults(soak);
    const bool isRight =
        mode == Mode::Exact ? printAccounts(soak.accounts) : printRecovery(soak.recovery);
    const bool isFlat = printMemory(soak);
    const std::size_t end = soak.summary.find("played  "); // after the status lines
    std::printf("the player ended with %d%s\n", soak.status,
                end == std::string::npos ? "" : (":\n" + soak.summary.substr(end)).c_str());
    const bool passed = isRight && isFlat && soak.hasPlayed() && soak.unexplainedUnderruns.empty();
    std::printf("%s\n", passed ? "PASSED" : "FAILED");
    return passed;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        CLI::App app("Plays for long on clocks and cards that fail at random.", "kelda-soak");
        unsigned int seed = 1;
        double minutes = 10;
        app.add_option("SEED", seed, "Start of the random numbers")->capture_default_str();
        app.add_option("MINUTES", minutes, "Of the card, half of them frame by frame")
            ->capture_default_str();
        CLI11_PARSE(app, argc, argv);
        CardSoakOptions options;
        options.seed = seed;
        options.seconds = minutes * 30;
        const bool exact = soakWithCard(Mode::Exact, options);
        options.seed = seed + 1;
        options.leastPause = recoverySeconds + 1;
        options.mostPause = recoverySeconds + 5;
        const bool inSync = soakWithCard(Mode::InSync, options);
        return exact && inSync ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kelda-soak: %s\n", error.what());
        return 1;
    }
}
