// Clocks that differ, and what the player does about it.

#include <cmath>

#include "DriftLoop.h"
#include "PlayFixture.h"
#include "RateConverter.h"
#include "StreamClock.h"
#include "support/FaultySoundCard.h"
#include "support/Sine.h"

using namespace keldaPlayTest;
using keldaPlay::DriftLoop;
using keldaPlay::DriftOptions;
using keldaPlay::RateConverter;
using testing::HasSubstr;
using testSupport::FaultySoundCard;

namespace {

constexpr keldaPlay::FrameLayout monoFloat{{4, 32, true, false}, 1};

class DriftTest : public PlayTest
{
protected:
    /// The mean of the corrections in the second half.
    [[nodiscard]] double meanAdjustment() const
    {
        const std::vector<TraceRow> rows = trace();
        double sum = 0;
        for (std::size_t i = rows.size() / 2; i < rows.size(); ++i) {
            sum += rows[i].adjustment;
        }
        return sum / static_cast<double>(rows.size() - rows.size() / 2);
    }
};

/// Closes the loop around an ideal clock that needs so many ppm.
double errorAfter(DriftLoop& loop, double neededPpm, double seconds, double& errorUs)
{
    static miscUtils::TimeValue now = 1'000'000'000;
    for (int i = 0; i < static_cast<int>(seconds * 100); ++i) {
        now += 10'000'000;
        errorUs += (neededPpm - loop.ppm()) * 0.01;
        loop.update(std::lround(errorUs * 1000), now);
    }
    return errorUs;
}

} // namespace

TEST(DriftLoopTest, LocksWithinSecondsAndHolds)
{
    DriftLoop loop(DriftOptions{});
    double error = 300;
    EXPECT_LT(std::abs(errorAfter(loop, 200, 6, error)), 20);
    EXPECT_LT(std::abs(errorAfter(loop, 200, 60, error)), 2);
    EXPECT_NEAR(loop.ppm(), 200, 0.1);
}

TEST(DriftLoopTest, KeepsTheRateOverAnInterruption)
{
    DriftLoop loop(DriftOptions{});
    double error = 0;
    errorAfter(loop, -300, 60, error);
    loop.interrupt();
    error = 0.5;
    errorAfter(loop, -300, 0.05, error);
    EXPECT_NEAR(loop.ppm(), -300, 2) << "not from 0 again";
    EXPECT_LT(std::abs(errorAfter(loop, -300, 5, error)), 3);
}

TEST(DriftLoopTest, LocksAnewWhenTheClockHasChanged)
{
    DriftLoop loop(DriftOptions{});
    double error = 0;
    errorAfter(loop, 0, 120, error);
    errorAfter(loop, 400, 12, error);
    EXPECT_LT(std::abs(error), 20);
}

TEST(DriftLoopTest, StaysWithinTheLimit)
{
    DriftOptions options;
    options.limitPpm = 50;
    DriftLoop loop(options);
    double error = 0;
    errorAfter(loop, 500, 20, error);
    EXPECT_EQ(loop.ppm(), 50);
    errorAfter(loop, -500, 60, error);
    EXPECT_EQ(loop.ppm(), -50);
}

