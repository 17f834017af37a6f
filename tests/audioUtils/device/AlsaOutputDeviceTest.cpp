// Opening, configuring, adjusting and closing, on the real libasound with a simulated card.

#include "audioUtils/device/AlsaOutputDevice.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <optional>

#include <alsa/asoundlib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include "support/FaultySoundCard.h"
#include "support/LogCapture.h"

using namespace audioUtils;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testSupport::FaultySoundCard;
using testSupport::LogCapture;
using testSupport::faultyPcm::Call;

namespace {

std::string reasonOf(int error)
{
    return snd_strerror(error);
}

class AlsaOutputDeviceTest : public testing::Test
{
protected:
    [[nodiscard]] bool open(std::uint64_t bufferSize = 4096, std::uint64_t periodSize = 1024,
                            std::uint64_t startThreshold = 2048, const std::string& channelMap = "")
    {
        return device.open("faulty", PcmFormat::S16LE, 48000, 2, bufferSize, periodSize,
                           startThreshold, false, channelMap);
    }

    [[nodiscard]] std::vector<std::uint64_t> geometry() const
    {
        return {device.bufferSize(), device.periodSize(), device.startThreshold()};
    }

    [[nodiscard]] std::vector<std::uint32_t> channelMapSet() const
    {
        std::vector<std::uint32_t> positions;
        for (std::uint32_t i = 0; i < card->numChannelsMapped; ++i) {
            positions.push_back(card->channelMap[i]);
        }
        return positions;
    }

    FaultySoundCard card;
    LogCapture log{"AudioUtils"};
    AlsaOutputDevice device;
    std::vector<short> silence = std::vector<short>(2 * 4096);
};

using AlsaOutputDeviceDeathTest = AlsaOutputDeviceTest;

} // namespace

