// DSD files as a device gets them: every bit, in its order, under markers that alternate without a
// break, and idle bits wherever there is nothing to play.

#include <cerrno>

#include <alsa/asoundlib.h>

#include "Dop.h"
#include "PlayFixture.h"
#include "support/DsdFiles.h"
#include "support/FaultySoundCard.h"

using namespace keldaPlay;
using namespace keldaPlayTest;
using namespace testSupport;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr std::uint32_t idle = 0x69696969;
constexpr std::uint32_t numFrames = 44'113; // a quarter of a second, in no whole blocks
// Half a second of other work on this machine does not let it run dry, nor 90 ms jump.
// Filling so much takes a slow machine a while: the device runs before, and tells what time it is.
const std::string patientDsd =
    " --period 1765 --buffer 88250 --start-threshold 8825 --jump-threshold 90 ";

/// The frames of a stereo stream, its markers taken away.
class DopStream
{
public:
    /// @param samples that use the whole range of 32 bits
    explicit DopStream(const std::vector<std::int32_t>& samples)
    {
        for (std::size_t i = 0; i + 1 < samples.size(); i += 2) {
            m_markers.push_back(dop::markerOf(samples[i]));
            m_isWhole = m_isWhole && dop::markerOf(samples[i + 1]) == m_markers.back() &&
                        ((samples[i] | samples[i + 1]) & 0xFF) == 0;
            m_bits.push_back(std::uint32_t{dop::bitsOf(samples[i])} << 16 |
                             dop::bitsOf(samples[i + 1]));
        }
    }

    /// Whether both channels have the same markers, and they alternate.
    [[nodiscard]] bool alternates(std::size_t begin, std::size_t end) const
    {
        for (std::size_t i = begin; i < end; ++i) {
            const bool isMarker = m_markers[i] == 0x05 || m_markers[i] == 0xFA;
            if (!isMarker || (i > begin && m_markers[i] == m_markers[i - 1])) {
                ADD_FAILURE() << "marker " << i << " of " << m_markers.size() << " is "
                              << int{m_markers[i]};
                return false;
            }
        }
        return m_isWhole;
    }
    [[nodiscard]] bool alternates() const { return alternates(0, m_markers.size()); }

    [[nodiscard]] const std::vector<std::uint32_t>& bits() const { return m_bits; }

    /// The numbers of the frames that are not idle, in their order.
    [[nodiscard]] std::vector<std::uint32_t> numbers() const
    {
        std::vector<std::uint32_t> numbers;
        for (const std::uint32_t bits : m_bits) {
            if (bits != idle) {
                numbers.push_back(numberOfBits(bits));
            }
        }
        return numbers;
    }

    /// Everything between the first and the last frame that is not idle.
    [[nodiscard]] std::vector<std::uint32_t> sound() const
    {
        const auto isSound = [](std::uint32_t bits) { return bits != idle; };
        const auto begin = std::find_if(m_bits.begin(), m_bits.end(), isSound);
        const auto end = std::find_if(m_bits.rbegin(), m_bits.rend(), isSound).base();
        return begin < end ? std::vector(begin, end) : std::vector<std::uint32_t>();
    }

    /// Idle frames at the end.
    [[nodiscard]] std::size_t tail() const
    {
        return static_cast<std::size_t>(
            std::find_if(m_bits.rbegin(), m_bits.rend(),
                         [](std::uint32_t bits) { return bits != idle; }) -
            m_bits.rbegin());
    }

private:
    std::vector<std::uint8_t> m_markers;
    std::vector<std::uint32_t> m_bits; // of both channels
    bool m_isWhole = true;
};

std::vector<std::uint32_t> numberedFrames(std::uint32_t first, std::uint32_t last)
{
    std::vector<std::uint32_t> bits(last - first + 1);
    std::iota(bits.begin(), bits.end(), first);
    std::transform(bits.begin(), bits.end(), bits.begin(), numberedBits);
    return bits;
}

class DsdPlayTest : public PlayTest
{
protected:
    DsdPlayTest()
    {
        clickRemoval.clear(); // as it is for everybody: it must not matter
        write("a.dsf", dsfFile(numberedDsd(numFrames), BitOrder::OldestLowest));
    }

    void write(const std::string& name, const std::string& content) const
    {
        std::ofstream(path(name), std::ios::binary) << content;
    }

