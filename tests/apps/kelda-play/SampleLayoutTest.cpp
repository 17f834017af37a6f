#include "SampleLayout.h"

#include <array>
#include <cstdint>
#include <limits>
#include <vector>

#include <gmock/gmock.h>

using namespace audioUtils;
using namespace keldaPlay;
using testing::ElementsAre;

namespace {

constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t smallest = std::numeric_limits<std::int32_t>::min();

std::vector<int> packed(PcmFormat format, std::int32_t sample)
{
    const SampleLayout layout = *layoutOf(format);
    std::vector<unsigned char> bytes(static_cast<std::size_t>(layout.bytes));
    packInteger(layout, sample, bytes.data());
    return {bytes.begin(), bytes.end()};
}

} // namespace

TEST(SampleLayout, HasTheLibrarysSizes)
{
    for (const PcmFormat format : getAllPcmFormats()) {
        if (const auto layout = layoutOf(format)) {
            EXPECT_EQ(layout->bytes, getNumBytesForFormat(format)) << toString(format);
        }
    }
    EXPECT_FALSE(layoutOf(F64LE));
    EXPECT_FALSE(layoutOf(F64BE));
    EXPECT_FALSE(layoutOf(static_cast<PcmFormat>(12)));
}

TEST(SampleLayout, PacksIntegersInTheirByteOrder)
{
    constexpr std::int32_t sample = 0x12345678;
    EXPECT_THAT(packed(S16LE, sample), ElementsAre(0x34, 0x12));
    EXPECT_THAT(packed(S16BE, sample), ElementsAre(0x12, 0x34));
    EXPECT_THAT(packed(S24LE, sample), ElementsAre(0x56, 0x34, 0x12));
    EXPECT_THAT(packed(S24BE, sample), ElementsAre(0x12, 0x34, 0x56));
    EXPECT_THAT(packed(S24_32LE, sample), ElementsAre(0x56, 0x34, 0x12, 0x00));
    EXPECT_THAT(packed(S24_32BE, sample), ElementsAre(0x00, 0x12, 0x34, 0x56));
    EXPECT_THAT(packed(S32LE, sample), ElementsAre(0x78, 0x56, 0x34, 0x12));
    EXPECT_THAT(packed(S32BE, sample), ElementsAre(0x12, 0x34, 0x56, 0x78));
}

TEST(SampleLayout, ExtendsTheSignIntoTheContainer)
{
    EXPECT_THAT(packed(S24_32LE, -256), ElementsAre(0xFF, 0xFF, 0xFF, 0xFF));
    EXPECT_THAT(packed(S24_32LE, smallest), ElementsAre(0x00, 0x00, 0x80, 0xFF));
}

TEST(SampleLayout, RoundsAndNeverWrapsAtFullScale)
{
    EXPECT_THAT(packed(S16LE, 0x00007FFF), ElementsAre(0, 0));
    EXPECT_THAT(packed(S16LE, 0x00008000), ElementsAre(1, 0));
    EXPECT_THAT(packed(S16LE, largest), ElementsAre(0xFF, 0x7F));
    EXPECT_THAT(packed(S16LE, smallest), ElementsAre(0x00, 0x80));
    EXPECT_THAT(packed(S24LE, largest), ElementsAre(0xFF, 0xFF, 0x7F));
    EXPECT_THAT(packed(S32LE, largest), ElementsAre(0xFF, 0xFF, 0xFF, 0x7F));
}

TEST(SampleLayout, UnpacksWhatItPacked)
{
    for (const PcmFormat format : getAllPcmFormats()) {
        const auto layout = layoutOf(format);
        if (!layout || layout->isFloat) {
            continue;
        }
        std::array<unsigned char, 4> bytes{};
        for (const std::int32_t sample : {0, 0x12340000, -0x12340000, 0x7FFF0000, smallest}) {
            packInteger(*layout, sample, bytes.data());
            EXPECT_EQ(unpackInteger(*layout, bytes.data()), sample) << toString(format);
        }
    }
}

TEST(SampleLayout, CarriesFloatsUnchanged)
{
    for (const PcmFormat format : {F32LE, F32BE}) {
        std::array<unsigned char, 4> bytes{};
        for (const float sample : {0.0F, 1.0F, -0.3F, 1e-20F, 7.5F}) {
            packFloat(*layoutOf(format), sample, bytes.data());
            EXPECT_EQ(unpackFloat(*layoutOf(format), bytes.data()), sample);
        }
        packFloat(*layoutOf(format), 1.0F, bytes.data());
        EXPECT_EQ(bytes[format == F32LE ? 3 : 0], 0x3F);
    }
}

TEST(SampleLayout, ClipsFloatsAtFullScale)
{
    EXPECT_EQ(toFullRange(0.5), 0x40000000);
    EXPECT_EQ(toFullRange(-1.0), smallest);
    EXPECT_EQ(toFullRange(1.0), largest);
    EXPECT_EQ(toFullRange(7.0), largest);
    EXPECT_EQ(toFullRange(-7.0), smallest);
}
