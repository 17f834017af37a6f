#include "audioUtils/PcmDataStructures.h"

#include <set>

#include <alsa/asoundlib.h>
#include <gmock/gmock.h>

using namespace audioUtils;
using testing::ElementsAre;

namespace {

struct Row
{
    int value;
    const char* name;
    int bytes;
    int alsaCode;
    const char* alsaName;
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.name;
}

constexpr Row rows[] = {
    {0, "S16LE", 2, 2, "S16_LE"},       {1, "S16BE", 2, 3, "S16_BE"},
    {2, "S24LE", 3, 32, "S24_3LE"},     {3, "S24BE", 3, 33, "S24_3BE"},
    {4, "S24_32LE", 4, 6, "S24_LE"},    {5, "S24_32BE", 4, 7, "S24_BE"},
    {6, "S32LE", 4, 10, "S32_LE"},      {7, "S32BE", 4, 11, "S32_BE"},
    {8, "F32LE", 4, 14, "FLOAT_LE"},    {9, "F32BE", 4, 15, "FLOAT_BE"},
    {10, "F64LE", 4, 16, "FLOAT64_LE"}, {11, "F64BE", 4, 17, "FLOAT64_BE"},
};

constexpr auto noFormat = static_cast<PcmFormat>(12);

} // namespace

class PcmFormatTest : public testing::TestWithParam<Row>
{
protected:
    const Row& row = GetParam();
    const PcmFormat format = static_cast<PcmFormat>(row.value);
};

INSTANTIATE_TEST_SUITE_P(AllFormats, PcmFormatTest, testing::ValuesIn(rows),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(PcmFormatTest, HasItsSize)
{
    EXPECT_EQ(getNumBytesForFormat(format), row.bytes);
}

TEST_P(PcmFormatTest, HasItsName)
{
    EXPECT_STREQ(toString(format), row.name);
    EXPECT_STREQ(toGstString(format), row.name);
    PcmFormat found = noFormat;
    EXPECT_TRUE(fromString(found, row.name));
    EXPECT_EQ(found, format);
}

TEST_P(PcmFormatTest, HasItsAlsaCode)
{
    int code = -1;
    EXPECT_TRUE(toSndPcmFormat(code, format));
    EXPECT_EQ(code, row.alsaCode);
    PcmFormat found = noFormat;
    EXPECT_TRUE(fromSndPcmFormat(found, row.alsaCode));
    EXPECT_EQ(found, format);
}

TEST_P(PcmFormatTest, HasItsAlsaName)
{
    std::string name = "previous content, longer than any name";
    EXPECT_TRUE(toSndPcmString(name, format));
    EXPECT_EQ(name, row.alsaName);
    PcmFormat found = noFormat;
    EXPECT_TRUE(fromSndPcmString(found, row.alsaName));
    EXPECT_EQ(found, format);
}

TEST(PcmFormat, ListsAllInAscendingOrder)
{
    EXPECT_THAT(getAllPcmFormats(), ElementsAre(S16LE, S16BE, S24LE, S24BE, S24_32LE, S24_32BE,
                                                S32LE, S32BE, F32LE, F32BE, F64LE, F64BE));
    EXPECT_EQ(static_cast<int>(S16LE), 0);
    EXPECT_EQ(static_cast<int>(F64BE), 11);
    static_assert(sizeof(PcmFormat) == 4);
}

TEST(PcmFormat, SixtyFourBitFloatsCountFourBytes)
{
    EXPECT_EQ(getNumBytesForFormat(F64LE), 4);
    EXPECT_EQ(getNumBytesForFormat(F64BE), 4);
}

TEST(PcmFormat, NamesMustMatchExactly)
{
    for (const std::string name :
         {"s16le", "S16LE ", " S16LE", "S16", "", "S16LES16LE", "<unknown>"}) {
        PcmFormat out = F32BE;
        EXPECT_FALSE(fromString(out, name)) << name;
        EXPECT_EQ(out, F32BE) << "untouched";
    }
}

TEST(PcmFormat, OfUnknownValueHasNoProperties)
{
    for (const PcmFormat unknown : {noFormat, static_cast<PcmFormat>(-1)}) {
        EXPECT_STREQ(toString(unknown), "<unknown>");
        EXPECT_STREQ(toGstString(unknown), "<unknown>");
        EXPECT_EQ(getNumBytesForFormat(unknown), 0);
        int code = 77;
        EXPECT_FALSE(toSndPcmFormat(code, unknown));
        EXPECT_EQ(code, 77);
        std::string name = "kept";
        EXPECT_FALSE(toSndPcmString(name, unknown));
        EXPECT_EQ(name, "kept");
    }
}

TEST(PcmFormat, OfUnknownAlsaCodeOrNameIsNotFound)
{
    PcmFormat out = F32BE;
    EXPECT_FALSE(fromSndPcmFormat(out, SND_PCM_FORMAT_S8));
    EXPECT_FALSE(fromSndPcmFormat(out, SND_PCM_FORMAT_UNKNOWN));
    EXPECT_FALSE(fromSndPcmFormat(out, 1000));
    EXPECT_FALSE(fromSndPcmString(out, "S8"));
    EXPECT_FALSE(fromSndPcmString(out, "no such format"));
    EXPECT_FALSE(fromSndPcmString(out, ""));
    EXPECT_EQ(out, F32BE);
}

TEST(PcmFormat, AlsaNamesAreNotOurs)
{
    std::string name;
    EXPECT_TRUE(toSndPcmString(name, S24_32LE));
    EXPECT_EQ(name, "S24_LE");
    PcmFormat format = S16LE;
    EXPECT_TRUE(fromSndPcmString(format, "S24_LE"));
    EXPECT_EQ(format, S24_32LE);
    EXPECT_TRUE(fromSndPcmFormat(format, 32));
    EXPECT_EQ(format, S24LE);
}