TEST(StreamClockTest, RunsFasterBySoMuch)
{
    const keldaPlay::StreamClock clock(1'000'000'000, 48000, 100);
    EXPECT_EQ(clock.ptsOf(0), 1'000'000'000U);
    EXPECT_NEAR(static_cast<double>(clock.ptsOf(48000) - 1'000'000'000), 1e9 / 1.0001, 1);
    EXPECT_NEAR(static_cast<double>(clock.ptsOf(48000UL * 86400) - 1'000'000'000), 86400e9 / 1.0001,
                10);
    EXPECT_EQ(keldaPlay::StreamClock(7, 48000).ptsOf(48001), 7 + 1'000'020'833U);
}

// Whatever the corrections, a frame comes out when the converter says, to a part of a frame.
TEST(RateConverterTest, KnowsItsLatencyExactly)
{
    RateConverter converter({}, 48000, 48000, monoFloat);
    constexpr double turns = 0.01; // of the sine, a frame
    std::vector<float> out;
    std::vector<double> expected; // where each block begins in the output
    for (int block = 0; block < 300; ++block) {
        // Every other block asks for a ratio of exactly 1, at which resamplers copy and drop the
        // fraction of their position: the converter has to stay off it.
        converter.adjust(block % 2 == 0 ? 0 : 200 * std::sin(block * 0.1));
        expected.push_back(static_cast<double>(out.size()) + converter.latencyFrames());
        std::vector<float> in(480);
        for (std::size_t i = 0; i < in.size(); ++i) {
            in[i] = static_cast<float>(std::sin(
                2 * M_PI * turns * static_cast<double>(block * 480 + static_cast<int>(i))));
        }
        const auto made = converter.convert(
            {reinterpret_cast<unsigned char*>(in.data()), in.size() * sizeof(float)});
        const auto* samples = reinterpret_cast<const float*>(made.data());
        out.insert(out.end(), samples, samples + made.size() / sizeof(float));
    }
    // The sine's phase at the output frames around each block's beginning.
    for (std::size_t block = 10; block < 290; ++block) {
        const auto first = static_cast<std::ptrdiff_t>(expected[block]);
        const std::vector<double> near(out.begin() + first - 50, out.begin() + first + 50);
        const testSupport::SineFit sine(near, turns);
        const double phase = sine.phase / (2 * M_PI) + turns * 50; // at `first`
        const double want = turns * (480.0 * static_cast<double>(block) -
                                     (expected[block] - static_cast<double>(first)));
        EXPECT_NEAR(std::remainder(phase - want, 1) / turns, 0, 0.02) << "frames, block " << block;
    }
}

TEST_F(DriftTest, TheResamplerFollowsTheSource)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 10 * 48000);
    FaultySoundCard card; // whose delay does not depend on when its writer wakes up
    ASSERT_EQ(play("--device faulty --source-ppm 300 --correct resample" + patient + outputs() +
                   "--report " + path("report") + " " + path("a.wav")),
              0)
        << err;
    EXPECT_NEAR(meanAdjustment(), 300, 30);
    EXPECT_THAT(out, HasSubstr("0 frames skipped, 0 missing, 0 underruns"));
    EXPECT_THAT(read("report/index.html"), HasSubstr("99 % of the time"));
}

TEST_F(DriftTest, TheDevicesRateFollowsTheSource)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 10 * 48000);
    FaultySoundCard card;
    card->crystalPpm = 100;
    ASSERT_EQ(play("--device faulty --source-ppm -200 --correct device --pll 'faulty,Playback "
                   "Pitch 1000000'" +
                   patient + outputs() + path("a.wav")),
              0)
        << err;
    EXPECT_NEAR(meanAdjustment(), -300, 40);
    EXPECT_GT(card->pitchChanges, 10U);
    EXPECT_EQ(card->pitchPpm, 0) << "as it was before";
    EXPECT_THAT(out, HasSubstr("0 frames skipped, 0 missing, 0 underruns"));
}

TEST_F(DriftTest, TellsWhatCannotBeCorrected)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 100);
    FaultySoundCard card;
    const struct
    {
        const char* arguments;
        int status;
        const char* message;
    } cases[] = {{"--correct device ", 2, "--pll"},
                 {"--correct resample --resampler gstreamer ", 2, "fixed ratios"},
                 {"--correct device --pll nothing ", 2, "no CTL,ELEMENT"},
                 {"--correct device --pll faulty,Volume ", 3, "has no element Volume"},
                 {"--correct device --pll nowhere,Volume ", 3, "control nowhere: "},
                 {"--kp 0 ", 2, "--kp"}};
    for (const auto& [arguments, status, message] : cases) {
        EXPECT_EQ(play(arguments + path("a.wav")), status) << arguments;
        EXPECT_THAT(err, HasSubstr(message));
    }
}
