// Writing, recovery and timing, on the real libasound with a simulated card.

#include "audioUtils/device/AlsaOutputDevice.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <numeric>

#include <alsa/asoundlib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/AllocationCounter.h"
#include "support/FaultySoundCard.h"
#include "support/LogCapture.h"
#include "support/VirtualClock.h"

using namespace audioUtils;
using miscUtils::getMonotonicRawSysclockTime;
using miscUtils::NoTimeValue;
using miscUtils::TimeValue;
using testing::ElementsAre;
using testing::IsEmpty;
using testSupport::AllocationCounter;
using testSupport::FaultySoundCard;
using testSupport::LogCapture;
using testSupport::VirtualClock;
using testSupport::faultyPcm::Call;

namespace {

constexpr std::int64_t ms = 1'000'000;
constexpr long noTimestamp = std::numeric_limits<std::int64_t>::min();

std::string reasonOf(int error)
{
    return snd_strerror(error);
}

void ignoreError(const char*, int, const char*, int, const char*, ...) {}

int numXrunsTold = 0;
void countXrun(const char*, int, const char*, int, const char* format, ...)
{
    numXrunsTold += std::string(format).ends_with(" occurred") ? 1 : 0;
}

class AlsaOutputDeviceWriteTest : public testing::Test
{
protected:
    AlsaOutputDeviceWriteTest()
    {
        // libasound tells of each recovery on standard error, too.
        snd_lib_error_set_handler(ignoreError);
        card->virtualTime = 1'000'000'000'000; // no machine is late for it
    }
    ~AlsaOutputDeviceWriteTest() override { snd_lib_error_set_handler(nullptr); }

    void open()
    {
        ASSERT_TRUE(
            device.open("faulty", PcmFormat::S16LE, 48000, 2, 24'000, 480, 4'800, false, ""));
        card.takeCalls();
    }

    /// Writes the next frames of a stream in which each is told by its number, from 1 on.
    OutputDevice::WriteReturnValue write(std::size_t numFrames)
    {
        std::vector<std::uint32_t> frames(numFrames);
        std::iota(frames.begin(), frames.end(), m_next);
        m_next += static_cast<std::uint32_t>(numFrames);
        return device.write(frames.data(), numFrames);
    }

    void fill()
    {
        for (int i = 0; i < 10; ++i) {
            ASSERT_EQ(write(480), OutputDevice::Success);
        }
    }

    void pass(std::int64_t ns) { card->virtualTime += ns; }

    [[nodiscard]] std::vector<std::uint32_t> frames(std::uint32_t begin, std::uint32_t end) const
    {
        std::vector<std::uint32_t> result(end - begin);
        std::iota(result.begin(), result.end(), begin);
        return result;
    }

    FaultySoundCard card;
    LogCapture log{"AudioUtils", log4cplus::INFO_LOG_LEVEL};
    AlsaOutputDevice device;

private:
    std::uint32_t m_next = 1;
};

} // namespace

