// The drivers of real sound cards, in the machine that scripts/test-soundcard boots: the library
// and the player on each of them, and what reached the cards that let it be seen.

#include <algorithm>
#include <cmath>

#include <alsa/asoundlib.h>

#include "PlayFixture.h"
#include "audioUtils/device/AlsaOutputDevice.h"

using namespace keldaPlayTest;
using audioUtils::AlsaOutputDevice;
using audioUtils::OutputDevice;
using audioUtils::TimeValue;
using miscUtils::getMonotonicRawSysclockTime;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr std::uint32_t numFrames = 3 * 48000;

struct Card
{
    const char* name;
    const char* device;
};

std::ostream& operator<<(std::ostream& out, const Card& card)
{
    return out << card.name;
}

class SoundCard : public PlayTest, public testing::WithParamInterface<Card>
{
protected:
    SoundCard()
    {
        isVirtual = false; // the machine keeps a time of its own
        createNumberedFrames(file, numFrames);
    }

    int playOn(const std::string& options)
    {
        return play(std::string("--device ") + GetParam().device +
                    " --no-click-removal --period 1024 --buffer 8192 --trace " + path("t.csv") +
                    " " + options + " " + file);
    }

    const std::string file = path("numbered.wav");
};

INSTANTIATE_TEST_SUITE_P(, SoundCard,
                         testing::Values(Card{"dummy", "hw:0"}, Card{"aloop", "hw:1,0"},
                                         Card{"hda", "hw:2"}),
                         [](const auto& instance) { return instance.param.name; });

/// The least squares line through the due times of the blocks: ns a frame, and the worst deviation.
struct Line
{
    double slope = 0;
    double worst = 0;
};

Line lineThrough(const std::vector<double>& x, const std::vector<double>& y)
{
    const auto count = static_cast<double>(x.size());
    const double meanX = std::accumulate(x.begin(), x.end(), 0.0) / count;
    const double meanY = std::accumulate(y.begin(), y.end(), 0.0) / count;
    double xx = 0;
    double xy = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        xx += (x[i] - meanX) * (x[i] - meanX);
        xy += (x[i] - meanX) * (y[i] - meanY);
    }
    Line line{xy / xx, 0};
    for (std::size_t i = 0; i < x.size(); ++i) {
        line.worst = std::max(line.worst, std::abs(y[i] - meanY - line.slope * (x[i] - meanX)));
    }
    return line;
}

/// How many frames of the file follow on one another from its first on.
std::size_t framesInOrder(const std::vector<std::uint32_t>& heard)
{
    const auto first = std::find(heard.begin(), heard.end(), 1U);
    std::size_t count = 0;
    while (heard.end() - first > static_cast<std::ptrdiff_t>(count) &&
           first[static_cast<std::ptrdiff_t>(count)] == count + 1) {
        ++count;
    }
    return count;
}

} // namespace

TEST_P(SoundCard, PlaysInTime)
{
    ASSERT_EQ(playOn(""), 0) << err;
    EXPECT_THAT(out,
                StartsWith(std::string(GetParam().device) + ": 48000 Hz, 2 channels, S16LE, "));
    EXPECT_THAT(out, HasSubstr("0 frames skipped, 0 missing, 0 underruns\n"));
    std::printf("%s", out.substr(out.find("played ")).c_str());
}

