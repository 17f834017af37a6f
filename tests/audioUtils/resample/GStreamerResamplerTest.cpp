#include "audioUtils/resample/GStreamerResampler.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <vector>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <rapidcheck.h>

#include "support/LogCapture.h"
#include "support/Sine.h"
#include "support/virtualTime/Threads.h"

using audioUtils::GStreamerResampler;
using testing::Contains;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testSupport::LogCapture;
using testSupport::SineFit;

namespace {

constexpr double attenuation = 0.944060876;

std::atomic<bool> noPipelineStarts = false;
GstClockTime waitedInVain = 0;

template<typename T>
struct Type;

template<>
struct Type<short>
{
    static constexpr auto type = GStreamerResampler::Int16;
    static constexpr double fullScale = 32767;
    static constexpr double snr = 75; // dB
    static int process(GStreamerResampler& resampler, short* in, int numIn, short* out,
                       unsigned int& numOut, bool flush)
    {
        return resampler.processShort(reinterpret_cast<unsigned short*>(in), numIn,
                                      reinterpret_cast<unsigned short*>(out), numOut, false, flush);
    }
};

template<>
struct Type<int>
{
    static constexpr auto type = GStreamerResampler::Int32;
    static constexpr double fullScale = 2147483647;
    static constexpr double snr = 130;
    static int process(GStreamerResampler& resampler, int* in, int numIn, int* out,
                       unsigned int& numOut, bool flush)
    {
        return resampler.processInt(reinterpret_cast<unsigned int*>(in), numIn,
                                    reinterpret_cast<unsigned int*>(out), numOut, false, flush);
    }
};

template<>
struct Type<float>
{
    static constexpr auto type = GStreamerResampler::Float32;
    static constexpr double fullScale = 1;
    static constexpr double snr = 110;
    static int process(GStreamerResampler& resampler, float* in, int numIn, float* out,
                       unsigned int& numOut, bool flush)
    {
        return resampler.processFloat(in, numIn, out, numOut, false, flush);
    }
};

/// One call of the operation for the type, with room for so many samples.
template<typename T>
std::vector<T> process(GStreamerResampler& resampler, std::vector<T> in, std::size_t room,
                       bool flush = false)
{
    std::vector<T> out(room);
    auto count = static_cast<unsigned int>(room);
    const int consumed = Type<T>::process(resampler, in.data(), static_cast<int>(in.size()),
                                          out.data(), count, flush);
    EXPECT_EQ(consumed, static_cast<int>(in.size()));
    EXPECT_LE(count, room);
    out.resize(count);
    return out;
}

template<typename T>
void append(std::vector<T>& to, const std::vector<T>& more)
{
    to.insert(to.end(), more.begin(), more.end());
}

template<typename T>
std::vector<T> sine(std::size_t count, double frequency)
{
    std::vector<T> samples(count);
    for (std::size_t i = 0; i < count; ++i) {
        samples[i] = static_cast<T>(0.5 * Type<T>::fullScale *
                                    std::sin(2 * M_PI * frequency * static_cast<double>(i)));
    }
    return samples;
}

template<typename T>
struct GStreamerResamplerOfTest : testing::Test
{
};

using SampleTypes = testing::Types<short, int, float>;
TYPED_TEST_SUITE(GStreamerResamplerOfTest, SampleTypes);

// The pipeline's end is a frame early now and then.
template<typename Count>
testing::Matcher<Count> isAbout(Count frames)
{
    return testing::AnyOf(frames, frames - 1);
}

std::string capsText(GstCaps* caps)
{
    const std::unique_ptr<char, decltype(&g_free)> text(gst_caps_to_string(caps), g_free);
    gst_caps_unref(caps);
    return text.get();
}

} // namespace

// Stands before GStreamer's own, which always succeeds with these elements.
extern "C" __attribute__((visibility("default"))) GstStateChangeReturn
gst_element_set_state(GstElement* element, GstState state)
{
    static const auto real =
        reinterpret_cast<decltype(&gst_element_set_state)>(dlsym(RTLD_NEXT, __func__));
    return noPipelineStarts && state == GST_STATE_PLAYING ? GST_STATE_CHANGE_FAILURE
                                                          : real(element, state);
}

