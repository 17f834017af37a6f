#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include <alsa/asoundlib.h>
#include <gmock/gmock.h>

#include "Handles.h"
#include "audioUtils/device/AlsaCapabilities.h"
#include "audioUtils/device/FakeOutputDevice.h"
#include "miscUtils/Json.h"
#include "support/AllocationCounter.h"
#include "support/FaultySoundCard.h"
#include "support/LogCapture.h"
#include "support/VirtualClock.h"

using testing::Contains;
using testing::HasSubstr;
using testSupport::AllocationCounter;
using testSupport::FaultySoundCard;
using testSupport::LogCapture;
using testSupport::VirtualClock;
using testSupport::faultyPcm::Call;

namespace {

constexpr kelda_device_config usual = {KELDA_S16LE, 48000, 2, 1920, 480, 960, 0, nullptr};
const std::vector<std::int16_t> block(960, 1); // 10 ms

void ignoreError(const char*, int, const char*, int, const char*, ...) {}

kelda_device_properties propertiesOf(const Device& device)
{
    kelda_device_properties properties{};
    EXPECT_EQ(kelda_device_get_properties(device.get(), &properties), KELDA_OK);
    return properties;
}

class KeldaFakeDevice : public testing::Test
{
protected:
    KeldaFakeDevice() { clock.setReadingDuration(1); }

    void open() { ASSERT_EQ(kelda_device_open(device.get(), "fake", &usual), KELDA_OK); }
    kelda_status write() { return kelda_device_write(device.get(), block.data(), 480); }

    VirtualClock clock;
    LogCapture log{"AudioUtils", log4cplus::WARN_LOG_LEVEL};
    Device device = makeDevice(KELDA_DEVICE_FAKE);
};

/// Whatever needs an open device gives one status, and leaves its results alone.
void expectStatusOfAll(const kelda_device* device, kelda_status expected)
{
    auto* const changeable = const_cast<kelda_device*>(device);
    kelda_device_properties properties{};
    std::int64_t delay = 77;
    std::uint64_t time = 77;
    std::size_t frames = 77;
    EXPECT_EQ(kelda_device_write(changeable, block.data(), 480), expected);
    EXPECT_EQ(kelda_device_drain(changeable), expected);
    EXPECT_EQ(kelda_device_adjust(changeable, 960, 480, 480), expected);
    EXPECT_EQ(kelda_device_get_properties(device, &properties), expected);
    EXPECT_EQ(kelda_device_get_delay(device, &delay), expected);
    EXPECT_EQ(kelda_device_get_last_delay(device, &delay, &time), expected);
    EXPECT_EQ(kelda_device_get_audio_timestamp(device, &time), expected);
    EXPECT_EQ(kelda_device_get_frames_ready(device, &frames), expected);
    EXPECT_EQ(delay, 77);
    EXPECT_EQ(time, 77U);
    EXPECT_EQ(frames, 77U);
    EXPECT_EQ(properties.sample_rate, 0U);
}

class KeldaAlsaDevice : public testing::Test
{
protected:
    KeldaAlsaDevice() { snd_lib_error_set_handler(ignoreError); }
    ~KeldaAlsaDevice() override { snd_lib_error_set_handler(nullptr); }

    // A card that holds 500 ms does not run dry while something else keeps the machine busy.
    void open(const char* channelMap = nullptr)
    {
        kelda_device_config config = usual;
        config.buffer_size = 24'000;
        config.start_threshold = 4'800;
        config.channel_map = channelMap;
        ASSERT_EQ(kelda_device_open(device.get(), "faulty", &config), KELDA_OK);
    }
    kelda_status write() { return kelda_device_write(device.get(), block.data(), 480); }

    FaultySoundCard card;
    LogCapture log{"AudioUtils", log4cplus::WARN_LOG_LEVEL};
    Device device = makeDevice(KELDA_DEVICE_ALSA);
};

} // namespace

TEST_F(KeldaFakeDevice, TellsWhatItGranted)
{
    kelda_device_config config = usual;
    config.format = KELDA_S24LE;
    config.sample_rate = 44100;
    config.channels = 6;
    config.buffer_size = 1000;
    config.start_threshold = 5000;
    ASSERT_EQ(kelda_device_open(device.get(), "fake", &config), KELDA_OK);
    const kelda_device_properties granted = propertiesOf(device);
    EXPECT_EQ(granted.format, KELDA_S24LE);
    EXPECT_EQ(granted.sample_rate, 44100U);
    EXPECT_EQ(granted.channels, 6U);
    EXPECT_EQ(granted.bytes_per_sample, 3U);
    EXPECT_EQ(granted.buffer_size, 1440U) << "whole periods";
    EXPECT_EQ(granted.period_size, 480U);
    EXPECT_EQ(granted.start_threshold, 1440U) << "not beyond the buffer";
}

