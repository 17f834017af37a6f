// The player on an ALSA device that misbehaves: what its users suffer from, a scenario each.
//
// The file played is told frame by frame, and so is what the simulated card heard. In every
// scenario no frame is repeated, and none is lost that is not counted in a result or a log line.

#include <algorithm>
#include <cerrno>
#include <limits>
#include <numeric>

#include <alsa/asoundlib.h>

#include "PlayFixture.h"
#include "support/FaultySoundCard.h"

using namespace keldaPlayTest;
using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testSupport::FaultySoundCard;
using testSupport::faultyPcm::Call;

namespace {

constexpr std::uint32_t forEver = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint32_t numFrames = 3 * 48000;
constexpr double edges = 2 * 52; // ms of silence where what fades in and out begins and ends
constexpr double nanosecondsPerFrame = 1e9 / 48000;

class DeviceTest : public PlayTest
{
protected:
    DeviceTest() { createNumberedFrames(file, numFrames); }

    int playOn(const std::string& options, const std::string& preloaded = "")
    {
        return play("--device faulty --trace " + path("t.csv") + " " + options + " " + file,
                    preloaded);
    }

    /// The same as a live stream.
    int playLive(const std::string& options)
    {
        return run("tail -c +45 " + file + " | " + player() +
                   "--device faulty --raw 48000:2:S16LE --trace " + path("t.csv") + " " + options +
                   " - " + kept());
    }