// A pipeline comes late on a busy machine: it is waited for as long as its threads have something
// to do.
extern "C" __attribute__((visibility("default"))) GstSample*
gst_app_sink_try_pull_sample(GstAppSink* sink, GstClockTime timeout)
{
    static const auto real =
        reinterpret_cast<decltype(&gst_app_sink_try_pull_sample)>(dlsym(RTLD_NEXT, __func__));
    testSupport::virtualTime::Threads threads;
    for (;;) {
        const bool isAtRest = threads.allSleep();
        if (GstSample* const sample = real(sink, isAtRest ? 0 : GST_MSECOND)) {
            return sample;
        }
        if (isAtRest) {
            waitedInVain += timeout;
            return nullptr;
        }
    }
}

TYPED_TEST(GStreamerResamplerOfTest, ConvertsASine)
{
    GStreamerResampler resampler(1, 44100, 48000, Type<TypeParam>::type, 10);
    std::vector<TypeParam> out;
    const std::vector<TypeParam> in = sine<TypeParam>(44100, 1000.0 / 44100);
    for (std::size_t i = 0; i < in.size(); i += 441) {
        const auto block = in.begin() + static_cast<std::ptrdiff_t>(i);
        append(out,
               process<TypeParam>(resampler, {block, block + 441}, 4000, i + 441 == in.size()));
    }
    EXPECT_NEAR(static_cast<double>(out.size()), 48000, 1);

    const SineFit fit(std::vector<double>(out.begin() + 1000, out.end() - 1000), 1000.0 / 48000);
    EXPECT_GT(fit.snr, Type<TypeParam>::snr);
    EXPECT_NEAR(fit.amplitude / Type<TypeParam>::fullScale, 0.5 * attenuation, 0.0002);
    // The output's first frame is the input's: after 1000 frames the sine is where it should be.
    const double phase = std::remainder(2 * M_PI * 1000 * 1000.0 / 48000 - fit.phase, 2 * M_PI);
    EXPECT_NEAR(phase / (2 * M_PI) * 48, 0, 0.1) << "frames";
}

TYPED_TEST(GStreamerResamplerOfTest, CopiesAtEqualRates)
{
    GStreamerResampler resampler(2, 48000, 48000, Type<TypeParam>::type, 5);
    const std::vector<TypeParam> in = sine<TypeParam>(200, 0.01);
    EXPECT_EQ(process(resampler, in, 1000), in);
    EXPECT_EQ(process(resampler, in, 200), in);
    EXPECT_EQ(resampler.calculateLatency(), 0);
    EXPECT_EQ(resampler.getCurrentLatencyNs(), 0);
    EXPECT_EQ(resampler.calculateOutputBufferSize(100), 100U);
}

// All or nothing, and whatever becomes of it the input is gone.
TYPED_TEST(GStreamerResamplerOfTest, CopiesNothingThatExceedsTheRoom)
{
    GStreamerResampler resampler(2, 48000, 48000, Type<TypeParam>::type, 5);
    std::vector<TypeParam> in = sine<TypeParam>(200, 0.01);
    std::vector<TypeParam> out(200);
    EXPECT_EQ(resampler.resample(in.data(), 100, out.data(), 99, false), 0);
    EXPECT_EQ(out, std::vector<TypeParam>(200));
    EXPECT_THAT(process(resampler, in, 198), IsEmpty()); // and says that it took all
}

// Whatever the blocks and the room for them, the frames are the same.
TYPED_TEST(GStreamerResamplerOfTest, GivesTheSameInAnyPortions)
{
    const std::vector<TypeParam> in = sine<TypeParam>(6000, 0.0173);
    GStreamerResampler whole(2, 44100, 48000, Type<TypeParam>::type, 4);
    const std::vector<TypeParam> expected = process(whole, in, 20000, true);
    EXPECT_NEAR(static_cast<double>(expected.size()) / 2, 3000 * 48000.0 / 44100, 1);

    rc::check([&] {
        GStreamerResampler resampler(2, 44100, 48000, Type<TypeParam>::type, 4);
        std::vector<TypeParam> out;
        std::size_t at = 0;
        while (at < in.size()) {
            const std::size_t count =
                std::min(in.size() - at, 2 * *rc::gen::inRange<std::size_t>(1, 700));
            const auto block = in.begin() + static_cast<std::ptrdiff_t>(at);
            at += count;
            const std::size_t room = 2 * *rc::gen::inRange<std::size_t>(1, 900);
            append(out, process<TypeParam>(resampler,
                                           {block, block + static_cast<std::ptrdiff_t>(count)},
                                           room, at == in.size()));
        }
        while (out.size() < expected.size()) {
            const std::vector<TypeParam> more = process<TypeParam>(resampler, {}, 200, true);
            RC_ASSERT(!more.empty());
            append(out, more);
        }
        RC_ASSERT(out == expected);
    });
}

