// kelda-play itself, as a user runs it: real files, what it prints and leaves behind.

#include <numeric>

#include "PlayFixture.h"

using namespace keldaPlayTest;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Lt;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

TEST_F(PlayTest, PlaysARecordingFrameForFrame)
{
    ASSERT_EQ(play(patient + outputs() + recording), 0) << err;
    const Sound original = load(recording);
    EXPECT_TRUE(recorded(original.frames()).samples == original.samples);
    EXPECT_THAT(err, IsEmpty());
    EXPECT_THAT(out, StartsWith("fake: 48000 Hz, 1 channel, S16LE, period 480, buffer 24000, "
                                "start 24000 frames\n"));
    EXPECT_THAT(out, HasSubstr("\nplayed        1.428 s in "));
    EXPECT_THAT(out, HasSubstr("\nlost          0 frames skipped, 0 missing, 0 underruns\n"));
    EXPECT_THAT(out, HasSubstr("\ntiming error  mean "));
}

TEST_F(PlayTest, TellsWithoutATerminalHowItGoesInPlainLines)
{
    ASSERT_EQ(play(patient + "--duration 1.5 --loop " + recording), 0) << err;
    EXPECT_THAT(out, Not(HasSubstr("\r")));
    EXPECT_THAT(out, Not(HasSubstr("\033")));
    EXPECT_THAT(out, HasSubstr("  queue 500 ms  delay 500.0 ms  error "));
}

TEST_F(PlayTest, RedrawsOneLineOnATerminal)
{
    clickRemoval.clear();
    const std::string command =
        "TERM=xterm script -qfec '" + player() + patient + recording + "' /dev/null";
    ASSERT_EQ(run(command + kept() + " </dev/null"), 0) << err << out;
    EXPECT_GT(std::count(out.begin(), out.end(), '\r'), 10);
    EXPECT_THAT(out, HasSubstr("\033[K"));
    EXPECT_EQ(numLines(out), 7U) << "start, status, and five of the summary:\n" << out;
}

TEST_F(PlayTest, DecodesFlacOggAndFloatFiles)
{
    const struct
    {
        const char* name;
        int format;
        const char* option;
        const char* sampleFormat;
        double tolerance; // Vorbis is decoded to doubles here and to floats there
    } files[] = {{"a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, "", "S24LE", 0},
                 {"a.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, "--format F32LE ", "F32LE", 1e-6},
                 {"a.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, "--format F32BE ", "F32BE", 0}};
    for (const auto& [name, format, option, sampleFormat, tolerance] : files) {
        createSound(path(name), format, 12'345);
        ASSERT_EQ(play(patient + outputs() + option + path(name)), 0) << err;
        EXPECT_THAT(out, HasSubstr(sampleFormat)) << name;
        const Sound original = load(path(name));
        const Sound heard = recorded(original.frames());
        ASSERT_EQ(heard.samples.size(), original.samples.size()) << name;
        double worst = 0;
        for (std::size_t i = 0; i < heard.samples.size(); ++i) {
            worst = std::max(worst, std::abs(heard.samples[i] - original.samples[i]));
        }
        EXPECT_LE(worst, tolerance) << name;
    }
}

TEST_F(PlayTest, KeepsEveryBitInEveryIntegerFormatThatHasThem)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 4800);
    const Sound original = load(path("a.wav"));
    for (const std::string format : {"S24LE", "S24BE", "S24_32LE", "S24_32BE", "S32BE"}) {
        ASSERT_EQ(
            play(" --period 480 --buffer 9600 --format " + format + outputs() + path("a.wav")), 0)
            << err;
        EXPECT_TRUE(recorded(original.frames()).samples == original.samples) << format;
    }
}

TEST_F(PlayTest, PlaysFilesWithoutAGapBetweenThem)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 5001);
    createSound(path("b.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 7003);
    ASSERT_EQ(play(patient + outputs() + path("a.wav") + " " + path("b.flac")), 0) << err;
    std::vector<double> expected = load(path("a.wav")).samples;
    const Sound second = load(path("b.flac"));
    expected.insert(expected.end(), second.samples.begin(), second.samples.end());
    EXPECT_TRUE(recorded(5001 + 7003).samples == expected);
}

TEST_F(PlayTest, LoopsAndEndsAfterTheDurationOnItsFrame)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 5000);
    ASSERT_EQ(play(patient + outputs() + "--loop --duration 0.25 " + path("a.wav")), 0) << err;
    const Sound original = load(path("a.wav"));
    const Sound heard = recorded(12'000);
    for (std::size_t i = 0; i < heard.samples.size(); ++i) {
        ASSERT_EQ(heard.samples[i], original.samples[i % original.samples.size()]) << i;
    }
}

TEST_F(PlayTest, FillsALossWithSilenceOfItsLength)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 40'000);
    ASSERT_EQ(play(patient + outputs() + "--gap 0.3005:100 " + path("a.wav")), 0) << err;
    Sound expected = load(path("a.wav"));
    std::fill(expected.samples.begin() + 2 * 14'424, expected.samples.begin() + 2 * 19'224, 0.0);
    EXPECT_TRUE(recorded(expected.frames()).samples == expected.samples);
    EXPECT_THAT(err, HasSubstr("WARN  PcmQueue: kelda-play: Pts jump of 100.000000 ms detected. "
                               "Inserting 4800 silence frames\n"));
    EXPECT_THAT(out, HasSubstr("4800 frames in gaps\n"));
    EXPECT_THAT(out, HasSubstr("0 frames skipped, 0 missing"));
}

TEST_F(PlayTest, FillsALossWhileTheQueueIsFull)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 90'000);
    ASSERT_EQ(play(patient + outputs() + "--gap 1.2:200 " + path("a.wav")), 0) << err;
    Sound expected = load(path("a.wav"));
    std::fill(expected.samples.begin() + 2 * 57'600, expected.samples.begin() + 2 * 67'200, 0.0);
    EXPECT_TRUE(recorded(expected.frames()).samples == expected.samples);
}

