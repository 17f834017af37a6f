#include <set>
#include <string>

#include <gmock/gmock.h>

#include "kelda_audio.h"
#include "support/VirtualClock.h"

TEST(KeldaStatus, HasATextForEachNumber)
{
    std::set<std::string> texts;
    for (int status = KELDA_INTERNAL_ERROR; status <= KELDA_UNDERRUN; ++status) {
        const std::string text = kelda_status_text(static_cast<kelda_status>(status));
        EXPECT_TRUE(texts.insert(text).second) << status << ": " << text;
        EXPECT_NE(text, "unknown status") << status;
    }
    EXPECT_EQ(texts.size(), 15U);
    EXPECT_STREQ(kelda_status_text(KELDA_NOT_OPEN), "the device is not open");
}

TEST(KeldaStatus, SaysSoOfANumberThatIsNone)
{
    for (const int status : {KELDA_UNDERRUN + 1, KELDA_INTERNAL_ERROR - 1, INT32_MIN, INT32_MAX}) {
        EXPECT_STREQ(kelda_status_text(static_cast<kelda_status>(status)), "unknown status");
    }
}

TEST(KeldaVersion, IsTheProjects)
{
    EXPECT_STREQ(kelda_version(), KELDA_PROJECT_VERSION);
}

TEST(KeldaNow, IsTheClockThatTheLibrariesRead)
{
    testSupport::VirtualClock clock;
    EXPECT_EQ(kelda_now(), clock.now());
    clock.advance(1'000'000);
    EXPECT_EQ(kelda_now(), clock.now());
}
