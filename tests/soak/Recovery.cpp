#include "Recovery.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace keldaSoak {

using testSupport::TraceRow;

namespace {

constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t step = second / 20;
constexpr std::size_t fewestBlocks = 20; // of a second that can be judged
constexpr double never = std::numeric_limits<double>::infinity();

bool goesOn(const TraceRow& row)
{
    return row.heard != 0 && row.underruns == 0 && row.silence + row.padded + row.skipped == 0;
}

double errorOf(const TraceRow& row)
{
    return static_cast<double>(row.delta) / 1000;
}

using Rows = std::vector<TraceRow>::const_iterator;

Rows firstFrom(const std::vector<TraceRow>& trace, std::int64_t time)
{
    return std::ranges::lower_bound(trace, time, {}, &TraceRow::time);
}

/// The size of a second's error: the median's.
double errorOfSecond(Rows first, Rows last)
{
    std::vector<double> errors;
    for (auto row = first; row != last; ++row) {
        if (!goesOn(*row)) {
            return never;
        }
        errors.push_back(errorOf(*row));
    }
    if (errors.size() < fewestBlocks) {
        return never;
    }
    const auto middle = errors.begin() + static_cast<std::ptrdiff_t>(errors.size() / 2);
    std::ranges::nth_element(errors, middle);
    return std::abs(*middle);
}

double percentile(std::vector<double> values, double part)
{
    if (values.empty()) {
        return never;
    }
    std::ranges::sort(values);
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

} // namespace

Recovery recoveryFrom(const std::vector<Fault>& faults, std::int64_t end,
                      const std::vector<TraceRow>& trace)
{
    Recovery recovery;
    for (std::size_t i = 0; i < faults.size(); ++i) {
        // The write of a block that was rendered before the next fault may meet it.
        const std::int64_t until = (i + 1 < faults.size() ? faults[i + 1].start : end) - step;
        Recovery::After after{faults[i]};
        std::int64_t time = until - second;
        for (; time >= after.fault.end; time -= step) {
            const double error =
                errorOfSecond(firstFrom(trace, time), firstFrom(trace, time + second));
            if (error >= Recovery::limitUs) {
                break;
            }
            after.errorUs = std::max(after.errorUs, error);
            after.seconds = static_cast<double>(time - after.fault.end) / second;
        }
        if (after.seconds >= 0) {
            const auto from = after.fault.end + static_cast<std::int64_t>(after.seconds * second);
            for (auto row = firstFrom(trace, from); row != firstFrom(trace, until); ++row) {
                recovery.errorsUs.push_back(std::abs(errorOf(*row)));
            }
        }
        recovery.faults.push_back(std::move(after));
    }
    std::ranges::sort(recovery.errorsUs);
    return recovery;
}

std::vector<Fault> unexplainedUnderruns(const std::vector<Fault>& faults,
                                        const std::vector<TraceRow>& trace)
{
    std::vector<Fault> found;
    for (const TraceRow& row : trace) {
        const bool isExplained = std::ranges::any_of(faults, [&](const Fault& fault) {
            return fault.start <= row.time() + second && row.time() <= fault.end + second;
        });
        if (row.underruns != 0 && !isExplained) {
            found.push_back({"ran dry by itself", "", row.time(), row.time()});
        }
    }
    return found;
}

std::size_t Recovery::lasting() const
{
    return static_cast<std::size_t>(
        std::ranges::count_if(faults, [](const After& after) { return after.seconds < 0; }));
}

double Recovery::medianSeconds() const
{
    std::vector<double> seconds;
    for (const After& after : faults) {
        seconds.push_back(after.seconds < 0 ? never : after.seconds);
    }
    return percentile(seconds, 0.5);
}

double Recovery::worstSeconds() const
{
    double worst = 0;
    for (const After& after : faults) {
        worst = std::max(worst, after.seconds < 0 ? never : after.seconds);
    }
    return worst;
}

double Recovery::worstMedianUs() const
{
    double worst = 0;
    for (const After& after : faults) {
        worst = std::max(worst, after.errorUs);
    }
    return worst;
}

double Recovery::errorUs(double part) const
{
    return percentile(errorsUs, part);
}

} // namespace keldaSoak