TEST_F(KeldaFakeDevice, KeepsTimeAsTheClassDoes)
{
    open();
    audioUtils::FakeOutputDevice model;
    ASSERT_TRUE(model.open("fake", audioUtils::S16LE, 48000, 2, 1920, 480, 960, false, ""));
    for (int i = 0; i < 20; ++i) {
        if (i == 10) {
            clock.advance(60'000'000);
        }
        const miscUtils::TimeValue before = clock.now();
        EXPECT_EQ(write(), i == 10 ? KELDA_UNDERRUN : KELDA_OK) << i;
        const miscUtils::TimeValue blocked = clock.now() - before;
        // The other device, at the same time, has no need to block any more.
        EXPECT_EQ(model.write(nullptr, 480),
                  i == 10 ? audioUtils::OutputDevice::Underrun : audioUtils::OutputDevice::Success);
        EXPECT_EQ(blocked > 1'000'000, (i >= 4 && i < 10) || i >= 14) << i;

        std::int64_t delay = -1;
        EXPECT_EQ(kelda_device_get_delay(device.get(), &delay), KELDA_OK);
        EXPECT_EQ(delay, model.getCompensatedRenderingDelay()) << i;
        std::uint64_t time = 0;
        EXPECT_EQ(kelda_device_get_last_delay(device.get(), &delay, &time), KELDA_OK);
        EXPECT_EQ(delay, model.lastRenderingDelay().delay * 1000);
        EXPECT_EQ(time, static_cast<std::uint64_t>(model.lastRenderingDelay().timestamp) * 1000);
        EXPECT_EQ(kelda_device_get_audio_timestamp(device.get(), &time), KELDA_OK);
        EXPECT_EQ(time, clock.now());
    }
    EXPECT_THAT(log.lines(), Contains("WARN Underrun occurred").Times(2));
}

TEST_F(KeldaFakeDevice, HasNoMeasurementBeforeTheFirstWrite)
{
    open();
    std::int64_t delay = -1;
    std::uint64_t time = 0;
    EXPECT_EQ(kelda_device_get_last_delay(device.get(), &delay, &time), KELDA_OK);
    EXPECT_EQ(delay, 0);
    EXPECT_EQ(time, KELDA_NO_TIME);
}

TEST_F(KeldaFakeDevice, CanBeAdjustedDrainedClosedAndOpenedAgain)
{
    EXPECT_EQ(kelda_device_is_open(device.get()), 0);
    open();
    EXPECT_EQ(kelda_device_is_open(device.get()), 1);
    EXPECT_EQ(kelda_device_adjust(device.get(), 4096, 512, 1024), KELDA_OK);
    const kelda_device_properties granted = propertiesOf(device);
    EXPECT_EQ(granted.buffer_size, 4096U);
    EXPECT_EQ(granted.period_size, 512U);
    EXPECT_EQ(granted.start_threshold, 1024U);
    std::size_t frames = 0;
    EXPECT_EQ(kelda_device_get_frames_ready(device.get(), &frames), KELDA_OK);
    EXPECT_EQ(frames, 512U);
    EXPECT_EQ(kelda_device_drain(device.get()), KELDA_OK);
    EXPECT_EQ(kelda_device_close(device.get()), KELDA_OK);
    EXPECT_EQ(kelda_device_is_open(device.get()), 0);
    EXPECT_EQ(kelda_device_close(device.get()), KELDA_OK) << "harmless";
    open();
}

TEST_F(KeldaFakeDevice, IsOpenedOnce)
{
    open();
    kelda_device_config other = usual;
    other.sample_rate = 44100;
    EXPECT_EQ(kelda_device_open(device.get(), "fake", &other), KELDA_ALREADY_OPEN);
    EXPECT_EQ(propertiesOf(device).sample_rate, 48000U);
}

TEST_F(KeldaFakeDevice, WhatNeedsAnOpenDeviceSaysSo)
{
    expectStatusOfAll(device.get(), KELDA_NOT_OPEN);
    open();
    kelda_device_close(device.get());
    expectStatusOfAll(device.get(), KELDA_NOT_OPEN);
}