TEST_F(PlayTest, IsInTimeAgainAfterALossLongerThanTheQueue)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 90'000);
    ASSERT_EQ(play(patient + outputs() + "--gap 0.5:600 " + path("a.wav")), 0) << err;
    const std::vector<double> original = load(path("a.wav")).samples;
    const Sound heard = load(path("r.wav"));
    const std::size_t first = lead();
    ASSERT_GT(heard.frames(), first + 70'000);
    const auto same = [&](std::size_t begin, std::size_t end, std::ptrdiff_t shift) {
        return std::equal(original.begin() + static_cast<std::ptrdiff_t>(2 * begin),
                          original.begin() + static_cast<std::ptrdiff_t>(2 * end),
                          heard.samples.begin() + static_cast<std::ptrdiff_t>(2 * (first + begin)) +
                              2 * shift);
    };
    EXPECT_TRUE(same(0, 23'000, 0));
    // The queue ran empty, so the reader has found its place again by the clock alone.
    bool found = false;
    for (std::ptrdiff_t shift = -48; shift <= 48; ++shift) {
        found = found || same(60'000, 69'000, shift);
    }
    EXPECT_TRUE(found) << "within 1 ms";
}

TEST_F(PlayTest, EndsDuringALoss)
{
    EXPECT_EQ(interrupt(patient + "--gap 0.5:60000 --loop " + recording, SIGINT), 0) << err;
    EXPECT_LT(latency.count(), 1) << "s";
}

TEST_F(PlayTest, KeepsTimeWithJitteringTimestamps)
{
    ASSERT_EQ(play(patient + outputs() + "--jitter 3 " + recording), 0) << err;
    const Sound original = load(recording);
    EXPECT_TRUE(recorded(original.frames()).samples == original.samples) << "not a frame less";
}

TEST_F(PlayTest, TracesEveryBlock)
{
    ASSERT_EQ(play(patient + outputs() + recording), 0) << err;
    const std::vector<TraceRow> rows = trace();
    const Sound device = load(path("r.wav"));
    std::uint64_t frames = 0;
    std::uint64_t data = 0;
    for (const TraceRow& row : rows) {
        frames += row.frames;
        data += row.data();
        EXPECT_EQ(row.frames, 480U);
        EXPECT_LE(row.fill, 500'000'000U);
        EXPECT_LE(row.delay, 500'000'000);
        EXPECT_EQ(row.skipped + row.inserted + row.underruns, 0U);
    }
    EXPECT_EQ(frames, device.frames());
    EXPECT_EQ(data, load(recording).frames());
    // Block after block is due a period later.
    const auto span = static_cast<double>(rows.back().due - rows.front().due);
    EXPECT_NEAR(span, static_cast<double>(rows.size() - 1) * 10e6, 1e6);
}

TEST_F(PlayTest, EndsCleanlyOnCtrlC)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        EXPECT_EQ(interrupt(patient + outputs() + "--loop " + recording, signal), 0) << err;
        EXPECT_LT(latency.count(), 1) << "s; it has not played to the end";
        EXPECT_THAT(out, HasSubstr("\nplayed "));
        EXPECT_THAT(out, HasSubstr("\ntiming error "));
        EXPECT_GT(load(path("r.wav")).frames(), 48000U) << "the recording is whole";
    }
}

