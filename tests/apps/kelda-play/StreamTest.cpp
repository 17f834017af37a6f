// When frames are due, and which of them get lost.

#include <gtest/gtest.h>

#include "Gaps.h"
#include "StreamClock.h"

using keldaPlay::Gaps;
using keldaPlay::StreamClock;

TEST(StreamClock, IsExactForDays)
{
    constexpr std::uint64_t start = 1'700'000'000'123'456'789;
    const StreamClock clock(start, 44100);
    EXPECT_EQ(clock.ptsOf(0), start);
    EXPECT_EQ(clock.ptsOf(1), start + 22675);
    EXPECT_EQ(clock.ptsOf(44100), start + 1'000'000'000);
    constexpr std::uint64_t framesOfDay = 24ULL * 3600 * 44100;
    for (const std::uint64_t days : {1UL, 365UL, 36500UL}) {
        EXPECT_EQ(clock.ptsOf(days * framesOfDay), start + days * 24 * 3600 * 1'000'000'000);
        EXPECT_EQ(clock.ptsOf(days * framesOfDay + 1), clock.ptsOf(days * framesOfDay) + 22675);
    }
}

TEST(Gaps, WithoutAnyNothingIsLost)
{
    const Gaps gaps({}, 48000);
    EXPECT_FALSE(gaps.pieceAt(0).lost);
    EXPECT_GT(gaps.pieceAt(0).numFrames, 1UL << 60);
}

TEST(Gaps, BeginAndEndOnTheirFrames)
{
    const Gaps gaps({{2, 500}, {1, 0.5}}, 48000);
    EXPECT_FALSE(gaps.pieceAt(0).lost);
    EXPECT_EQ(gaps.pieceAt(0).numFrames, 48000U);
    EXPECT_TRUE(gaps.pieceAt(48000).lost);
    EXPECT_EQ(gaps.pieceAt(48000).numFrames, 24U);
    EXPECT_TRUE(gaps.pieceAt(48023).lost);
    EXPECT_FALSE(gaps.pieceAt(48024).lost);
    EXPECT_EQ(gaps.pieceAt(48024).numFrames, 96000U - 48024);
    EXPECT_EQ(gaps.pieceAt(96000).numFrames, 24000U);
    EXPECT_FALSE(gaps.pieceAt(120'000).lost);
}
