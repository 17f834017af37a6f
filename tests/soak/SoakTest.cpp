// scripts/soak, shortened: what a minute can show of it, so that its decay is noticed.

#include <gtest/gtest.h>

#include "Accounts.h"
#include "CardSoak.h"

using namespace keldaSoak;
using testSupport::TraceRow;

namespace {

TraceRow block(std::uint64_t frames)
{
    TraceRow row{};
    row.frames = frames;
    row.heard = 1;
    row.delay = 1;
    return row;
}

} // namespace

TEST(AccountsTest, BalanceWhenAllIsHeardOrCounted)
{
    TraceRow silent = block(3);
    silent.silence = 2;
    TraceRow late = block(2);
    late.skipped = 1;
    EXPECT_TRUE(settle(4, {0, 0, 1, 3, 4}, {}, 0, {silent, late}).areBalanced());
}

TEST(AccountsTest, TellWhatIsLostRepeatedOrSilent)
{
    EXPECT_EQ(settle(3, {1, 3}, {}, 0, {block(2)}).lostUncounted, 1U);
    EXPECT_EQ(settle(3, {1, 2, 2, 3}, {}, 0, {block(4)}).repeated, 1U);
    EXPECT_GT(settle(3, {1, 3, 2}, {}, 0, {block(3)}).repeated, 0U);
    EXPECT_EQ(settle(3, {1, 0, 2, 3}, {}, 0, {block(4)}).silenceOff, 1U);
    EXPECT_EQ(settle(3, {1}, {2, 3}, 1, {block(3)}).dropsUncounted, 1U);
    TraceRow late = block(3);
    late.skipped = 1;
    EXPECT_EQ(settle(3, {1, 2, 3}, {}, 0, {late}).countedTwice, 1U);
    EXPECT_FALSE(settle(3, {1, 2, 3}, {}, 0, {late}).areBalanced());
}

TEST(RecoveryTest, TellsWhenTheErrorIsBack)
{
    constexpr std::int64_t block10ms = 10'000'000;
    std::vector<TraceRow> trace;
    for (std::int64_t i = 0; i < 1000; ++i) {
        TraceRow row = block(480);
        row.due = static_cast<std::uint64_t>(i * block10ms + 1);
        row.delta = i >= 300 && i < 500 ? 100'000 : 5'000;
        trace.push_back(row);
    }
    const std::vector<Fault> faults = {{"fault", "", 300 * block10ms, 310 * block10ms}};
    const Recovery recovery = recoveryFrom(faults, 900 * block10ms, trace);
    EXPECT_EQ(recovery.lasting(), 0U);
    EXPECT_NEAR(recovery.worstSeconds(), 1.4, 0.2) << "half of a second's blocks are good by then";
    EXPECT_EQ(recoveryFrom(faults, 450 * block10ms, trace).lasting(), 1U);
}

TEST(SoakTest, NoFrameIsLostOrRepeatedUncounted)
{
    CardSoakOptions options;
    options.seconds = 40; // each kind of fault once
    options.leastPause = 0.5;
    options.mostPause = 1.5;
    const CardSoak soak = playOnFailingCard(Mode::Exact, options);
    const bool isWhole = soak.accounts.skipped + soak.accounts.unheard == 0;
    EXPECT_TRUE(soak.hasPlayed()) << soak.messages;
    EXPECT_TRUE(isWhole || soak.status == CardSoak::notAllHeard) << "a loss that is not told";
    EXPECT_GE(soak.faults.size(), 15U);
    EXPECT_TRUE(soak.unexplainedUnderruns.empty());
    EXPECT_EQ(soak.accounts.lostUncounted, 0U);
    EXPECT_EQ(soak.accounts.repeated, 0U);
    EXPECT_LE(soak.accounts.countedTwice, soak.accounts.inDoubt());
    EXPECT_LE(soak.accounts.silenceOff, soak.accounts.inDoubt());
    EXPECT_EQ(soak.accounts.dropsUncounted, 0U);
}