TEST_F(AlsaOutputDeviceTest, IsClosedAndEmptyAtFirst)
{
    EXPECT_FALSE(device.isOpened());
    EXPECT_EQ(device.sampleRate(), 0U);
    EXPECT_EQ(device.numChannels(), 0U);
    EXPECT_EQ(device.numBytesPerSample(), 0U);
    EXPECT_THAT(geometry(), Each(0U));
    EXPECT_EQ(device.lastRenderingDelay().delay, 0);
    EXPECT_EQ(device.lastRenderingDelay().timestamp, std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(device.currentAudioTimestamp(), miscUtils::NoTimeValue);
    EXPECT_EQ(device.framesReady(), -1);
    EXPECT_EQ(device.getCompensatedRenderingDelay(), 0);
    EXPECT_EQ(device.write(silence.data(), 10), OutputDevice::NotOpened);
    device.drain();
    device.close();
    EXPECT_THAT(card.takeCalls(), IsEmpty()) << "libasound aborts on a null handle";
}

TEST_F(AlsaOutputDeviceTest, ConfiguresInOrder)
{
    ASSERT_TRUE(open(4096, 1024, 2048, "FL FR"));
    EXPECT_THAT(
        card.takeCalls(),
        ElementsAre("snd_pcm_open", "snd_pcm_hw_params_any", "snd_pcm_hw_params_set_access",
                    "snd_pcm_hw_params_set_format", "snd_pcm_hw_params_set_channels",
                    "snd_pcm_hw_params_set_rate_resample", "snd_pcm_hw_params_set_rate_near",
                    "snd_pcm_hw_params_set_buffer_size_near",
                    "snd_pcm_hw_params_set_period_size_near", "snd_pcm_drop", "snd_pcm_hw_params",
                    "snd_pcm_sw_params_current", "snd_pcm_sw_params_set_start_threshold",
                    "snd_pcm_sw_params_set_avail_min", "snd_pcm_sw_params_set_tstamp_mode",
                    "snd_pcm_sw_params_set_tstamp_type", "snd_pcm_sw_params", "snd_pcm_set_chmap"));
    EXPECT_EQ(card.value(Call::snd_pcm_open), 0) << "blocking";
    EXPECT_EQ(card.value(Call::snd_pcm_hw_params_set_access), SND_PCM_ACCESS_RW_INTERLEAVED);
    EXPECT_EQ(card.value(Call::snd_pcm_hw_params_set_format), SND_PCM_FORMAT_S16_LE);
    EXPECT_EQ(card.value(Call::snd_pcm_hw_params_set_channels), 2);
    EXPECT_EQ(card.value(Call::snd_pcm_hw_params_set_rate_resample), 0);
    EXPECT_EQ(card.value(Call::snd_pcm_hw_params_set_rate_near), 48000);
    EXPECT_EQ(card.value(Call::snd_pcm_hw_params_set_buffer_size_near), 4096);
    EXPECT_EQ(card.value(Call::snd_pcm_hw_params_set_period_size_near), 1024);
    EXPECT_EQ(card.value(Call::snd_pcm_sw_params_set_start_threshold), 2048);
    EXPECT_EQ(card.value(Call::snd_pcm_sw_params_set_avail_min), 1024);
    EXPECT_EQ(card.value(Call::snd_pcm_sw_params_set_tstamp_mode), SND_PCM_TSTAMP_ENABLE);
    EXPECT_EQ(card.value(Call::snd_pcm_sw_params_set_tstamp_type),
              SND_PCM_TSTAMP_TYPE_MONOTONIC_RAW);
    EXPECT_THAT(channelMapSet(), ElementsAre(SND_CHMAP_FL, SND_CHMAP_FR));
}

TEST_F(AlsaOutputDeviceTest, TellsWhatItWasOpenedWith)
{
    ASSERT_TRUE(device.open("faulty", PcmFormat::S24LE, 96000, 6, 4096, 1024, 2048, true, ""));
    EXPECT_TRUE(device.isOpened());
    EXPECT_EQ(device.sampleFormat(), PcmFormat::S24LE);
    EXPECT_EQ(device.sampleRate(), 96000U);
    EXPECT_EQ(device.numChannels(), 6U);
    EXPECT_EQ(device.numBytesPerSample(), 3U);
    EXPECT_THAT(geometry(), ElementsAre(4096, 1024, 2048));
    EXPECT_EQ(card.value(Call::snd_pcm_hw_params_set_rate_resample), 1);
    EXPECT_EQ(card.count(Call::snd_pcm_set_chmap), 0U) << "the device's own map stays";
}

TEST_F(AlsaOutputDeviceTest, LogsEveryStep)
{
    ASSERT_TRUE(open(4096, 1024, 2048, "FL FR"));
    EXPECT_THAT(log.takeLines(),
                ElementsAre("TRACE Enter AlsaOutputDevice::open: Opened: 0",
                            "DEBUG Parsing chmap string: FL FR",
                            "DEBUG Opening ALSA output device \"faulty\"",
                            "DEBUG Enter AlsaOutputDevice::setDeviceParams: Opened 1",
                            AllOf(StartsWith("DEBUG Setting hw params: "),
                                  HasSubstr("FORMAT:  S16_LE\n"), HasSubstr("BUFFER_SIZE: 4096\n")),
                            AllOf(StartsWith("DEBUG Setting sw params: "),
                                  HasSubstr("start_threshold: 2048\n")),
                            AllOf(StartsWith("DEBUG ALSA PCM playback initialized: "),
                                  HasSubstr("Sound card that fails on command"))));
    device.drain();
    EXPECT_THAT(log.takeLines(), ElementsAre("TRACE Enter AlsaOutputDevice::drain: "));
    device.close();
    EXPECT_THAT(log.takeLines(), ElementsAre("TRACE Enter AlsaOutputDevice::close: "));
}

TEST_F(AlsaOutputDeviceTest, OpensOnce)
{
    ASSERT_TRUE(open());
    log.clear();
    card.takeCalls();
    EXPECT_FALSE(device.open("other", PcmFormat::S32LE, 44100, 1, 100, 10, 50, true, "FL FR"));
    EXPECT_THAT(log.lines(), ElementsAre("TRACE Enter AlsaOutputDevice::open: Opened: 1",
                                         "ERROR ALSA output device \"faulty\" already opened"));
    EXPECT_THAT(card.takeCalls(), IsEmpty());
    EXPECT_EQ(device.sampleFormat(), PcmFormat::S16LE);
    EXPECT_EQ(device.sampleRate(), 48000U);
    EXPECT_THAT(geometry(), ElementsAre(4096, 1024, 2048));
}

TEST_F(AlsaOutputDeviceTest, SaysWhyItCantBeOpened)
{
    card->isGone = true;
    EXPECT_FALSE(open());
    EXPECT_FALSE(device.isOpened());
    EXPECT_THAT(log.messages(log4cplus::ERROR_LOG_LEVEL),
                ElementsAre("Error while opening ALSA output device: " + reasonOf(-ENODEV)));
    card->isGone = false;
    EXPECT_TRUE(open()) << "it is not spoilt";
}

TEST_F(AlsaOutputDeviceTest, SaysWhichStepFails)
{
    const struct
    {
        Call call;
        std::string message;
    } steps[] = {
        {Call::snd_pcm_hw_params_any,
         "Broken configuration for playback: no configurations available: "},
        {Call::snd_pcm_hw_params_set_access, "Access type not available for playback: "},
        {Call::snd_pcm_hw_params_set_format, "Sample format 2 not available for playback: "},
        {Call::snd_pcm_hw_params_set_channels, "Channels count 2 not available for playback: "},
        {Call::snd_pcm_hw_params_set_rate_resample, "Failed to set rate resampler: "},
        {Call::snd_pcm_hw_params_set_rate_near,
         "Sample rate of 48000 Hz not available for playback: "},
        {Call::snd_pcm_hw_params_set_buffer_size_near,
         "Unable to set buffer size of 4096 frames for playback: "},
        {Call::snd_pcm_hw_params_set_period_size_near,
         "Unable to set period size of 1024 frames for playback: "},
        {Call::snd_pcm_sw_params_current, "Unable to determine current swparams for playback: "},
        {Call::snd_pcm_sw_params_set_start_threshold,
         "Unable to set start threshold mode for playback: "},
        {Call::snd_pcm_sw_params_set_avail_min, "Unable to set avail min for playback: "},
        {Call::snd_pcm_sw_params_set_tstamp_mode, "Unable to set tstamp mode for playback: "},
        {Call::snd_pcm_sw_params_set_tstamp_type, "Unable to set tstamp type for playback: "},
    };
    for (const auto& [call, message] : steps) {
        log.clear();
        card.setResult(call, -EPERM);
        EXPECT_FALSE(open());
        card.setResult(call, 0);
        EXPECT_THAT(log.messages(log4cplus::ERROR_LOG_LEVEL),
                    ElementsAre(message + reasonOf(-EPERM)));
        EXPECT_TRUE(device.isOpened()) << "left open, for the caller to close";
        device.close();
    }
}

TEST_F(AlsaOutputDeviceTest, ShowsTheParametersThatWereRefused)
{
    card.setResult(Call::snd_pcm_hw_params, -EPERM);
    EXPECT_FALSE(open());
    card.setResult(Call::snd_pcm_hw_params, 0);
    EXPECT_THAT(
        log.messages(log4cplus::ERROR_LOG_LEVEL),
        ElementsAre(AllOf(StartsWith("Unable to set hw params "), HasSubstr("PERIOD_SIZE: 1024\n"),
                          HasSubstr(" for playback: " + reasonOf(-EPERM)))));
    device.close();
    log.clear();
    card.setResult(Call::snd_pcm_sw_params, -EPERM);
    EXPECT_FALSE(open());
    EXPECT_THAT(
        log.messages(log4cplus::ERROR_LOG_LEVEL),
        ElementsAre(AllOf(StartsWith("Unable to set sw params "), HasSubstr("avail_min: 1024\n"),
                          HasSubstr(" for playback: " + reasonOf(-EPERM)))));
}

TEST_F(AlsaOutputDeviceTest, IgnoresThatThereIsNothingToDrop)
{
    card.setResult(Call::snd_pcm_drop, -EBADFD);
    EXPECT_TRUE(open());
    EXPECT_THAT(log.messages(log4cplus::ERROR_LOG_LEVEL), IsEmpty());
}

TEST_F(AlsaOutputDeviceTest, TakesWhatTheCardGrants)
{
    card->onlyRate = 44100;
    card->onlyPeriod = 480;
    card->onlyBuffer = 1920;
    ASSERT_TRUE(open(4096, 1024, 4096));
    EXPECT_EQ(device.sampleRate(), 44100U);
    EXPECT_THAT(geometry(), ElementsAre(1920, 480, 1920));
    const std::vector<std::string> lines = log.messages(log4cplus::DEBUG_LOG_LEVEL);
    EXPECT_THAT(lines, Contains("Attempted to configure a sample rate of 48000 Hz, got 44100 Hz "
                                "instead"));
    EXPECT_THAT(lines, Contains("Attempted to configure a buffer size of 4096 frames, got 1920 "
                                "frames instead"));
    EXPECT_THAT(lines, Contains("Reducing threshold from 4096 to 1920"));
    EXPECT_THAT(lines, Contains("Attempted to configure a period size of 1024 frames, got 480 "
                                "frames instead"));
    EXPECT_EQ(card.value(Call::snd_pcm_sw_params_set_start_threshold), 1920);
    EXPECT_EQ(card.value(Call::snd_pcm_sw_params_set_avail_min), 480);
    EXPECT_THAT(log.messages(log4cplus::WARN_LOG_LEVEL), IsEmpty());
}

TEST_F(AlsaOutputDeviceTest, LowersAThresholdThatTheBufferCanNeverReach)
{
    ASSERT_TRUE(open(4096, 1024, 8192));
    EXPECT_THAT(geometry(), ElementsAre(4096, 1024, 4096));
    EXPECT_THAT(log.lines(), Contains("DEBUG Reducing threshold from 8192 to 4096"));
}

TEST_F(AlsaOutputDeviceTest, LeavesAThresholdThatFits)
{
    card->onlyBuffer = 2048;
    ASSERT_TRUE(open(4096, 1024, 2048));
    EXPECT_THAT(geometry(), ElementsAre(2048, 1024, 2048));
    EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("Reducing"))));
}

