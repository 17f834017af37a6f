// What the player's audio path promises while it plays: nothing that another program, or another
// thread, can make it wait for.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "PlayFixture.h"
#include "support/DsdFiles.h"
#include "support/FaultySoundCard.h"

using namespace keldaPlayTest;
using testing::IsEmpty;

namespace {

struct Counted
{
    std::string kind;
    std::uint64_t count = 0;
    std::string caller;
};

class AudioPathTest : public PlayTest
{
protected:
    AudioPathTest()
    {
        clickRemoval.clear();
        setenv("KELDA_WATCH", path("watch").c_str(), 1);
    }

    /// Plays to a device, watched.
    void playWatched(const std::string& arguments)
    {
        ASSERT_EQ(play("--device faulty " + arguments, KELDA_WATCH), 0) << err;
        std::ifstream lines(path("watch"));
        Counted line;
        while (lines >> line.kind >> line.count >> line.caller) {
            if (line.kind == "block") {
                blocks = line.count;
            } else {
                counted.push_back(line);
            }
        }
    }

    [[nodiscard]] std::string callersOf(const std::string& kind) const
    {
        std::ostringstream text;
        for (const Counted& line : counted) {
            if (line.kind == kind) {
                text << line.count << " by " << line.caller << '\n';
            }
        }
        return text.str();
    }

    void expectNothingElse() const
    {
        EXPECT_THAT(callersOf("heap"), IsEmpty());
        for (const Counted& line : counted) {
            if (line.kind == "lock") {
                EXPECT_THAT(line.caller, testing::HasSubstr("PcmQueue")) << line.count;
                EXPECT_LE(line.count, blocks + 100) << line.caller;
            }
        }
        EXPECT_THAT(callersOf("system"), IsEmpty());
    }

    testSupport::FaultySoundCard card;
    std::vector<Counted> counted;
    std::uint64_t blocks = 0;
};

} // namespace

// Through all that the player has between file and device.
TEST_F(AudioPathTest, AMinuteOfPlayingNeedsNothingButTheQueueAndTheDevice)
{
    createSound(path("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, sf_count_t{48000} * 60);
    playWatched("--source-ppm 100 --correct resample " + patient + path("in.wav"));
    EXPECT_GE(blocks, 5700U);
    expectNothingElse();
}

TEST_F(AudioPathTest, NeitherDoesDsd)
{
    std::ofstream(path("in.dff"), std::ios::binary)
        << testSupport::dffFile(testSupport::numberedDsd(5 * 176'400));
    playWatched("--period 1764 --buffer 88200 " + path("in.dff"));
    EXPECT_GE(blocks, 300U);
    expectNothingElse();
}
