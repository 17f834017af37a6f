#include "audioUtils/device/AlsaCapabilities.h"

#include <alsa/asoundlib.h>
#include <gmock/gmock.h>

#include "support/FaultySoundCard.h"
#include "support/LogCapture.h"

using namespace audioUtils;
using testing::ElementsAre;
using testing::IsEmpty;
using testSupport::FaultySoundCard;
using testSupport::LogCapture;
using testSupport::faultyPcm::Call;

namespace {

class AlsaCapabilities : public testing::Test
{
protected:
    [[nodiscard]] PcmAudioCapabilities ask(const std::string& name = "faulty",
                                           bool enableRateResample = false)
    {
        PcmAudioCapabilities capabilities;
        EXPECT_TRUE(getAlsaCapabilities(capabilities, name, enableRateResample));
        return capabilities;
    }

    FaultySoundCard card;
    LogCapture log{"AudioUtils"};
};

} // namespace

TEST_F(AlsaCapabilities, AreThoseOfTheCard)
{
    const PcmAudioCapabilities capabilities = ask();
    EXPECT_EQ(capabilities.getSampleRates(), IntegerRange(8000, 192000));
    EXPECT_EQ(capabilities.getNumChannels(), IntegerRange(1, 8));
    EXPECT_THAT(capabilities.getPcmFormats(), ElementsAre(S16LE, S16BE, S24LE, S24BE, S24_32LE,
                                                          S24_32BE, S32LE, S32BE, F32LE, F32BE));
    EXPECT_EQ(card->opens, 1U);
    EXPECT_EQ(card->closes, 1U);
    EXPECT_EQ(card->framesTaken, 0U);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AlsaCapabilities, OfACardThatKnowsLittle)
{
    card->onlyRate = 44100;
    card->onlyFormat = SND_PCM_FORMAT_S32_LE + 1;
    const PcmAudioCapabilities capabilities = ask();
    EXPECT_TRUE(isAudioInfoCompatible(PcmAudioInfo(44100, 2, S32LE), capabilities));
    EXPECT_FALSE(isAudioInfoCompatible(PcmAudioInfo(48000, 2, S32LE), capabilities));
    EXPECT_THAT(capabilities.getPcmFormats(), ElementsAre(S32LE));
}

TEST_F(AlsaCapabilities, OfACardWithSomeRatesAreAList)
{
    card->severalRates = true;
    EXPECT_EQ(ask().getSampleRates(), IntegerRange(std::vector<int>{44100, 48000, 96000, 1411200}));
}

// ALSA's null device names 2^32 - 1 for its largest rate and number of channels.
TEST_F(AlsaCapabilities, OfADeviceThatTakesEverythingEndWhereNumbersDo)
{
    const PcmAudioCapabilities capabilities = ask("null");
    EXPECT_EQ(capabilities.getSampleRates(), IntegerRange(1, 1 << 30));
    EXPECT_EQ(capabilities.getNumChannels(), IntegerRange(1, 32));
}

TEST_F(AlsaCapabilities, AreToldOfABusyDeviceAtOnce)
{
    static_cast<void>(ask());
    EXPECT_EQ(card.value(Call::snd_pcm_open), SND_PCM_NONBLOCK);
}

TEST_F(AlsaCapabilities, CountRatesThatAlsaConvertsOnlyWhereItMay)
{
    static_cast<void>(ask("faulty", false));
    EXPECT_EQ(card.value(Call::snd_pcm_hw_params_set_rate_resample), 0);
    static_cast<void>(ask("faulty", true));
    EXPECT_EQ(card.value(Call::snd_pcm_hw_params_set_rate_resample), 1);
}

TEST_F(AlsaCapabilities, CantBeHadFromADeviceThatIsNotThere)
{
    card->isGone = true;
    PcmAudioCapabilities capabilities = getAllPossiblePcmCapabilities();
    EXPECT_FALSE(getAlsaCapabilities(capabilities, "faulty", false));
    EXPECT_EQ(capabilities, getAllPossiblePcmCapabilities());
    EXPECT_THAT(log.lines(),
                ElementsAre("ERROR Failed to ask ALSA output device \"faulty\" for its "
                            "capabilities: No such device"));
}