TEST(GStreamerResamplerTest, NamesFormats)
{
    EXPECT_EQ(GStreamerResampler::getGstAudioFormat(GStreamerResampler::Int16), "S16LE");
    EXPECT_EQ(GStreamerResampler::getGstAudioFormat(GStreamerResampler::Int32), "S32LE");
    EXPECT_EQ(GStreamerResampler::getGstAudioFormat(GStreamerResampler::Float32), "F32LE");
    EXPECT_EQ(GStreamerResampler::getGstAudioFormat(GStreamerResampler::SampleDataType(3)),
              "UNKNOWN");
}

TEST(GStreamerResamplerTest, DescribesWhatThePipelineTakesAndGives)
{
    const GStreamerResampler stereo(2, 44100, 96000, GStreamerResampler::Int16, 5);
    EXPECT_EQ(capsText(stereo.getSrcCaps()),
              "audio/x-raw, format=(string)S16LE, channels=(int)2, rate=(int)44100, "
              "layout=(string)interleaved, channel-mask=(bitmask)0x0000000000000003");
    EXPECT_EQ(capsText(stereo.getSinkCaps()),
              "audio/x-raw, format=(string)S16LE, channels=(int)2, rate=(int)96000, "
              "layout=(string)interleaved, channel-mask=(bitmask)0x0000000000000003");
}

TEST(GStreamerResamplerTest, ConvertsAnyUsualNumberOfChannels)
{
    const struct
    {
        unsigned int channels;
        const char* mask;
    } cases[] = {{1, "0001"}, {2, "0003"}, {4, "000f"}, {6, "003f"}, {8, "00ff"}};
    for (const auto& [channels, mask] : cases) {
        GStreamerResampler resampler(channels, 44100, 48000, GStreamerResampler::Float32, 4);
        EXPECT_THAT(capsText(resampler.getSrcCaps()), EndsWith(mask));
        std::vector<float> in(channels * 4410);
        for (std::size_t i = 0; i < in.size(); ++i) {
            in[i] = 0.1F * static_cast<float>(i % channels + 1);
        }
        const std::vector<float> out = process(resampler, in, in.size() * 2, true);
        ASSERT_THAT(out.size() / channels, isAbout<std::size_t>(4800));
        for (std::size_t c = 0; c < channels; ++c) { // each channel stays in its place
            EXPECT_NEAR(out[channels * 2000 + c], attenuation * 0.1 * static_cast<double>(c + 1),
                        1e-4);
        }
    }
}

