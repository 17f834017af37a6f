// Several files, and folders of them, as one list.

#include "NaturalOrder.h"
#include "PlayFixture.h"
#include "support/FaultySoundCard.h"

using namespace keldaPlayTest;
using keldaPlay::isNaturallyLess;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testSupport::FaultySoundCard;

namespace {

constexpr int wav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

class ListTest : public PlayTest
{
protected:
    /// Frames of one value in 1/1000 of full scale.
    void createTone(const std::string& name, int value, std::size_t frames, int rate = 48000)
    {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        writeStereo(path(name), wav16, std::vector<double>(2 * frames, value / 1000.0), rate);
    }

    /// The values of recorded() in the order in which they come, without repetitions.
    [[nodiscard]] std::vector<int> heardTones(std::size_t frames) const
    {
        return tonesOf(recorded(frames).samples, 1000);
    }

    template<typename Sample>
    [[nodiscard]] static std::vector<int> tonesOf(const std::vector<Sample>& samples, double scale)
    {
        std::vector<int> tones;
        for (const Sample sample : samples) {
            const int tone = static_cast<int>(std::lround(sample * scale));
            if (tones.empty() || tones.back() != tone) {
                tones.push_back(tone);
            }
        }
        return tones;
    }
};

} // namespace

TEST(NaturalOrder, CountsAsPeopleDo)
{
    for (const auto& [less, more] : {std::pair("2 b", "10 a"),
                                     {"a2b3", "a2b10"},
                                     {"a", "a1"},
                                     {"a1", "ab"},
                                     {"01", "1"},
                                     {"1 a", "01 b"},
                                     {"a007", "a8"},
                                     {"9", "a"},
                                     {"99999999999999999999998", "99999999999999999999999"},
                                     {"", "a"},
                                     {"a", "\xC3\xA4"}}) {
        EXPECT_TRUE(isNaturallyLess(less, more)) << less << " " << more;
        EXPECT_FALSE(isNaturallyLess(more, less)) << less << " " << more;
        EXPECT_FALSE(isNaturallyLess(less, less)) << less;
    }
}

TEST_F(ListTest, PlaysAFolderInTheOrderInWhichOneCounts)
{
    createTone("music/10 last.wav", 10, 480);
    createTone("music/2 second.WAV", 2, 480);
    createTone("music/1/b.wav", 1, 480);
    createTone("music/.hidden.wav", 9, 480);
    createTone("elsewhere/a.wav", 8, 480);
    std::filesystem::rename(path("music/2 second.WAV"), path("music/2 second"));
    std::ofstream(path("music/cover.jpg")) << "no sound";
    std::ofstream(path("music/README")) << "no sound";
    std::filesystem::create_directory_symlink(path("music"), path("music/again"));
    createTone("z.wav", 20, 480);
    ASSERT_EQ(play(patient + outputs() + path("music") + " " + path("z.wav")), 0) << err;
    EXPECT_EQ(heardTones(4 * 480), (std::vector<int>{1, 2, 10, 20}));
    EXPECT_THAT(err, IsEmpty());
}

TEST_F(ListTest, PassesOverABrokenFileOfAFolderAndSaysSo)
{
    createTone("music/a.wav", 1, 480);
    std::ofstream(path("music/b.Flac")) << "no sound";
    ASSERT_EQ(play(patient + outputs() + path("music")), 0) << err;
    EXPECT_EQ(heardTones(480), std::vector<int>{1});
    EXPECT_THAT(err, HasSubstr("WARN  kelda-play: Passed over " + path("music/b.Flac") + ": "));
    EXPECT_EQ(numLines(err), 1U) << err;
}

TEST_F(ListTest, RefusesAFolderWithoutSound)
{
    std::filesystem::create_directories(path("music/empty"));
    std::ofstream(path("music/cover.jpg")) << "no sound";
    EXPECT_EQ(play(recording + " " + path("music")), 1);
    EXPECT_EQ(err, "kelda-play: " + path("music") + ": no sound files in it\n");
    EXPECT_THAT(out, IsEmpty()) << "before anything plays";
}

TEST_F(ListTest, TellsWhichFileCannotBeReadBeforeAnythingPlays)
{
    EXPECT_EQ(play(recording + " " + path("missing.wav")), 1);
    EXPECT_THAT(err, StartsWith("kelda-play: " + path("missing.wav") + ": "));
    EXPECT_EQ(numLines(err), 1U) << err;
    EXPECT_THAT(out, IsEmpty());
}

