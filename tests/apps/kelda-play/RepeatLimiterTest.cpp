#include "RepeatLimiter.h"

#include <gmock/gmock.h>

using keldaPlay::RepeatLimiter;
using std::chrono::seconds;
using testing::IsEmpty;
using testing::Optional;

TEST(RepeatLimiter, LetsAMessagePassOnceInAWhile)
{
    RepeatLimiter limiter(seconds(10));
    const RepeatLimiter::Time start{seconds(1000)};
    EXPECT_THAT(limiter.pass("a", start), Optional(0U));
    EXPECT_THAT(limiter.pass("b", start), Optional(0U));
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(limiter.pass("a", start + seconds(i)), std::nullopt);
    }
    EXPECT_THAT(limiter.pass("a", start + seconds(10)), Optional(10U));
    EXPECT_EQ(limiter.pass("a", start + seconds(19)), std::nullopt);
    EXPECT_THAT(limiter.pass("b", start + seconds(19)), Optional(0U));
}

TEST(RepeatLimiter, TellsTheRestOnce)
{
    RepeatLimiter limiter(seconds(10));
    const RepeatLimiter::Time start{seconds(1000)};
    EXPECT_TRUE(limiter.pass("a", start));
    EXPECT_TRUE(limiter.pass("b", start));
    EXPECT_FALSE(limiter.pass("b", start));
    EXPECT_FALSE(limiter.pass("b", start));
    const auto rest = limiter.takeRest();
    ASSERT_EQ(rest.size(), 1U);
    EXPECT_EQ(rest[0].message, "b");
    EXPECT_EQ(rest[0].count, 2U);
    EXPECT_THAT(limiter.takeRest(), IsEmpty());
}