// A card that knows only S32; and 24 bits in 3 bytes are not 24 bits in 4.
TEST_F(AlsaOutputDeviceTest, RefusesFormatsThatTheCardLacks)
{
    card->onlyFormat = SND_PCM_FORMAT_S32_LE + 1;
    EXPECT_FALSE(open());
    EXPECT_THAT(log.messages(log4cplus::ERROR_LOG_LEVEL),
                ElementsAre("Sample format 2 not available for playback: " + reasonOf(-EINVAL)));
    device.close();
    EXPECT_TRUE(device.open("faulty", PcmFormat::S32LE, 48000, 2, 4096, 1024, 2048, false, ""));
    device.close();

    card->onlyFormat = SND_PCM_FORMAT_S24_3LE + 1;
    EXPECT_FALSE(device.open("faulty", PcmFormat::S24_32LE, 48000, 2, 4096, 1024, 1, false, ""));
    device.close();
    EXPECT_TRUE(device.open("faulty", PcmFormat::S24LE, 48000, 2, 4096, 1024, 1, false, ""));
}

TEST_F(AlsaOutputDeviceTest, RefusesWhatIsNoFormat)
{
    EXPECT_FALSE(
        device.open("faulty", static_cast<PcmFormat>(12), 48000, 2, 4096, 1024, 2048, false, ""));
    EXPECT_THAT(log.messages(log4cplus::ERROR_LOG_LEVEL),
                ElementsAre(StartsWith("Sample format -1 not available for playback: ")));
}

