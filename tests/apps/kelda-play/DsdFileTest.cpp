// What is read of DSF and DSDIFF files, whole and damaged.

#include <cstring>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <unistd.h>

#include "Dop.h"
#include "Source.h"
#include "support/DsdFiles.h"

using namespace keldaPlay;
using namespace testSupport;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// Where the fields of dsfFile()'s headers are.
constexpr std::size_t dsfSizeOfFormat = 28 + 4;
constexpr std::size_t dsfFormatId = 28 + 16;
constexpr std::size_t dsfChannels = 28 + 24;
constexpr std::size_t dsfBitrate = 28 + 28;
constexpr std::size_t dsfBitsPerSample = 28 + 32;
constexpr std::size_t dsfNumBits = 28 + 36;
constexpr std::size_t dsfBlockSize = 28 + 44;
constexpr std::size_t dsfSizeOfData = 80 + 4;
constexpr std::size_t dsfHeaders = 92;

class DsdFileTest : public testing::Test
{
protected:
    ~DsdFileTest() override { std::filesystem::remove(path); }

    [[nodiscard]] std::unique_ptr<Source> open(const std::string& content) const
    {
        std::ofstream(path, std::ios::binary) << content;
        return openSource(path);
    }

    /// Why it is refused, without the path.
    [[nodiscard]] std::string refusal(const std::string& content) const
    {
        try {
            static_cast<void>(open(content));
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), StartsWith(path + ": "));
            return std::string(error.what()).substr(path.size() + 2);
        }
        return "";
    }

    /// The 16 bits of each channel in turn, read in blocks of so many frames.
    static std::vector<std::uint16_t> bitsOf(Source& source, std::size_t block = 1000,
                                             std::size_t numChannels = 0)
    {
        const FrameLayout layout{*layoutOf(audioUtils::S32LE),
                                 numChannels != 0 ? numChannels : source.numChannels()};
        std::vector<unsigned char> frames(block * layout.bytes());
        std::vector<std::uint16_t> bits;
        while (const std::size_t count = source.read(layout, frames)) {
            for (std::size_t i = 0; i < count * layout.numChannels; ++i) {
                const std::int32_t sample = unpackInteger(layout.sample, &frames[4 * i]);
                EXPECT_EQ(dop::markerOf(sample), 0x05);
                EXPECT_EQ(sample & 0xFF, 0);
                bits.push_back(dop::bitsOf(sample));
            }
        }
        return bits;
    }

    /// How many frames there are of a numbered sound, all in their order.
    static std::uint32_t framesOf(Source& source, std::size_t block = 1000)
    {
        const std::vector<std::uint16_t> bits = bitsOf(source, block);
        for (std::uint32_t i = 0; i < bits.size() / 2; ++i) {
            EXPECT_EQ(numberOfBits(std::uint32_t{bits[2 * i]} << 16 | bits[2 * i + 1]), i + 1);
        }
        return static_cast<std::uint32_t>(bits.size() / 2);
    }

    const std::string path =
        std::filesystem::temp_directory_path() / ("kelda-dsd-test-" + std::to_string(getpid()));
};

void put(std::string& content, std::size_t at, const std::string& field)
{
    content.replace(at, field.size(), field);
}

std::string dsf(std::uint32_t numFrames = 5000)
{
    return dsfFile(numberedDsd(numFrames), BitOrder::OldestLowest);
}

/// With one field of its header changed.
std::string dsfWith(std::size_t at, std::uint64_t value, int numBytes)
{
    std::string content = dsf();
    put(content, at, detail::littleEndian(value, numBytes));
    return content;
}

/// With what follows a name changed.
std::string dffWith(const std::string& name, std::size_t offset, const std::string& field)
{
    std::string content = dffFile(numberedDsd(100));
    put(content, content.find(name) + offset, field);
    return content;
}

} // namespace