TEST_P(SoundCard, KnowsWhenAFrameIsHeard)
{
    AlsaOutputDevice device;
    ASSERT_TRUE(
        device.open(GetParam().device, audioUtils::S16LE, 48000, 2, 8192, 1024, 8192, false, ""));
    std::vector<std::uint32_t> block(device.periodSize());
    std::vector<double> written;
    std::vector<double> due;
    const TimeValue start = getMonotonicRawSysclockTime();
    for (double frames = 0; frames < 3 * 48000; frames += static_cast<double>(block.size())) {
        std::this_thread::sleep_for(
            std::chrono::milliseconds(written.size() % 8)); // since the status
        const std::int64_t delay = device.getCompensatedRenderingDelay();
        const TimeValue now = getMonotonicRawSysclockTime();
        if (frames > 16384) {
            written.push_back(frames);
            due.push_back(static_cast<double>(now - start) + static_cast<double>(delay));
            EXPECT_GT(delay, 0);
            EXPECT_LT(delay, 300'000'000);
            const auto age =
                static_cast<std::int64_t>(now / 1000) - device.lastRenderingDelay().timestamp;
            EXPECT_GE(age, 0) << "us";
            EXPECT_LT(age, 80'000) << "us: the two system clocks may stand 100 ms apart";
        }
        ASSERT_EQ(device.write(block.data(), block.size()), OutputDevice::Success);
    }
    const TimeValue audioBefore = device.currentAudioTimestamp();
    ASSERT_EQ(device.write(block.data(), block.size()), OutputDevice::Success);
    ASSERT_NE(audioBefore, miscUtils::NoTimeValue);
    EXPECT_NEAR(static_cast<double>(device.currentAudioTimestamp() - audioBefore), 21.3e6, 5e6);

    const Line line = lineThrough(written, due);
    const double ppm = (line.slope * 48000e-9 - 1) * 1e6;
    std::printf("rate error %+.0f ppm, worst deviation %.0f us\n", ppm, line.worst / 1000);
    EXPECT_NEAR(ppm, 0, 100);
    EXPECT_LT(line.worst, 1e6) << "ns";

    const TimeValue before = getMonotonicRawSysclockTime();
    device.drain();
    const auto drained = static_cast<double>(getMonotonicRawSysclockTime() - before) / 1e6;
    std::printf("drained in %.0f ms\n", drained);
    EXPECT_NEAR(drained, 170, 25);
}

TEST_P(SoundCard, IsBackInStepAfterAStall)
{
    // After the first second of sound, in which the file would be moved in time.
    const std::string command = "sleep 2; kill -STOP $(pidof kelda-play); sleep 0.5; "
                                "kill -CONT $(pidof kelda-play)";
    std::thread stall([&] { EXPECT_EQ(std::system(command.c_str()), 0); });
    const int status = playOn("");
    stall.join();
    ASSERT_EQ(status, 4) << err;
    EXPECT_THAT(out, testing::ContainsRegex(", [1-9] underruns?"));
    const std::vector<TraceRow> rows = trace();
    std::uint64_t heard = 0;
    std::uint64_t skipped = 0;
    for (const TraceRow& row : rows) {
        heard += row.data();
        skipped += row.skipped;
    }
    EXPECT_EQ(heard + skipped, numFrames) << "what is lost is counted";
    EXPECT_GT(skipped, 48000 / 5U);
    EXPECT_LT(std::abs(rows[rows.size() - 20].delta), 25'000'000) << "ns";
}

TEST(Loopback, CarriesTheFileFrameByFrame)
{
    const auto folder = std::filesystem::temp_directory_path();
    const std::string file = folder / "loopback.wav";
    const std::string heardFile = folder / "loopback.raw";
    createNumberedFrames(file, numFrames);
    const std::string play =
        KELDA_PLAY " --device hw:1,0 --no-click-removal --period 1024 --buffer 8192 " + file;
    ASSERT_EQ(std::system(("arecord -q -D hw:1,1 -f S16_LE -c 2 -r 48000 -t raw -d 8 " + heardFile +
                           " & sleep 1.5; " + play + "; wait")
                              .c_str()),
              0);
    std::ifstream in(heardFile, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    std::vector<std::uint32_t> heard(bytes.size() / 4);
    bytes.copy(reinterpret_cast<char*>(heard.data()), heard.size() * 4);
    EXPECT_GE(framesInOrder(heard), numFrames - 2048) << "all but the tail at the drain";
}

// The HDA card's sound is a file that is whole only when its machine has ended.
TEST(OnTheHost, FindsThatTheFileReachedTheHdaCard)
{
    const std::string results = std::getenv("KELDA_RESULTS");
    SF_INFO info{};
    SNDFILE* file = sf_open((results + "/hda.wav").c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    EXPECT_EQ(info.samplerate, 48000);
    ASSERT_EQ(info.channels, 2);
    std::vector<std::uint32_t> heard(static_cast<std::size_t>(info.frames));
    sf_readf_short(file, reinterpret_cast<short*>(heard.data()), info.frames);
    sf_close(file);
    const std::size_t inOrder = framesInOrder(heard);
    std::printf("%zu of %u frames, in order\n", inOrder, numFrames);
    EXPECT_GE(inOrder, numFrames - 2048) << "all but the last before the drain";
}