TEST(GStreamerResamplerTest, CallsForRoomTwiceOfWhatTheInputMakes)
{
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, 4);
    EXPECT_EQ(resampler.calculateOutputBufferSize(441), 960U);
    EXPECT_EQ(resampler.calculateOutputBufferSize(0), 0U);
    process(resampler, sine<float>(4410, 0.01), 100, true);
    EXPECT_NEAR(resampler.calculateOutputBufferSize(441), 960U + 4700, 60); // and what is kept
    EXPECT_EQ(resampler.calculateOutputBufferSize(100'000),                 // 32 bits, on purpose
              48000U * 100'000U * 2U / 44100U + resampler.calculateOutputBufferSize(0));
}

TEST(GStreamerResamplerTest, CountsWhatIsInsideThePipeline)
{
    GStreamerResampler resampler(1, 48000, 96000, GStreamerResampler::Float32, 4);
    std::vector<float> in = sine<float>(480, 0.01);
    std::vector<float> out(4000);
    int total = 0;
    for (int block = 1; block <= 10; ++block) {
        total += resampler.resample(in.data(), 480, out.data(), 4000, false);
        const double latency = resampler.calculateLatency();
        EXPECT_EQ(latency, block * 480 - total / 2);
        EXPECT_EQ(resampler.getCurrentLatencyNs(),
                  static_cast<long>(latency) * 1'000'000'000 / 48000);
    }
    total += resampler.resample(in.data(), 480, out.data(), 4000, true);
    EXPECT_THAT(total, isAbout(11 * 960));
    EXPECT_EQ(resampler.calculateLatency(), 0);
}

TEST(GStreamerResamplerTest, BeginsAnewAfterTheEndOfTheStream)
{
    GStreamerResampler resampler(2, 44100, 48000, GStreamerResampler::Float32, 4);
    LogCapture log("GStreamerResampler", log4cplus::INFO_LOG_LEVEL);
    const std::vector<float> in = sine<float>(4410 * 2, 0.01);
    const std::vector<float> first = process(resampler, in, 20000, true);
    EXPECT_THAT(first.size() / 2, isAbout<std::size_t>(4800));
    // The same again, for nothing of the first stream is left.
    EXPECT_EQ(process(resampler, in, 20000, true), first);
    EXPECT_THAT(process<float>(resampler, {}, 20000, true), IsEmpty());
    EXPECT_EQ(process(resampler, in, 20000, true), first);
    EXPECT_THAT(log.lines(), IsEmpty());
}

// The end is reported by another thread, and must not matter when.
TEST(GStreamerResamplerTest, BeginsAnewHoweverTheRoomEnded)
{
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, 1);
    LogCapture log("GStreamerResampler", log4cplus::INFO_LOG_LEVEL);
    const std::vector<float> in = sine<float>(441, 0.01);
    const std::vector<float> expected = process(resampler, in, 1000, true);
    for (std::size_t room = expected.size() - 50; room <= expected.size() + 50; ++room) {
        std::vector<float> out = process(resampler, in, room, true);
        const double held = static_cast<double>(expected.size() - out.size());
        EXPECT_NEAR(resampler.calculateLatency(), held * 441 / 480, held > 0 ? 2 : 0);
        // A new stream right away: the old one's end comes first.
        append(out, process(resampler, in, 2000, true));
        std::vector<float> both = expected;
        append(both, expected);
        EXPECT_EQ(out, both) << "room " << room;
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

// Without the process operations nothing begins anew by itself.
TEST(GStreamerResamplerTest, RefusesInputBehindTheEndOfTheStream)
{
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, 1);
    LogCapture log("GStreamerResampler", log4cplus::INFO_LOG_LEVEL);
    std::vector<float> in = sine<float>(441, 0.01);
    std::vector<float> out(1000);
    EXPECT_THAT(resampler.resample(in.data(), 441, out.data(), 1000, true), isAbout(480));
    EXPECT_EQ(resampler.resample(in.data(), 441, out.data(), 1000, false), 0);
    EXPECT_THAT(log.takeLines(), ElementsAre("ERROR Failed to push buffer to appsrc"));
    EXPECT_THAT(process(resampler, in, 1000, true).size(), isAbout<std::size_t>(480));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(GStreamerResamplerTest, CountsNoInputThatItRefused)
{
    GStreamerResampler resampler(1, 24000, 48000, GStreamerResampler::Float32, 1);
    LogCapture log("GStreamerResampler", log4cplus::INFO_LOG_LEVEL);
    std::vector<float> in = sine<float>(1000, 0.01);
    std::vector<float> out(100);
    EXPECT_EQ(resampler.resample(in.data(), 1000, out.data(), 100, true), 100);
    EXPECT_EQ(resampler.calculateLatency(), 1000 - 50);
    EXPECT_EQ(resampler.resample(in.data(), 1000, out.data(), 100, false), 100);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR Failed to push buffer to appsrc"));
    EXPECT_EQ(resampler.calculateLatency(), 1000 - 100);
}

TEST(GStreamerResamplerTest, TakesNothingOfANegativeNumberOfSamples)
{
    GStreamerResampler resampler(1, 24000, 48000, GStreamerResampler::Float32, 1);
    std::vector<float> in = sine<float>(1000, 0.01);
    std::vector<float> out(100);
    unsigned int count = 100;
    static_cast<void>(resampler.processFloat(in.data(), -1000, out.data(), count, false, false));
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(resampler.calculateLatency(), 0);
}

TEST(GStreamerResamplerTest, DeliversFirstWhatDidNotFit)
{
    GStreamerResampler resampler(1, 24000, 48000, GStreamerResampler::Float32, 1);
    LogCapture log("GStreamerResampler");
    std::vector<float> in = sine<float>(1000, 0.01);
    std::vector<float> out(2000);
    EXPECT_EQ(resampler.resample(in.data(), 1000, out.data(), 500, true), 500);
    EXPECT_THAT(log.takeLines(), Contains(std::string("TRACE Consumed 1000 frames, produced 500 "
                                                      "frames")));
    EXPECT_EQ(resampler.resample<float>(nullptr, 0, out.data() + 500, 20, false), 20);
    EXPECT_THAT(
        log.takeLines(),
        Contains(std::string("TRACE Consuming 20 frames from the previous resample() call")));
    EXPECT_THAT(resampler.resample<float>(nullptr, 0, out.data() + 520, 2000, true), isAbout(1480));

    GStreamerResampler other(1, 24000, 48000, GStreamerResampler::Float32, 1);
    std::vector<float> whole(2000);
    EXPECT_THAT(other.resample(in.data(), 1000, whole.data(), 2000, true), isAbout(2000));
    EXPECT_EQ(out, whole);
}

TEST(GStreamerResamplerTest, TellsWhatDidNotFit)
{
    GStreamerResampler resampler(1, 24000, 48000, GStreamerResampler::Float32, 1);
    LogCapture log("GStreamerResampler");
    std::vector<float> in = sine<float>(1000, 0.01);
    std::vector<float> out(100);
    int frames = resampler.resample(in.data(), 1000, out.data(), 100, false);
    while (frames == 0) { // the pipeline may not be as quick as the call
        log.clear();
        frames = resampler.resample<float>(in.data(), 0, out.data(), 100, false);
    }
    ASSERT_EQ(frames, 100);
    const unsigned int kept = resampler.calculateOutputBufferSize(0);
    EXPECT_GT(kept, 1700U);
    EXPECT_THAT(log.takeLines(),
                ElementsAre("TRACE " + std::to_string(kept) +
                                " frames not consumed in this resample() call",
                            testing::EndsWith(" frames, produced 100 frames"),
                            "TRACE Input size 0 to output size " + std::to_string(kept)));
}

// What is kept is bytes: they are counted in frames of the type that asks for them.
TEST(GStreamerResamplerTest, KeepsLeftoversAcrossAChangeOfType)
{
    GStreamerResampler resampler(1, 24000, 48000, GStreamerResampler::Float32, 1);
    const std::vector<float> in = sine<float>(1000, 0.01);
    const std::vector<float> first = process(resampler, in, 100, true);
    const unsigned int kept = resampler.calculateOutputBufferSize(0);
    const std::vector<short> rest = process<short>(resampler, {}, 10'000, false);
    EXPECT_EQ(rest.size(), 2 * kept);

    GStreamerResampler other(1, 24000, 48000, GStreamerResampler::Float32, 1);
    const std::vector<float> whole = process(other, in, 2000, true);
    EXPECT_EQ(std::memcmp(rest.data(), whole.data() + 100, kept * sizeof(float)), 0);
}

TEST(GStreamerResamplerTest, DropsWhatIsNoWholeFrameOfTheNewType)
{
    GStreamerResampler resampler(1, 24000, 48000, GStreamerResampler::Int16, 1);
    process(resampler, sine<short>(100, 0.01), 198, true); // a frame of 2 bytes is kept
    EXPECT_EQ(resampler.calculateOutputBufferSize(0), 1U);
    EXPECT_THAT(process<float>(resampler, {}, 100, false), IsEmpty());
    EXPECT_EQ(resampler.calculateOutputBufferSize(0), 0U);
}

TEST(GStreamerResamplerTest, ChangesTheSampleTypeAtAnyCall)
{
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Int16, 4);
    EXPECT_THAT(process(resampler, sine<short>(441, 0.01), 1000, true).size(),
                isAbout<std::size_t>(480));
    EXPECT_THAT(process(resampler, sine<float>(441, 0.01), 1000, true).size(),
                isAbout<std::size_t>(480));
    EXPECT_THAT(process(resampler, sine<int>(441, 0.01), 1000, true).size(),
                isAbout<std::size_t>(480));
    EXPECT_THAT(capsText(resampler.getSinkCaps()), HasSubstr("S32LE"));
}

/// The lines but for that of the end of the stream: the pipeline's thread writes it when it gets
/// to it.
std::vector<std::string> takeLinesOfCaller(LogCapture& log)
{
    std::vector<std::string> lines = log.takeLines();
    std::erase(lines, "DEBUG EOS reached");
    return lines;
}

TEST(GStreamerResamplerTest, ChangesTheRates)
{
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, 4);
    LogCapture log("GStreamerResampler");
    resampler.setSamplingRate(96000.7F, 48000);
    EXPECT_THAT(log.takeLines(),
                ElementsAre("DEBUG Successfully reconfigured pipeline to audio format 'F32LE'!",
                            "DEBUG Reconfigured conversion: 96000.7 Hz -> 48000 Hz"));
    EXPECT_THAT(process(resampler, sine<float>(960, 0.01), 4000, true).size(),
                isAbout<std::size_t>(480));

    log.clear();
    resampler.setSamplingRate(48000, 48000);
    EXPECT_THAT(takeLinesOfCaller(log),
                ElementsAre("TRACE Identical sampling rates configured, there's no need to "
                            "reconfigure GStreamer pipeline",
                            "DEBUG Reconfigured conversion: 48000 Hz -> 48000 Hz"));
    EXPECT_EQ(process(resampler, sine<float>(480, 0.01), 480), sine<float>(480, 0.01));
}

TEST(GStreamerResamplerTest, GoesOnWhenNothingChanges)
{
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, 4);
    process(resampler, sine<float>(441, 0.01), 1000);
    LogCapture log("GStreamerResampler");
    const double latency = resampler.calculateLatency();
    EXPECT_TRUE(resampler.setAudioFormatAndRate(GStreamerResampler::Float32, 44100, 48000));
    EXPECT_EQ(resampler.calculateLatency(), latency);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(GStreamerResamplerTest, RefusesARateOf0AndGoesOn)
{
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, 4);
    LogCapture log("GStreamerResampler");
    resampler.setSamplingRate(0, 48000);
    EXPECT_THAT(log.takeLines(),
                ElementsAre("ERROR Failed to reconfigure pipeline to audio format 'F32LE'!",
                            "ERROR Failed to configure conversion from 0 Hz to 48000 Hz"));
    EXPECT_FALSE(resampler.setAudioFormatAndRate(GStreamerResampler::Int16, 48000, 0));
    EXPECT_THAT(process(resampler, sine<float>(441, 0.01), 1000, true).size(),
                isAbout<std::size_t>(480));
}

TEST(GStreamerResamplerTest, TriesAgainToStartAPipelineThatDidNot)
{
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, 4);
    LogCapture log("GStreamerResampler", log4cplus::INFO_LOG_LEVEL);
    std::vector<float> in = sine<float>(441, 0.01);
    std::vector<float> out(2000);
    noPipelineStarts = true;
    EXPECT_FALSE(resampler.setAudioFormatAndRate(GStreamerResampler::Float32, 22050, 48000));
    EXPECT_EQ(resampler.resample(in.data(), 441, out.data(), 2000, true), 0);
    noPipelineStarts = false;
    EXPECT_GT(resampler.resample(in.data(), 441, out.data(), 2000, true), 950);
    EXPECT_THAT(log.lines(),
                ElementsAre("ERROR Failed to reconfigure pipeline to audio format 'F32LE'!"));
}