TEST_F(DsdFileTest, EveryKindHoldsTheSameSamples)
{
    const DsdSound sound = numberedDsd(5000);
    for (const std::string& content : {dsfFile(sound, BitOrder::OldestLowest),
                                       dsfFile(sound, BitOrder::OldestHighest), dffFile(sound)}) {
        const auto source = open(content);
        EXPECT_EQ(source->rate(), 176'400U);
        EXPECT_EQ(source->numChannels(), 2U);
        EXPECT_EQ(source->name(), path);
        EXPECT_TRUE(source->dsd() == audioUtils::DsdAudioInfo(2'822'400, 2, audioUtils::DSDU8));
        EXPECT_EQ(framesOf(*source), 5000U);
        source->rewind();
        EXPECT_EQ(framesOf(*source, 7), 5000U) << "again, in other pieces";
    }
}

TEST_F(DsdFileTest, AllRatesFromDsd64ToDsd512AndNoOthers)
{
    DsdSound sound = numberedDsd(10);
    for (const std::uint32_t base : {44'100U, 48'000U}) {
        for (const std::uint32_t multiple : {64U, 128U, 256U, 512U}) {
            sound.bitrate = base * multiple;
            EXPECT_EQ(open(dsfFile(sound, BitOrder::OldestHighest))->rate(), sound.bitrate / 16);
            EXPECT_EQ(open(dffFile(sound))->rate(), sound.bitrate / 16);
        }
    }
    for (const std::uint32_t bitrate : {0U, 44'100U, 1'411'200U, 2'822'401U, 0xFFFFFFFFU}) {
        sound.bitrate = bitrate;
        const std::string reason = "has " + std::to_string(bitrate) +
                                   " one-bit samples a second, which is none of DSD64 to DSD512";
        EXPECT_EQ(refusal(dsfFile(sound, BitOrder::OldestLowest)), reason);
        EXPECT_EQ(refusal(dffFile(sound)), reason);
    }
}

TEST_F(DsdFileTest, WhatTheLastFrameLacksIsIdle)
{
    DsdSound sound;
    sound.channels = {std::string(4, '\xFF')};
    for (const auto& [numBits, last] :
         {std::pair(17U, 0b1110'1001'0110'1001), std::pair(24U, 0xFF69),
          std::pair(29U, 0b1111'1111'1111'1001), std::pair(32U, 0xFFFF)}) {
        sound.numBits = numBits;
        const auto source = open(dsfFile(sound, BitOrder::OldestLowest));
        EXPECT_EQ(bitsOf(*source),
                  (std::vector<std::uint16_t>{0xFFFF, static_cast<std::uint16_t>(last)}))
            << numBits;
        EXPECT_EQ(bitsOf(*source, 1), std::vector<std::uint16_t>()) << "at the end";
    }
    sound.channels = {std::string(3, '\xFF')};
    EXPECT_EQ(bitsOf(*open(dffFile(sound))), (std::vector<std::uint16_t>{0xFFFF, 0xFF69}));
}

TEST_F(DsdFileTest, AFileWithoutSamplesIsEmpty)
{
    DsdSound sound;
    sound.channels = {"", ""};
    EXPECT_EQ(framesOf(*open(dsfFile(sound, BitOrder::OldestLowest))), 0U);
    EXPECT_EQ(framesOf(*open(dffFile(sound))), 0U);
}

TEST_F(DsdFileTest, ChannelsStayWhereTheyAreAndNewOnesAreIdle)
{
    const auto source = open(dsf(1));
    const std::uint32_t bits = numberedBits(1);
    const auto left = static_cast<std::uint16_t>(bits >> 16);
    const auto right = static_cast<std::uint16_t>(bits);
    EXPECT_EQ(bitsOf(*source, 1, 3), (std::vector<std::uint16_t>{left, right, 0x6969}));
    source->rewind();
    EXPECT_EQ(bitsOf(*source, 1, 1), std::vector<std::uint16_t>{left});
}

TEST_F(DsdFileTest, ATruncatedFileIsPlayedUpToWhereAllChannelsEnd)
{
    const std::string complete = dsf(5000); // 10000 bytes a channel, in blocks of 4096
    const auto framesIn = [&](std::size_t bytes) {
        return framesOf(*open(complete.substr(0, dsfHeaders + bytes)));
    };
    EXPECT_EQ(framesIn(2 * 4096), 2048U);
    EXPECT_EQ(framesIn(3 * 4096), 2048U) << "the second channel has no more";
    EXPECT_EQ(framesIn(3 * 4096 + 200), 2148U);
    EXPECT_EQ(framesIn(4096), 0U);
    EXPECT_EQ(framesIn(0), 0U);

    const std::string dff = dffFile(numberedDsd(5000));
    const std::size_t data = dff.rfind("DSD ") + 12;
    EXPECT_EQ(framesOf(*open(dff.substr(0, data + 400))), 100U);
    EXPECT_EQ(framesOf(*open(dff.substr(0, data))), 0U);
}

TEST_F(DsdFileTest, SizesBeyondAllMeasureEndAtTheEndOfTheFile)
{
    constexpr std::uint64_t huge = 0xFFFF'FFFF'FFFF'FFFF;
    std::string content = dsfWith(dsfNumBits, huge, 8);
    content.resize(dsfHeaders + 2 * 4096);
    for (const std::uint64_t size : {huge, huge >> 1, std::uint64_t{1} << 40}) {
        put(content, dsfSizeOfData, detail::littleEndian(size, 8));
        EXPECT_EQ(framesOf(*open(content)), 2048U);
        std::string dff = dffFile(numberedDsd(100));
        const std::size_t chunk = dff.rfind("DSD ");
        put(dff, chunk + 4, detail::bigEndian(size, 8));
        EXPECT_EQ(framesOf(*open(dff.substr(0, chunk + 12 + 400))), 100U);
    }
}

TEST_F(DsdFileTest, ADamagedDsfFileIsRefusedWithTheReason)
{
    EXPECT_EQ(refusal(dsfWith(dsfChannels, 0, 4)), "has 0 channels instead of 1 to 32");
    EXPECT_EQ(refusal(dsfWith(dsfChannels, 0x80000002, 4)),
              "has 2147483650 channels instead of 1 to 32");
    EXPECT_EQ(refusal(dsfWith(dsfBitrate, 48'000, 4)),
              "has 48000 one-bit samples a second, which is none of DSD64 to DSD512");
    EXPECT_EQ(refusal(dsfWith(dsfFormatId, 1, 4)), "holds format 1, which is no plain DSD");
    EXPECT_EQ(refusal(dsfWith(dsfBitsPerSample, 16, 4)), "has 16 bits a sample instead of 1 or 8");
    EXPECT_EQ(refusal(dsfWith(dsfBlockSize, 0, 4)), "has blocks of 0 bytes instead of 4096");
    EXPECT_EQ(refusal(dsfWith(dsfSizeOfFormat, 51, 8)), "is damaged: a chunk \"fmt \" of 51 bytes");
    EXPECT_EQ(refusal(dsfWith(dsfSizeOfFormat, 0xFFFF'FFFF'FFFF'FFF0, 8)),
              "is damaged: a chunk \"fmt \" of 18446744073709551600 bytes");
    EXPECT_EQ(refusal(dsfWith(dsfSizeOfFormat, 53, 8)),
              "is damaged: no chunk \"data\" where it should be");
    EXPECT_EQ(refusal(dsfWith(dsfSizeOfData, 11, 8)), "is damaged: a chunk \"data\" of 11 bytes");
    for (std::size_t size = 4; size < dsfHeaders; ++size) {
        EXPECT_NE(refusal(dsf().substr(0, size)), "") << size;
    }
}

TEST_F(DsdFileTest, ADamagedDsdiffFileIsRefusedWithTheReason)
{
    const DsdSound sound = numberedDsd(100);
    EXPECT_EQ(refusal(dffFile(sound, "DST ")), "is compressed (DST), which can't be played");
    EXPECT_EQ(refusal(dffWith("CMPR", 12, "ABCD")), "is compressed (ABCD), which can't be played");
    EXPECT_EQ(refusal(dffWith("FS  ", 0, "XX  ")),
              "has 0 one-bit samples a second, which is none of DSD64 to DSD512");
    EXPECT_EQ(refusal(dffWith("PROP", 0, "XXXX")),
              "has 0 one-bit samples a second, which is none of DSD64 to DSD512");
    EXPECT_EQ(refusal(dffWith("SND ", 0, "XXXX")),
              "has 0 one-bit samples a second, which is none of DSD64 to DSD512");
    EXPECT_EQ(refusal(dffWith("CHNL", 12, "\xFF\xFF")), "has 65535 channels instead of 1 to 32");
    EXPECT_EQ(refusal(dffWith("COMT", 4, std::string(8, '\xFF'))),
              "is damaged: a chunk \"COMT\" of 18446744073709551615 bytes");
    EXPECT_EQ(refusal(dffWith("COMT", 0, "\x01\x02\x03\x04")),
              "is damaged: no chunk where one should be");
    EXPECT_EQ(refusal(dffWith("FRM8", 12, "AIFF")), "is no DSDIFF file");
    const std::string content = dffFile(sound);
    for (std::size_t size = 4; size < content.rfind("DSD ") + 12; ++size) {
        EXPECT_NE(refusal(content.substr(0, size)), "") << size;
    }
}

TEST_F(DsdFileTest, AFileThatShrinksMeanwhileIsToldAbout)
{
    const auto source = open(dsf());
    std::filesystem::resize_file(path, dsfHeaders + 100);
    try {
        framesOf(*source);
        FAIL() << "nothing was told";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), path + ": can't be read");
    }
}
