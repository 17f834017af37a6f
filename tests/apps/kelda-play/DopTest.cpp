// How DSD over PCM is made fit for a device, and which devices it is fit for.

#include <gmock/gmock.h>

#include "Dop.h"
#include "DopDevice.h"
#include "DopFilter.h"
#include "DopNegotiation.h"
#include "Negotiation.h"
#include "Track.h"
#include "support/AllocationCounter.h"

using namespace audioUtils;
using namespace keldaPlay;
using testing::HasSubstr;

namespace {

constexpr PcmFormat formats[] = {S24LE, S24BE, S24_32LE, S24_32BE, S32LE, S32BE};

/// Frames of two channels, as a queue hands them out: with bits, or silent where there are none.
class Frames
{
public:
    Frames(PcmFormat format, const std::vector<std::uint16_t>& bits)
        : layout{*layoutOf(format), 2}, bytes(bits.size() * layout.bytes())
    {
        for (std::size_t i = 0; i < bits.size(); ++i) {
            if (bits[i] != 0) {
                pack(i, 0, dop::sample(dop::markers[0], bits[i]));
                pack(i, 1, dop::sample(dop::markers[0], static_cast<std::uint16_t>(~bits[i])));
            }
        }
    }

    [[nodiscard]] std::int32_t sample(std::size_t frame, std::size_t channel) const
    {
        return unpackInteger(layout.sample, &bytes[at(frame, channel)]);
    }

