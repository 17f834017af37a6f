// The scenarios of lab/scenarios, shortened, and what else a stream may meet.

#include "Laboratory.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>

#include "Report.h"
#include "Table.h"
#include "Verdict.h"

using keldaLab::Event;
using keldaLab::Scenario;
using keldaPlay::Correction;
using keldaSync::Verdict;
using testing::HasSubstr;

namespace {

Scenario scenario(const std::string& name, double seconds)
{
    Scenario result = keldaLab::readScenario(KELDA_SCENARIOS "/" + name + ".json");
    result.seconds = std::min(result.seconds, seconds);
    return result;
}

Scenario perfect(double seconds)
{
    Scenario result;
    result.seconds = seconds;
    result.drift.correction = Correction::Resample;
    return result;
}

std::string describe(const std::vector<keldaReport::Line>& table)
{
    return "\n" + keldaReport::textOf(table);
}

class ScenarioTest : public testing::TestWithParam<const char*>
{
};

} // namespace

TEST_P(ScenarioTest, ReachesItsGoals)
{
    Scenario shortened = scenario(GetParam(), 1800);
    const bool listens = shortened.content != "numbers";
    const keldaReport::Audio withClicks =
        listens ? keldaLab::runWithClicks(shortened) : keldaReport::Audio();
    const keldaLab::Result result = keldaLab::run(shortened);
    if (!result.heapGrowth) { // a sanitizer owns the heap
        shortened.goals.erase("heap growth");
    }
    const auto table = keldaLab::tableOf(result, shortened, listens ? &withClicks : nullptr);
    EXPECT_TRUE(keldaReport::isReached(table)) << describe(table);
}

INSTANTIATE_TEST_SUITE_P(All, ScenarioTest,
                         testing::Values("plus-100ppm", "minus-100ppm", "plus-500ppm-wander",
                                         "minus-500ppm-wander", "plus-200ppm-jitter",
                                         "minus-200ppm-jitter", "interruptions", "soak",
                                         "clicks-sine", "clicks-recording"));

// The same events give the same figures, so that what a change does can be told.
TEST(LaboratoryTest, IsReproducible)
{
    const Scenario jittering = scenario("plus-200ppm-jitter", 30);
    EXPECT_EQ(describe(keldaLab::tableOf(keldaLab::run(jittering), jittering)),
              describe(keldaLab::tableOf(keldaLab::run(jittering), jittering)));
}