TEST_F(PlayTest, TellsInOneLineWhatIsWrong)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 480);
    std::ofstream(path("text.wav")) << "no sound";
    const struct
    {
        std::string arguments;
        const char* message;
        int status = 2;
    } cases[] = {
        {"", "FILE is required"},
        {"/nowhere/a.wav", "/nowhere/a.wav: ", 1},
        {path("text.wav"), "text.wav: ", 1},
        {"--format S16XX " + path("a.wav"), "unknown format S16XX, known are S16LE S16BE "},
        {"--format F64LE " + path("a.wav"), "format F64LE can't be played"},
        {"--rate 0 " + path("a.wav"), "--rate: "},
        {"--period 0 " + path("a.wav"), "--period: "},
        {"--buffer -1 " + path("a.wav"), "--buffer"},
        {"--queue-ms 0 " + path("a.wav"), "--queue-ms: "},
        {"--duration 0 " + path("a.wav"), "--duration: "},
        {"--jitter -1 " + path("a.wav"), "--jitter: "},
        {"--gap 5 " + path("a.wav"), "--gap: not AT:MS (seconds, milliseconds): 5"},
        {"--gap 5:x " + path("a.wav"), "--gap: not AT:MS"},
        {"--log-level loud " + path("a.wav"), "--log-level: "},
        {"--record /nowhere/r.wav " + path("a.wav"), "/nowhere/r.wav: ", 1},
        {"--trace /nowhere/t.csv " + path("a.wav"), "/nowhere/t.csv: No such file or directory", 1},
        {"--no-such-option " + path("a.wav"), "--no-such-option"},
    };
    for (const auto& [arguments, message, status] : cases) {
        EXPECT_EQ(play(arguments), status) << arguments;
        EXPECT_THAT(err, AllOf(StartsWith("kelda-play: "), HasSubstr(message), EndsWith("\n")));
        EXPECT_EQ(numLines(err), 1U) << arguments << ": " << err;
        EXPECT_THAT(out, IsEmpty()) << arguments;
    }
}

TEST_F(PlayTest, SaysWhenWhatItWritesIsNotWhole)
{
    EXPECT_EQ(play(" --period 480 --buffer 9600 --trace /dev/full " + recording), 1);
    EXPECT_EQ(err, "kelda-play: /dev/full: No space left on device\n");
}

TEST_F(PlayTest, RefusesAQueueThatCantHoldABlock)
{
    for (const char* options : {"--period 100000 ", "--queue-ms 1 "}) {
        EXPECT_EQ(play(options + recording), 2) << options;
        EXPECT_THAT(err, HasSubstr(" is less than a period of the device, "));
        EXPECT_THAT(out, IsEmpty());
    }
}

TEST_F(PlayTest, RefusesABufferThatCantHoldTwoPeriods)
{
    for (const char* options :
         {"--device null --buffer 1 ", "--device null --buffer 959 --period 480 "}) {
        EXPECT_EQ(play(options + recording), 2) << options;
        EXPECT_THAT(err, HasSubstr(" frames is less than two periods of the device, "));
        EXPECT_THAT(out, IsEmpty());
    }
}

