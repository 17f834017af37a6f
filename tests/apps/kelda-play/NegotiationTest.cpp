#include "Negotiation.h"

#include <gmock/gmock.h>

#include "ChannelMapping.h"
#include "DeviceRequest.h"
#include "Errors.h"

using namespace audioUtils;
using namespace keldaPlay;
using testing::Optional;

namespace {

Options onDevice(const std::string& name)
{
    Options options;
    options.device = name;
    return options;
}

PcmAudioCapabilities some()
{
    return {IntegerRange(std::vector<int>{44100, 48000}), IntegerRange(2, 2), {S16BE, S32LE}};
}

std::string obstacle(const Options& options, const PcmAudioInfo& stream)
{
    try {
        static_cast<void>(negotiate(options, stream, some()));
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

template<typename Sample>
std::vector<Sample> mapped(const std::vector<Sample>& frame, std::size_t numChannels)
{
    std::vector<Sample> result;
    for (std::size_t channel = 0; channel < numChannels; ++channel) {
        result.push_back(sampleFor<Sample, long>(channel, numChannels, frame));
    }
    return result;
}

} // namespace

TEST(Negotiation, FindsTheFormatThatLosesTheLeast)
{
    EXPECT_THAT(nearestFormat(S16LE, {S16LE, S16BE}), Optional(S16LE));
    EXPECT_THAT(nearestFormat(S16LE, {F32LE, S32LE, S24LE}), Optional(S24LE));
    EXPECT_THAT(nearestFormat(S24LE, {S16LE, S24_32LE, S32LE}), Optional(S24_32LE));
    EXPECT_THAT(nearestFormat(F32LE, {S16LE, S24LE}), Optional(S24LE));
    EXPECT_THAT(nearestFormat(F32LE, {S32LE, F32BE}), Optional(F32BE));
    EXPECT_THAT(nearestFormat(F64LE, {S32LE, F32LE, F64LE}), Optional(F32LE))
        << "F64 is unplayable";
    EXPECT_EQ(nearestFormat(S16LE, {F64LE}), std::nullopt);
    EXPECT_EQ(nearestFormat(S16LE, {}), std::nullopt);
}

TEST(Negotiation, LeavesAloneWhatTheDeviceTakes)
{
    const PcmAudioInfo stream(48000, 2, S32LE);
    EXPECT_EQ(negotiate(onDevice("d"), stream, some()), stream);
    EXPECT_EQ(changes(stream, stream), "");
}

TEST(Negotiation, TakesTheNearestAndSaysSo)
{
    const PcmAudioInfo stream(48000, 1, S24LE);
    const PcmAudioInfo info = negotiate(onDevice("d"), stream, some());
    EXPECT_EQ(info, PcmAudioInfo(48000, 2, S32LE));
    EXPECT_EQ(changes(stream, info), "format S32LE instead of S24LE, 2 channels instead of 1");
    EXPECT_EQ(changes(PcmAudioInfo(22050, 2, S32LE), PcmAudioInfo(44100, 2, S32LE)),
              "44100 Hz instead of 22050");
    EXPECT_EQ(changes(PcmAudioInfo(48000, 6, S32LE), PcmAudioInfo(48000, 1, S32LE)),
              "1 channel instead of 6");
}

TEST(Negotiation, SaysWhatStandsInTheWay)
{
    Options options = onDevice("d");
    EXPECT_EQ(obstacle(options, PcmAudioInfo(5000, 2, S32LE)),
              "no sample rate is converted by more than a factor of 8: 5000 Hz to 44100 Hz");
    options.resampler.kind = ResamplerChoice::Kind::Short;
    EXPECT_EQ(obstacle(options, PcmAudioInfo(384'000, 2, S32LE)),
              "--resampler short converts by less than a factor of 8: 384000 Hz to 48000 Hz");
    options.resampler.kind = ResamplerChoice::Kind::Float;
    options.drift.correction = Correction::Resample;
    EXPECT_EQ(obstacle(options, PcmAudioInfo(384'000, 2, S32LE)),
              "--correct resample needs room below a factor of 8 for its --adjust-limit: 384000 Hz "
              "to 48000 Hz");
    EXPECT_EQ(obstacle(options, PcmAudioInfo(383'700, 2, S32LE)),
              "--correct resample needs room below a factor of 8 for its --adjust-limit: 383700 Hz "
              "to 48000 Hz");
    EXPECT_EQ(obstacle(options, PcmAudioInfo(383'600, 2, S32LE)), "");
    EXPECT_NE(obstacle(options, PcmAudioInfo(5'515, 2, S32LE)), "");
    EXPECT_EQ(obstacle(options, PcmAudioInfo(5'519, 2, S32LE)), "");
    options = onDevice("d");
    EXPECT_EQ(obstacle(options, PcmAudioInfo(384'001, 2, S32LE)),
              "no sample rate is converted by more than a factor of 8: 384001 Hz to 48000 Hz");
    options.format = S24LE;
    EXPECT_EQ(obstacle(options, PcmAudioInfo(48000, 2, S32LE)),
              "device d does not take S24LE, but S16BE S32LE");
    options.format = F64LE;
    EXPECT_EQ(obstacle(options, PcmAudioInfo(48000, 2, S32LE)), "format F64LE can't be played");
}

TEST(Negotiation, KnowsThatTheFakeDeviceTakesEverythingThatCanBePlayed)
{
    const PcmAudioCapabilities all = getAllPossiblePcmCapabilities();
    const PcmAudioCapabilities device = capabilitiesOf("fake", false);
    EXPECT_EQ(device.getSampleRates(), all.getSampleRates());
    EXPECT_EQ(device.getNumChannels(), all.getNumChannels());
    EXPECT_THAT(device.getPcmFormats(), testing::ElementsAre(S16LE, S16BE, S24LE, S24BE, S24_32LE,
                                                             S24_32BE, S32LE, S32BE, F32LE, F32BE));
}

TEST(Negotiation, RefusesADeviceOfWhichNothingCanBePlayed)
{
    const PcmAudioCapabilities device(IntegerRange(1, 96000), IntegerRange(1, 2), {});
    EXPECT_THAT(
        [&] {
            static_cast<void>(negotiate(onDevice("d"), {48000, 2, S16LE}, device));
        },
        testing::ThrowsMessage<DeviceError>(
            "device d does not take S16LE or any other format that can be played"));
}

TEST(DeviceRequest, HasAMapForItsChannels)
{
    Options options = onDevice("d");
    options.channelMap = "FL FR";
    EXPECT_EQ(requestFor(options, {48000, 2, S16LE}).channelMap, "FL FR");
    EXPECT_THAT(
        [&] {
            static_cast<void>(requestFor(options, {48000, 1, S16LE}));
        },
        testing::ThrowsMessage<UsageError>(
            "--channel-map FL FR is for 2 channels, but the device gets 1"));
    options.channelMap = "FOO";
    EXPECT_THROW(static_cast<void>(requestFor(options, {48000, 1, S16LE})), UsageError);
}

TEST(ChannelMapping, KeepsCopiesMixesOrDrops)
{
    EXPECT_EQ(mapped<int>({1, 2}, 2), (std::vector<int>{1, 2}));
    EXPECT_EQ(mapped<int>({7}, 3), (std::vector<int>{7, 7, 7}));
    EXPECT_EQ(mapped<int>({2'000'000'000, 2'000'000'000}, 1), std::vector<int>{2'000'000'000});
    EXPECT_EQ(mapped<int>({-4, 8}, 1), std::vector<int>{2});
    EXPECT_EQ(mapped<int>({1, 2}, 4), (std::vector<int>{1, 2, 0, 0}));
    EXPECT_EQ(mapped<int>({1, 2, 3}, 2), (std::vector<int>{1, 2}));
}
