// What a listener is told: the same words on the console, as JSON, and on the page.

#include "Verdict.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "JsonPresenter.h"
#include "Records.h"
#include "Report.h"
#include "Statistics.h"
#include "audioUtils/device/FakeOutputDevice.h"

using keldaSync::BlockRecord;
using keldaSync::SyncStatistics;
using syncTest::Stream;
using testing::HasSubstr;

namespace {

struct Run
{
    const char* name;
    std::function<void(Stream&)> play;
    std::string verdict;
    std::string reason; ///< a part of it
};

std::ostream& operator<<(std::ostream& out, const Run& run)
{
    return out << run.name;
}

void underrun(Stream& stream)
{
    BlockRecord dry;
    dry.result = audioUtils::OutputDevice::Underrun;
    stream.begin().play(4, 100).add(dry).play(4, 100);
}

void jump(Stream& stream)
{
    BlockRecord reset;
    reset.resets = 1;
    stream.begin().play(4, 100).gap(9600).add(reset).play(4, 100);
}

void skip(Stream& stream)
{
    BlockRecord late;
    late.skippedFrames = 960;
    stream.begin().play(4, 100).add(late).play(4, 100);
}

void skipAll(Stream& stream)
{
    BlockRecord late;
    late.skippedFrames = 960;
    late.paddedFrames = syncTest::framesPerBlock;
    stream.add(late).add(late);
}

void driftAway(Stream& stream)
{
    stream.begin();
    for (int second = 0; second < 60; ++second) { // at 100 ppm
        stream.play(1, 100.0 * second);
    }
}

void wakeUpLate(Stream& stream)
{
    stream.begin();
    for (int second = 0; second < 60; ++second) { // once every two seconds
        stream.play(1, 200).play(second % 2 == 0 ? 0 : 0.01, 5000);
    }
}

void jitter(Stream& stream)
{
    stream.begin();
    for (int i = 0; i < 1000; ++i) {
        stream.play(0.09, 100).play(0.01, i % 2 == 0 ? 3000 : -3000);
    }
}

// 1 % of a night are minutes.
void beOffForAWhile(Stream& stream)
{
    stream.begin().play(600, 10).play(3, 2000).play(600, 10);
}

const Run runs[] = {
    {"PlainPlaying", [](Stream& stream) { stream.begin().play(10, -250); }, "In sync",
     "99 % of the time each frame was heard within 250.0 us of when it should be; nothing was"},
    {"Locked", [](Stream& stream) { stream.begin().play(2, 500).play(10, 3); }, "In sync",
     "within 3.0 us"},
    {"WakeUps", wakeUpLate, "In sync", "within 200."},
    {"SilenceAtBothEnds", [](Stream& stream) { stream.pad(1).begin().play(4).pad(1); }, "In sync",
     "nothing was lost"},
    {"Gap", [](Stream& stream) { stream.begin().play(4, 100).gap(8819).play(4, 100); },
     "Interrupted", "1 event, 0 frames lost, 8819 of silence in gaps; 99 % of the time"},
    {"Underrun", underrun, "Interrupted", "1 event, 0 frames lost, 1 underrun; 99 %"},
    {"Skip", skip, "Interrupted", "1 event, 960 frames lost; 99 %"},
    {"Jump", jump, "Interrupted", "1 event, 14400 frames lost, 9600 of silence in gaps; 99 %"},
    {"DeviceGoneAndBack", [](Stream& stream) { stream.begin().play(4).loseDevice(2).play(4); },
     "Interrupted", "1 event, 96000 frames lost; 99 %"},
    {"DeviceGoneForGood", [](Stream& stream) { stream.begin().play(4).loseDevice(2); },
     "Interrupted", "1 event, 96000 frames lost; 99 %"},
    {"ShortAndInterrupted", [](Stream& stream) { stream.begin().play(0.3).pad(0.1).play(0.3); },
     "Interrupted", "1 event, 4800 frames lost; only 0.6 s"},
    {"Late", [](Stream& stream) { stream.begin().play(10, 20'000); }, "Not in sync",
     "within 20.0 ms of when it should be, and 1 ms is in sync; nothing was lost"},
    {"Drift", driftAway, "Not in sync", "and 1 ms is in sync"},
    {"Jitter", jitter, "Not in sync", "within 3000.0 us"},
    {"OffForAWhile", beOffForAWhile, "Not in sync", "but for 3 seconds by more than 1 ms"},
    {"Short", [](Stream& stream) { stream.begin().play(0.8); }, "Not measured",
     "only 0.8 s went on without an interruption"},
    {"Unrecorded", [](Stream& stream) { stream.begin().play(5).missRecords(3).play(5); },
     "Not measured", "3 blocks went by unrecorded"},
    {"InterruptedAndUnrecorded",
     [](Stream& stream) { stream.begin().play(4).pad(0.1).missRecords(1).play(4); }, "Interrupted",
     "1 event, 4800 frames lost, 1 block went by unrecorded; 99 %"},
    {"AllUnrecorded", [](Stream& stream) { stream.missRecords(500); }, "Not measured",
     "500 blocks went by unrecorded"},
    {"Nothing", [](Stream&) {}, "Nothing heard", "no frame"},
    {"AllLost", skipAll, "Nothing heard", "1 event, 1920 frames lost"},
    {"NoDevice", [](Stream& stream) { stream.loseDevice(2); }, "Nothing heard",
     "96000 frames lost"},
};

class VerdictTest : public testing::TestWithParam<Run>
{
protected:
    VerdictTest()
    {
        Stream stream(sync);
        GetParam().play(stream);
    }

    SyncStatistics sync;
};

/// The last line of --json.
std::string endOf(const SyncStatistics& sync)
{
    const audioUtils::FakeOutputDevice device;
    const keldaPlay::DeviceRequest request;
    keldaPlay::JsonPresenter presenter(keldaPlay::ColorChoice::Never);
    testing::internal::CaptureStdout();
    presenter.streamStarts({{}, request, device, ""});
    presenter.ends(sync, keldaPlay::Ended, "");
    std::string text = testing::internal::GetCapturedStdout();
    return text.substr(text.find('\n') + 1);
}

} // namespace

TEST_P(VerdictTest, IsWhatAListenerHasHeard)
{
    EXPECT_EQ(toString(verdictOf(sync)), GetParam().verdict);
    EXPECT_THAT(reasonOf(sync), HasSubstr(GetParam().reason));
}

TEST_P(VerdictTest, IsTheSameOnTheConsoleAsJsonAndOnThePage)
{
    const std::string verdict = GetParam().verdict;
    const std::string reason = reasonOf(sync);
    EXPECT_THAT(keldaPlay::summaryOf(sync),
                HasSubstr("\nverdict       " + verdict + ": " + reason));

    const auto event = nlohmann::json::parse(endOf(sync));
    EXPECT_EQ(event.at("verdict"), verdict);
    EXPECT_EQ(event.at("reason"), reason);
    EXPECT_EQ(event.at("events"), sync.events().size());
    EXPECT_EQ(event.at("errorWorst").is_null(), !sync.errors().areMeasured());

    const std::filesystem::path folder =
        testing::TempDir() + "kelda-verdict-" + std::to_string(getpid());
    keldaReport::write(folder, {GetParam().name, sync, keldaReport::linesOf(sync), {}});
    std::ostringstream page;
    page << std::ifstream(folder / "index.html").rdbuf();
    EXPECT_THAT(page.str(), HasSubstr(">" + verdict + "</h1><p>" + reason + ".</p>"));
    EXPECT_EQ(page.str().find("class=yes>In sync") != std::string::npos, verdict == "In sync");
    std::filesystem::remove_all(folder);
}

INSTANTIATE_TEST_SUITE_P(Runs, VerdictTest, testing::ValuesIn(runs),
                         [](const auto& run) { return std::string(run.param.name); });