TEST(GStreamerResamplerTest, HasNoLatencyWithoutARate)
{
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, 4);
    resampler.setSamplingRate(0, 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(resampler.getCurrentLatencyNs(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "GStreamer divides by no rate";
}

TEST(GStreamerResamplerTest, RefusesAnUnknownType)
{
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, 4);
    process(resampler, sine<float>(441, 0.01), 1000);
    resampler.setAudioFormatAndRate(GStreamerResampler::SampleDataType(7), 44100, 48000);
    // Which kind it is of is all that the process operations look at.
    EXPECT_THAT(process(resampler, sine<float>(441, 0.01), 1000, true).size(),
                isAbout<std::size_t>(480));
}

TEST(GStreamerResamplerTest, ForgetsTheSignalAtAReset)
{
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, 4);
    const std::vector<float> in = sine<float>(4410, 0.01);
    const std::vector<float> expected = process(resampler, in, 10'000, true);
    LogCapture log("GStreamerResampler");
    for (const std::size_t room : {10'000U, 100U, 4700U, 0U}) {
        for (const bool ended : {false, true}) {
            process(resampler, in, room, ended);
            log.clear();
            resampler.reset();
            EXPECT_THAT(log.takeLines(), Contains(std::string("DEBUG Resetting resampler")));
            EXPECT_EQ(resampler.calculateLatency(), 0);
            EXPECT_EQ(resampler.calculateOutputBufferSize(0), 0U);
            EXPECT_EQ(process(resampler, in, 10'000, true), expected);
        }
    }
    EXPECT_THAT(log.messages(log4cplus::ERROR_LOG_LEVEL), IsEmpty());
}

// resample() itself never begins anew, so a reset has to, also behind the end of a stream.
TEST(GStreamerResamplerTest, GoesOnAsNewAfterAReset)
{
    std::vector<float> in = sine<float>(4410, 0.01);
    const auto resample = [&in](GStreamerResampler& resampler, bool endOfStream) {
        std::vector<float> out(10'000);
        const int frames = resampler.resample(in.data(), 4410, out.data(), 10'000, endOfStream);
        out.resize(static_cast<std::size_t>(frames));
        return out;
    };
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, 4);
    const std::vector<float> asNew = resample(resampler, true);
    EXPECT_THAT(asNew.size(), isAbout<std::size_t>(4800));
    for (const bool endOfStream : {true, false, true}) {
        resampler.reset();
        EXPECT_EQ(resample(resampler, true), asNew);
        resampler.reset();
        resample(resampler, endOfStream);
    }
}

TEST(GStreamerResamplerTest, ResetsAtEqualRates)
{
    GStreamerResampler resampler(1, 48000, 48000, GStreamerResampler::Float32, 4);
    process(resampler, sine<float>(441, 0.01), 1000);
    resampler.reset();
    EXPECT_EQ(process(resampler, sine<float>(441, 0.01), 1000).size(), 441U);
}

TEST(GStreamerResamplerTest, LosesNoFrameInHours)
{
    constexpr unsigned int rate = 8000;
    GStreamerResampler resampler(1, rate, 11025, GStreamerResampler::Int16, 1);
    constexpr unsigned int blockFrames = 10 * rate;
    std::vector<short> in = sine<short>(blockFrames, 0.01);
    std::vector<short> out(2UL * blockFrames);
    std::int64_t total = 0;
    constexpr int blocks = 3 * 360;
    for (int block = 1; block <= blocks; ++block) {
        total += resampler.resample(in.data(), blockFrames, out.data(), 2 * blockFrames,
                                    block == blocks);
    }
    EXPECT_NEAR(static_cast<double>(total), 3 * 3600 * 11025.0, 2);
}

// In blocks shorter than the filter's look-ahead a call waits in vain, but never longer than 0.8
// times what the pipeline holds.
TEST(GStreamerResamplerTest, WaitsForPartOfTheLatencyAtMost)
{
    constexpr unsigned int rate = 200;
    GStreamerResampler resampler(1, rate, 2 * rate, GStreamerResampler::Float32, 4);
    std::vector<float> in(4);
    std::vector<float> out(100);
    for (int block = 0; block < 12; ++block) {
        const double held = resampler.calculateLatency() + 4; // when the call comes to wait
        waitedInVain = 0;
        const int frames = resampler.resample(in.data(), 4, out.data(), 100, false);
        const double waited = static_cast<double>(waitedInVain) / 1e9;
        if (frames == 0) {
            EXPECT_NEAR(waited, 0.8 * held / rate, 1e-6);
        } else {
            EXPECT_LE(waited, 0.8 * held / rate + 1e-6);
        }
    }
}

TEST(GStreamerResamplerTest, WaitsNoMoreWhenLessIsHeldThanCameIn)
{
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, 4);
    for (int block = 0; block < 10; ++block) {
        waitedInVain = 0;
        EXPECT_GT(process(resampler, sine<float>(4410, 0.01), 10'000).size(), 0U);
        EXPECT_EQ(waitedInVain, 0U) << "ns";
    }
}

TEST(GStreamerResamplerTest, LogsToStandardErrorFromInfoOn)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    GStreamerResampler resampler(2, 0, 48000, GStreamerResampler::Int16, 5);
    resampler.setSamplingRate(48000, 44100); // tells so at level DEBUG
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_THAT(text, MatchesRegex("## [0-9]{2}:[0-9]{2}:[0-9]{2},[0-9]{3} INFO: No rates "
                                   "specified, assuming 44.1kHz\n"));
}

TEST(GStreamerResamplerTest, ConfiguresItsLogAnewEachTime)
{
    log4cplus::Logger logger = log4cplus::Logger::getInstance("GStreamerResampler");
    {
        const GStreamerResampler first(2, 48000, 44100, GStreamerResampler::Int16, 5);
    }
    logger.setLogLevel(log4cplus::OFF_LOG_LEVEL);
    const GStreamerResampler second(2, 48000, 44100, GStreamerResampler::Int16, 5);
    EXPECT_EQ(logger.getLogLevel(), log4cplus::INFO_LOG_LEVEL);
    ASSERT_EQ(logger.getAllAppenders().size(), 1U); // not one more
    EXPECT_EQ(logger.getAllAppenders()[0]->getName(), "console");
}

TEST(GStreamerResamplerTest, Takes44100ForRatesOf0)
{
    for (const auto& [in, out] :
         {std::pair(0U, 48000U), std::pair(48000U, 0U), std::pair(0U, 0U)}) {
        GStreamerResampler resampler(2, in, out, GStreamerResampler::Int16, 5);
        EXPECT_THAT(capsText(resampler.getSrcCaps()), HasSubstr("rate=(int)44100"));
        EXPECT_THAT(capsText(resampler.getSinkCaps()), HasSubstr("rate=(int)44100"));
        EXPECT_EQ(process(resampler, sine<short>(200, 0.01), 200), sine<short>(200, 0.01));
    }
}

TEST(GStreamerResamplerTest, KeepsTheDefaultQualityForOneOutOfRange)
{
    const auto converted = [](int quality) {
        GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, quality);
        return process(resampler, sine<float>(441, 0.3), 1000, true);
    };
    const std::vector<float> byDefault = converted(4);
    for (const int quality : {0, 11, -1}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(converted(quality), byDefault);
        EXPECT_THAT(
            testing::internal::GetCapturedStderr(),
            EndsWith(" ERROR: Conversion quality level out of range <1;10>, using the default "
                     "quality level\n"));
    }
    for (const int quality : {1, 10}) {
        testing::internal::CaptureStderr();
        EXPECT_NE(converted(quality), byDefault);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    }
}

TEST(GStreamerResamplerTest, TellsHowThePipelineWasSetUp)
{
    GStreamerResampler resampler(1, 44100, 48000, GStreamerResampler::Float32, 7);
    LogCapture log("GStreamerResampler");
    EXPECT_TRUE(resampler.initPipeline());
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG Setting safety attenuation to -0.5 dB (linear attenuation = "
                            "0.944061)",
                            "DEBUG Setting conversion quality level to 7",
                            "DEBUG Conversion pipeline from 44100 to 48000 with quality of 7 has "
                            "been successfully configured"));
    EXPECT_THAT(process(resampler, sine<float>(441, 0.01), 1000, true).size(),
                isAbout<std::size_t>(480));
    resampler.reset(); // ends the thread that tells of the end
    EXPECT_THAT(log.lines(), Contains(std::string("DEBUG EOS reached")));
}

TEST(GStreamerResamplerDeathTest, AbortsWithoutItsElements)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "/nonexistent", 1);
            setenv("GST_PLUGIN_PATH_1_0", "", 1);
            setenv("GST_REGISTRY_1_0", "/dev/null", 1);
            setenv("GST_REGISTRY_UPDATE", "no", 1);
            GStreamerResampler(2, 44100, 48000, GStreamerResampler::Int16, 5);
        },
        "FATAL: Unable to initialize gstreamer pipeline!\n(.|\n)*Assertion `false' failed");
}

