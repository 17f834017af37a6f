// Sample rates that are converted on the way: by the player, and by kelda-resample.

#include <cmath>

#include "PlayFixture.h"
#include "support/FaultySoundCard.h"
#include "support/Sine.h"

using namespace keldaPlayTest;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testSupport::FaultySoundCard;
using testSupport::SineFit;

namespace {

/// Stereo, 1 kHz, the right channel the negative of the left.
void createSine(const std::string& path, int rate, sf_count_t frames, int format)
{
    std::vector<double> samples;
    for (sf_count_t i = 0; i < frames; ++i) {
        const double sample = 0.7 * std::sin(2 * M_PI * 1000 * static_cast<double>(i) / rate);
        samples.insert(samples.end(), {sample, -sample});
    }
    writeStereo(path, format, samples, rate);
}

std::vector<double> channel(const Sound& sound, std::size_t number)
{
    std::vector<double> samples;
    for (std::size_t i = number; i < sound.samples.size();
         i += static_cast<std::size_t>(sound.info.channels)) {
        samples.push_back(sound.samples[i]);
    }
    return samples;
}

class RateConversionTest : public PlayTest
{
protected:
    int resample(const std::string& arguments)
    {
        const std::string command = KELDA_RESAMPLE " " + arguments + " >" + path("out") + " 2>" +
                                    path("err") + " </dev/null";
        return finish(std::system(command.c_str()));
    }

