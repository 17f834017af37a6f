#include "audioUtils/DsdDataStructures.h"

#include <gmock/gmock.h>

using namespace audioUtils;
using testing::ElementsAre;

TEST(DsdFormat, ListsAllInAscendingOrder)
{
    EXPECT_THAT(getAllDsdFormats(), ElementsAre(DSDU8, DSDU16LE, DSDU16BE, DSDU32LE, DSDU32BE));
    EXPECT_EQ(static_cast<int>(DSDU8), 0);
    EXPECT_EQ(static_cast<int>(DSDU32BE), 4);
    static_assert(sizeof(DsdFormat) == 4);
}

TEST(DsdFormat, HasSizesAndNames)
{
    const std::pair<const char*, int> rows[] = {
        {"DSDU8", 1}, {"DSDU16LE", 2}, {"DSDU16BE", 2}, {"DSDU32LE", 4}, {"DSDU32BE", 4}};
    int value = 0;
    for (const auto& [name, bytes] : rows) {
        const auto format = static_cast<DsdFormat>(value++);
        EXPECT_STREQ(toString(format), name);
        EXPECT_EQ(getNumBytesForFormat(format), bytes) << name;
        auto found = static_cast<DsdFormat>(99);
        EXPECT_TRUE(fromString(found, name));
        EXPECT_EQ(found, format);
    }
}

TEST(DsdFormat, NamesMustMatchExactly)
{
    for (const std::string name : {"dsdu8", "DSDU8 ", "DSD", "", "S16LE"}) {
        DsdFormat out = DSDU32BE;
        EXPECT_FALSE(fromString(out, name)) << name;
        EXPECT_EQ(out, DSDU32BE) << "untouched";
    }
}

TEST(DsdFormat, OfUnknownValueHasNoProperties)
{
    for (const DsdFormat unknown : {static_cast<DsdFormat>(5), static_cast<DsdFormat>(-1)}) {
        EXPECT_EQ(getNumBytesForFormat(unknown), 0);
        EXPECT_STREQ(toString(unknown), "<unknown>");
    }
}