TEST_F(PlayTest, TellsItsVersionAndHelp)
{
    EXPECT_EQ(play("--version"), 0);
    EXPECT_THAT(out, MatchesRegex("kelda-play [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_EQ(play("--help"), 0);
    for (const char* option : {"--device",
                               "--rate",
                               "--format",
                               "--buffer",
                               "--period",
                               "--start-threshold",
                               "--channel-map",
                               "--no-rate-resample",
                               "--describe",
                               "--describe-device",
                               "--jump-threshold",
                               "--queue-ms",
                               "--duration",
                               "--loop",
                               "--jitter",
                               "--gap",
                               "--record",
                               "--trace",
                               "--log-level",
                               "--version",
                               "--help"}) {
        EXPECT_THAT(out, HasSubstr(option));
    }
    EXPECT_THAT(err, IsEmpty());
}

TEST_F(PlayTest, LogsWhatIsAskedFor)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 480);
    ASSERT_EQ(play("--log-level debug " + path("a.wav")), 0) << err;
    EXPECT_THAT(err, HasSubstr("DEBUG PcmQueue: kelda-play: Configured queue:"));
    ASSERT_EQ(play("--log-level info " + path("a.wav")), 0) << err;
    EXPECT_THAT(err, Not(HasSubstr("DEBUG")));
    EXPECT_THAT(err, HasSubstr("INFO  PcmQueue: kelda-play: Buffer is empty, startPts = "));
}

TEST_F(PlayTest, PlaysAnEmptyFile)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 0);
    EXPECT_EQ(play("--loop " + path("a.wav")), 0) << err;
    EXPECT_THAT(out, HasSubstr("played        0.000 s"));
}

TEST_F(PlayTest, DescribesAFile)
{
    clickRemoval = "";
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 480);
    EXPECT_EQ(play("--describe " + path("a.wav")), 0) << err;
    EXPECT_EQ(out, "{\n  \"numChannels\": 2,\n  \"pcmFormat\": \"S24LE\",\n"
                   "  \"sampleRate\": 48000\n}\n");
    EXPECT_EQ(play("--describe /nowhere/a.wav"), 1);
    EXPECT_THAT(err, StartsWith("kelda-play: /nowhere/a.wav: "));
}

TEST_F(PlayTest, DescribesADevice)
{
    clickRemoval = "";
    EXPECT_EQ(play("--describe-device null"), 0) << err;
    for (const char* text : {"\"sampleRates\": {\n", "\"numChannels\": {\n", "\"S24_32LE\",\n"}) {
        EXPECT_THAT(out, HasSubstr(text));
    }
    EXPECT_THAT(out, Not(HasSubstr("F64"))) << "which can't be played";
    EXPECT_EQ(play("--describe-device nowhere"), 3);
    EXPECT_THAT(err, EndsWith("\nkelda-play: device nowhere can't be opened\n"));
}

// ALSA's null takes all at once and tells nothing; the plug in front of it looks like a device that
// runs. A tenth of a second more than the buffer is what it takes to find out.
TEST_F(PlayTest, PlaysInTimeToADeviceThatKeepsNone)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48'000);
    for (const std::string device : {"null", "plug:null"}) {
        ASSERT_EQ(play("--period 480 --buffer 24000 --json --device " + device + outputs() +
                       path("a.wav")),
                  0)
            << err << out;
        EXPECT_THAT(out, HasSubstr("\"played\":1.0,")) << device;
        EXPECT_TRUE(recorded(48'000).samples == load(path("a.wav")).samples) << device;
        const std::vector<TraceRow> rows = trace();
        const auto isAudio = [](const TraceRow& row) { return row.data() > 0; };
        EXPECT_NEAR(static_cast<double>(std::ranges::count_if(rows, isAudio)), 100, 2) << device;
        EXPECT_NEAR(static_cast<double>(std::ranges::max(rows, {}, &TraceRow::delay).delay) / 1e6,
                    490, 30)
            << "ms: " << device << " told a delay of 0, and has a buffer of 500";
        EXPECT_LT(rows.size(), 400U) << device << " was filled with silence without a rest";
    }
}

TEST_F(PlayTest, OpensTheDeviceForTheMostDemandingFile)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 480);
    createSound(path("b.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 480);
    createSound(path("c.wav"), SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 480);
    EXPECT_EQ(play(path("a.wav") + " " + path("b.wav")), 0) << err;
    EXPECT_THAT(out, StartsWith("fake: 48000 Hz, 2 channels, S24LE, "));
    EXPECT_EQ(play(path("a.wav") + " " + path("c.wav")), 0) << err;
    EXPECT_THAT(out, StartsWith("fake: 48000 Hz, 2 channels, F32LE, "));
    EXPECT_THAT(out, HasSubstr("changed       format F32LE instead of F64LE\n"));
}
