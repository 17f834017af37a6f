// What kelda-resample writes: what the name says, never over its input, and never half.

#include <cmath>
#include <set>

#include <fcntl.h>
#include <sys/stat.h>

#include "PlayFixture.h"

namespace {

using namespace keldaPlayTest;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
namespace fs = std::filesystem;

constexpr int wav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

class ResampleTest : public PlayTest
{
protected:
    int resample(const std::string& arguments)
    {
        const std::string command = "cd " + folder.string() + " && " KELDA_RESAMPLE " " +
                                    arguments + " >out 2>err </dev/null";
        return finish(std::system(command.c_str()));
    }

    [[nodiscard]] std::set<std::string> names() const
    {
        std::set<std::string> found;
        for (const auto& entry : fs::directory_iterator(folder)) {
            const std::string name = entry.path().filename();
            if (name != "out" && name != "err") {
                found.insert(name);
            }
        }
        return found;
    }

    [[nodiscard]] int formatOf(const std::string& name) const
    {
        SF_INFO info{};
        SNDFILE* const file = sf_open(path(name).c_str(), SFM_READ, &info);
        EXPECT_NE(file, nullptr) << name;
        sf_close(file);
        EXPECT_EQ(info.samplerate, 24'000);
        EXPECT_EQ(info.frames, 2400) << name;
        return info.format & (SF_FORMAT_TYPEMASK | SF_FORMAT_SUBMASK);
    }

    /// Starts a conversion whose input does not end, and sends it a signal when it writes.
    int interruptInTheMiddle(int signal)
    {
        EXPECT_EQ(mkfifo(path("in.wav").c_str(), 0666), 0);
        const std::string command = "exec " KELDA_RESAMPLE " in.wav o.wav --rate 44100 2>err";
        const std::string start = "cd " + folder.string() + " && " + command;
        const char* argv[] = {"sh", "-c", start.c_str(), nullptr};
        pid_t process = 0;
        EXPECT_EQ(
            posix_spawn(&process, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ),
            0);
        createSound(path("long.wav"), wav16, 480'000);
        const std::string sound = read("long.wav").substr(0, 100'000);
        const int pipe = open(path("in.wav").c_str(), O_WRONLY | O_CLOEXEC);
        EXPECT_EQ(write(pipe, sound.data(), sound.size()), static_cast<ssize_t>(sound.size()));
        while (std::ranges::none_of(names(), isUnfinished)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        kill(process, signal);
        int status = 0;
        waitpid(process, &status, 0);
        close(pipe);
        return finish(status);
    }

    static bool isUnfinished(const std::string& name) { return name.starts_with(".o.wav.part-"); }
};

TEST_F(ResampleTest, WritesTheFormatThatTheNameEndsWith)
{
    createSound(path("16.wav"), wav16, 4800);
    createSound(path("24.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 4800);
    createSound(path("float.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 4800);
    createSound(path("law.wav"), SF_FORMAT_WAV | SF_FORMAT_ULAW, 4800);
    createSound(path("16.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 4800);
    createSound(path("v.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, 4800);
    createSound(path("o.opus"), SF_FORMAT_OGG | SF_FORMAT_OPUS, 4800);
    createSound(path("x.wav"), SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, 4800);
    createSound(path("8.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 4800);
    const struct
    {
        std::string in;
        std::string out;
        int format;
    } cases[] = {
        {"16.flac", "out.wav", wav16},
        {"16.wav", "out.FLAC", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {"24.wav", "out.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        {"float.wav", "out.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        {"float.wav", "out.caf", SF_FORMAT_CAF | SF_FORMAT_FLOAT},
        {"8.wav", "out.aif", SF_FORMAT_AIFF | SF_FORMAT_PCM_U8},
        {"8.wav", "out.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_S8},
        {"law.wav", "out.wav", SF_FORMAT_WAV | SF_FORMAT_ULAW},
        {"law.wav", "out.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {"v.ogg", "out.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
        {"16.wav", "out.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
        {"o.opus", "out.oga", SF_FORMAT_OGG | SF_FORMAT_OPUS},
        {"16.wav", "out.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
        {"16.wav", "out.au", SF_FORMAT_AU | SF_FORMAT_PCM_16},
        {"24.wav", "out.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_24},
        {"x.wav", "out.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16},
        {"16.wav", "out.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
    };
    for (const auto& [input, output, format] : cases) {
        EXPECT_EQ(resample(input + " " + output + " --rate 24000"), 0) << input << err;
        EXPECT_EQ(formatOf(output), format) << input << " to " << output;
        fs::remove(path(output));
    }
    EXPECT_EQ(resample("16.wav out.mp3 --rate 24000"), 0) << err;
    EXPECT_EQ(resample("out.mp3 back.wav --rate 48000"), 0) << err;
    EXPECT_EQ(load(path("back.wav")).info.format, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
}

TEST_F(ResampleTest, LeavesEverythingAsItWasWhenItRefuses)
{
    createSound(path("a.opus"), SF_FORMAT_OGG | SF_FORMAT_OPUS, 4800);
    createSound(path("a.wav"), wav16, 4800);
    std::ofstream(path("o.opus")) << "before";
    std::ofstream(path("o.mp3")) << "before";
    fs::create_hard_link(path("a.wav"), path("hard.wav"));
    fs::create_symlink("a.wav", path("soft.wav"));
    const auto there = names();
    const std::string opus = read("a.opus");
    const std::string wav = read("a.wav");
    const struct
    {
        std::string arguments;
        std::string message;
        int status;
    } cases[] = {
        {"a.opus a.opus --rate 24000", "a.opus: is the same file that is read", 2},
        {"a.wav ./a.wav --rate 44100", "is the same file that is read, as a.wav", 2},
        {"a.wav hard.wav --rate 44100", "is the same file that is read, as a.wav", 2},
        {"soft.wav a.wav --rate 44100", "is the same file that is read, as soft.wav", 2},
        {"a.wav o.opus --rate 44100", "o.opus: can't be written with 2 channels at 44100 Hz: ", 1},
        {"a.wav o.mp3 --rate 96000", "o.mp3: can't be written with 2 channels at 96000 Hz: ", 1},
        {"a.wav no/o.wav --rate 44100", "no/o.wav: No such file or directory", 1},
        {"a.wav o --rate 44100", "o: the ending tells the format to write, and is none of ", 2},
        {"a.wav o.txt --rate 44100", "is none of .wav, .wave, .rf64, ", 2},
        {"a.wav /dev/stdout --rate 44100", "the ending tells the format", 2},
        {"- - --rate 44100", "-: sound is read from a file and written to a file", 2},
        {"a.wav - --rate 44100", "-: sound is read", 2},
        {"a.wav o.wav --rate 384001", "more than a factor of 8", 1},
    };
    for (const auto& [arguments, message, status] : cases) {
        EXPECT_EQ(resample(arguments), status) << arguments;
        EXPECT_THAT(err, AllOf(StartsWith("kelda-resample: "), HasSubstr(message))) << arguments;
        EXPECT_EQ(numLines(err), 1U) << err;
        EXPECT_THAT(out, IsEmpty()) << arguments;
        EXPECT_EQ(read("a.opus"), opus) << arguments;
        EXPECT_EQ(read("a.wav"), wav) << arguments;
        EXPECT_EQ(read("o.opus") + read("o.mp3"), "beforebefore") << arguments;
        EXPECT_EQ(names(), there) << arguments;
    }
}

TEST_F(ResampleTest, ReplacesAFileOnlyByAWholeOne)
{
    createSound(path("a.wav"), wav16, 48000);
    createSound(path("a.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 480'000);
    const std::string flac = read("a.flac");
    std::ofstream(path("damaged.flac")) << flac.substr(0, flac.size() / 2);
    for (const std::string name : {"o.wav", "o.flac", "o.ogg", "o.caf"}) {
        std::ofstream(path(name)) << "before";
        // As a full disk, in blocks of 1024 bytes.
        const std::string command = "bash -c 'ulimit -f 16; cd " + folder.string() +
                                    "; " KELDA_RESAMPLE " a.wav " + name + " --rate 44100 2>err'";
        EXPECT_EQ(finish(std::system(command.c_str())), 1) << name;
        // (What measures coverage finds the disk full, too, and says so.)
        EXPECT_THAT(err, StartsWith("kelda-resample: " + name + ": File too large\n"));
        EXPECT_EQ(read(name), "before");
        EXPECT_EQ(resample("damaged.flac " + name + " --rate 44100"), 1) << name;
        EXPECT_THAT(err, StartsWith("kelda-resample: damaged.flac: "));
        EXPECT_EQ(read(name), "before");
    }
    fs::create_symlink("/dev/full", path("full.wav"));
    EXPECT_EQ(resample("a.wav full.wav --rate 44100"), 1);
    EXPECT_EQ(err, "kelda-resample: full.wav: No space left on device\n");
    EXPECT_THAT(names(), ElementsAre("a.flac", "a.wav", "damaged.flac", "full.wav", "o.caf",
                                     "o.flac", "o.ogg", "o.wav"));
}

TEST_F(ResampleTest, LeavesNothingButTheOldFileWhenItIsInterrupted)
{
    std::ofstream(path("o.wav")) << "before";
    EXPECT_EQ(interruptInTheMiddle(SIGINT), -SIGINT);
    EXPECT_EQ(read("o.wav"), "before");
    EXPECT_THAT(names(), ElementsAre("in.wav", "long.wav", "o.wav"));
}

TEST_F(ResampleTest, LeavesTheOldFileWhenItIsKilled)
{
    std::ofstream(path("o.wav")) << "before";
    EXPECT_EQ(interruptInTheMiddle(SIGKILL), -SIGKILL);
    EXPECT_EQ(read("o.wav"), "before");
}

TEST_F(ResampleTest, WritesToAPipeWhatNeedsNoWayBack)
{
    createSound(path("a.wav"), wav16, 48000);
    fs::create_directory(path("pipes"));
    for (const std::string ending : {"flac", "ogg", "wav", "aiff", "au"}) {
        ASSERT_EQ(mkfifo(path("pipes/o." + ending).c_str(), 0666), 0);
        const std::string command = "cd " + folder.string() + "; cat pipes/o." + ending +
                                    " >got & " KELDA_RESAMPLE " a.wav pipes/o." + ending +
                                    " --rate 44100 2>err; s=$?; wait; exit $s";
        const bool isStream = ending == "flac" || ending == "ogg";
        EXPECT_EQ(finish(std::system(command.c_str())), isStream ? 0 : 1) << err;
        if (isStream) {
            EXPECT_GT(fs::file_size(path("got")), 1000U);
        } else {
            EXPECT_THAT(err, HasSubstr("such a file's header is completed at its end"));
            EXPECT_EQ(read("got"), "") << "half a file";
        }
    }
}

TEST_F(ResampleTest, ConvertsIn16Bits)
{
    std::vector<double> samples;
    for (int i = 0; i < 96'000; ++i) {
        const double value = 0.5 * std::sin(2 * M_PI * 1000 * i / 48'000);
        samples.push_back(value);
        samples.push_back(value);
    }
    writeStereo(path("a.wav"), wav16, samples);
    for (const std::string rate : {"44100", "48000", "96000", "8000"}) {
        EXPECT_EQ(resample("a.wav o.wav --resampler short --rate " + rate), 0) << err;
        const Sound sound = load(path("o.wav"));
        EXPECT_EQ(sound.frames(), 2 * std::stoul(rate));
        double worst = 0;
        for (std::size_t i = 1000; i < sound.frames() - 1000; ++i) {
            const double wanted =
                0.5 * std::sin(2 * M_PI * 1000 * static_cast<double>(i) / std::stod(rate));
            worst = std::max(worst, std::abs(sound.samples[2 * i] - wanted));
        }
        EXPECT_LT(worst, 0.002) << rate;
    }
}

} // namespace
