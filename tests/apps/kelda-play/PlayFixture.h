#pragma once

// What the tests of the whole player share: sound files, running it in virtual time, and what it
// leaves behind.

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <sndfile.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/NumberedSound.h"
#include "support/TraceFile.h"
#include "support/VirtualTime.h"

namespace keldaPlayTest {

using testSupport::createNumberedFrames;
using testSupport::TraceRow;

inline const std::string recording = "/usr/share/sounds/alsa/Front_Center.wav";
// Half a second of other work on this machine does not let it run dry, nor 90 ms jump.
inline const std::string patient = " --period 480 --buffer 24000 --jump-threshold 90 ";

struct Sound
{
    SF_INFO info{};
    std::vector<double> samples;

    [[nodiscard]] std::size_t frames() const { return static_cast<std::size_t>(info.frames); }
};

inline Sound load(const std::string& path)
{
    Sound sound;
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &sound.info);
    if (file == nullptr) {
        ADD_FAILURE() << path << ": " << sf_strerror(nullptr);
        return sound;
    }
    sound.samples.resize(sound.frames() * static_cast<std::size_t>(sound.info.channels));
    EXPECT_EQ(sf_readf_double(file, sound.samples.data(), sound.info.frames), sound.info.frames);
    sf_close(file);
    return sound;
}

/// Writes interleaved stereo.
inline void writeStereo(const std::string& path, int format, const std::vector<double>& samples,
                        int rate = 48000)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 2;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    const auto frames = static_cast<sf_count_t>(samples.size() / 2);
    EXPECT_EQ(sf_writef_double(file, samples.data(), frames), frames);
    sf_close(file);
}

/// Writes an exactly reproducible stereo noise.
inline void createSound(const std::string& path, int format, sf_count_t frames)
{
    std::vector<double> samples(static_cast<std::size_t>(frames) * 2);
    unsigned int random = 1;
    for (double& sample : samples) {
        random = random * 1664525U + 1013904223U;
        sample = random / 4294967296.0 * 1.4 - 0.7;
    }
    writeStereo(path, format, samples);
}

class PlayTest : public testing::Test
{
protected:
    PlayTest() { std::filesystem::create_directory(folder); }
    ~PlayTest() override { std::filesystem::remove_all(folder); }

    [[nodiscard]] std::string path(const std::string& name) const { return folder / name; }

    /// The player in virtual time, as a shell's command: "preloaded" is a library for it to load
    /// first.
    [[nodiscard]] std::string player(const std::string& preloaded = "")
    {
        return (isVirtual ? time.environment(preloaded) : "") + KELDA_PLAY " " + clickRemoval;
    }

    /// Where a command's outputs go, for a shell.
    [[nodiscard]] std::string kept() const { return " >" + path("out") + " 2>" + path("err"); }

    /// Runs the player to its end; the arguments are a shell's.
    int play(const std::string& arguments, const std::string& preloaded = "")
    {
        return run(player(preloaded) + arguments + kept() + " </dev/null");
    }

    /// Runs a player, and does something meanwhile: at times that `time` comes to, and stands still
    /// at.
    template<typename Run, typename Function>
    int doWhile(Run runPlayer, Function function)
    {
        time.beginAnew();
        time.holdAt(std::chrono::nanoseconds(0));
        int status = -1;
        std::thread player([&] { status = runPlayer(); });
        function();
        time.release();
        player.join();
        return status;
    }

    /// Lets so much of the player's time pass.
    void pass(std::chrono::nanoseconds duration) { EXPECT_TRUE(time.pass(duration)); }

    /// Runs a shell's command to its end.
    int run(const std::string& command) { return finish(std::system(command.c_str())); }

    int finish(int status)
    {
        out = read("out");
        err = read("err");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    /// Starts the player, sends it a signal after a while, and waits for its end.
    int interrupt(const std::string& arguments, int signal)
    {
        return interruptCommand(player() + arguments + kept() + " </dev/null", signal);
    }

    /// The same for a shell's command.
    int interruptCommand(const std::string& command, int signal)
    {
        const std::string line = "exec " + command;
        const char* argv[] = {"sh", "-c", line.c_str(), nullptr};
        pid_t process = 0;
        time.beginAnew();
        time.holdAt(std::chrono::milliseconds(1500));
        EXPECT_EQ(
            posix_spawn(&process, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ),
            0);
        EXPECT_TRUE(time.isHeld());
        const auto before = time.now();
        kill(process, signal);
        time.release();
        int status = 0;
        waitpid(process, &status, 0);
        latency = time.now() - before;
        return finish(status);
    }

    [[nodiscard]] std::string read(const std::string& name) const
    {
        std::ostringstream text;
        text << std::ifstream(path(name)).rdbuf();
        return text.str();
    }

    [[nodiscard]] std::vector<TraceRow> trace() const
    {
        return testSupport::readTrace(path("t.csv"));
    }

    /// The frames of silence that the device was given before the first frame of the stream.
    [[nodiscard]] std::size_t lead() const
    {
        std::size_t frames = 0;
        for (const TraceRow& row : trace()) {
            if (row.data() > 0) {
                return frames + row.silence;
            }
            frames += row.frames;
        }
        ADD_FAILURE() << "no audio at all";
        return frames;
    }

    /// What the device was given from the first frame of the stream on, cut to so many frames; the
    /// rest must be silence.
    [[nodiscard]] Sound recorded(std::size_t frames) const
    {
        Sound sound = load(path("r.wav"));
        const auto channels = static_cast<std::size_t>(sound.info.channels);
        const std::size_t skipped = lead();
        if (sound.frames() < skipped + frames) {
            ADD_FAILURE() << "only " << sound.frames() << " frames";
            return {};
        }
        const auto begin = sound.samples.begin() + static_cast<std::ptrdiff_t>(skipped * channels);
        EXPECT_THAT(std::vector<double>(sound.samples.begin(), begin), testing::Each(0.0));
        const auto end = begin + static_cast<std::ptrdiff_t>(frames * channels);
        EXPECT_THAT(std::vector<double>(end, sound.samples.end()), testing::Each(0.0));
        sound.samples = std::vector<double>(begin, end);
        return sound;
    }

    [[nodiscard]] std::string outputs() const
    {
        return " --record " + path("r.wav") + " --trace " + path("t.csv") + " ";
    }

    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("kelda-play-test-" + std::to_string(getpid()));
    testSupport::VirtualTime time;
    bool isVirtual = true; ///< else the player runs in real time
    std::string out;
    std::string err;
    std::chrono::duration<double> latency{};          ///< from a signal to the end
    std::string clickRemoval = "--no-click-removal "; // tests want to see every sample as it was
};

inline std::size_t numLines(const std::string& text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

inline std::size_t numOccurrences(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

} // namespace keldaPlayTest