TEST_F(ListTest, PlaysMoreFilesThanMayBeOpen)
{
    std::vector<int> expected;
    for (int i = 1; i <= 100; ++i) {
        createTone("music/" + std::to_string(i) + ".wav", i, 48);
        expected.push_back(i);
    }
    ASSERT_EQ(play(patient + outputs() + path("music"), "ulimit -n 40; "), 0) << err;
    EXPECT_EQ(heardTones(100 * 48), expected);
}

TEST_F(ListTest, OpensTheDeviceAnewForAnotherRate)
{
    FaultySoundCard card;
    createTone("a.wav", 1, 4800);
    createTone("b.wav", 2, 4800);
    createTone("c.wav", 3, 4410, 44100);
    createTone("d.wav", 4, 4800);
    ASSERT_EQ(play("--device faulty" + patient + path("a.wav") + " " + path("b.wav") + " " +
                   path("c.wav") + " " + path("d.wav")),
              0)
        << err;
    std::vector<std::int16_t> samples = card.played<std::int16_t>();
    std::erase(samples, 0);
    EXPECT_EQ(tonesOf(samples, 1000 / 32768.0), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(samples.size(), 2U * (3 * 4800 + 4410)) << "each frame once";
    EXPECT_THAT(out, StartsWith("faulty: 48000 Hz, 2 channels, S16LE, "));
    EXPECT_THAT(out, HasSubstr("\nfaulty: 44100 Hz, 2 channels, S16LE, "));
    EXPECT_THAT(out, HasSubstr("\nplayed        0.400 s in ")) << "one summary of all";
    EXPECT_EQ(out.find("played  "), out.rfind("played  "));
}

TEST_F(ListTest, LoopsAndEndsAfterTheDurationOfTheWholeList)
{
    createTone("a.wav", 1, 4800);
    writeStereo(path("b.wav"), wav16, std::vector<double>(4410, 0.5), 22050);
    ASSERT_EQ(play(patient + "--loop --duration 0.35 " + path("a.wav") + " " + path("b.wav")), 0)
        << err;
    EXPECT_THAT(out, HasSubstr("\nplayed        0.350 s in "));
    const std::string device = "fake: ";
    std::size_t opened = 0;
    for (std::size_t at = out.find(device); at != std::string::npos;
         at = out.find(device, at + 1)) {
        ++opened;
    }
    EXPECT_EQ(opened, 4U) << out;
}

TEST_F(ListTest, RefusesOneRecordOfSeveralStreams)
{
    createTone("a.wav", 1, 48);
    for (const std::string& option : {"--record " + path("r.wav"), "--trace " + path("t.csv"),
                                      "--report " + path("report"), std::string("--gap 1:1")}) {
        EXPECT_EQ(play(option + " " + path("a.wav") + " " + recording), 2) << option;
        EXPECT_EQ(err, "kelda-play: " + option.substr(0, option.find(' ')) +
                           " takes one stream, but " + recording +
                           " has 1 channels at 48000 Hz and " + path("a.wav") +
                           " 2 channels at 48000 Hz\n");
        EXPECT_THAT(out, IsEmpty());
    }
    EXPECT_FALSE(std::filesystem::exists(path("r.wav")));
}

TEST_F(ListTest, EndsWithTheFirstOfSeveralStreamsOnCtrlC)
{
    createTone("a.wav", 1, 3 * 48000, 44100);
    EXPECT_EQ(interrupt(patient + "--loop " + path("a.wav") + " " + recording, SIGINT), 0) << err;
    EXPECT_LT(latency.count(), 1) << "s; it has not played to the end";
    EXPECT_EQ(out.find("48000 Hz"), std::string::npos) << out;
}

TEST_F(ListTest, PlaysWhatCouldBeDecodedOfAFileThatVanishes)
{
    createTone("a.wav", 1, 2 * 48000);
    createTone("b.wav", 2, 480);
    const auto remove = [this] {
        pass(std::chrono::seconds(1));
        std::filesystem::remove(path("b.wav"));
    };
    EXPECT_EQ(
        doWhile([this] { return play(" --queue-ms 100 " + path("a.wav") + " " + path("b.wav")); },
                remove),
        1);
    EXPECT_THAT(err, StartsWith("kelda-play: " + path("b.wav") + ": "));
    EXPECT_THAT(out, HasSubstr("\nplayed        2.000 s in "));
}
