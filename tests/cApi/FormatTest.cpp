#include <gtest/gtest.h>

#include "audioUtils/PcmDataStructures.h"
#include "kelda_audio.h"

namespace {

constexpr auto noFormat = static_cast<kelda_format>(12);
constexpr auto negativeFormat = static_cast<kelda_format>(-1);

} // namespace

TEST(KeldaFormat, HasTheLibrarysNumbersNamesAndSizes)
{
    ASSERT_EQ(audioUtils::getAllPcmFormats().size(), static_cast<std::size_t>(noFormat));
    for (const audioUtils::PcmFormat expected : audioUtils::getAllPcmFormats()) {
        const auto format = static_cast<kelda_format>(expected);
        EXPECT_STREQ(kelda_format_name(format), audioUtils::toString(expected));
        EXPECT_EQ(kelda_format_bytes(format),
                  static_cast<std::size_t>(audioUtils::getNumBytesForFormat(expected)));
        auto found = noFormat;
        EXPECT_EQ(kelda_format_from_name(audioUtils::toString(expected), &found), KELDA_OK);
        EXPECT_EQ(found, format);
    }
    EXPECT_STREQ(kelda_format_name(KELDA_S24_32BE), "S24_32BE");
    EXPECT_EQ(kelda_format_bytes(KELDA_S24LE), 3U);
}

TEST(KeldaFormat, HasAlsasCodesAndNames)
{
    for (int value = KELDA_S16LE; value <= KELDA_F64BE; ++value) {
        const auto format = static_cast<kelda_format>(value);
        int expectedCode = -1;
        std::string expectedName;
        ASSERT_TRUE(
            audioUtils::toSndPcmFormat(expectedCode, static_cast<audioUtils::PcmFormat>(value)));
        ASSERT_TRUE(
            audioUtils::toSndPcmString(expectedName, static_cast<audioUtils::PcmFormat>(value)));
        int code = -1;
        EXPECT_EQ(kelda_format_to_alsa(format, &code), KELDA_OK);
        EXPECT_EQ(code, expectedCode);
        EXPECT_STREQ(kelda_format_alsa_name(format), expectedName.c_str());

        auto found = noFormat;
        EXPECT_EQ(kelda_format_from_alsa(code, &found), KELDA_OK);
        EXPECT_EQ(found, format);
        found = noFormat;
        EXPECT_EQ(kelda_format_from_alsa_name(expectedName.c_str(), &found), KELDA_OK);
        EXPECT_EQ(found, format);
    }
    EXPECT_STREQ(kelda_format_alsa_name(KELDA_S24_32LE), "S24_LE");
}

TEST(KeldaFormat, ANumberThatIsNoneHasNoNameNoSizeAndNoCode)
{
    for (const kelda_format format : {noFormat, negativeFormat}) {
        EXPECT_STREQ(kelda_format_name(format), "<unknown>");
        EXPECT_STREQ(kelda_format_alsa_name(format), "<unknown>");
        EXPECT_EQ(kelda_format_bytes(format), 0U);
        int code = 77;
        EXPECT_EQ(kelda_format_to_alsa(format, &code), KELDA_INVALID_ARGUMENT);
        EXPECT_EQ(code, 77);
    }
}

TEST(KeldaFormat, WhatIsNotFoundLeavesTheResultAlone)
{
    auto format = noFormat;
    EXPECT_EQ(kelda_format_from_name("s16le", &format), KELDA_NOT_FOUND);
    EXPECT_EQ(kelda_format_from_name("", &format), KELDA_NOT_FOUND);
    EXPECT_EQ(kelda_format_from_alsa_name("U8", &format), KELDA_NOT_FOUND);
    EXPECT_EQ(kelda_format_from_alsa(-1, &format), KELDA_NOT_FOUND);
    EXPECT_EQ(format, noFormat);
}

TEST(KeldaFormat, NullPointersAreRefused)
{
    kelda_format format = KELDA_S32LE;
    EXPECT_EQ(kelda_format_from_name(nullptr, &format), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_format_from_name("S16LE", nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_format_from_alsa_name(nullptr, &format), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_format_from_alsa_name("S16_LE", nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_format_from_alsa(2, nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_format_to_alsa(KELDA_S16LE, nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(format, KELDA_S32LE);
}