TEST_F(AlsaOutputDeviceTest, OpensWithoutAChannelMapThatDoesNotParse)
{
    EXPECT_TRUE(open(4096, 1024, 2048, "no map"));
    EXPECT_THAT(log.messages(log4cplus::ERROR_LOG_LEVEL),
                ElementsAre("Error converting channel map string to chmap structure"));
    EXPECT_EQ(card.count(Call::snd_pcm_set_chmap), 0U);
}

TEST_F(AlsaOutputDeviceTest, OpensWithoutAChannelMapThatIsRefused)
{
    card.setResult(Call::snd_pcm_set_chmap, -ENXIO);
    EXPECT_TRUE(open(4096, 1024, 2048, "FL FR"));
    EXPECT_THAT(log.messages(log4cplus::WARN_LOG_LEVEL),
                ElementsAre("Failed to set channel mapping for playback: " + reasonOf(-ENXIO)));
    EXPECT_THAT(log.messages(log4cplus::ERROR_LOG_LEVEL), IsEmpty());
}

TEST_F(AlsaOutputDeviceTest, AdjustsTheGeometryAndKeepsTheRest)
{
    ASSERT_TRUE(device.open("faulty", PcmFormat::S32LE, 44100, 2, 4096, 1024, 2048, true, "FR FL"));
    log.clear();
    card.takeCalls();
    card->numChannelsMapped = 0;
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(device.adjustParams(8192, 2048, 8192));
        EXPECT_TRUE(device.isOpened());
        EXPECT_THAT(geometry(), ElementsAre(8192, 2048, 8192));
        EXPECT_THAT(channelMapSet(), ElementsAre(SND_CHMAP_FR, SND_CHMAP_FL));
    }
    EXPECT_EQ(device.sampleFormat(), PcmFormat::S32LE);
    EXPECT_EQ(device.sampleRate(), 44100U);
    EXPECT_EQ(card.value(Call::snd_pcm_hw_params_set_rate_resample), 1);
    const std::vector<std::string> calls = card.takeCalls();
    EXPECT_EQ(calls[0], "snd_pcm_close");
    EXPECT_EQ(calls[1], "snd_pcm_open");
    std::vector<std::string> lines = log.lines();
    lines.resize(4);
    EXPECT_THAT(lines, ElementsAre("TRACE Enter AlsaOutputDevice::adjustParams: bufferSize 8192 "
                                   "periodSize 2048 startThreshold 8192",
                                   "DEBUG Reopening ALSA output device \"faulty\"",
                                   "TRACE Enter AlsaOutputDevice::close: ",
                                   "DEBUG Enter AlsaOutputDevice::setDeviceParams: Opened 1"));
}

