// A sound server that dies while the player plays into it, and is started again.

#include <algorithm>

#include "RunningPlayFixture.h"
#include "support/SoundServer.h"

using namespace keldaPlayTest;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testSupport::SoundServer;

namespace {

constexpr std::uint32_t numFrames =
    60 * 48000; // long enough for a server to start on a busy machine

class SoundServerCrashTest : public RunningPlayTest,
                             public testing::WithParamInterface<SoundServer::Kind>
{
protected:
    void SetUp() override
    {
        if (const std::string missing = SoundServer::missing(GetParam()); !missing.empty()) {
            GTEST_SKIP() << missing;
        }
        createNumberedFrames(path("numbered.wav"), numFrames);
        m_server.emplace(GetParam(), folder);
        ASSERT_TRUE(m_server->start()) << m_server->log();
    }

    /// Plays until a part has been heard.
    void startPlaying(const std::string& options)
    {
        const auto monitor = m_server->record(path("before.raw"));
        ASSERT_NE(monitor, nullptr) << read("record.log");
        // A thread that is late by a second does not put silence where frames would be lost.
        start("--device server --period 480 --buffer 12000 --jump-threshold 1000 " + options +
              path("numbered.wav"));
        ASSERT_TRUE(becomes([this] { return !heard("before.raw").empty(); }));
    }

    /// kB that it has ever had.
    [[nodiscard]] std::uint64_t mostMemory() const { return std::stoull(status("VmHWM")); }

    void crash()
    {
        m_server->crash();
        ASSERT_TRUE(becomes([this] { return numOccurrences(read("err"), isGone) == 1; }))
            << read("err");
    }

    /// The frames of the file that were heard, in their order, without silence.
    [[nodiscard]] std::vector<std::uint32_t> heard(const std::string& name) const
    {
        const std::string bytes = read(name);
        std::vector<std::uint32_t> frames(bytes.size() / 4);
        bytes.copy(reinterpret_cast<char*>(frames.data()), frames.size() * 4);
        std::erase(frames, 0U);
        return frames;
    }

    /// A first signal ends the player, for it opens what a stopped server has.
    void expectOneSignalEnds(const std::string& arguments)
    {
        start(arguments);
        ASSERT_TRUE(waits());
        send(SIGINT);
        EXPECT_EQ(end(), -SIGINT) << err;
        EXPECT_THAT(err, EndsWith("kelda-play: ended by SIGINT while device server was being "
                                  "opened\n"));
    }

    const std::string isGone = "The device is gone; the stream waits until it is back\n";
    std::optional<SoundServer> m_server;
};

} // namespace

INSTANTIATE_TEST_SUITE_P(, SoundServerCrashTest,
                         testing::Values(SoundServer::Kind::PulseAudio,
                                         SoundServer::Kind::PipeWire),
                         [](const auto& kind) {
                             return kind.param == SoundServer::Kind::PulseAudio ? "PulseAudio"
                                                                                : "PipeWire";
                         });

TEST_P(SoundServerCrashTest, IsHeardAgainWhenTheServerIsBack)
{
    ASSERT_NO_FATAL_FAILURE(startPlaying(""));
    const std::uint64_t before = mostMemory();
    ASSERT_NO_FATAL_FAILURE(crash());
    EXPECT_LT(mostMemory(), before + 100'000) << "kB";
    ASSERT_TRUE(m_server->start()) << m_server->log();
    const auto monitor = m_server->record(path("after.raw"));
    ASSERT_NE(monitor, nullptr) << read("record.log");
    EXPECT_TRUE(becomes([this] { return !heard("after.raw").empty(); }));
    send(SIGINT);
    EXPECT_EQ(end(), 4) << err;
    EXPECT_THAT(err, ContainsRegex("WARN  kelda-play: The device is back after [0-9]+ ms\n"));
    EXPECT_THAT(out, HasSubstr(" while the device was gone or failed\n"));

    const std::vector<std::uint32_t> frames = heard("after.raw");
    ASSERT_FALSE(frames.empty());
    EXPECT_GT(frames.front(), heard("before.raw").back()) << "nothing twice";
    EXPECT_TRUE(std::ranges::is_sorted(frames));
}

TEST_P(SoundServerCrashTest, EndsOnCtrlCWhileTheServerIsGone)
{
    ASSERT_NO_FATAL_FAILURE(startPlaying("--loop "));
    ASSERT_NO_FATAL_FAILURE(crash());
    send(SIGINT);
    EXPECT_EQ(end(), 3) << err;
    EXPECT_THAT(err, EndsWith("kelda-play: device server has not come back\n"));
}

// What stops, but does not die, is waited for: nobody can know for how long.
TEST_P(SoundServerCrashTest, EndsOnTheSecondCtrlCWhileTheServerIsStopped)
{
    ASSERT_NO_FATAL_FAILURE(startPlaying("--loop "));
    m_server->stop();
    send(SIGINT);
    send(SIGINT);
    EXPECT_EQ(end(), -SIGINT) << err;
}

TEST_P(SoundServerCrashTest, EndsOnCtrlCWhileTheServerDoesNotAnswer)
{
    m_server->stop();
    if (GetParam() == SoundServer::Kind::PulseAudio) {
        expectOneSignalEnds("--device server " + recording);
        clickRemoval.clear();
        expectOneSignalEnds("--describe-device server");
    } else { // whose plugin opens without a word from it, and then takes nothing
        start("--device server " + recording);
        ASSERT_TRUE(becomes([this] { return !read("out").empty(); }));
        send(SIGINT);
        send(SIGINT);
        EXPECT_EQ(end(), -SIGINT) << err;
    }
}
