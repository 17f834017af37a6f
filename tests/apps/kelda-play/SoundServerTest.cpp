// The player on a real sound server, PulseAudio, through libasound's own plugin for it.

#include <algorithm>

#include "PlayFixture.h"

using namespace keldaPlayTest;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// A program that runs until the end of the test.
class Process
{
public:
    explicit Process(const std::string& command)
    {
        const std::string line = "exec " + command;
        const char* argv[] = {"sh", "-c", line.c_str(), nullptr};
        EXPECT_EQ(
            posix_spawn(&m_id, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ), 0);
    }
    ~Process()
    {
        kill(m_id, SIGTERM);
        waitpid(m_id, nullptr, 0);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

private:
    pid_t m_id = 0;
};

/// A server of our own: no user's settings, no bus, no sound card, and nothing left behind.
class SoundServerTest : public PlayTest
{
protected:
    SoundServerTest()
    {
        // A server does not open to others a folder that others may write.
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
        std::ofstream(path("asound.conf")) << "</usr/share/alsa/alsa.conf>\n"
                                              "pcm.server { type pulse server \"unix:"
                                           << path("socket") << "\" }\n";
        for (const char* variable : {"HOME", "XDG_RUNTIME_DIR", "PULSE_RUNTIME_PATH",
                                     "PULSE_STATE_PATH", "XDG_CONFIG_HOME"}) {
            setenv(variable, folder.c_str(), 1);
        }
        setenv("PULSE_COOKIE", path("cookie").c_str(), 1);
        setenv("PULSE_SERVER", ("unix:" + path("socket")).c_str(), 1);
        setenv("ALSA_CONFIG_PATH", path("asound.conf").c_str(), 1);
    }
    ~SoundServerTest() override
    {
        unsetenv("ALSA_CONFIG_PATH");
        unsetenv("PULSE_SERVER");
    }

    [[nodiscard]] bool waitFor(const std::string& command) const
    {
        for (int i = 0; i < 100; ++i) {
            if (std::system((command + " >/dev/null 2>&1").c_str()) == 0) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }
};

} // namespace

TEST_F(SoundServerTest, HearsTheFileFrameByFrame)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 3 * 48000);
    const Process server(
        "pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no --disable-shm=yes "
        "-L 'module-native-protocol-unix auth-anonymous=1 socket=" +
        path("socket") +
        "' -L 'module-null-sink sink_name=speaker norewinds=1 format=s16le rate=48000 channels=2'"
        " >" +
        path("server.log") + " 2>&1");
    ASSERT_TRUE(waitFor("pactl info")) << read("server.log");
    const Process monitor("parec --raw --device=speaker.monitor --format=s16le --rate=48000 "
                          "--channels=2 --latency-msec=50 >" +
                          path("heard.raw") + " 2>" + path("monitor.log"));
    ASSERT_TRUE(waitFor("test -s " + path("heard.raw"))) << read("monitor.log");

    ASSERT_EQ(play("--device server --period 480 --buffer 24000 " + path("a.wav")), 0) << err;
    EXPECT_THAT(out, StartsWith("server: 48000 Hz, 2 channels, S16LE, "));
    EXPECT_THAT(out, HasSubstr("0 frames skipped, 0 missing, 0 underruns\n"));

    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // what the monitor still holds
    const std::string bytes = read("heard.raw");
    std::vector<std::int16_t> heard(bytes.size() / 2);
    bytes.copy(reinterpret_cast<char*>(heard.data()), heard.size() * 2);
    const Sound sound = load(path("a.wav"));
    const auto first =
        std::find_if(heard.begin(), heard.end(), [](auto sample) { return sample != 0; });
    ASSERT_GE(static_cast<std::size_t>(heard.end() - first), sound.samples.size());
    EXPECT_TRUE(
        std::equal(sound.samples.begin(), sound.samples.end(), first,
                   [](double played, std::int16_t sample) { return played * 32768 == sample; }));
}