    FrameLayout layout;
    std::vector<unsigned char> bytes;

private:
    void pack(std::size_t frame, std::size_t channel, std::int32_t sample)
    {
        packInteger(layout.sample, sample, &bytes[at(frame, channel)]);
    }
    [[nodiscard]] std::size_t at(std::size_t frame, std::size_t channel) const
    {
        return frame * layout.bytes() + channel * static_cast<std::size_t>(layout.sample.bytes);
    }
};

class SomeDsd : public Source
{
public:
    [[nodiscard]] const std::string& name() const override { return m_name; }
    [[nodiscard]] unsigned int rate() const override { return 176'400; }
    [[nodiscard]] unsigned int numChannels() const override { return 2; }
    [[nodiscard]] PcmFormat format() const override { return S24LE; }
    [[nodiscard]] std::optional<DsdAudioInfo> dsd() const override
    {
        return DsdAudioInfo(2'822'400, 2, DSDU8);
    }
    [[nodiscard]] std::size_t read(const FrameLayout&, std::span<unsigned char>) override
    {
        return 0;
    }
    void rewind() override {}

private:
    std::string m_name = "song.dsf";
};

/// How a device with these abilities is opened for it; why not, where it is not.
std::string outcome(const Options& options, const PcmAudioCapabilities& device)
{
    try {
        const PcmAudioInfo info = negotiateDop(options, SomeDsd(), device);
        EXPECT_EQ(info.getSampleRate(), 176'400);
        EXPECT_EQ(info.getNumChannels(), 2);
        return toString(info.getPcmFormat());
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

std::string outcome(const std::vector<PcmFormat>& supported, const Options& options = {})
{
    return outcome(options, {IntegerRange(8000, 192'000), IntegerRange(1, 8), supported});
}

} // namespace

TEST(DopFilter, AlternatesMarkersOverBlocksAndFillsSilenceWithIdleBits)
{
    for (const PcmFormat format : formats) {
        DopFilter* filter = nullptr;
        std::optional<DopFilter> made;
        std::size_t count = 0;
        for (const std::vector<std::uint16_t>& bits :
             std::vector<std::vector<std::uint16_t>>{{1, 0x8000, 0}, {0}, {0, 0xFFFF}, {}, {7}}) {
            Frames frames(format, bits);
            if (filter == nullptr) {
                filter = &made.emplace(frames.layout);
            }
            filter->process(frames.bytes);
            for (std::size_t i = 0; i < bits.size(); ++i, ++count) {
                const std::uint8_t marker = count % 2 == 0 ? 0x05 : 0xFA;
                const auto other = static_cast<std::uint16_t>(~bits[i]);
                EXPECT_EQ(frames.sample(i, 0),
                          dop::sample(marker, bits[i] != 0 ? bits[i] : 0x6969));
                EXPECT_EQ(frames.sample(i, 1), dop::sample(marker, bits[i] != 0 ? other : 0x6969));
            }
        }
    }
}

TEST(DopFilter, PutsTheMarkerHighestAndNothingBelowTheBits)
{
    Frames frames(S32LE, {0x1234, 0x5678});
    DopFilter(frames.layout).process(frames.bytes);
    EXPECT_EQ(frames.bytes, (std::vector<unsigned char>{0, 0x34, 0x12, 0x05, 0, 0xCB, 0xED, 0x05, //
                                                        0, 0x78, 0x56, 0xFA, 0, 0x87, 0xA9, 0xFA}));
    Frames packed(S24BE, {0x1234});
    DopFilter(packed.layout).process(packed.bytes);
    EXPECT_EQ(packed.bytes, (std::vector<unsigned char>{0x05, 0x12, 0x34, 0x05, 0xED, 0xCB}));
}

TEST(DopFilter, TakesADsdBitPatternOfZerosForWhatItIs)
{
    std::vector<unsigned char> frame{0x00, 0x00, 0x05}; // S24LE, one channel
    DopFilter({*layoutOf(S24LE), 1}).process(frame);
    EXPECT_EQ(frame, (std::vector<unsigned char>{0x00, 0x00, 0x05}));
}

TEST(DopFilter, AllocatesNothing)
{
    Frames frames(S32LE, std::vector<std::uint16_t>(1000, 1));
    DopFilter filter(frames.layout);
    const testSupport::AllocationCounter allocations;
    filter.process(frames.bytes);
    EXPECT_EQ(allocations.count(), 0U);
}

TEST(DopNegotiation, TakesTheSmallestFormatOf24BitsThatTheDeviceHas)
{
    EXPECT_EQ(outcome({S16LE, S24LE, S24_32LE, S32LE}), "S24LE");
    EXPECT_EQ(outcome({S16LE, S24_32LE, S32LE, F32LE}), "S24_32LE");
    EXPECT_EQ(outcome({S16LE, S32LE, F32LE}), "S32LE");
    EXPECT_EQ(outcome({S32BE}), "S32BE");
    Options options;
    options.format = S32LE;
    EXPECT_EQ(outcome({S24LE, S32LE}, options), "S32LE");
    options.rate = 176'400;
    EXPECT_EQ(outcome({S24LE, S32LE}, options), "S32LE") << "the rate that it has anyway";
}

TEST(DopNegotiation, RefusesADeviceThatCannotCarryIt)
{
    Options options;
    options.device = "hw:0";
    const std::string needs = "song.dsf: DSD64 as DoP needs 176400 Hz, 24 bits and 2 channels, "
                              "which device hw:0 does not take (it takes ";
    EXPECT_EQ(
        outcome(options,
                {IntegerRange(std::vector<int>{44100, 48000}), IntegerRange(2, 2), {S16LE, S32LE}}),
        needs + "44100 48000 Hz; S16LE S32LE; 2 to 2 channels)");
    EXPECT_EQ(outcome(options, {IntegerRange(8000, 192'000), IntegerRange(1, 2), {S16LE, F32LE}}),
              needs + "8000 to 192000 Hz; S16LE F32LE; 1 to 2 channels)");
    EXPECT_EQ(outcome(options, {IntegerRange(8000, 192'000), IntegerRange(4, 8), {S32LE}}),
              needs + "8000 to 192000 Hz; S32LE; 4 to 8 channels)");
    options.format = S24LE;
    EXPECT_EQ(outcome(options, {IntegerRange(8000, 192'000), IntegerRange(2, 8), {S32LE}}),
              "song.dsf: DSD64 as DoP needs 176400 Hz, S24LE and 2 channels, which device hw:0 "
              "does not take (it takes 8000 to 192000 Hz; S32LE; 2 to 8 channels)");
}

TEST(DopNegotiation, RefusesWhatWouldChangeBits)
{
    const PcmAudioCapabilities all = getAllPossiblePcmCapabilities();
    Options options;
    options.rate = 48'000;
    EXPECT_EQ(outcome(options, all), "song.dsf: DSD64 as DoP needs 176400 Hz, not 48000");
    options = {};
    options.format = S16LE;
    EXPECT_EQ(outcome(options, all), "song.dsf: DSD64 as DoP needs 24 bits, not S16LE, but S24LE "
                                     "S24BE S24_32LE S24_32BE S32LE S32BE");
    options.format = F32LE;
    EXPECT_THAT(outcome(options, all), HasSubstr("needs 24 bits, not F32LE"));
    options = {};
    options.drift.correction = Correction::Resample;
    EXPECT_EQ(outcome(options, all),
              "song.dsf: DSD64 as DoP can't be resampled: --correct none or device");
    options.drift.correction = Correction::Device;
    EXPECT_EQ(outcome(options, all), "S24LE");
}

TEST(DopNegotiation, KnowsWhichPluginsOfAlsaLeaveSamplesAlone)
{
    EXPECT_EQ(passageThrough(SND_PCM_TYPE_HW), Passage::Unchanged);
    EXPECT_EQ(passageThrough(SND_PCM_TYPE_HOOKS), Passage::Unchanged);
    for (const snd_pcm_type_t type : {SND_PCM_TYPE_PLUG, SND_PCM_TYPE_DMIX, SND_PCM_TYPE_RATE,
                                      SND_PCM_TYPE_SOFTVOL, SND_PCM_TYPE_ROUTE}) {
        EXPECT_EQ(passageThrough(type), Passage::Converted);
    }
    EXPECT_EQ(passageThrough(SND_PCM_TYPE_IOPLUG), Passage::Unknown);
}

TEST(DopPlaylist, DsdAndPcmAreNotOneStream)
{
    std::vector<Track> tracks(2);
    EXPECT_EQ(lengthOfRun(tracks), 2U);
    tracks.front().isDsd = true;
    EXPECT_EQ(lengthOfRun(tracks), 1U);
}