    /// @param snr at least, in dB
    void convertToTheRateOfTheCard(const std::string& options, double gain, double snr)
    {
        FaultySoundCard card;
        card->onlyRate = 48000;
        createSine(path("a.wav"), 44100, 2 * 44100, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
        ASSERT_EQ(play("--device faulty" + patient + options + path("a.wav")), 0) << err;
        EXPECT_THAT(out, HasSubstr("changed       48000 Hz instead of 44100\n"));
        EXPECT_THAT(out, HasSubstr("played        2.000 s in "));
        EXPECT_THAT(out, HasSubstr("0 frames skipped, 0 missing, 0 underruns\n"));
        const std::vector<short> played = card.played<short>();
        std::vector<double> left;
        for (std::size_t i = 0; i < played.size(); i += 2) {
            left.push_back(played[i] / 32768.0);
        }
        const auto loud = [](double sample) { return std::abs(sample) > 0.01; };
        const auto first = std::find_if(left.begin(), left.end(), loud);
        const auto last = std::find_if(left.rbegin(), left.rend(), loud).base();
        EXPECT_NEAR(static_cast<double>(last - first), 96'000, 20) << "2 s, the end too";
        left = std::vector<double>(first + 1000, last - 1000);
        const SineFit sine(left, 1000.0 / 48000);
        EXPECT_NEAR(sine.amplitude, 0.7 * gain, 0.001);
        EXPECT_GT(sine.snr, snr) << "dB";
    }
};

} // namespace

TEST_F(RateConversionTest, PlayerConvertsToTheRateOfTheCard)
{
    convertToTheRateOfTheCard("--quality best ", 0.8912509, 80);
    convertToTheRateOfTheCard("--resampler short --quality high ", 1, 60);
}

TEST_F(RateConversionTest, PlayerConvertsWithGStreamer)
{
    convertToTheRateOfTheCard("--resampler gstreamer ", 0.944060876, 80);
}

TEST_F(RateConversionTest, PlayerRefusesMoreThanAFactorOf8)
{
    createSine(path("a.wav"), 8000, 100, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    EXPECT_EQ(play("--rate 192000 " + path("a.wav")), 3);
    EXPECT_EQ(err, "kelda-play: no sample rate is converted by more than a factor of 8: 8000 Hz to "
                   "192000 Hz\n");
}

TEST_F(RateConversionTest, PlayerConvertsByAFactorOf8)
{
    for (const auto& [from, to] : {std::pair(384'000, 48'000), std::pair(8'000, 64'000)}) {
        createSine(path("a.wav"), from, from / 2, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
        ASSERT_EQ(play("--rate " + std::to_string(to) + outputs() + path("a.wav")), 0) << err;
        EXPECT_THAT(out, HasSubstr("played        0.500 s in "));
        const std::vector<double> left = channel(load(path("r.wav")), 0);
        const auto loud = [](double sample) { return std::abs(sample) > 0.01; };
        const auto first = std::find_if(left.begin(), left.end(), loud);
        const auto last = std::find_if(left.rbegin(), left.rend(), loud).base();
        EXPECT_NEAR(static_cast<double>(last - first), to / 2.0, 100) << "and a filter's ringing";
        const SineFit sine(std::vector<double>(first + 1000, last - 1000), 1000.0 / to);
        EXPECT_GT(sine.snr, 80) << "dB";
        EXPECT_EQ(play("--resampler short --rate " + std::to_string(to) + " " + path("a.wav")), 2);
        EXPECT_THAT(err, HasSubstr("--resampler short converts by less than a factor of 8"));
        EXPECT_EQ(play("--correct resample --rate " + std::to_string(to) + " " + path("a.wav")), 2);
        EXPECT_THAT(err, HasSubstr("needs room"));
    }
}

TEST_F(RateConversionTest, FilterIsRightToTheFrame)
{
    const struct
    {
        int from;
        int to;
        sf_count_t frames;
        std::size_t expected;
    } cases[] = {
        {44100, 48000, 44100, 48000}, {48000, 44100, 48000, 44100},   {96000, 48000, 96001, 48001},
        {48000, 48000, 1000, 1000},   {44100, 96000, 12'345, 26'874}, {44100, 48000, 7, 8},
        {44100, 48000, 0, 0}};
    for (const auto& [from, to, frames, expected] : cases) {
        createSine(path("a.wav"), from, frames, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
        const std::string arguments =
            path("a.wav") + " " + path("b.wav") + " --rate " + std::to_string(to);
        ASSERT_EQ(resample(arguments), 0) << err;
        EXPECT_THAT(out + err, IsEmpty()) << "no progress without a terminal";
        const Sound sound = load(path("b.wav"));
        EXPECT_EQ(sound.info.samplerate, to);
        ASSERT_EQ(sound.frames(), expected) << from << " to " << to;
        if (frames < 2000) {
            continue;
        }
        for (std::size_t c = 0; c < 2; ++c) {
            const std::vector<double> all = channel(sound, c);
            const std::vector<double> inner(all.begin() + 500, all.end() - 500);
            const SineFit sine(inner, 1000.0 / to);
            EXPECT_NEAR(sine.amplitude, 0.7, 1e-4);
            EXPECT_GT(sine.snr, 110) << "dB";
            // The phase at the first frame: half a turn further in the right channel.
            const double turns =
                sine.phase / (2 * M_PI) - 500.0 * 1000 / to - 0.5 * static_cast<double>(c);
            EXPECT_NEAR(turns - std::round(turns), 0, 1e-5) << "delay in periods of 1 kHz";
        }
    }
}

TEST_F(RateConversionTest, FilterConvertsWithGStreamer)
{
    for (const int to : {48000, 22050, 44100}) {
        createSine(path("a.wav"), 44100, 44100, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
        ASSERT_EQ(resample(path("a.wav") + " " + path("b.wav") + " --resampler gstreamer --rate " +
                           std::to_string(to)),
                  0);
        EXPECT_THAT(out + err, IsEmpty());
        const Sound sound = load(path("b.wav"));
        ASSERT_EQ(sound.frames(), static_cast<std::size_t>(to));
        const std::vector<double> left = channel(sound, 0);
        const SineFit sine(std::vector<double>(left.begin() + 500, left.end() - 500), 1000.0 / to);
        EXPECT_NEAR(sine.amplitude, 0.7, 1e-3);
        EXPECT_GT(sine.snr, 100) << "dB";
    }
}

TEST_F(RateConversionTest, FilterSwingsTheRatioWithoutAClick)
{
    createSine(path("a.wav"), 48000, 5 * 48000, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    ASSERT_EQ(resample(path("a.wav") + " " + path("b.wav") + " --rate 48000 --ratio-sweep 500"), 0)
        << err;
    const Sound sound = load(path("b.wav"));
    ASSERT_EQ(sound.frames(), 5U * 48000);
    const std::vector<double> left = channel(sound, 0);
    const double w = 2 * M_PI * 1000 / 48000;
    for (std::size_t i = 500; i + 2000 < left.size(); ++i) {
        // Any sine of about this frequency satisfies x[i-1] + x[i+1] = 2 cos(w) x[i].
        ASSERT_NEAR(left[i - 1] + left[i + 1], 2 * std::cos(w) * left[i], 2e-5) << i;
    }
}

TEST_F(RateConversionTest, FilterTellsInOneLineWhatIsWrong)
{
    createSine(path("a.wav"), 8000, 100, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    const std::string files = path("a.wav") + " " + path("b.wav") + " ";
    const std::pair<std::string, std::string> cases[] = {
        {"", "IN is required"},
        {files, "--rate is required"},
        {"/nowhere/a.wav " + path("b.wav") + " --rate 48000", "/nowhere/a.wav: "},
        {path("a.wav") + " /nowhere/b.wav --rate 48000", "/nowhere/b.wav: "},
        {files + "--rate 96000", "that is more than a factor of 8"},
        {files + "--rate 48000 --quality worst", "--quality"},
        {files + "--rate 48000 --resampler best", "--resampler"},
        {files + "--rate 64000 --resampler short", "a factor of 8, too much for short"},
        {files + "--rate 64000 --ratio-sweep 1", "that is more than a factor of 8"},
        {files + "--rate 48000 --resampler gstreamer --ratio-sweep 5", "fixed ratios only"},
    };
    for (const auto& [arguments, message] : cases) {
        EXPECT_THAT(resample(arguments), testing::AnyOf(1, 2)) << arguments;
        EXPECT_THAT(err, testing::AllOf(StartsWith("kelda-resample: "), HasSubstr(message),
                                        EndsWith("\n")));
        EXPECT_EQ(numLines(err), 1U) << err;
    }
    EXPECT_EQ(resample("--help"), 0);
    for (const char* option : {"--rate", "--quality", "--ratio-sweep", "--version"}) {
        EXPECT_THAT(out, HasSubstr(option));
    }
}
