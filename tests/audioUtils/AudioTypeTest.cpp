#include "audioUtils/AudioDataStructures.h"

#include <type_traits>

#include <gtest/gtest.h>

TEST(AudioType, NamesTheFamilies)
{
    EXPECT_EQ(audioUtils::pcmAudioType(), "pcm");
    EXPECT_EQ(audioUtils::dsdAudioType(), "dsd");
    EXPECT_EQ(audioUtils::opaqueAudioType(), "opaque");
    EXPECT_EQ(&audioUtils::pcmAudioType(), &audioUtils::pcmAudioType()) << "one string a process";
}

TEST(AudioType, DefaultChannelMaskIsAnEmptyObject)
{
    static_assert(std::is_empty_v<audioUtils::DefaultChannelMask>);
    EXPECT_NE(&audioUtils::getDefaultChannelMask, nullptr);
}