    /// What was recorded: what the device has taken.
    [[nodiscard]] DopStream recordedDop() const
    {
        SF_INFO info{};
        SNDFILE* file = sf_open(path("r.wav").c_str(), SFM_READ, &info);
        if (file == nullptr) {
            ADD_FAILURE() << sf_strerror(nullptr);
            return DopStream({});
        }
        EXPECT_EQ(info.channels, 2);
        std::vector<std::int32_t> samples(static_cast<std::size_t>(2 * info.frames));
        EXPECT_EQ(sf_readf_int(file, samples.data(), info.frames), info.frames);
        sf_close(file);
        return DopStream(samples);
    }

    [[nodiscard]] std::uint64_t skipped() const
    {
        std::uint64_t frames = 0;
        for (const TraceRow& row : trace()) {
            frames += row.skipped;
        }
        return frames;
    }

    /// One line, and nothing was played.
    void expectRefusal(const std::string& arguments, const std::string& reason, int status = 3)
    {
        EXPECT_EQ(play(arguments + " " + path("a.dsf")), status);
        EXPECT_EQ(err, "kelda-play: " + path("a.dsf") + ": " + reason + "\n");
        EXPECT_THAT(out, IsEmpty());
    }
};

class DsdDeviceTest : public DsdPlayTest
{
protected:
    FaultySoundCard card;
};

} // namespace

TEST_F(DsdPlayTest, EveryBitOfEveryKindOfFileReachesTheDevice)
{
    write("b.dsf", dsfFile(numberedDsd(numFrames), BitOrder::OldestHighest));
    write("c.dff", dffFile(numberedDsd(numFrames)));
    for (const std::string file : {"a.dsf", "b.dsf", "c.dff"}) {
        ASSERT_EQ(play(patientDsd + outputs() + path(file)), 0) << err;
        const DopStream stream = recordedDop();
        EXPECT_TRUE(stream.alternates()) << file;
        EXPECT_TRUE(stream.sound() == numberedFrames(1, numFrames)) << file;
        EXPECT_THAT(err, IsEmpty());
        EXPECT_THAT(out, StartsWith("fake: 176400 Hz, 2 channels, S24LE, period 1765, buffer "
                                    "88250, start 8825 frames\n"
                                    "carried       DSD64 as DoP\n"));
    }
}

TEST_F(DsdPlayTest, EveryBitIsKeptInEveryFormatThatCarriesIt)
{
    for (const std::string format : {"S24BE", "S24_32LE", "S24_32BE", "S32LE", "S32BE"}) {
        ASSERT_EQ(play("--format " + format + patientDsd + outputs() + path("a.dsf")), 0) << err;
        EXPECT_TRUE(recordedDop().alternates()) << format;
        EXPECT_TRUE(recordedDop().sound() == numberedFrames(1, numFrames)) << format;
    }
}

TEST_F(DsdPlayTest, EveryRateIsPlayedAtASixteenthOfIt)
{
    DsdSound sound = numberedDsd(numFrames);
    for (const auto& [bitrate, rate] :
         {std::pair(5'644'800U, "352800"), std::pair(11'289'600U, "705600"),
          std::pair(24'576'000U, "1536000")}) {
        sound.bitrate = bitrate;
        write("b.dff", dffFile(sound));
        ASSERT_EQ(play("--buffer 700000 --start-threshold 70000 --jump-threshold 90 " + outputs() +
                       path("b.dff")),
                  0)
            << err;
        EXPECT_THAT(out, StartsWith(std::string("fake: ") + rate + " Hz, 2 channels, S24LE"));
        EXPECT_TRUE(recordedDop().alternates()) << rate;
        EXPECT_TRUE(recordedDop().sound() == numberedFrames(1, numFrames)) << rate;
    }
}