    void vanish()
    {
        waitUntilTaken(72'000);
        card->isGone = true;
        pass(std::chrono::milliseconds(500));
        card->isGone = false;
    }

    /// Plays with the removal of clicks, a file of which every frame is as loud as any.
    void removeClicks()
    {
        clickRemoval.clear();
        writeStereo(file, SF_FORMAT_WAV | SF_FORMAT_PCM_16,
                    std::vector<double>(2 * std::size_t{numFrames}, 0.5));
    }

    /// As the summary has them.
    [[nodiscard]] std::uint64_t unheardFrames() const
    {
        const auto at = out.find(" while the device was gone or failed\n");
        return at == std::string::npos ? 0 : std::stoul(out.substr(out.rfind(' ', at - 1)));
    }

    /// Plays, and does something to the card meanwhile.
    template<typename Function>
    int playWhile(const std::string& options, Function function)
    {
        return doWhile([&] { return playOn(options); }, function);
    }

    /// Until the card has taken so many frames; so is the player's time.
    void waitUntilTaken(std::uint64_t frames)
    {
        EXPECT_TRUE(time.runUntil([&] { return card->framesTaken >= frames; }));
    }

    /// The frames of the file that were heard, in their order, without silence.
    [[nodiscard]] std::vector<std::uint32_t> heard() const
    {
        std::vector<std::uint32_t> frames = card.played<std::uint32_t>();
        std::erase(frames, 0U);
        return frames;
    }

    void expectAllHeard() const
    {
        std::vector<std::uint32_t> all(numFrames);
        std::iota(all.begin(), all.end(), 1U);
        EXPECT_TRUE(heard() == all) << heard().size() << " of " << numFrames;
    }

    /// No frame twice, and none missing that is not counted.
    void expectAllCounted(std::uint64_t unheard = 0) const
    {
        const std::vector<std::uint32_t> frames = heard();
        EXPECT_TRUE(std::adjacent_find(frames.begin(), frames.end(), std::greater_equal<>()) ==
                    frames.end())
            << "repeated";
        std::uint64_t counted = unheard;
        for (const TraceRow& row : trace()) {
            counted += row.skipped;
        }
        const std::uint64_t missing = numFrames - frames.size();
        EXPECT_LE(missing, counted + card->framesDropped) << "lost without a word";
        EXPECT_GE(missing, counted) << "counted, but heard";
    }

    /// By how much the stream is out of step after the last start of the card, in ms, against
    /// before the second one.
    [[nodiscard]] double stepsBetweenRuns() const
    {
        const std::vector<std::uint32_t> frames = card.played<std::uint32_t>();
        const auto startOfStream = [&](std::uint32_t run) {
            const std::uint64_t begin = card->runs[run].playedBefore;
            std::uint64_t at =
                run + 1 < card->numRuns ? card->runs[run + 1].playedBefore.load() : frames.size();
            do {
                --at;
            } while (at > begin && frames[at] == 0);
            EXPECT_GT(at, begin) << "no audio";
            return static_cast<double>(card->runs[run].startTime) +
                   (static_cast<double>(at - begin) - frames[at]) * nanosecondsPerFrame;
        };
        return (startOfStream(card->numRuns - 1) - startOfStream(0)) / 1e6;
    }

    FaultySoundCard card;
    const std::string file = path("numbered.wav");
};

} // namespace

TEST_F(DeviceTest, PlaysEveryFrameOnce)
{
    ASSERT_EQ(playOn(patient + "--channel-map 'FL FR' --no-rate-resample"), 0) << err;
    expectAllHeard();
    EXPECT_THAT(err, IsEmpty());
    EXPECT_THAT(out, StartsWith("faulty: 48000 Hz, 2 channels, S16LE, period 480, buffer 24000, "
                                "start 24000 frames\n"));
    EXPECT_THAT(out, Not(HasSubstr("obtained")));
    EXPECT_EQ(card->numChannelsMapped, 2U);
}

TEST_F(DeviceTest, IsNotOpenedForAWrongChannelMap)
{
    EXPECT_EQ(playOn("--channel-map 'FOO BAR'"), 2);
    EXPECT_THAT(err, StartsWith("kelda-play: --channel-map: no map of speakers: FOO BAR, known are "
                                "MONO FL FR "));
    EXPECT_EQ(playOn("--channel-map 'FL FR LFE'"), 2);
    EXPECT_EQ(err,
              "kelda-play: --channel-map FL FR LFE is for 3 channels, but the device gets 2\n");
    EXPECT_EQ(card->numRuns, 0U);
}

TEST_F(DeviceTest, PassesOnWhetherAlsaMayResample)
{
    ASSERT_EQ(playOn("--no-rate-resample --duration 0.1", FaultySoundCard::library), 0) << err;
    EXPECT_EQ(card.value(Call::snd_pcm_hw_params_set_rate_resample), 0);
    ASSERT_EQ(playOn("--duration 0.1", FaultySoundCard::library), 0) << err;
    EXPECT_EQ(card.value(Call::snd_pcm_hw_params_set_rate_resample), 1);
}

TEST_F(DeviceTest, SurvivesADelayThatMovesOnceAPeriod)
{
    card->granularity = 480;
    ASSERT_EQ(playOn(patient), 0) << err;
    expectAllHeard();
}

TEST_F(DeviceTest, SurvivesADelayThatJumps)
{
    const int status = playWhile("--period 480 --buffer 24000", [this] {
        for (const int milliseconds : {5, -5, 100, 0, -100, 0}) {
            waitUntilTaken(card->framesTaken + 20'000);
            card->delayOffset = milliseconds * 48;
        }
    });
    EXPECT_EQ(status, heard().size() == numFrames ? 0 : 4) << err;
    expectAllCounted();
    EXPECT_GT(heard().size(), numFrames / 2);
}

TEST_F(DeviceTest, SurvivesADelayBelowZero)
{
    card->delayOffset = -48'000;
    ASSERT_EQ(playOn(patient), 0) << err;
    expectAllHeard();
}

// Asked for it directly, the device tells a negative delay as one of many hours.
TEST_F(DeviceTest, SurvivesADelayBelowZeroWithoutTimestamps)
{
    card->delayOffset = -48'000;
    card->zeroTimestamps = forEver;
    ASSERT_EQ(playOn(patient, FaultySoundCard::library), 0) << err;
    expectAllHeard();
}

TEST_F(DeviceTest, SurvivesFirstPeriodsWithoutTimestamps)
{
    card->zeroTimestamps = 50;
    ASSERT_EQ(playOn(patient, FaultySoundCard::library), 0) << err;
    expectAllHeard();
    EXPECT_EQ(card->zeroTimestamps, 0U);
}

TEST_F(DeviceTest, SurvivesForEverWithoutTimestamps)
{
    card->zeroTimestamps = forEver;
    ASSERT_EQ(playOn(patient, FaultySoundCard::library), 0) << err;
    expectAllHeard();
    EXPECT_THAT(err, HasSubstr("WARN  AudioUtils: ALSA did not return a valid timestamp\n"));
}

TEST_F(DeviceTest, IsBackInStepAfterUnderruns)
{
    card->fault = -EPIPE;
    card->faultAtFrame = 80'000;
    card->faultEvery = 5'000; // again, before it is full
    card->faultRepeats = 5;
    ASSERT_EQ(playOn("--period 480 --buffer 24000 --start-threshold 12000"), 4) << err;
    expectAllCounted();
    EXPECT_THAT(out, HasSubstr(", 6 underruns"));
    std::uint64_t counted = 0;
    for (const TraceRow& row : trace()) {
        counted += row.skipped + row.dropped;
    }
    EXPECT_NEAR(static_cast<double>(counted), static_cast<double>(numFrames - heard().size()),
                6 * 480)
        << "what the card held when it failed";
    EXPECT_NEAR(stepsBetweenRuns(), 0, 1) << "ms";
}

TEST_F(DeviceTest, IsBackInStepAfterAStall)
{
    const auto stall = [this] {
        waitUntilTaken(72'000);
        time.leap(std::chrono::milliseconds(400));
    };
    EXPECT_EQ(playWhile("", stall), 4) << err;
    expectAllCounted();
    EXPECT_GE(card->underruns, 1U);
    EXPECT_THAT(out, Not(HasSubstr(", 0 underruns\n")));
    EXPECT_NEAR(stepsBetweenRuns(), 0, 1) << "ms";
}

TEST_F(DeviceTest, WritesARepeatedErrorOnceInAWhile)
{
    card.setResult(Call::snd_pcm_status, -EIO);
    ASSERT_EQ(playOn(patient, FaultySoundCard::library), 0) << err;
    expectAllHeard();
    EXPECT_GT(card.count(Call::snd_pcm_status), 100U);
    EXPECT_LE(numLines(err), 2U) << err;
    EXPECT_THAT(err, ContainsRegex("Failed to get pcm status, clear last rendering delay \\(and "
                                   "[0-9]+ times more\\)\n$"));
}

TEST_F(DeviceTest, TellsWhichGeometryItObtained)
{
    card->onlyPeriod = 1024;
    card->onlyBuffer = 16384;
    ASSERT_EQ(playOn(patient), 0) << err;
    expectAllHeard();
    EXPECT_THAT(out, StartsWith("faulty: 48000 Hz, 2 channels, S16LE, period 1024, buffer 16384, "
                                "start 16384 frames\n"
                                "obtained      period 1024 instead of 480, buffer 16384 instead of "
                                "24000, start 16384 instead of 24000 frames\n"));
}

TEST_F(DeviceTest, PlaysOnACardThatKnowsOneFormat)
{
    card->onlyFormat = SND_PCM_FORMAT_S32_LE + 1;
    EXPECT_EQ(playOn("--format S16LE"), 3);
    EXPECT_EQ(err, "kelda-play: device faulty does not take S16LE, but S32LE\n");
    ASSERT_EQ(playOn(patient), 0) << err;
    EXPECT_THAT(out, HasSubstr("changed       format S32LE instead of S16LE\n"));
    std::vector<std::int32_t> samples = card.played<std::int32_t>();
    std::vector<std::int32_t> expected;
    for (std::uint32_t frame = 1; frame <= numFrames; ++frame) {
        expected.push_back(static_cast<std::int32_t>(frame << 16));
        expected.push_back(static_cast<std::int32_t>(frame & 0xFFFF0000U));
    }
    const auto first = std::find(samples.begin(), samples.end(), 1 << 16);
    ASSERT_GE(samples.end() - first, 2 * static_cast<std::ptrdiff_t>(numFrames));
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), first));
}

