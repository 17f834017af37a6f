#include "audioUtils/detail/Scale.h"

#include <cstdint>
#include <limits>
#include <random>

#include <gtest/gtest.h>

using audioUtils::detail::Scale;

namespace {

__extension__ using Wide = unsigned __int128;

constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();

std::uint64_t divided(std::uint64_t value, std::uint32_t numerator, std::uint32_t denominator)
{
    const Wide quotient = static_cast<Wide>(value) * numerator / denominator;
    return quotient > largest ? largest : static_cast<std::uint64_t>(quotient);
}

} // namespace

TEST(Scale, IsExactForEverySizeOfValueAndRatio)
{
    std::mt19937_64 random(1);
    const auto ofAnySize = [&random](unsigned int bits) {
        return random() >> (64 - 1 - random() % bits);
    };
    for (int i = 0; i < 200'000; ++i) {
        const auto numerator = static_cast<std::uint32_t>(ofAnySize(32));
        const auto denominator = static_cast<std::uint32_t>(ofAnySize(32) | 1);
        const std::uint64_t value = ofAnySize(64);
        ASSERT_EQ(Scale(numerator, denominator)(value), divided(value, numerator, denominator))
            << value << " * " << numerator << " / " << denominator;
    }
}

TEST(Scale, IsExactWhereTruncationIsClosest)
{
    // The multiples of the denominator, and what lies just below them.
    for (const std::uint32_t denominator : {1U, 3U, 44100U, 176'400U, 192'000U, 0xFFFFFFFFU}) {
        const Scale scale(1'000'000'000, denominator);
        for (std::uint64_t i = 0; i < 1000; ++i) {
            for (const std::uint64_t value :
                 {i, i * denominator, i * denominator - 1, 0xFFFFFFFF - i, 0x1'0000'0000 + i}) {
                ASSERT_EQ(scale(value), divided(value, 1'000'000'000, denominator)) << value;
            }
        }
    }
}

TEST(Scale, GivesTheLargestValueForResultsBeyond64Bits)
{
    EXPECT_EQ(Scale(1'000'000'000, 1)(largest), largest);
    EXPECT_EQ(Scale(2, 1)(largest / 2), largest - 1);
}

TEST(Scale, WithoutARatioGivesZero)
{
    EXPECT_EQ(Scale()(5), 0U);
    EXPECT_EQ(Scale()(largest), 0U);
    EXPECT_EQ(Scale(5, 0)(7), 0U);
}