TEST(LaboratoryTest, TellsAStreamThatIsNotCorrected)
{
    Scenario drifting = perfect(60);
    drifting.source.crystal.ppm = 500;
    drifting.drift.correction = Correction::None;
    const keldaLab::Result result = keldaLab::run(drifting);
    EXPECT_EQ(verdictOf(result.sync), Verdict::NotInSync);
    EXPECT_GT(result.sync.errors().worst(), 10'000);
    EXPECT_GE(result.sync.events().size(), 1U) << "30 ms in a minute: the queue inserts or skips";
}

// The rate of the device instead of the resampler's ratio: the same loop.
TEST(LaboratoryTest, SteersTheDevicesPll)
{
    Scenario steered = perfect(60);
    steered.source.crystal.ppm = -150;
    steered.drift.correction = Correction::Device;
    const keldaLab::Result result = keldaLab::run(steered);
    EXPECT_EQ(result.sync.events().size(), 0U);
    EXPECT_LT(result.sync.lockTime(), 5);
    EXPECT_LT(result.sync.lockedErrors().rms(), 2);
}

// What waits in the queue and the device is timed by clocks that are off: both have to be known.
TEST(LaboratoryTest, KnowsTheSourcesClockFromTheDevices)
{
    Scenario both = perfect(600);
    both.source.crystal.ppm = 40;
    both.device.crystal.ppm = -80;
    const keldaLab::Result result = keldaLab::run(both);
    EXPECT_EQ(result.sync.events().size(), 0U);
    EXPECT_LT(result.sync.lockedErrors().percentile(0.9), 3)
        << "once the device's rate is known well";
    EXPECT_LT(result.sync.lockedErrors().worst(), 15);
}

// The click filter's delay is part of the due time: to the frame, and far below.
TEST(LaboratoryTest, HearsFramesAtTheSameTimeWithAndWithoutClickRemoval)
{
    Scenario with = perfect(60);
    with.source.crystal.ppm = 100;
    Scenario without = with;
    without.clicks.enabled = false;
    const keldaLab::Result a = keldaLab::run(with);
    const keldaLab::Result b = keldaLab::run(without);
    EXPECT_LT(a.sync.lockedErrors().worst(), 3);
    EXPECT_NEAR(a.sync.lockedErrors().rms(), b.sync.lockedErrors().rms(), 0.5);
    Scenario slow = with;
    slow.clicks = {true, 40, 10, 5, false};
    EXPECT_LT(keldaLab::run(slow).sync.lockedErrors().worst(), 3);
}

TEST(LaboratoryTest, LocksToOtherRatesAndPackets)
{
    Scenario other = perfect(60);
    other.sampleRate = 44100;
    other.source.packetFrames = 1152;
    other.source.burstPackets = 4;
    other.device.periodFrames = 1024;
    other.device.bufferFrames = 4096;
    other.source.crystal.ppm = 60;
    const keldaLab::Result result = keldaLab::run(other);
    EXPECT_EQ(result.sync.events().size(), 0U);
    EXPECT_LT(result.sync.lockTime(), 5);
    EXPECT_LT(result.sync.lockedErrors().rms(), 2);
}

TEST(LaboratoryTest, FollowsAClockThatChanges)
{
    Scenario wandering = perfect(900);
    wandering.source.crystal = {0, 100, 60}; // up to 1 ppm a second
    const keldaLab::Result result = keldaLab::run(wandering);
    EXPECT_EQ(result.sync.events().size(), 0U);
    EXPECT_LT(result.sync.lockedErrors().worst(), 300);
}

TEST(LaboratoryTest, CountsAnEventOnce)
{
    Scenario gaps = perfect(60);
    gaps.events = {{20, Event::Kind::Gap, 300}, {40, Event::Kind::Stop, 700}};
    const keldaLab::Result result = keldaLab::run(gaps);
    EXPECT_EQ(result.sync.events().size(), 2U);
    EXPECT_EQ(result.sync.silences(), 2U);
    EXPECT_TRUE(result.sync.isLocked());
}

// Filling a device takes as long as it takes: only when it runs is it known when it started.
TEST(LaboratoryTest, IsAlignedAgainWhenTheDeviceHasBeenFilled)
{
    Scenario slow = perfect(20);
    slow.drift.correction = Correction::None;
    slow.device.wakeUpUs = 500;
    slow.events = {{10, Event::Kind::Underrun, 300}};
    const keldaLab::Result result = keldaLab::run(slow);
    EXPECT_EQ(result.sync.counts().underruns(), 1U);
    EXPECT_LT(std::abs(result.sync.series().spans().back().largestErrorUs), 50);
    EXPECT_LT(std::abs(result.sync.series().spans().back().smallestErrorUs), 50);
}

// ... whatever it is that is being measured when it happens.
TEST(LaboratoryTest, TakesADelayThatJumpsForNoDrift)
{
    Scenario lying = perfect(240);
    lying.device.crystal.ppm = -60;
    for (const double at : {120.5, 180.0}) {
        lying.events = {{at, Event::Kind::Offset, 800}};
        const keldaLab::Result result = keldaLab::run(lying);
        EXPECT_TRUE(result.sync.isLocked());
        EXPECT_LT(result.sync.worstRelockTime(), 5) << at;
        EXPECT_LT(result.sync.lockedErrors().worst(), 20) << at;
    }
}

// The queue takes no offence at 8 ms, and the loop would play 8 s to make up for it.
TEST(LaboratoryTest, MakesUpForAnErrorThatIsNoJumpInSeconds)
{
    Scenario moved = perfect(60);
    moved.events = {{30, Event::Kind::Jump, 8}};
    const keldaLab::Result result = keldaLab::run(moved);
    EXPECT_EQ(result.alignments, 1U);
    EXPECT_TRUE(result.sync.isLocked());
    EXPECT_LT(result.sync.worstRelockTime(), 5);
}

// ... but one that creeps up is left to the queue, which bears with it for long.
TEST(LaboratoryTest, LeavesAClockThatIsTooFarOffToTheQueue)
{
    Scenario off = perfect(60);
    off.source.crystal.ppm = 200;
    off.drift.limitPpm = 100;
    const keldaLab::Result result = keldaLab::run(off);
    EXPECT_EQ(result.alignments, 0U);
    EXPECT_EQ(result.sync.skips(), 0U);
}

TEST(GoalTest, IsMissedByWhatWasNotMeasured)
{
    Scenario drifting = perfect(20);
    drifting.source.crystal.ppm = 500;
    drifting.drift.correction = Correction::None;
    const keldaLab::Result result = keldaLab::run(drifting);
    for (const char* name : {"lock time", "relock time, worst", "error in lock, rms",
                             "error in lock, p99", "error in lock, worst", "ratio jitter, rms"}) {
        drifting.goals = {{name, 1e6}};
        const auto table = keldaLab::tableOf(result, drifting);
        EXPECT_FALSE(keldaReport::isReached(table)) << name << describe(table);
    }
    drifting.goals = {{"error, worst", 1e6}, {"events", 0}};
    EXPECT_TRUE(keldaReport::isReached(keldaLab::tableOf(result, drifting)));
    drifting.goals = {{"error, worst", 9000}};
    EXPECT_FALSE(keldaReport::isReached(keldaLab::tableOf(result, drifting)))
        << "500 ppm in 20 s are 10 ms";
}

TEST(GoalTest, IsMissedByARunOfNothing)
{
    const keldaLab::Result nothing;
    Scenario wanted = perfect(1);
    for (const char* name : {"events", "skips", "silences", "lost", "underruns"}) {
        wanted.goals = {{name, 0}};
        EXPECT_FALSE(keldaReport::isReached(keldaLab::tableOf(nothing, wanted))) << name;
    }
}

// What comes too late for its path is skipped, or never heard: nothing of that is 0.
TEST(GoalTest, IsMissedByAStreamThatComesTooLate)
{
    Scenario late = perfect(20);
    late.device.periodFrames = 64;
    late.device.bufferFrames = 192;
    late.source.leadMs = 10;
    const keldaLab::Result nothing = keldaLab::run(late);
    EXPECT_EQ(verdictOf(nothing.sync), Verdict::NothingHeard) << reasonOf(nothing.sync);
    EXPECT_GT(nothing.sync.counts().lostFrames(), 0U);
    for (const char* name : {"events", "skips", "silences", "lost", "error, worst"}) {
        late.goals = {{name, 0}};
        const auto table = keldaLab::tableOf(nothing, late);
        EXPECT_FALSE(keldaReport::isReached(table)) << name << describe(table);
    }
    late.source.leadMs = 20;
    const keldaLab::Result some = keldaLab::run(late);
    EXPECT_EQ(verdictOf(some.sync), Verdict::NotInSync) << reasonOf(some.sync);
    EXPECT_GT(some.sync.counts().lostFrames(), 0U);
}

// The player's verdicts, of its own path in virtual time.
TEST(LaboratoryTest, TellsHowAStreamWasHeard)
{
    Scenario plain = perfect(30);
    plain.drift.correction = Correction::None;
    plain.device.wakeUpUs = 100;
    EXPECT_EQ(verdictOf(keldaLab::run(plain).sync), Verdict::InSync) << "on a busy desktop";

    Scenario gap = plain;
    gap.events = {{10, Event::Kind::Gap, 80}};
    const keldaLab::Result interrupted = keldaLab::run(gap);
    EXPECT_EQ(verdictOf(interrupted.sync), Verdict::Interrupted);
    EXPECT_NEAR(static_cast<double>(interrupted.sync.counts().gapFrames()), 3840, 10);
    EXPECT_EQ(interrupted.sync.silences(), 1U);

    Scenario dry = plain;
    dry.events = {{10, Event::Kind::Underrun, 300}};
    EXPECT_EQ(verdictOf(keldaLab::run(dry).sync), Verdict::Interrupted);

    Scenario drifting = plain;
    drifting.source.crystal.ppm = 100;
    EXPECT_EQ(verdictOf(keldaLab::run(drifting).sync), Verdict::NotInSync);
    drifting.drift.correction = Correction::Resample;
    EXPECT_EQ(verdictOf(keldaLab::run(drifting).sync), Verdict::InSync);

    Scenario moment = plain;
    moment.seconds = 1;
    EXPECT_EQ(verdictOf(keldaLab::run(moment).sync), Verdict::NotMeasured);
}

TEST(ScenarioFileTest, TellsWhatIsWrongWithIt)
{
    const std::string path = testing::TempDir() + "scenario.json";
    const std::pair<const char*, const char*> cases[] = {
        {"{", "parse error"},
        {"[]", "scenario is no object"},
        {R"({"secnods": 5})", "scenario has no secnods"},
        {R"({"source": {"ppmm": 5}})", "scenario.source has no ppmm"},
        {R"({"drift": {"correct": "magic"}})", "correct is no magic"},
        {R"({"events": [{"what": "flood"}]})", "what is no flood"},
        {R"({"seconds": "long"})",
         "scenario: seconds is not a number from 0.001 to 1000000000: \"long\""},
        {R"({"seconds": 0})", "from 0.001"},
        {R"({"seed": -1})", "seed is not a whole number from 0 to 4294967295: -1"},
        {R"({"queueMs": 1.5})", "queueMs is not a whole number from 1 to 60000: 1.5"},
        {R"({"sampleRate": true})", "sampleRate is not a whole number from 1000 to 6144000: true"},
        {R"({"device": {"periodFrames": -480}})", "scenario.device: periodFrames is not a whole"},
        {R"({"drift": {"Kp": 0}})", "scenario.drift: Kp is not a number from 1e-06 to 1000000: 0"},
        {R"({"source": {"ppm": null}})", "ppm is not a number from -100000 to 100000: null"},
        {R"({"events": [{"atSeconds": 60, "what": "stop", "milliseconds": 10}]})",
         "events: what is to happen at 60 s comes behind the end"}};
    for (const auto& [text, message] : cases) {
        std::ofstream(path) << text;
        try {
            static_cast<void>(keldaLab::readScenario(path));
            ADD_FAILURE() << text;
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), testing::AllOf(HasSubstr(path), HasSubstr(message)));
        }
    }
    EXPECT_THROW(static_cast<void>(keldaLab::readScenario("/nowhere.json")), std::runtime_error);
    std::filesystem::remove(path);
}