// 24 bits stand in 3 bytes or at the low end of 4: mixed up, they are noise.
TEST_F(DeviceTest, Plays24BitsInEitherWidth)
{
    createSound(path("24.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 4800);
    const Sound sound = load(path("24.wav"));
    for (const std::size_t bytes : {3U, 4U}) {
        std::filesystem::remove(card.folder() / "played.raw");
        ASSERT_EQ(play("--device faulty" + patient + "--format " +
                       (bytes == 3 ? "S24LE " : "S24_32LE ") + path("24.wav")),
                  0)
            << err;
        const std::vector<unsigned char> played = card.played<unsigned char>();
        std::vector<double> samples;
        for (std::size_t at = 0; at + bytes <= played.size(); at += bytes) {
            const std::uint32_t value = played[at] | std::uint32_t{played[at + 1]} << 8 |
                                        std::uint32_t{played[at + 2]} << 16;
            samples.push_back(static_cast<std::int32_t>(value << 8) / 2147483648.0);
            if (bytes == 4) {
                EXPECT_EQ(played[at + 3], (value & 0x800000U) != 0 ? 0xFF : 0);
            }
        }
        const auto first =
            std::find_if(samples.begin(), samples.end(), [](double sample) { return sample != 0; });
        ASSERT_GE(static_cast<std::size_t>(samples.end() - first), sound.samples.size());
        EXPECT_TRUE(std::equal(sound.samples.begin(), sound.samples.end(), first)) << bytes;
    }
}

TEST_F(DeviceTest, HearsAFileFromItsFirstFrameOnACardThatStartsSlowly)
{
    for (const std::string options : {"", " --start-threshold 480"}) {
        card->slowStarts = 1500;
        ASSERT_EQ(playOn(options), 0) << err;
        expectAllHeard();
        EXPECT_THAT(out, ContainsRegex("\nmoved         1\\.[2-6][0-9]* s later than planned"));
        for (const TraceRow& row : trace()) {
            EXPECT_GE(row.delay, 0);
            EXPECT_LE(row.delay, 100'000'000) << "no more than it holds";
        }
        card.renew();
        std::filesystem::remove(card.folder() / "played.raw");
    }
}

TEST_F(DeviceTest, SaysWhatALiveStreamLosesOnACardThatStartsSlowly)
{
    card->slowStarts = 1500;
    EXPECT_EQ(playLive(""), 4) << err;
    const std::size_t lost = numFrames - heard().size();
    EXPECT_GT(lost, 12'000U) << "of what the queue held";
    EXPECT_THAT(err, HasSubstr("kelda-play: " + std::to_string(lost) + " frames were not heard: "));
    EXPECT_THAT(out, Not(HasSubstr("moved ")));
}

TEST_F(DeviceTest, WaitsForADeviceThatVanishesAndGoesOnWhereItWas)
{
    EXPECT_EQ(playWhile("", [this] { vanish(); }), 4) << err;
    EXPECT_EQ(card->opens, 3U) << "to be asked, and twice to play";
    EXPECT_THAT(err, HasSubstr("WARN  kelda-play: The device is gone; the stream waits until it is "
                               "back\n"));
    EXPECT_THAT(err, ContainsRegex("WARN  kelda-play: The device is back after [0-9]+ ms\n"));
    EXPECT_THAT(err, EndsWith(" while the device was gone or failed\n"));
    EXPECT_LE(numLines(err), 7U) << err;
    EXPECT_THAT(out, ContainsRegex("\nmoved         0\\.[5-9][0-9]* s later than planned"));

    // What it held, and the block that it was given then; nothing after it.
    const std::vector<std::uint32_t> frames = heard();
    const auto cut =
        std::adjacent_find(frames.begin(), frames.end(), [](auto a, auto b) { return b != a + 1; });
    ASSERT_NE(cut, frames.end());
    const std::uint32_t lost = *std::next(cut) - *cut - 1;
    EXPECT_EQ(frames.size(), numFrames - lost) << "one cut";
    EXPECT_EQ(frames.back(), numFrames);
    EXPECT_LE(lost, 3840U + 480U);
    EXPECT_NEAR(static_cast<double>(unheardFrames()), lost, 96) << "2 ms, as a position is known";
}

TEST_F(DeviceTest, ALiveStreamGoesOnUnheardAndIsInStepWhenTheDeviceIsBack)
{
    EXPECT_EQ(doWhile([this] { return playLive(""); }, [this] { vanish(); }), 4) << err;
    EXPECT_THAT(err, HasSubstr("WARN  kelda-play: The device is gone; the stream goes on unheard "
                               "until it is back\n"));
    // It is tried again after 0.1, 0.3 and 0.7 s.
    EXPECT_NEAR(static_cast<double>(unheardFrames()), 0.7 * 48'000, 2 * 480);
    const std::vector<std::uint32_t> frames = heard();
    EXPECT_EQ(std::adjacent_find(frames.begin(), frames.end(), std::greater_equal<>()),
              frames.end())
        << "repeated";
    EXPECT_NEAR(stepsBetweenRuns(), 0, 1) << "ms";
    EXPECT_GT(frames.back(), numFrames - 10);
}

// As a sound server that has died: it can be opened and repaired, but nothing can be written.
TEST_F(DeviceTest, WaitsForADeviceThatTakesNothingMoreAndGoesOnWhereItWas)
{
    card->faultRepeats = forEver;
    const auto takeNothing = [this] {
        waitUntilTaken(48'000);
        card->fault = -EPIPE;
        pass(std::chrono::milliseconds(500));
        card->fault = 0;
    };
    EXPECT_EQ(playWhile("--log-level info" + patient, takeNothing), 4) << err;
    EXPECT_THAT(err, HasSubstr("ERROR AudioUtils: Device accepts no frames after 100 recoveries"));
    EXPECT_THAT(err, HasSubstr("WARN  kelda-play: The device is gone; "));
    EXPECT_THAT(err, ContainsRegex("WARN  kelda-play: The device is back after [0-9]+ ms\n"));
    EXPECT_LE(numOccurrences(err, "underrun occurred"), 100U * (card->opens - 2))
        << "tried again without a rest";
    EXPECT_GT(card->opens, 3U) << "opened, and took nothing";
    const std::vector<TraceRow> rows = trace();
    EXPECT_EQ(std::ranges::count_if(
                  rows, [](const TraceRow& row) { return row.heard == 0 && row.data() > 0; }),
              1)
        << "an attempt has cost a block of the file";
    EXPECT_NEAR(static_cast<double>(unheardFrames()),
                static_cast<double>(numFrames - heard().size()), 96);
    EXPECT_EQ(heard().back(), numFrames);
}

TEST_F(DeviceTest, TriesADeviceThatTakesNothingLessAndLessOftenAndEndsOnCtrlC)
{
    card->fault = -EPIPE;
    card->faultRepeats = forEver;
    EXPECT_EQ(interrupt("--loop --device faulty " + file, SIGINT), 3) << err;
    EXPECT_THAT(err, EndsWith("kelda-play: device faulty has not come back\n"));
    EXPECT_EQ(numOccurrences(err, "The device is gone"), 1U) << err;
    EXPECT_THAT(err, Not(HasSubstr("The device is back"))) << "nothing was heard";
    EXPECT_EQ(card->framesTaken, 0U);
    EXPECT_LE(card->opens, 10U) << "to be asked; at 0, 0.1, 0.3, 0.7, 1.5 s ...";
}

TEST_F(DeviceTest, EndsWhenTheDeviceNeverComesBack)
{
    EXPECT_EQ(playWhile("--wait 0.5",
                        [this] {
                            waitUntilTaken(48'000);
                            card->isGone = true;
                        }),
              3);
    EXPECT_THAT(err, EndsWith("kelda-play: device faulty has not come back\n"));
    EXPECT_LE(numLines(err), 6U) << err;
}

TEST_F(DeviceTest, SaysWhatTheDeviceDidNotPlayToItsEnd)
{
    card.setResult(Call::snd_pcm_drain, -EIO);
    EXPECT_EQ(playOn(patient, FaultySoundCard::library), 4) << err;
    const std::size_t lost = numFrames - heard().size();
    EXPECT_GT(lost, 20'000U);
    EXPECT_NEAR(static_cast<double>(unheardFrames()), static_cast<double>(lost), 960);
}

// A device that always tells a delay below zero has not run dry at each block.
TEST_F(DeviceTest, HearsAllOnADeviceWhoseDelayIsAlwaysBelowZeroWithClicksRemoved)
{
    removeClicks();
    card->delayOffset = -48'000;
    ASSERT_EQ(playOn(patient), 0) << err;
    EXPECT_NEAR(static_cast<double>(heard().size()), numFrames, edges);
}

TEST_F(DeviceTest, TellsInOneLineThatThereIsNoSuchDevice)
{
    EXPECT_EQ(play("--device nowhere " + file), 3);
    EXPECT_THAT(err, EndsWith("\nkelda-play: device nowhere can't be opened\n"));
    EXPECT_THAT(err, HasSubstr("ERROR AudioUtils: Failed to ask ALSA output device \"nowhere\" "
                               "for its capabilities: No such file or directory\n"));
    EXPECT_EQ(numLines(err), 2U) << err;
    EXPECT_THAT(out, IsEmpty());
}