TEST_F(DsdPlayTest, FilesFollowEachOtherWithoutAGapAndMarkersRunOn)
{
    write("b.dff", dffFile(numberedDsd(10'001, numFrames + 1)));
    write("c.dsf", dsfFile(numberedDsd(7003, numFrames + 10'002), BitOrder::OldestHighest));
    ASSERT_EQ(
        play(patientDsd + outputs() + path("a.dsf") + " " + path("b.dff") + " " + path("c.dsf")), 0)
        << err;
    EXPECT_TRUE(recordedDop().alternates());
    EXPECT_TRUE(recordedDop().sound() == numberedFrames(1, numFrames + 10'001 + 7003));
}

TEST_F(DsdPlayTest, ALoopRunsOnToo)
{
    ASSERT_EQ(play("--loop --duration 0.4 " + patientDsd + outputs() + path("a.dsf")), 0) << err;
    std::vector<std::uint32_t> expected = numberedFrames(1, numFrames);
    const auto again = numberedFrames(1, 70'560 - numFrames);
    expected.insert(expected.end(), again.begin(), again.end());
    EXPECT_TRUE(recordedDop().alternates());
    EXPECT_TRUE(recordedDop().sound() == expected);
}

TEST_F(DsdPlayTest, ALossIsIdleForItsLengthAndNothingFades)
{
    write("b.dff", dffFile(numberedDsd(3 * numFrames)));
    ASSERT_EQ(play("--gap 0.3:100 " + patientDsd + outputs() + path("b.dff")), 0) << err;
    std::vector<std::uint32_t> expected = numberedFrames(1, 3 * numFrames);
    std::fill_n(expected.begin() + 52'920, 17'640, idle);
    EXPECT_TRUE(recordedDop().alternates());
    EXPECT_TRUE(recordedDop().sound() == expected);
}

// Clocks that are far off: what comes too early is skipped at times, what comes too late is waited
// for.
TEST_F(DsdPlayTest, MarkersAlternateOverSkipsAndIdleFramesBetween)
{
    write("b.dff", dffFile(numberedDsd(12 * numFrames)));
    for (const std::string ppm : {"10000", "-10000"}) {
        const int status = play("--period 1765 --buffer 88250 --jump-threshold 5 --source-ppm " +
                                ppm + outputs() + path("b.dff"));
        EXPECT_EQ(status, skipped() > 0 ? 4 : 0) << err;
        const DopStream stream = recordedDop();
        EXPECT_TRUE(stream.alternates()) << ppm;
        const std::vector<std::uint32_t> numbers = stream.numbers();
        EXPECT_TRUE(std::ranges::is_sorted(numbers, std::less_equal<>())) << ppm;
        EXPECT_EQ(numbers.size() + skipped(), 12 * numFrames) << ppm;
        // A machine that stumbles may add some of either.
        EXPECT_TRUE(ppm == "10000" ? skipped() > 0 : stream.sound().size() > numbers.size()) << ppm;
    }
}

// 30 ms by the end, of which PCM would skip or wait for some.
TEST_F(DsdPlayTest, ClocksThatDifferCostNoBits)
{
    write("b.dff", dffFile(numberedDsd(12 * numFrames)));
    for (const std::string ppm : {"10000", "-10000"}) {
        ASSERT_EQ(
            play("--period 1765 --buffer 88250 --source-ppm " + ppm + outputs() + path("b.dff")), 0)
            << err;
        EXPECT_TRUE(recordedDop().sound() == numberedFrames(1, 12 * numFrames)) << ppm;
    }
}

TEST_F(DsdPlayTest, ABufferOfIdleFramesIsTheEnd)
{
    ASSERT_EQ(play("--period 441 --buffer 17640" + outputs() + path("a.dsf")), 0) << err;
    EXPECT_GE(recordedDop().tail(), 17'640U);
    ASSERT_EQ(interrupt("--loop " + patientDsd + outputs() + path("a.dsf"), SIGINT), 0) << err;
    EXPECT_TRUE(recordedDop().alternates());
    EXPECT_GE(recordedDop().tail(), 176'400U / 5) << "of a large one a fifth of a second";
}

TEST_F(DsdPlayTest, TheReportHasNoPicturesOfWhatIsNoPcm)
{
    ASSERT_EQ(play(patientDsd + "--report " + path("report") + " " + path("a.dsf")), 0) << err;
    EXPECT_THAT(read("report/index.html"), Not(HasSubstr("clicks removed")));
}

TEST_F(DsdPlayTest, DescribesTheSamplesOfAFile)
{
    clickRemoval = "";
    ASSERT_EQ(play("--describe " + path("a.dsf")), 0) << err;
    EXPECT_EQ(out, "{\n"
                   "  \"bitrate\": 2822400,\n"
                   "  \"dsdFormat\": \"DSDU8\",\n"
                   "  \"numChannels\": 2\n"
                   "}\n");
    write("b.dff", dffFile(numberedDsd(100), "DST "));
    EXPECT_EQ(play("--describe " + path("b.dff")), 1);
    EXPECT_EQ(err,
              "kelda-play: " + path("b.dff") + ": is compressed (DST), which can't be played\n");
}

TEST_F(DsdPlayTest, WhatWouldChangeBitsIsRefused)
{
    expectRefusal("--rate 48000", "DSD64 as DoP needs 176400 Hz, not 48000", 2);
    expectRefusal("--format S16LE",
                  "DSD64 as DoP needs 24 bits, not S16LE, but S24LE S24BE "
                  "S24_32LE S24_32BE S32LE S32BE",
                  2);
    expectRefusal("--correct resample", "DSD64 as DoP can't be resampled: --correct none or device",
                  2);
}

TEST_F(DsdDeviceTest, AlsaGetsEveryBit)
{
    ASSERT_EQ(play("--device faulty --format S32LE" + patientDsd + path("a.dsf"),
                   testSupport::FaultySoundCard::library),
              0)
        << err;
    const DopStream stream(card.played<std::int32_t>());
    EXPECT_TRUE(stream.alternates());
    EXPECT_TRUE(stream.sound() == numberedFrames(1, numFrames));
    EXPECT_EQ(card->rate, 176'400U);
    EXPECT_EQ(card->framesDropped, 0U);
    EXPECT_EQ(card.value(faultyPcm::Call::snd_pcm_hw_params_set_rate_resample), 0);
}

TEST_F(DsdDeviceTest, ItIsWarnedOfPluginsThatNobodyKnows)
{
    ASSERT_EQ(play("--device faulty --duration 0.01" + patientDsd + path("a.dsf")), 0);
    EXPECT_THAT(err, HasSubstr("a.dsf: DSD64 as DoP only where nothing behind device faulty "
                               "(ALSA's plugin IOPLUG) changes a bit\n"));
    EXPECT_EQ(numLines(err), 1U) << err;
}

// Underruns in the midst of periods, at odd frames.
TEST_F(DsdDeviceTest, MarkersAlternateInEveryRunAfterUnderruns)
{
    write("b.dff", dffFile(numberedDsd(8 * numFrames)));
    card->fault = -EPIPE;
    card->faultAtFrame = 100'001;
    card->faultEvery = 60'001;
    card->faultRepeats = 2;
    ASSERT_EQ(play("--device faulty --period 1765 --buffer 35300 --format S32LE" + outputs() +
                   path("b.dff")),
              4)
        << err;
    EXPECT_TRUE(recordedDop().alternates()) << "all that it took";

    const DopStream stream(card.played<std::int32_t>());
    ASSERT_GE(card->numRuns, 4U);
    for (std::uint32_t run = 0; run < card->numRuns; ++run) {
        const std::uint64_t end = run + 1 < card->numRuns ? card->runs[run + 1].playedBefore.load()
                                                          : stream.bits().size();
        EXPECT_TRUE(stream.alternates(card->runs[run].playedBefore, end)) << run;
    }
    const std::vector<std::uint32_t> numbers = recordedDop().numbers();
    EXPECT_EQ(numbers.size() + skipped(), 8 * numFrames);
    std::uint64_t breaks = 0;
    for (std::size_t i = 1; i < numbers.size(); ++i) {
        breaks += numbers[i] != numbers[i - 1] + 1 ? 1 : 0;
    }
    EXPECT_LE(breaks, 10U) << "all else goes on";
}

TEST_F(DsdDeviceTest, ADeviceThatCannotCarryItIsRefused)
{
    const std::string needs = "DSD64 as DoP needs 176400 Hz, 24 bits and 2 channels, which device "
                              "faulty does not take (it takes ";
    card->severalRates = true;
    expectRefusal("--device faulty", needs +
                                         "44100 48000 96000 1411200 Hz; S16LE S16BE S24LE S24BE "
                                         "S24_32LE S24_32BE S32LE S32BE F32LE F32BE; 1 to 8 "
                                         "channels)");
    card->severalRates = false;
    card->onlyFormat = SND_PCM_FORMAT_S16_LE + 1;
    expectRefusal("--device faulty", needs + "8000 to 192000 Hz; S16LE; 1 to 8 channels)");
    card->onlyFormat = 0;
    expectRefusal("--device plug:faulty",
                  "DSD64 as DoP needs a card, e.g. hw:0: device plug:faulty (ALSA's plugin PLUG) "
                  "may change the samples");
    EXPECT_EQ(card->framesTaken, 0U);
}
