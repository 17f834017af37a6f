// The player on real sound servers, through libasound's own plugins for them.

#include <algorithm>

#include "PlayFixture.h"
#include "support/SoundServer.h"

using namespace keldaPlayTest;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;
using testSupport::SoundServer;

namespace {

class SoundServerTest : public PlayTest, public testing::WithParamInterface<SoundServer::Kind>
{
protected:
    void SetUp() override
    {
        if (const std::string missing = SoundServer::missing(GetParam()); !missing.empty()) {
            GTEST_SKIP() << missing;
        }
        isVirtual = false; // the server's time is real
    }

    /// Plays this file to the server; what its sink has played meanwhile.
    std::vector<std::int16_t> heardOf(const std::string& file)
    {
        SoundServer server(GetParam(), folder);
        return heardFrom(server, "--period 480 --buffer 24000 " + file,
                         std::chrono::milliseconds(50));
    }

    std::vector<std::int16_t> heardFrom(SoundServer& server, const std::string& arguments,
                                        std::chrono::milliseconds monitorLatency)
    {
        EXPECT_TRUE(server.start()) << server.log();
        const auto monitor = server.record(path("heard.raw"), monitorLatency);
        EXPECT_NE(monitor, nullptr) << read("record.log");

        EXPECT_EQ(play("--device server " + arguments), 0) << err;
        EXPECT_THAT(out, StartsWith("server: 48000 Hz, 2 channels, S16LE, "));
        EXPECT_THAT(out, HasSubstr("0 frames skipped, 0 missing, 0 underruns\n"));

        const auto held = monitorLatency + std::chrono::milliseconds(250); // by the monitor
        std::this_thread::sleep_for(held);
        const std::string bytes = read("heard.raw");
        std::vector<std::int16_t> heard(bytes.size() / 2);
        bytes.copy(reinterpret_cast<char*>(heard.data()), heard.size() * 2);
        return heard;
    }
};

const auto name = [](const auto& kind) {
    return kind.param == SoundServer::Kind::PulseAudio ? "PulseAudio" : "PipeWire";
};
const auto isHeard = [](std::int16_t sample) { return sample != 0; };

class PulseAudioTest : public SoundServerTest
{
protected:
    /// Of a.wav.
    void expectAllHeard(const std::vector<std::int16_t>& heard) const
    {
        const Sound sound = load(path("a.wav"));
        const auto first = std::find_if(heard.begin(), heard.end(), isHeard);
        ASSERT_GE(static_cast<std::size_t>(heard.end() - first), sound.samples.size());
        EXPECT_TRUE(std::equal(
            sound.samples.begin(), sound.samples.end(), first,
            [](double played, std::int16_t sample) { return played * 32768 == sample; }));
    }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(, SoundServerTest,
                         testing::Values(SoundServer::Kind::PulseAudio,
                                         SoundServer::Kind::PipeWire),
                         name);
INSTANTIATE_TEST_SUITE_P(SoundServerTest, PulseAudioTest,
                         testing::Values(SoundServer::Kind::PulseAudio), name);

TEST_P(SoundServerTest, PlaysTheFile)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000);
    const auto heard = heardOf(path("a.wav"));
    EXPECT_TRUE(std::any_of(heard.begin(), heard.end(), isHeard));
}

TEST_P(PulseAudioTest, HearsTheFileFrameByFrame) // PipeWire's recorder is not that exact
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 3 * 48000);
    expectAllHeard(heardOf(path("a.wav")));
}

// This sink renders up to two seconds ahead, as nobody asks it for less, and takes nothing more for
// as long when it wakes up.
TEST_P(PulseAudioTest, HearsTheFileFromItsFirstFrameOnASinkThatStartsSlowly)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 3 * 48000);
    SoundServer server(GetParam(), folder, "");
    expectAllHeard(heardFrom(server, path("a.wav"), std::chrono::seconds(2)));
    EXPECT_THAT(out, ContainsRegex("\nmoved         [0-9]+\\.[0-9]+ s later than planned"));
}
