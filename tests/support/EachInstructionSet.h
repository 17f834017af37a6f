#pragma once

#include "resampleKit/InstructionSets.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <hwy/highway.h>

namespace testSupport {

/// A test that runs once with each of the instruction sets that the resampler kit is built for and
/// this machine has.
class EachInstructionSet : public testing::TestWithParam<std::int64_t>
{
protected:
    EachInstructionSet() { hwy::SetSupportedTargetsForTest(GetParam()); }
    ~EachInstructionSet() override { hwy::SetSupportedTargetsForTest(0); }
};

[[nodiscard]] inline std::vector<std::int64_t> instructionSets()
{
    std::vector<std::int64_t> all;
    // The lowest that it is built for is not asked for: the machine runs this program.
    const std::int64_t here = (hwy::SupportedTargets() | HWY_STATIC_TARGET) & (HWY_TARGETS);
    for (std::int64_t left = here; left != 0; left &= left - 1) {
        all.push_back(left & -left);
    }
    return all;
}

[[nodiscard]] inline std::string
nameOfInstructionSet(const testing::TestParamInfo<std::int64_t>& instance)
{
    return hwy::TargetName(instance.param);
}

} // namespace testSupport