TEST(ReportTest, IsOnePageThatAnswersTheQuestion)
{
    const std::filesystem::path folder = testing::TempDir() + "kelda-report";
    const Scenario short_ = scenario("plus-100ppm", 20);
    const keldaLab::Result result = keldaLab::run(short_);
    keldaReport::write(folder, {"100 < 200 ppm",
                                result.sync,
                                keldaLab::tableOf(result, short_),
                                {{"device", "a <virtual> one"}}});
    std::ostringstream page;
    page << std::ifstream(folder / "index.html").rdbuf();
    EXPECT_THAT(page.str(), HasSubstr("<h1 class=yes>In sync</h1>"));
    EXPECT_THAT(page.str(), HasSubstr("100 &lt; 200 ppm"));
    EXPECT_THAT(page.str(), HasSubstr("a &lt;virtual> one"));
    EXPECT_THAT(page.str(), HasSubstr("Missed goals: ratio jitter, rms."))
        << "it takes three minutes to be measured";
    std::size_t pictures = 0;
    for (std::size_t at = 0; (at = page.str().find("<svg", at)) != std::string::npos; ++at) {
        ++pictures;
    }
    EXPECT_EQ(pictures, 3U);
    EXPECT_THAT(page.str(), testing::Not(HasSubstr("href=\"http"))) << "nothing from elsewhere";
    std::filesystem::remove_all(folder);
    EXPECT_THROW(keldaReport::write("/proc/nowhere", {"", result.sync, {}, {}}),
                 std::runtime_error);
}

TEST(SeriesTest, KeepsTheExtremesOfAnyLength)
{
    keldaSync::Series series;
    for (int i = 0; i < 1'000'000; ++i) {
        series.add({i * 0.01, i == 777'777 ? 99.0 : 1.0, 5, 100});
    }
    EXPECT_LE(series.spans().size(), 4096U);
    double largest = 0;
    std::uint64_t points = 0;
    for (const auto& span : series.spans()) {
        largest = std::max(largest, span.largestErrorUs);
        points += span.points;
        EXPECT_NEAR(span.adjustmentPpm, 5, 1e-9);
    }
    EXPECT_EQ(largest, 99);
    EXPECT_EQ(points, 1'000'000U);
}