TEST_F(AlsaOutputDeviceTest, AdjustsOnlyWhatIsOpen)
{
    EXPECT_FALSE(device.adjustParams(8192, 2048, 8192));
    EXPECT_THAT(geometry(), Each(0U));
    EXPECT_THAT(log.messages(log4cplus::ERROR_LOG_LEVEL),
                ElementsAre("Failed to adjust params, device has not been opened yet"));
    ASSERT_TRUE(open());
    device.close();
    EXPECT_FALSE(device.adjustParams(8192, 2048, 8192));
    EXPECT_THAT(geometry(), ElementsAre(4096, 1024, 2048));
}

TEST_F(AlsaOutputDeviceTest, RestoresTheGeometryWhenItCantReopen)
{
    ASSERT_TRUE(open(4096, 1024, 2048, "FL FR"));
    log.clear();
    card.setResult(Call::snd_pcm_open, -EBUSY);
    EXPECT_FALSE(device.adjustParams(8192, 2048, 8192));
    EXPECT_FALSE(device.isOpened());
    EXPECT_THAT(geometry(), ElementsAre(4096, 1024, 2048));
    EXPECT_THAT(log.messages(log4cplus::ERROR_LOG_LEVEL),
                ElementsAre("Error while opening ALSA output device: " + reasonOf(-EBUSY)));

    card.setResult(Call::snd_pcm_open, 0);
    device.close();
    ASSERT_TRUE(open());
    EXPECT_EQ(card.count(Call::snd_pcm_set_chmap), 1U) << "opened without a map: none is used";
}

TEST_F(AlsaOutputDeviceTest, RestoresTheGeometryWhenItCantBeConfigured)
{
    ASSERT_TRUE(open());
    card.setResult(Call::snd_pcm_hw_params, -EINVAL);
    EXPECT_FALSE(device.adjustParams(8192, 2048, 8192));
    EXPECT_TRUE(device.isOpened());
    EXPECT_THAT(geometry(), ElementsAre(4096, 1024, 2048));
}

TEST_F(AlsaOutputDeviceTest, ForgetsTheChannelMapWhenClosed)
{
    ASSERT_TRUE(open(4096, 1024, 2048, "FL FR"));
    device.close();
    ASSERT_TRUE(open());
    EXPECT_TRUE(device.adjustParams(2048, 512, 1024));
    EXPECT_EQ(card.count(Call::snd_pcm_set_chmap), 1U);
}

TEST_F(AlsaOutputDeviceTest, TellsFailuresToDrainAndToClose)
{
    log.setLevel(log4cplus::INFO_LOG_LEVEL);
    ASSERT_TRUE(open());
    card.setResult(Call::snd_pcm_drain, -EPIPE);
    device.drain();
    EXPECT_TRUE(device.isOpened());
    EXPECT_THAT(log.takeLines(),
                ElementsAre("ERROR Error while draining ALSA output device: " + reasonOf(-EPIPE)));
    card.setResult(Call::snd_pcm_close, -ENODEV);
    device.close();
    EXPECT_FALSE(device.isOpened());
    EXPECT_THAT(log.takeLines(),
                ElementsAre("ERROR Error while closing ALSA output device: " + reasonOf(-ENODEV)));
    device.close();
    EXPECT_THAT(log.takeLines(), IsEmpty());
}