TEST(GStreamerResamplerDeathTest, AbortsOnANumberOfChannelsThatGStreamerCannotConvert)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(GStreamerResampler(0, 44100, 48000, GStreamerResampler::Int16, 5), "numChannels");
    EXPECT_DEATH(GStreamerResampler(64, 44100, 48000, GStreamerResampler::Int16, 5), "numChannels");
}

// GStreamer's own tracer of leaks tells at its end which objects are alive.
TEST(GStreamerResamplerDeathTest, LeaksNothing)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setenv("GST_TRACERS", "leaks", 1);
            setenv("GST_DEBUG", "GST_TRACER:7", 1);
            setenv("GST_DEBUG_NO_COLOR", "1", 1);
            for (int i = 0; i < 200; ++i) {
                GStreamerResampler resampler(2, 44100, 48000, GStreamerResampler::Int16, 5);
                const std::size_t room =
                    i % 2 == 0 ? 100 : 2000; // leaving something behind, or not
                process(resampler, sine<short>(882, 0.01), room, i % 3 == 0);
                process(resampler, sine<float>(882, 0.01), room, i % 5 == 0);
                if (i % 7 == 0) {
                    resampler.reset();
                    resampler.initPipeline();
                }
            }
            gst_deinit();
            std::exit(0);
        },
        testing::ExitedWithCode(0), Not(ContainsRegex("object-alive, type-name=.string.[A-Z]")));
}