TEST_F(KeldaFakeDevice, NullPointersAreRefused)
{
    expectStatusOfAll(nullptr, KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_open(nullptr, "fake", &usual), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_open(device.get(), nullptr, &usual), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_open(device.get(), "fake", nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_close(nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_is_open(nullptr), 0);
    kelda_device_destroy(nullptr);

    open();
    std::int64_t delay = 77;
    std::uint64_t time = 77;
    EXPECT_EQ(kelda_device_write(device.get(), nullptr, 1), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_get_properties(device.get(), nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_get_delay(device.get(), nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_get_last_delay(device.get(), nullptr, &time), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_get_last_delay(device.get(), &delay, nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_get_audio_timestamp(device.get(), nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_get_frames_ready(device.get(), nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(delay, 77);
    EXPECT_EQ(time, 77U);
}

TEST_F(KeldaFakeDevice, RefusesWhatIsOutOfRange)
{
    const auto with = [&](auto change) {
        kelda_device_config config = usual;
        change(config);
        return kelda_device_open(device.get(), "fake", &config);
    };
    EXPECT_EQ(with([](auto& c) { c.format = static_cast<kelda_format>(12); }),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.format = static_cast<kelda_format>(-1); }),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.sample_rate = 0; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.sample_rate = 1'000'000'001; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.channels = 0; }), KELDA_INVALID_ARGUMENT);
    for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{1} << 31, UINT64_MAX}) {
        EXPECT_EQ(with([&](auto& c) { c.buffer_size = size; }), KELDA_INVALID_ARGUMENT);
        EXPECT_EQ(with([&](auto& c) { c.period_size = size; }), KELDA_INVALID_ARGUMENT);
    }
    EXPECT_EQ(with([](auto& c) { c.start_threshold = std::uint64_t{1} << 31; }),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_is_open(device.get()), 0);

    for (const int kind : {-1, 2}) {
        EXPECT_EQ(refusal<kelda_device>([&](kelda_device** handle) {
                      return kelda_device_create(static_cast<kelda_device_kind>(kind), handle);
                  }),
                  KELDA_INVALID_ARGUMENT);
    }
    EXPECT_EQ(kelda_device_create(KELDA_DEVICE_FAKE, nullptr), KELDA_INVALID_ARGUMENT);

    open();
    EXPECT_EQ(kelda_device_adjust(device.get(), 0, 480, 960), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_adjust(device.get(), 1920, 0, 960), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(propertiesOf(device).period_size, 480U);
    EXPECT_EQ(kelda_device_write(device.get(), block.data(), std::size_t{1} << 31),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_device_write(device.get(), nullptr, 0), KELDA_OK);
}

TEST_F(KeldaFakeDevice, TakesTheExtremesOfTheRanges)
{
    const kelda_device_config config = {KELDA_F64BE, 1'000'000'000, UINT32_MAX, 1, 1, 0, 1, "x"};
    ASSERT_EQ(kelda_device_open(device.get(), "", &config), KELDA_OK);
    EXPECT_EQ(kelda_device_write(device.get(), block.data(), 1), KELDA_OK);
    kelda_device_close(device.get());
    const kelda_device_config slow = {KELDA_S16LE, 1, 1, INT32_MAX, INT32_MAX, INT32_MAX, 0, ""};
    ASSERT_EQ(kelda_device_open(device.get(), "", &slow), KELDA_OK);
    EXPECT_EQ(kelda_device_write(device.get(), block.data(), 1), KELDA_OK);
}

TEST_F(KeldaFakeDevice, WritingAndAskingForTheDelayAllocateNothing)
{
    open();
    const AllocationCounter allocations;
    std::int64_t delay = 0;
    for (int i = 0; i < 50; ++i) {
        write();
        kelda_device_get_delay(device.get(), &delay);
    }
    EXPECT_EQ(allocations.count(), 0U);
}

TEST_F(KeldaAlsaDevice, PlaysWhatItIsGiven)
{
    open();
    EXPECT_EQ(propertiesOf(device).buffer_size, 24'000U);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(write(), KELDA_OK);
    }
    std::size_t ready = 0;
    EXPECT_EQ(kelda_device_get_frames_ready(device.get(), &ready), KELDA_OK);
    EXPECT_EQ(ready, 24'000U - 5 * 480);
    std::int64_t delay = 0;
    EXPECT_EQ(kelda_device_get_delay(device.get(), &delay), KELDA_OK);
    EXPECT_EQ(delay, 50'000'000);
    EXPECT_EQ(kelda_device_drain(device.get()), KELDA_OK);
    EXPECT_EQ(card.played<std::int16_t>(), std::vector<std::int16_t>(5 * 960, 1));
}

TEST_F(KeldaAlsaDevice, HandsTheChannelMapOn)
{
    open("FR FL");
    EXPECT_EQ(card->numChannelsMapped, 2U);
    EXPECT_EQ(card->channelMap[0], static_cast<unsigned int>(SND_CHMAP_FR));
}

TEST_F(KeldaAlsaDevice, TellsHowAWriteWent)
{
    open();
    card->fault = -EPIPE;
    card->faultAtFrame = 100;
    EXPECT_EQ(write(), KELDA_UNDERRUN);
    EXPECT_EQ(write(), KELDA_OK);
    kelda_device_drain(device.get());
    card.setResult(Call::snd_pcm_prepare, -ENODEV);
    EXPECT_EQ(write(), KELDA_PREPARE_FAILED);
    card.setResult(Call::snd_pcm_prepare, 0);
    EXPECT_EQ(write(), KELDA_OK);
    card->isGone = true;
    EXPECT_EQ(write(), KELDA_RECOVER_FAILED);
    card.setResult(Call::snd_pcm_avail_update, -ENODEV);
    std::size_t frames = 77;
    EXPECT_EQ(kelda_device_get_frames_ready(device.get(), &frames), KELDA_DEVICE_ERROR);
    EXPECT_EQ(frames, 77U);
}

TEST_F(KeldaAlsaDevice, IsNotOpenAfterItCouldNotBeOpenedOrConfigured)
{
    EXPECT_EQ(kelda_device_open(device.get(), "nonsense", &usual), KELDA_DEVICE_ERROR);
    EXPECT_EQ(kelda_device_is_open(device.get()), 0);
    EXPECT_THAT(log.takeLines(), Contains(HasSubstr("Error while opening ALSA output device")));

    card.setResult(Call::snd_pcm_hw_params, -EINVAL);
    EXPECT_EQ(kelda_device_open(device.get(), "faulty", &usual), KELDA_DEVICE_ERROR);
    EXPECT_EQ(kelda_device_is_open(device.get()), 0);
    EXPECT_EQ(card->closes, card->opens);
    card.setResult(Call::snd_pcm_hw_params, 0);
    open();
    card.setResult(Call::snd_pcm_open, -EBUSY);
    EXPECT_EQ(kelda_device_adjust(device.get(), 4096, 512, 1024), KELDA_DEVICE_ERROR);
    EXPECT_EQ(kelda_device_is_open(device.get()), 0);
}

TEST_F(KeldaAlsaDevice, IsDescribedAsJson)
{
    card->severalRates = true;
    audioUtils::PcmAudioCapabilities capabilities;
    ASSERT_TRUE(audioUtils::getAlsaCapabilities(capabilities, "faulty", false));
    const std::string expected = miscUtils::toJson(capabilities.toVariant());
    EXPECT_THAT(expected, HasSubstr(R"("sampleRates":{"allowed":[44100,48000,96000,)"));

    std::vector<char> json(1024, 'x');
    std::size_t length = 0;
    EXPECT_EQ(kelda_describe_alsa_device("faulty", 0, json.data(), json.size(), &length), KELDA_OK);
    EXPECT_EQ(json.data(), expected);
    EXPECT_EQ(length, expected.size());

    std::vector<char> exact(expected.size() + 1);
    EXPECT_EQ(kelda_describe_alsa_device("faulty", 0, exact.data(), exact.size(), nullptr),
              KELDA_OK);
    EXPECT_EQ(exact.data(), expected);
}

TEST_F(KeldaAlsaDevice, TellsTheRoomThatADescriptionNeeds)
{
    std::size_t length = 0;
    EXPECT_EQ(kelda_describe_alsa_device("faulty", 0, nullptr, 0, &length), KELDA_BUFFER_TOO_SMALL);
    std::vector<char> json(length, 'x');
    EXPECT_EQ(kelda_describe_alsa_device("faulty", 0, json.data(), length, nullptr),
              KELDA_BUFFER_TOO_SMALL);
    EXPECT_THAT(json, testing::Each('x'));
    json.resize(length + 1);
    EXPECT_EQ(kelda_describe_alsa_device("faulty", 0, json.data(), length + 1, nullptr), KELDA_OK);
}

TEST_F(KeldaAlsaDevice, CantBeDescribedWhereThereIsNone)
{
    char json[4] = "abc";
    std::size_t length = 77;
    EXPECT_EQ(kelda_describe_alsa_device("nonsense", 0, json, sizeof json, &length),
              KELDA_DEVICE_ERROR);
    EXPECT_EQ(kelda_describe_alsa_device(nullptr, 0, json, sizeof json, &length),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_describe_alsa_device("faulty", 0, nullptr, 1, &length), KELDA_INVALID_ARGUMENT);
    EXPECT_STREQ(json, "abc");
    EXPECT_EQ(length, 77U);
}