TEST_F(AlsaOutputDeviceTest, ClosesWhenDestroyed)
{
    {
        AlsaOutputDevice other;
        ASSERT_TRUE(
            other.open("faulty", PcmFormat::S16LE, 48000, 2, 4096, 1024, 2048, false, "FL FR"));
    }
    EXPECT_EQ(card->opens, 1U);
    EXPECT_EQ(card->closes, 1U);
}

TEST_F(AlsaOutputDeviceTest, PreparesOrSaysWhyNot)
{
    ASSERT_TRUE(open());
    log.clear();
    EXPECT_TRUE(device.prepareDevice());
    EXPECT_THAT(log.takeLines(), ElementsAre("DEBUG Enter AlsaOutputDevice::prepareDevice: "));
    card.setResult(Call::snd_pcm_prepare, -ENODEV);
    EXPECT_FALSE(device.prepareDevice());
    EXPECT_THAT(log.messages(log4cplus::ERROR_LOG_LEVEL),
                ElementsAre("snd_pcm_prepare error: " + reasonOf(-ENODEV)));
}

TEST_F(AlsaOutputDeviceDeathTest, ConfigurationNeedsAnOpenDevice)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    AlsaOutputDevice closed;
    EXPECT_DEATH(static_cast<void>(closed.setDeviceParams()), "m_pcmHandle != nullptr");
    EXPECT_DEATH(static_cast<void>(closed.prepareDevice()), "m_pcmHandle != nullptr");
    EXPECT_DEATH(closed.updateRenderDelayAndAudioTimestamp(), "m_pcmHandle != nullptr");
}

TEST_F(AlsaOutputDeviceTest, DumpsAlsasObjects)
{
    snd_pcm_hw_params_t* hwParams = nullptr;
    snd_pcm_hw_params_alloca(&hwParams);
    EXPECT_THAT(AlsaOutputDevice::toString(hwParams), HasSubstr("ACCESS:  NONE\n"));
    snd_pcm_sw_params_t* swParams = nullptr;
    snd_pcm_sw_params_alloca(&swParams);
    EXPECT_THAT(AlsaOutputDevice::toString(swParams), HasSubstr("avail_min: 0\n"));
    snd_pcm_t* pcm = nullptr;
    ASSERT_EQ(snd_pcm_open(&pcm, "faulty", SND_PCM_STREAM_PLAYBACK, 0), 0);
    EXPECT_EQ(AlsaOutputDevice::toString(pcm), "Sound card that fails on command\n");
    snd_pcm_close(pcm);
}

// Whoever changes the geometry again and again must not run out of files or memory.
TEST_F(AlsaOutputDeviceTest, LeaksNothingOver200Rounds)
{
    log.setLevel(log4cplus::OFF_LOG_LEVEL);
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto round = [this] {
        ASSERT_TRUE(open(4096, 1024, 2048, "FL FR"));
        ASSERT_TRUE(device.adjustParams(2048, 512, 1024));
        card.setResult(Call::snd_pcm_hw_params, -EINVAL);
        ASSERT_FALSE(device.adjustParams(8192, 1024, 1024));
        card.setResult(Call::snd_pcm_hw_params, 0);
        ASSERT_TRUE(device.adjustParams(4096, 1024, 2048));
        card.setResult(Call::snd_pcm_open, -EBUSY);
        ASSERT_FALSE(device.adjustParams(8192, 1024, 1024));
        card.setResult(Call::snd_pcm_open, 0);
        device.close();
    };
    round(); // what libasound keeps for good
    const auto filesBefore = openFiles();
    const std::size_t bytesBefore = mallinfo2().uordblks;
    for (int i = 0; i < 200; ++i) {
        round();
    }
    EXPECT_EQ(openFiles(), filesBefore);
    EXPECT_LT(mallinfo2().uordblks, bytesBefore + 20'000) << "less than 100 bytes a round";
    EXPECT_EQ(card->opens, card->closes);
}
