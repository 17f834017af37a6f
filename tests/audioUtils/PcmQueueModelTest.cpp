// The queue against its model, over tens of thousands of random calls: bytes, results, times,
// counters and every line of the log must agree after each.

#include <gtest/gtest.h>

#include "support/PcmQueueAndModel.h"

namespace {

constexpr miscUtils::TimeValue ms = 1'000'000;

struct Stream
{
    const char* name;
    testSupport::QueueParameters parameters;
};

void PrintTo(const Stream& stream, std::ostream* out)
{
    *out << stream.name;
}

class PcmQueueModelTest : public testing::TestWithParam<std::tuple<Stream, unsigned int>>
{
};

constexpr Stream streams[] = {
    {"Cd", {true, true, 60, 44100, 2, 2, 20 * ms}},
    {"Unfiltered", {true, false, 60, 44100, 2, 2, 20 * ms}},
    {"Short", {true, true, 5, 48000, 1, 3, 1 * ms}},
    {"Surround", {true, true, 20, 192000, 8, 4, 5 * ms}},
    {"NoTolerance", {true, false, 10, 48000, 2, 2, 0}},
    {"OddRate", {true, true, 30, 11025, 3, 3, 10 * ms}},
    {"Untimed", {false, true, 30, 48000, 2, 2, 20 * ms}},
    {"NoCapacity", {true, true, 1, 500, 2, 2, 20 * ms}},
};

} // namespace

TEST_P(PcmQueueModelTest, AgreesAfterEveryCall)
{
    testSupport::RandomChoices choices(std::get<1>(GetParam()));
    testSupport::PcmQueueAndModel both(choices, std::get<0>(GetParam()).parameters);
    for (int i = 0; i < 4000; ++i) {
        ASSERT_EQ(both.call(), "") << "in call " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Random, PcmQueueModelTest,
                         testing::Combine(testing::ValuesIn(streams), testing::Range(1U, 4U)),
                         [](const auto& test) {
                             return std::get<0>(test.param).name +
                                    std::to_string(std::get<1>(test.param));
                         });
