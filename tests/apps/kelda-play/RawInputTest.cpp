// Standard input as raw PCM, from pipes as they are: in bits and pieces, slow, cut off, and never
// ending.

#include <array>
#include <thread>

#include <sys/stat.h>

#include "Errors.h"
#include "PlayFixture.h"
#include "RawSource.h"
#include "Timeline.h"
#include "support/LogCapture.h"

using namespace audioUtils;
using namespace keldaPlay;
using namespace keldaPlayTest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

class Pipe
{
public:
    Pipe() { EXPECT_EQ(pipe(m_ends.data()), 0); }
    ~Pipe()
    {
        closeInput();
        close(m_ends[0]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    [[nodiscard]] int output() const { return m_ends[0]; }

    void write(std::span<const unsigned char> bytes)
    {
        EXPECT_EQ(::write(m_ends[1], bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }

    void closeInput()
    {
        if (m_ends[1] >= 0) {
            close(m_ends[1]);
            m_ends[1] = -1;
        }
    }

private:
    std::array<int, 2> m_ends{-1, -1};
};

class RawSourceTest : public testing::Test
{
protected:
    /// What comes out of the source in this format, as samples of this type.
    template<typename Sample>
    std::vector<Sample> readAll(RawSource& source, PcmFormat format, std::size_t numChannels)
    {
        const FrameLayout layout{*layoutOf(format), numChannels};
        std::vector<Sample> samples(100 * numChannels);
        const std::span bytes(reinterpret_cast<unsigned char*>(samples.data()),
                              samples.size() * sizeof(Sample));
        samples.resize(source.read(layout, bytes) * numChannels);
        return samples;
    }

    Pipe pipe;
    StopEvent stop;
};

class RawInputTest : public PlayTest
{
protected:
    /// Plays what a shell's command writes.
    int playOutputOf(const std::string& command, const std::string& arguments)
    {
        return run("{ " + command + "; } 2>/dev/null | " + player() + arguments + kept());
    }

    /// Writes samples that count from 1 on.
    void createNumbers(const std::string& name, std::size_t numSamples)
    {
        std::vector<std::int16_t> samples(numSamples);
        std::iota(samples.begin(), samples.end(), std::int16_t{1});
        std::ofstream(path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(samples.data()),
                   static_cast<std::streamsize>(2 * numSamples));
    }

    /// What reached the device, but silence, as 16-bit integers.
    [[nodiscard]] std::vector<int> heardNumbers() const
    {
        std::vector<int> numbers;
        for (const double sample : load(path("r.wav")).samples) {
            if (sample != 0) {
                numbers.push_back(static_cast<int>(std::lround(sample * 32768)));
            }
        }
        return numbers;
    }

    [[nodiscard]] static std::vector<int> numbersTo(int last)
    {
        std::vector<int> numbers(static_cast<std::size_t>(last));
        std::iota(numbers.begin(), numbers.end(), 1);
        return numbers;
    }
};

const std::string mono = "--raw 48000:1:S16LE - ";

} // namespace

TEST(RawFormat, IsRateChannelsAndFormat)
{
    const RawFormat raw = parseRawFormat("44100:6:S24_32BE");
    EXPECT_EQ(raw.rate, 44100U);
    EXPECT_EQ(raw.numChannels, 6U);
    EXPECT_EQ(raw.format, S24_32BE);
    for (const char* wrong :
         {"", "48000", "48000:2", "48000:2:", "48000:2:S16LE:", "48000:2:S16LE x", "48000:2:MP3",
          "48000:2:F64LE", "0:2:S16LE", "48000:0:S16LE", "48000:257:S16LE", "7000000:2:S16LE",
          "-48000:2:S16LE", "48000:-2:S16LE", "48000;2;S16LE", "x:2:S16LE", "4800x:2:S16LE"}) {
        EXPECT_THROW(static_cast<void>(parseRawFormat(wrong)), UsageError) << wrong;
    }
}

TEST_F(RawSourceTest, ReadsIntegersAndFloatsOfEitherByteOrder)
{
    const struct
    {
        PcmFormat format;
        std::vector<unsigned char> bytes;
        std::int32_t asS32;
    } cases[] = {{S16LE, {0x34, 0x12}, 0x12340000},
                 {S16BE, {0x12, 0x34}, 0x12340000},
                 {S24LE, {0x56, 0x34, 0x92}, static_cast<std::int32_t>(0x92345600)},
                 {S24_32BE, {0x00, 0x12, 0x34, 0x56}, 0x12345600},
                 {S32LE, {0x78, 0x56, 0x34, 0x12}, 0x12345678},
                 {F32LE, {0x00, 0x00, 0x00, 0x3F}, 0x40000000},
                 {F32BE, {0xBF, 0x00, 0x00, 0x00}, -0x40000000}};
    for (const auto& [format, bytes, expected] : cases) {
        Pipe input;
        input.write(bytes);
        input.write(bytes);
        input.closeInput();
        RawSource source({48000, 1, format}, stop, input.output());
        EXPECT_THAT(readAll<std::int32_t>(source, S32LE, 1), ElementsAre(expected, expected))
            << toString(format);
        EXPECT_THAT(readAll<std::int32_t>(source, S32LE, 1), IsEmpty());
    }
}

TEST_F(RawSourceTest, GivesFloatsAndOtherChannels)
{
    pipe.write(std::array<unsigned char, 4>{0x00, 0x40, 0x00, 0xC0});
    RawSource source({48000, 1, S16LE}, stop, pipe.output());
    pipe.closeInput();
    EXPECT_THAT(readAll<float>(source, F32LE, 2), ElementsAre(0.5F, 0.5F, -0.5F, -0.5F));
}

TEST_F(RawSourceTest, WaitsForTheRestOfAFrame)
{
    RawSource source({48000, 2, S16LE}, stop, pipe.output());
    std::thread writer([this] {
        for (const unsigned char byte : std::array<unsigned char, 8>{1, 0, 2, 0, 3, 0, 4, 0}) {
            pipe.write(std::span(&byte, 1));
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        pipe.closeInput();
    });
    EXPECT_THAT(readAll<std::int16_t>(source, S16LE, 2), ElementsAre(1, 2, 3, 4));
    writer.join();
}

TEST_F(RawSourceTest, DropsAPartOfAFrameAtTheEndAndSaysSo)
{
    testSupport::LogCapture log("kelda-play");
    pipe.write(std::array<unsigned char, 7>{1, 0, 2, 0, 3, 0, 4});
    pipe.closeInput();
    RawSource source({48000, 2, S16LE}, stop, pipe.output());
    EXPECT_THAT(readAll<std::int16_t>(source, S16LE, 2), ElementsAre(1, 2));
    EXPECT_THAT(log.lines(),
                ElementsAre("WARN The last 3 bytes of standard input are no whole frame: "
                            "dropped"));
}

TEST_F(RawSourceTest, WaitsNoLongerWhenItIsStopped)
{
    testSupport::LogCapture log("kelda-play");
    pipe.write(std::array<unsigned char, 3>{1, 0, 2});
    RawSource source({48000, 1, S16LE}, stop, pipe.output());
    std::thread stopper([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        stop.set();
    });
    EXPECT_THAT(readAll<std::int16_t>(source, S16LE, 1), ElementsAre(1));
    stopper.join();
    EXPECT_THAT(readAll<std::int16_t>(source, S16LE, 1), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(RawSourceTest, TellsWhatCannotBeRead)
{
    RawSource source({48000, 1, S16LE}, stop, pipe.output());
    EXPECT_THROW(source.rewind(), std::runtime_error);
    RawSource closed({48000, 1, S16LE}, stop, 999);
    EXPECT_THROW(readAll<std::int16_t>(closed, S16LE, 1), std::runtime_error);
}

TEST(Timeline, LetsAFileBeAsLateAsItIs)
{
    Timeline timeline(500'000'000, 48000, 0);
    EXPECT_FALSE(timeline.arrive(0, 1'000'000'000, false));
    EXPECT_EQ(timeline.ptsOf(0), 1'600'000'000U) << "the path, and 100 ms";
    EXPECT_FALSE(timeline.arrive(48000, 9'000'000'000, false));
    EXPECT_EQ(timeline.ptsOf(48000), 2'600'000'000U);
}

TEST(Timeline, LetsALiveStreamGoOnWhereItIs)
{
    Timeline timeline(500'000'000, 48000, 0);
    EXPECT_FALSE(timeline.arrive(0, 1'000'000'000, true));
    EXPECT_FALSE(timeline.arrive(48000, 2'100'000'000, true)) << "just in time";
    EXPECT_EQ(timeline.ptsOf(48000), 2'600'000'000U);
    EXPECT_TRUE(timeline.arrive(48000, 2'100'000'001, true));
    EXPECT_EQ(timeline.ptsOf(48000), 2'700'000'001U);
    EXPECT_EQ(timeline.ptsOf(48000 + 480), 2'710'000'001U);
}

TEST_F(RawInputTest, PlaysAPipeFrameForFrame)
{
    createNumbers("numbers", 20'000);
    // In pieces that end within frames.
    ASSERT_EQ(playOutputOf("dd bs=1001 if=" + path("numbers"), patient + outputs() + mono), 0)
        << err;
    EXPECT_EQ(heardNumbers(), numbersTo(20'000));
    EXPECT_THAT(err, IsEmpty());
    EXPECT_THAT(out, StartsWith("fake: 48000 Hz, 1 channel, S16LE, "));
    EXPECT_THAT(out, HasSubstr("0 frames skipped, 0 missing, 0 underruns\n"));
}

TEST_F(RawInputTest, PlaysAFileAndGoesOnWithFilesBehindIt)
{
    createNumbers("numbers", 1000);
    ASSERT_EQ(
        run(player() + patient + outputs() + mono + recording + " <" + path("numbers") + kept()), 0)
        << err;
    const Sound sound = load(recording);
    const std::vector<double> heard = recorded(1000 + sound.frames()).samples;
    EXPECT_TRUE(std::equal(sound.samples.begin(), sound.samples.end(), heard.begin() + 1000));
}

TEST_F(RawInputTest, StartsWhenTheFirstSoundComes)
{
    createNumbers("numbers", 20'000);
    ASSERT_EQ(playOutputOf("sleep 1; cat " + path("numbers"), patient + outputs() + mono), 0)
        << err;
    EXPECT_EQ(heardNumbers(), numbersTo(20'000));
}

TEST_F(RawInputTest, LosesNothingOfAStreamThatStalls)
{
    time.goOnWithoutInput();
    createNumbers("numbers", 30'000);
    ASSERT_EQ(playOutputOf("head -c 20000 " + path("numbers") + "; sleep 2; tail -c +20001 " +
                               path("numbers"),
                           patient + outputs() + mono),
              0)
        << err;
    EXPECT_EQ(heardNumbers(), numbersTo(30'000));
    EXPECT_THAT(err, HasSubstr("WARN  kelda-play: The input came too late: "));
    EXPECT_THAT(out, Not(HasSubstr(", 0 missing,"))) << "but the time is counted";
}

TEST_F(RawInputTest, SurvivesAProducerThatIsTooSlow)
{
    time.goOnWithoutInput();
    createNumbers("numbers", 9'600);
    ASSERT_EQ(playOutputOf("for i in 0 1 2 3 4 5 6 7 8 9; do tail -c +$((i * 1920 + 1)) " +
                               path("numbers") + " | head -c 1920; sleep 0.1; done",
                           " --period 480 --buffer 1920 " + outputs() + mono),
              0)
        << err;
    EXPECT_EQ(heardNumbers(), numbersTo(9'600));
}

TEST_F(RawInputTest, EndsOnCtrlCWhileItWaitsForThePipe)
{
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    std::fstream writer(path("fifo")); // which writes nothing
    time.goOnWithoutInput();
    for (const int signal : {SIGINT, SIGTERM}) {
        EXPECT_EQ(interruptCommand(player() + mono + "<" + path("fifo") + kept(), signal), 0)
            << err;
        EXPECT_LT(latency.count(), 1) << "s";
        EXPECT_THAT(out, HasSubstr("\nplayed        0.000 s in "));
    }
}

TEST_F(RawInputTest, TellsInOneLineWhatIsWrong)
{
    createNumbers("numbers", 10);
    const struct
    {
        std::string arguments;
        int status;
        const char* message;
    } cases[] = {
        {"-", 2, "kelda-play: -: what standard input holds is told by --raw RATE:CHANNELS:FORMAT"},
        {"--raw 48000:2:S16LE " + recording, 2,
         "--raw: is for standard input, which is the FILE -"},
        {"--raw 48000:2 -", 2, "--raw: not RATE:CHANNELS:FORMAT, e.g. 48000:2:S16LE: 48000:2"},
        {"--raw 48000:2:F64LE -", 2, "--raw: format F64LE can't be played"},
        {"--loop " + mono, 2, "-: standard input can be played once only"},
        {mono + "-", 2, "-: standard input can be played once only"},
        {"--describe -", 2, "--describe: standard input can't be described"},
        {mono + "<&-", 2, "kelda-play: -: standard input is closed"},
        {mono + "<" + folder.string(), 1, "kelda-play: standard input: Is a directory"},
    };
    for (const auto& [arguments, status, message] : cases) {
        EXPECT_EQ(playOutputOf("true", arguments), status) << arguments;
        EXPECT_THAT(err, HasSubstr(message)) << arguments;
        EXPECT_EQ(numLines(err), 1U) << err;
    }
    clickRemoval.clear();
    EXPECT_EQ(
        run("NO_COLOR=1 script -qfec '" + player() + mono + "' /dev/null" + kept() + " </dev/null"),
        1);
    EXPECT_EQ(out, "kelda-play: standard input is a terminal: raw audio comes from a pipe or a "
                   "file\r\n");
}
