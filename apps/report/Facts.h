#pragma once

#include <string>
#include <vector>

namespace keldaReport {

/// Something to know of a run: what it is called, and what it is.
struct Fact
{
    std::string name;
    std::string value;
};

/// When, where and by what a report is written: date, host, version, command line.
/// @param program with its version
[[nodiscard]] std::vector<Fact> factsOfProcess(const std::string& program);

} // namespace keldaReport