TEST_F(AlsaOutputDeviceWriteTest, PlaysEveryFrameOnce)
{
    open();
    for (const std::size_t numFrames : {480U, 1U, 4799U, 30'000U, 480U, 7U}) {
        EXPECT_EQ(write(numFrames), OutputDevice::Success);
    }
    device.drain();
    EXPECT_TRUE(card.played<std::uint32_t>() == frames(1, 35'768));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AlsaOutputDeviceWriteTest, PlaysEveryFrameOnceWhenLittleIsTakenAtATime)
{
    open();
    card->shortWrites = 77;
    EXPECT_EQ(write(9'000), OutputDevice::Success);
    device.drain();
    EXPECT_TRUE(card.played<std::uint32_t>() == frames(1, 9'001));
}

TEST_F(AlsaOutputDeviceWriteTest, GoesOnAtTheRightByteWhereSamplesAreLarger)
{
    ASSERT_TRUE(device.open("faulty", PcmFormat::S32LE, 48000, 2, 24'000, 480, 4'800, false, ""));
    card->fault = -ESTRPIPE;
    card->faultAtFrame = 1'000; // inside the block
    std::vector<std::uint64_t> block(9'000);
    std::iota(block.begin(), block.end(), 1U);
    EXPECT_EQ(device.write(block.data(), block.size()), OutputDevice::Underrun);
    device.drain();
    EXPECT_TRUE(card.played<std::uint64_t>() == block);
}

TEST_F(AlsaOutputDeviceWriteTest, PlaysAgainAfterADrain)
{
    open();
    EXPECT_EQ(write(100), OutputDevice::Success);
    device.drain();
    EXPECT_TRUE(device.isOpened());
    card.takeCalls();
    EXPECT_EQ(write(4'800), OutputDevice::Success);
    EXPECT_THAT(card.takeCalls(), ElementsAre("snd_pcm_state", "snd_pcm_prepare", "snd_pcm_writei",
                                              "snd_pcm_state", "snd_pcm_status"));
    device.drain();
    EXPECT_TRUE(card.played<std::uint32_t>() == frames(1, 4'901));
}

TEST_F(AlsaOutputDeviceWriteTest, FailsWhenItCantBePrepared)
{
    open();
    device.drain();
    card.setResult(Call::snd_pcm_prepare, -ENODEV);
    card.takeCalls();
    EXPECT_EQ(write(480), OutputDevice::PrepareFailed);
    EXPECT_THAT(card.takeCalls(), ElementsAre("snd_pcm_state", "snd_pcm_prepare"));
    EXPECT_THAT(log.lines(), ElementsAre("ERROR snd_pcm_prepare error: " + reasonOf(-ENODEV)));
}

TEST_F(AlsaOutputDeviceWriteTest, NeedsAnOpenDevice)
{
    EXPECT_EQ(write(480), OutputDevice::NotOpened);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR PCM playback device has not been opened"));
}

TEST_F(AlsaOutputDeviceWriteTest, DoesNoMoreThanItMust)
{
    open();
    EXPECT_EQ(write(480), OutputDevice::Success);
    EXPECT_THAT(card.takeCalls(), ElementsAre("snd_pcm_state", "snd_pcm_writei", "snd_pcm_state"))
        << "there is no status to be had before the start";
    fill();
    card.takeCalls();
    const AllocationCounter allocations;
    const auto result = device.write(std::array<short, 960>{}.data(), 480);
    EXPECT_EQ(allocations.count(), 0U);
    EXPECT_EQ(result, OutputDevice::Success);
    EXPECT_THAT(card.takeCalls(),
                ElementsAre("snd_pcm_state", "snd_pcm_writei", "snd_pcm_state", "snd_pcm_status"));
}

TEST_F(AlsaOutputDeviceWriteTest, OfNoFramesRefreshesTheTiming)
{
    open();
    fill();
    const RenderingDelay before = device.lastRenderingDelay();
    pass(2 * ms);
    card.takeCalls();
    EXPECT_EQ(device.write(nullptr, 0), OutputDevice::Success);
    EXPECT_THAT(card.takeCalls(), ElementsAre("snd_pcm_state", "snd_pcm_state", "snd_pcm_status"));
    EXPECT_EQ(card->framesTaken, 4'800U);
    EXPECT_EQ(device.lastRenderingDelay().timestamp, before.timestamp + 2'000);
    EXPECT_EQ(device.lastRenderingDelay().delay, before.delay - 2'000) << "96 frames";
}

TEST_F(AlsaOutputDeviceWriteTest, OfNoFramesPreparesADrainedDevice)
{
    open();
    device.drain();
    card.takeCalls();
    EXPECT_EQ(device.write(nullptr, 0), OutputDevice::Success);
    EXPECT_THAT(card.takeCalls(), ElementsAre("snd_pcm_state", "snd_pcm_prepare", "snd_pcm_state"));
}

TEST_F(AlsaOutputDeviceWriteTest, WritesAgainWhatAnUnderrunRejected)
{
    open();
    fill();
    pass(150 * ms); // it was given 100
    EXPECT_EQ(write(480), OutputDevice::Underrun);
    EXPECT_EQ(write(4'800), OutputDevice::Success) << "told once";
    device.drain();
    EXPECT_EQ(card->underruns, 1U);
    EXPECT_EQ(card->framesDropped, 0U);
    EXPECT_TRUE(card.played<std::uint32_t>() == frames(1, 10'081));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AlsaOutputDeviceWriteTest, LosesOnlyWhatTheFailedCardHeld)
{
    open();
    card->fault = -EPIPE;
    card->faultAtFrame = 7'000; // inside a block
    for (int i = 0; i < 30; ++i) {
        EXPECT_EQ(write(480), i == 7'000 / 480 ? OutputDevice::Underrun : OutputDevice::Success);
    }
    device.drain();
    const std::vector<std::uint32_t> played = card.played<std::uint32_t>();
    const std::uint64_t dropped = card->framesDropped;
    ASSERT_EQ(played.size(), 14'400 - dropped);
    EXPECT_LE(dropped, 7'000U);
    std::vector<std::uint32_t> expected = frames(1, static_cast<std::uint32_t>(7'001 - dropped));
    const std::vector<std::uint32_t> rest = frames(7'001, 14'401);
    expected.insert(expected.end(), rest.begin(), rest.end());
    EXPECT_TRUE(played == expected);
}

class AlsaOutputDevicePause : public AlsaOutputDeviceWriteTest,
                              public testing::WithParamInterface<int>
{
};

TEST_P(AlsaOutputDevicePause, LosesNothing)
{
    open();
    card->fault = GetParam();
    card->faultAtFrame = 4'800;
    EXPECT_EQ(write(4'800), OutputDevice::Success);
    EXPECT_EQ(write(4'800), OutputDevice::Underrun);
    EXPECT_EQ(write(4'800), OutputDevice::Success);
    device.drain();
    EXPECT_TRUE(card.played<std::uint32_t>() == frames(1, 14'401));
    EXPECT_THAT(log.lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(OfASuspend, AlsaOutputDevicePause, testing::Values(-ESTRPIPE));
INSTANTIATE_TEST_SUITE_P(OfASignal, AlsaOutputDevicePause, testing::Values(-EINTR));

TEST_F(AlsaOutputDeviceWriteTest, EndsWithADeviceThatIsGone)
{
    open();
    fill();
    card->isGone = true;
    EXPECT_EQ(write(480), OutputDevice::RecoverFailed);
    EXPECT_THAT(log.takeLines(), ElementsAre("ERROR snd_pcm_recover error: " + reasonOf(-ENODEV)));
    EXPECT_EQ(write(480), OutputDevice::RecoverFailed) << "at once, and for good";
    device.close();
    card->isGone = false;
    open();
    EXPECT_EQ(write(480), OutputDevice::Success);
}

TEST_F(AlsaOutputDeviceWriteTest, TellsAFailedRecovery)
{
    open();
    card->fault = -EPIPE;
    card->faultAtFrame = 100;
    card.setResult(Call::snd_pcm_recover, -ENODEV);
    card.takeCalls();
    EXPECT_EQ(write(480), OutputDevice::RecoverFailed);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR snd_pcm_recover error: " + reasonOf(-ENODEV)));
    EXPECT_THAT(card.takeCalls(),
                ElementsAre("snd_pcm_state", "snd_pcm_writei", "snd_pcm_writei", "snd_pcm_recover"))
        << "and no status of a device that is gone";
    EXPECT_EQ(card->framesTaken, 100U);
}

// A sound server that has died: every recovery succeeds, and no write does.
class AlsaOutputDeviceStandstill : public AlsaOutputDeviceWriteTest
{
protected:
    void SetUp() override
    {
        open();
        fill();
        card->faultAtFrame = 5'000; // inside the next block
    }

    /// So many recoveries before a frame is taken.
    void recoverInVain(std::uint32_t times)
    {
        card->fault = -EPIPE;
        card->faultRepeats = times - 1;
    }

    void expectGivenUp(std::uint32_t recoveries, std::uint32_t writes, std::uint64_t taken)
    {
        const std::uint32_t before = card.count(Call::snd_pcm_writei);
        EXPECT_EQ(write(480), OutputDevice::RecoverFailed);
        EXPECT_EQ(card.count(Call::snd_pcm_recover), recoveries);
        EXPECT_EQ(card.count(Call::snd_pcm_writei) - before, writes);
        EXPECT_THAT(log.takeLines(),
                    ElementsAre("ERROR Device accepts no frames after 100 recoveries"));
        EXPECT_EQ(card->framesTaken, taken);
    }
};

TEST_F(AlsaOutputDeviceStandstill, IsOverWithAFrameThatIsTakenAfter99Recoveries)
{
    recoverInVain(99);
    EXPECT_EQ(write(480), OutputDevice::Underrun);
    EXPECT_EQ(card.count(Call::snd_pcm_recover), 99U);
    EXPECT_THAT(log.lines(), IsEmpty());
    recoverInVain(99);
    card->faultAtFrame = 5'300;
    EXPECT_EQ(write(480), OutputDevice::Underrun) << "counted anew";
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AlsaOutputDeviceStandstill, EndsAfter100Recoveries)
{
    recoverInVain(100);
    expectGivenUp(100, 1 + 100, 5'000);
}

TEST_F(AlsaOutputDeviceStandstill, IsCountedAnewWithinAWriteForEachFrameTaken)
{
    card->faultEvery = 1; // each frame of the block fails once
    recoverInVain(280);
    EXPECT_EQ(write(480), OutputDevice::Underrun);
    EXPECT_EQ(card.count(Call::snd_pcm_recover), 280U);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AlsaOutputDeviceStandstill, IsOverWithAFrameThatIsTakenAfter99EmptyWrites)
{
    for (int block = 0; block < 2; ++block) {
        card->emptyWrites = 99;
        EXPECT_EQ(write(480), OutputDevice::Success) << "nothing has failed";
    }
    EXPECT_EQ(card.count(Call::snd_pcm_writei), 10U + 2 * 100);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AlsaOutputDeviceStandstill, OfEmptyWritesIsCountedAnewWithinAWriteForEachFrameTaken)
{
    card->fault = -EINTR; // in the midst of a block: a part of it is taken
    card->faultRepeats = 1;
    card->faultEvery = 100;
    card->emptyAfterFault = 60;
    EXPECT_EQ(write(480), OutputDevice::Success);
    EXPECT_EQ(card->emptyWrites, 0U);
    EXPECT_EQ(card.count(Call::snd_pcm_writei), 10U + 3 + 2 * 60);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AlsaOutputDeviceStandstill, EndsAfter100EmptyWrites)
{
    card->emptyWrites = 100;
    expectGivenUp(0, 100, 4'800);
}

TEST_F(AlsaOutputDeviceStandstill, EndsThoughRecoveriesAndEmptyWritesTakeTurns)
{
    card->emptyAfterFault = 1;
    recoverInVain(200);
    expectGivenUp(100, 200, 5'000);
}

TEST_F(AlsaOutputDeviceStandstill, IsNoMatterOfEmptyWritesBetweenWhichSomethingElseFails)
{
    card->emptyAfterFault = 60;
    recoverInVain(2);
    EXPECT_EQ(write(480), OutputDevice::Underrun);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AlsaOutputDeviceStandstill, EndsEachWriteAnew)
{
    recoverInVain(250);
    for (const auto result : {OutputDevice::RecoverFailed, OutputDevice::RecoverFailed,
                              OutputDevice::Underrun, OutputDevice::Success}) {
        EXPECT_EQ(write(480), result);
    }
    EXPECT_EQ(card.count(Call::snd_pcm_recover), 250U);
}

TEST_F(AlsaOutputDeviceWriteTest, BelievesNoCardThatTakesMoreThanItWasGiven)
{
    open();
    card.setResult(Call::snd_pcm_writei, 481);
    EXPECT_EQ(write(480), OutputDevice::Success);
    EXPECT_THAT(log.lines(),
                ElementsAre("ERROR snd_pcm_writei return value indicates that more samples (481) "
                            "were written than were available (480)"));
}

TEST_F(AlsaOutputDeviceWriteTest, TellsHowMuchItWouldTake)
{
    open();
    EXPECT_EQ(device.framesReady(), 24'000);
    EXPECT_EQ(write(480), OutputDevice::Success);
    EXPECT_EQ(device.framesReady(), 23'520);
    device.close();
    EXPECT_EQ(device.framesReady(), -1);
}

TEST_F(AlsaOutputDeviceWriteTest, RepairsAnUnderrunThatItSeesWhenAsked)
{
    open();
    fill();
    pass(150 * ms);
    card.takeCalls();
    EXPECT_EQ(device.framesReady(), 0);
    EXPECT_THAT(card.takeCalls(), ElementsAre("snd_pcm_avail_update", "snd_pcm_recover"));
    EXPECT_EQ(card.value(Call::snd_pcm_recover), -EPIPE);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR AlsaOutputDevice: error while getting available "
                                         "frames: an xrun occurred (EPIPE: " +
                                         reasonOf(-EPIPE) + ") (-32)"));
    EXPECT_EQ(device.framesReady(), 24'000);
    EXPECT_EQ(write(480), OutputDevice::Success);
}

TEST_F(AlsaOutputDeviceWriteTest, TellsWhyItCantSayHowMuchItWouldTake)
{
    open();
    card.setResult(Call::snd_pcm_avail_update, -ENODEV);
    EXPECT_EQ(device.framesReady(), -1);
    EXPECT_THAT(log.lines(),
                ElementsAre("ERROR AlsaOutputDevice: error while getting available frames: (" +
                            reasonOf(-ENODEV) + ") (-19)"));
    EXPECT_EQ(card.count(Call::snd_pcm_recover), 0U);
}

TEST_F(AlsaOutputDeviceWriteTest, LeavesASuspendedCardToTheNextWriteWhenAskedHowMuchItWouldTake)
{
    open();
    card.setResult(Call::snd_pcm_avail_update, -ESTRPIPE);
    EXPECT_EQ(device.framesReady(), -1);
    EXPECT_EQ(card.count(Call::snd_pcm_recover), 0U);
}

TEST_F(AlsaOutputDeviceWriteTest, LetsAlsaTellOfEachRecoveryToo)
{
    numXrunsTold = 0;
    snd_lib_error_set_handler(countXrun);
    open();
    card->fault = -EPIPE;
    card->faultAtFrame = 480;
    EXPECT_EQ(write(960), OutputDevice::Underrun);
    EXPECT_EQ(numXrunsTold, 1);
    card.setResult(Call::snd_pcm_avail_update, -EPIPE);
    EXPECT_EQ(device.framesReady(), 0);
    EXPECT_EQ(numXrunsTold, 2);
}

TEST_F(AlsaOutputDeviceWriteTest, ShortensTheDelayByTheTimeSince)
{
    open();
    VirtualClock clock(5'000'000'000);
    card->overridesStatus = true;
    card->systemTimestamp = 5'000'000'999; // truncated to µs
    card->audioTimestamp = 7'000'000'123;
    card->statusDelay = 960;
    EXPECT_TRUE(device.updateRenderDelayAndAudioTimestamp());
    EXPECT_EQ(device.lastRenderingDelay().delay, 20'000);
    EXPECT_EQ(device.lastRenderingDelay().timestamp, 5'000'000);
    clock.advance(5'000'999);
    EXPECT_EQ(device.getCompensatedRenderingDelay(), 15'000'000);
    EXPECT_EQ(device.currentAudioTimestamp(), 7'000'000'123U + 5'000'000);
    clock.advance(20'000'000);
    EXPECT_EQ(device.getCompensatedRenderingDelay(), -5'000'000) << "older than the delay";
    EXPECT_EQ(card.count(Call::snd_pcm_delay), 0U);
}

TEST_F(AlsaOutputDeviceWriteTest, KeepsADelayBelowZero)
{
    open();
    VirtualClock clock(5'000'000'000);
    card->overridesStatus = true;
    card->systemTimestamp = 5'000'000'000;
    card->statusDelay = -50; // 1041.67 µs
    EXPECT_TRUE(device.updateRenderDelayAndAudioTimestamp());
    EXPECT_EQ(device.lastRenderingDelay().delay, -1'041) << "truncated towards zero";
    EXPECT_EQ(device.getCompensatedRenderingDelay(), -1'041'000);
}

TEST_F(AlsaOutputDeviceWriteTest, TellsTheAudioTimeOnlyWhereThereIsOne)
{
    log.setLevel(log4cplus::DEBUG_LOG_LEVEL);
    open();
    log.clear();
    card->overridesStatus = true;
    card->systemTimestamp = 5'000'000'000;
    EXPECT_TRUE(device.updateRenderDelayAndAudioTimestamp());
    EXPECT_EQ(device.currentAudioTimestamp(), NoTimeValue);
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG ALSA did not return a valid audio timestamp"));
    card->audioTimestamp = 1;
    EXPECT_TRUE(device.updateRenderDelayAndAudioTimestamp());
    EXPECT_NE(device.currentAudioTimestamp(), NoTimeValue);
    card->audioTimestamp = 0;
    EXPECT_TRUE(device.updateRenderDelayAndAudioTimestamp());
    EXPECT_EQ(device.currentAudioTimestamp(), NoTimeValue);
}

TEST_F(AlsaOutputDeviceWriteTest, AsksForTheDelayWhereThereIsNoTimestamp)
{
    open();
    fill();
    ASSERT_NE(device.lastRenderingDelay().timestamp, noTimestamp);
    VirtualClock clock(5'000'000'000);
    card->overridesStatus = true;
    card->audioTimestamp = 3'000'000'000;
    EXPECT_TRUE(device.updateRenderDelayAndAudioTimestamp());
    EXPECT_THAT(log.lines(), ElementsAre("WARN ALSA did not return a valid timestamp"));
    EXPECT_EQ(device.lastRenderingDelay().delay, 0);
    EXPECT_EQ(device.lastRenderingDelay().timestamp, noTimestamp);
    clock.advance(10);
    EXPECT_EQ(device.currentAudioTimestamp(), 3'000'000'010U) << "valid since the status";

    const std::int64_t delay = device.getCompensatedRenderingDelay();
    EXPECT_GT(delay, 0);
    EXPECT_LE(delay, 100'000'000) << "what fill() left";
    EXPECT_EQ(card.count(Call::snd_pcm_delay), 1U);
    card.setResult(Call::snd_pcm_delay, -EPIPE);
    EXPECT_EQ(device.getCompensatedRenderingDelay(), 0);
}

TEST_F(AlsaOutputDeviceWriteTest, DividesTheDelayThatItAskedForUnsigned)
{
    open();
    EXPECT_EQ(write(480), OutputDevice::Success); // not started yet
    EXPECT_EQ(device.getCompensatedRenderingDelay(), 10'000'000);
    card->delayOffset = -481;
    EXPECT_EQ(device.getCompensatedRenderingDelay(),
              static_cast<std::int64_t>((0 - std::uint64_t{1'000'000'000}) / 48'000));
}

TEST_F(AlsaOutputDeviceWriteTest, ClearsTheDelayWhenThereIsNoStatus)
{
    open();
    fill();
    card->overridesStatus = true;
    card->systemTimestamp = 1;
    card->audioTimestamp = 5;
    EXPECT_TRUE(device.updateRenderDelayAndAudioTimestamp());
    card.setResult(Call::snd_pcm_status, -ENODEV);
    EXPECT_FALSE(device.updateRenderDelayAndAudioTimestamp());
    EXPECT_EQ(device.lastRenderingDelay().delay, 0);
    EXPECT_EQ(device.lastRenderingDelay().timestamp, noTimestamp);
    EXPECT_NE(device.currentAudioTimestamp(), NoTimeValue) << "left as it was";
    EXPECT_THAT(log.takeLines(),
                ElementsAre("ERROR Failed to get pcm status, clear last rendering delay"));
    EXPECT_EQ(write(480), OutputDevice::Success) << "the audio is not the worse for it";
}

TEST_F(AlsaOutputDeviceWriteTest, ClearsTheDelayWhenClosed)
{
    open();
    fill();
    device.close();
    EXPECT_EQ(device.lastRenderingDelay().timestamp, noTimestamp);
    EXPECT_EQ(device.getCompensatedRenderingDelay(), 0);
}

TEST_F(AlsaOutputDeviceWriteTest, KnowsTheQueueOfTheCard)
{
    card->crystalPpm = 200;
    open();
    fill();
    std::vector<double> errors; // µs
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(write(480), OutputDevice::Success);
        pass(i % 8 * ms);
        const std::int64_t now = card->virtualTime;
        const VirtualClock clock(static_cast<TimeValue>(now));
        const auto told = static_cast<double>(device.getCompensatedRenderingDelay());
        const double played =
            static_cast<double>(now - card->runs[0].startTime) * 48000e-9 * 1.0002;
        const double held = static_cast<double>(card->framesTaken) - played;
        errors.push_back(std::abs(told - held / 48000e-9) / 1000);
    }
    std::sort(errors.begin(), errors.end());
    RecordProperty("p50_us", std::to_string(errors[50]));
    RecordProperty("p99_us", std::to_string(errors[98]));
    EXPECT_LT(errors.back(), 23) << "us: a frame, and both times in whole us";
}

TEST_F(AlsaOutputDeviceWriteTest, KeepsItsTimesOnTheRawClock)
{
    card->virtualTime = 0;
    card->crystalPpm = -999'000; // 100 ms of audio last for 100 s
    open();
    fill();
    const auto now = [] { return static_cast<std::int64_t>(getMonotonicRawSysclockTime() / 1000); };
    const std::int64_t before = now();
    ASSERT_TRUE(device.updateRenderDelayAndAudioTimestamp());
    EXPECT_GE(device.lastRenderingDelay().timestamp, before);
    EXPECT_LE(device.lastRenderingDelay().timestamp, now());
}

TEST_F(AlsaOutputDeviceWriteTest, GoesOnThroughASeriesOfUnderruns)
{
    open();
    card->fault = -EPIPE;
    card->faultAtFrame = 1'000;
    card->faultEvery = 1'000;
    card->faultRepeats = 20;
    std::size_t underruns = 0;
    for (int i = 0; i < 60; ++i) {
        underruns += write(480) == OutputDevice::Underrun ? 1 : 0;
    }
    device.drain();
    EXPECT_EQ(underruns, 21U);
    const std::vector<std::uint32_t> played = card.played<std::uint32_t>();
    EXPECT_TRUE(std::adjacent_find(played.begin(), played.end(), std::greater_equal<>()) ==
                played.end())
        << "no frame twice";
    EXPECT_EQ(played.size() + card->framesDropped, 60U * 480);
}
