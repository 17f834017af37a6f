// The player on real sound servers, through libasound's own plugins for them.

#include <algorithm>

#include "RunningPlayFixture.h"
#include "support/SoundServer.h"

using namespace keldaPlayTest;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;
using testSupport::SoundServer;

namespace {

// One of the server's, the recorder's or the player's threads may be late by a second: that costs
// no frame, and a delay that is told wrong for as long moves none.
constexpr const char* patientWithServer = "--period 480 --buffer 48000 --jump-threshold 1000 ";

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

    /// Plays a numbered file to the server, and waits until the monitor has so many of its frames.
    /// @return those, without silence
    std::vector<std::uint32_t> heardFrom(SoundServer& server, const std::string& arguments,
                                         std::chrono::milliseconds monitorLatency,
                                         std::size_t least)
    {
        EXPECT_TRUE(server.start()) << server.log();
        const auto monitor = server.record(path("heard.raw"), monitorLatency);
        EXPECT_NE(monitor, nullptr) << read("record.log");

        EXPECT_EQ(play("--device server " + arguments), 0) << err;
        EXPECT_THAT(out, StartsWith("server: 48000 Hz, 2 channels, S16LE, "));
        EXPECT_THAT(out, HasSubstr("0 frames skipped, 0 missing, 0 underruns\n"));

        std::vector<std::uint32_t> frames;
        EXPECT_TRUE(becomes([&] {
            const std::string bytes = read("heard.raw");
            frames.resize(bytes.size() / 4);
            bytes.copy(reinterpret_cast<char*>(frames.data()), frames.size() * 4);
            std::erase(frames, 0U);
            return frames.size() >= least;
        })) << frames.size();
        return frames;
    }
};

const auto name = [](const auto& kind) {
    return kind.param == SoundServer::Kind::PulseAudio ? "PulseAudio" : "PipeWire";
};

class PulseAudioTest : public SoundServerTest
{
protected:
    PulseAudioTest() { createNumberedFrames(path("a.wav"), numFrames); }

    void expectAllHeardFrom(SoundServer& server, std::chrono::milliseconds monitorLatency)
    {
        std::vector<std::uint32_t> all(numFrames);
        std::iota(all.begin(), all.end(), 1U);
        EXPECT_TRUE(
            heardFrom(server, patientWithServer + path("a.wav"), monitorLatency, numFrames) == all);
    }

    static constexpr std::uint32_t numFrames = 3 * 48000;
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
    createNumberedFrames(path("a.wav"), 48000);
    SoundServer server(GetParam(), folder);
    heardFrom(server, patientWithServer + path("a.wav"), std::chrono::milliseconds(50), 1);
}

TEST_P(PulseAudioTest, HearsTheFileFrameByFrame) // PipeWire's recorder is not that exact
{
    SoundServer server(GetParam(), folder);
    expectAllHeardFrom(server, std::chrono::milliseconds(50));
}

// This sink renders up to two seconds ahead, as nobody asks it for less, and takes nothing more for
// as long when it wakes up.
TEST_P(PulseAudioTest, HearsTheFileFromItsFirstFrameOnASinkThatStartsSlowly)
{
    SoundServer server(GetParam(), folder, "");
    expectAllHeardFrom(server, std::chrono::seconds(2));
    EXPECT_THAT(out, ContainsRegex("\nmoved         [0-9]+\\.[0-9]+ s later than planned"));
}
