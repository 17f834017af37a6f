// What the player makes of starts, ends and gaps.

#include <algorithm>
#include <cmath>

#include "ClickFilter.h"
#include "PlayFixture.h"

using namespace keldaPlayTest;
using testing::Each;
using testing::HasSubstr;

namespace {

/// Stereo of one value throughout: every edge of it is as hard as can be.
void createDirectCurrent(const std::string& path, int format, std::size_t frames)
{
    writeStereo(path, format, std::vector<double>(frames * 2, 0.5));
}

double largestStep(const std::vector<double>& samples)
{
    double largest = 0;
    for (std::size_t i = 2; i < samples.size(); ++i) {
        largest = std::max(largest, std::abs(samples[i] - samples[i - 2]));
    }
    return largest;
}

class ClickTest : public PlayTest
{
protected:
    ClickTest() { clickRemoval = ""; }
};

} // namespace

// Of every sample format there is: those that the remover takes, and those that it does not.
TEST_F(ClickTest, NothingJumpsAtStartsEndsAndGaps)
{
    createDirectCurrent(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 48000);
    for (const char* format : {"S16LE", "S24LE", "S24_32LE", "S32LE", "F32LE", "S16BE", "S32BE"}) {
        ASSERT_EQ(play(std::string("--gap 0.4:200 --format ") + format + patient + outputs() +
                       path("a.wav")),
                  0)
            << err;
        const Sound sound = load(path("r.wav"));
        EXPECT_NEAR(*std::ranges::max_element(sound.samples), 0.5, 1e-4) << format;
        // A fade of 5 ms rises by pi / 480 of its height at most.
        EXPECT_LT(largestStep(sound.samples), 0.5 * 3.2 / 480 + 1e-4) << format;
        EXPECT_EQ(sound.samples.back(), 0) << format;
    }
}

TEST_F(ClickTest, AreLeftWhenAskedTo)
{
    createDirectCurrent(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 24000);
    ASSERT_EQ(play("--no-click-removal " + patient + outputs() + path("a.wav")), 0);
    EXPECT_EQ(largestStep(load(path("r.wav")).samples), 0.5);
}

TEST_F(ClickTest, TheReportHasPicturesOfBothSounds)
{
    createDirectCurrent(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000);
    ASSERT_EQ(play(patient + "--report " + path("report") + " " + path("a.wav")), 0) << err;
    const std::string page = read("report/index.html");
    EXPECT_THAT(page, HasSubstr("What was read from the queue"));
    EXPECT_THAT(page, HasSubstr("What was played, clicks removed"));
    EXPECT_THAT(page, HasSubstr("data:image/png;base64,iVBOR"));
}

// Where two pieces that do not belong together meet, the one is faded out and the other in.
TEST(ClickFilterTest, FadesAroundAnInterruption)
{
    constexpr keldaPlay::FrameLayout mono{{4, 32, true, false}, 1};
    keldaPlay::ClickFilter filter({}, mono, 48000);
    std::vector<float> out;
    for (int block = 0; block < 20; ++block) {
        std::vector<float> samples(480, block < 10 ? 0.5F : -0.5F);
        if (block == 10) {
            filter.interrupt(0);
        }
        filter.process({reinterpret_cast<unsigned char*>(samples.data()), 480 * sizeof(float)});
        out.insert(out.end(), samples.begin(), samples.end());
    }
    double largest = 0;
    for (std::size_t i = 1; i < out.size(); ++i) {
        largest = std::max(largest, std::abs(static_cast<double>(out[i] - out[i - 1])));
    }
    EXPECT_LT(largest, 0.5 * 3.2 / 480);
    EXPECT_EQ(filter.delayFrames(), 16U * 48);
    // Silent from where they meet on, for the gap and the margin.
    const auto meeting = out.begin() + 4800 + 16 * 48;
    EXPECT_THAT(std::vector<float>(meeting, meeting + 11 * 48), Each(0.0F));
    EXPECT_EQ(*(meeting - 6 * 48 - 1), 0.5F);
    EXPECT_EQ(*(meeting + 17 * 48), -0.5F);
}

// A remover is renewed after hours, which nobody must hear: here after half a second.
TEST(ClickFilterTest, IsRenewedUnheard)
{
    constexpr keldaPlay::FrameLayout mono{{4, 32, true, false}, 1};
    keldaPlay::ClickFilter renewed({}, mono, 48000, 24000);
    keldaPlay::ClickFilter old({}, mono, 48000);
    unsigned int random = 1;
    for (int block = 0; block < 2000; ++block) {
        std::vector<float> a(480);
        for (std::size_t i = 0; i < a.size(); ++i) {
            const bool loud = block % 37 > 5 || (block % 37 == 5 && i > 200);
            a[i] =
                loud ? 0.5F + 0.001F * static_cast<float>((block * 480 + static_cast<int>(i)) % 97)
                     : 0;
        }
        std::vector<float> b = a;
        random = random * 1664525U + 1013904223U;
        if (random % 50 == 0) {
            renewed.interrupt(random % 480);
            old.interrupt(random % 480);
        }
        renewed.process({reinterpret_cast<unsigned char*>(a.data()), 480 * sizeof(float)});
        old.process({reinterpret_cast<unsigned char*>(b.data()), 480 * sizeof(float)});
        ASSERT_EQ(a, b) << block;
    }
}

TEST(ClickFilterTest, FadesOutWhatIsFlushed)
{
    constexpr keldaPlay::FrameLayout mono{{4, 32, true, false}, 1};
    keldaPlay::ClickFilter filter({}, mono, 48000);
    std::vector<float> samples(4800, 0.5F);
    filter.process({reinterpret_cast<unsigned char*>(samples.data()), 4800 * sizeof(float)});
    const auto rest = filter.flush();
    ASSERT_EQ(rest.size() / sizeof(float), filter.delayFrames());
    const auto* last = reinterpret_cast<const float*>(rest.data()) + filter.delayFrames();
    EXPECT_THAT(std::vector<float>(last - 49, last), Each(0.0F)) << "the margin";
    EXPECT_GT(*(last - 52), 0.0F);
    EXPECT_EQ(*(last - 6 * 48 - 1), 0.5F);
    EXPECT_TRUE(filter.flush().empty());
}
