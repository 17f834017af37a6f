#include <cmath>
#include <cstdlib>
#include <limits>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>

#include "Handles.h"
#include "audioUtils/resample/GStreamerResampler.h"
#include "audioUtils/resample/HighQualityResamplerShort.h"
#include "support/AllocationCounter.h"

using audioUtils::GStreamerResampler;
using audioUtils::HighQualityResampler;
using audioUtils::HighQualityResamplerShort;

namespace {

constexpr kelda_resampler_config usual = {KELDA_RESAMPLER_FLOAT, KELDA_FLOAT32, 2, 1, 44100, 48000};
constexpr kelda_resampler_config gstreamer = {
    KELDA_RESAMPLER_GSTREAMER, KELDA_FLOAT32, 2, 5, 44100, 48000};

Resampler make(const kelda_resampler_config& config)
{
    return made<Resampler>(
        [&](kelda_resampler** resampler) { return kelda_resampler_create(&config, resampler); });
}

kelda_status refused(const kelda_resampler_config& config)
{
    return refusal<kelda_resampler>(
        [&](kelda_resampler** resampler) { return kelda_resampler_create(&config, resampler); });
}

template<typename T>
std::vector<T> tone(std::size_t frames, std::size_t from = 0)
{
    std::vector<T> samples(frames * 2);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double scale = std::is_integral_v<T> ? 15'000 : 0.5;
        samples[i] = static_cast<T>(
            scale * std::sin(static_cast<double>(from + i / 2) / 9 + static_cast<double>(i % 2)));
    }
    return samples;
}

/// One call with a block of input; the output that it gave.
template<typename T>
std::vector<T> process(const Resampler& resampler, const std::vector<T>& in, std::size_t room,
                       std::size_t& taken, int flags = 0)
{
    std::vector<T> out(room * 2);
    taken = in.size() / 2;
    EXPECT_EQ(kelda_resampler_process(resampler.get(), in.data(), &taken, out.data(), &room, flags),
              KELDA_OK);
    out.resize(room * 2);
    return out;
}

/// All that a stream becomes, flushed to its end through a small room.
template<typename T>
std::vector<T> streamThrough(const Resampler& resampler, const std::vector<T>& in)
{
    constexpr std::size_t room = 100;
    std::vector<T> all;
    for (std::size_t position = 0;;) {
        const std::size_t left = in.size() - position;
        const std::vector<T> block(
            in.begin() + static_cast<std::ptrdiff_t>(position),
            in.begin() + static_cast<std::ptrdiff_t>(position + std::min<std::size_t>(left, 200)));
        const bool atEnd = left <= 200;
        std::size_t taken = 0;
        const std::vector<T> out = process(resampler, block, room, taken, atEnd ? KELDA_FLUSH : 0);
        position += taken * 2;
        all.insert(all.end(), out.begin(), out.end());
        if (atEnd && position == in.size() && out.size() < room * 2) {
            return all;
        }
    }
}

template<typename Class>
int processClass(Class& resampler, std::vector<short>& in, std::vector<short>& out,
                 unsigned int& samples, bool mute, bool flush)
{
    return resampler.processShort(
        reinterpret_cast<unsigned short*>(in.data()), static_cast<int>(in.size()),
        reinterpret_cast<unsigned short*>(out.data()), samples, mute, flush);
}

template<typename Class>
int processClass(Class& resampler, std::vector<int>& in, std::vector<int>& out,
                 unsigned int& samples, bool mute, bool flush)
{
    return resampler.processInt(reinterpret_cast<unsigned int*>(in.data()),
                                static_cast<int>(in.size()),
                                reinterpret_cast<unsigned int*>(out.data()), samples, mute, flush);
}

template<typename Class>
int processClass(Class& resampler, std::vector<float>& in, std::vector<float>& out,
                 unsigned int& samples, bool mute, bool flush)
{
    return resampler.processFloat(in.data(), static_cast<int>(in.size()), out.data(), samples, mute,
                                  flush);
}

/// Compares a resampler with its class, call by call.
template<typename T, typename Class>
void expectTheSameAs(Class& model, const Resampler& resampler)
{
    std::size_t position = 0;
    for (int i = 0; i < 200; ++i) {
        if (i == 50) {
            model.setSamplingRate(44100.5F, 48000);
            EXPECT_EQ(kelda_resampler_set_rates(resampler.get(), 44100.5, 48000), KELDA_OK);
        }
        if (i == 100) {
            model.setSamplingRate(static_cast<float>(44100.5 * 1.0003), 48000);
            EXPECT_EQ(kelda_resampler_set_ppm(resampler.get(), 300), KELDA_OK);
        }
        if (i == 150) {
            model.reset();
            model.setSamplingRate(44100.5F, 48000);
            EXPECT_EQ(kelda_resampler_reset(resampler.get()), KELDA_OK);
        }
        std::vector<T> in = tone<T>(200, position);
        const std::size_t room = i % 7 == 0 ? 50 : 300;
        const bool mute = i > 120 && i < 130;
        const bool flush = i > 180;
        std::vector<T> expected(room * 2);
        auto samples = static_cast<unsigned int>(room * 2);
        const int taken = processClass(model, in, expected, samples, mute, flush);
        expected.resize(samples);

        std::size_t frames = 0;
        const std::vector<T> out = process(resampler, in, room, frames,
                                           (mute ? KELDA_MUTE : 0) | (flush ? KELDA_FLUSH : 0));
        ASSERT_EQ(frames * 2, static_cast<std::size_t>(taken)) << i;
        ASSERT_EQ(out, expected) << i;
        position += frames;

        std::int64_t latency = -1;
        EXPECT_EQ(kelda_resampler_get_latency(resampler.get(), &latency), KELDA_OK);
        EXPECT_EQ(latency, model.getCurrentLatencyNs());
    }
}

template<typename T>
class KeldaResamplerOf : public testing::Test
{
};

using SampleTypes = testing::Types<short, int, float>;
TYPED_TEST_SUITE(KeldaResamplerOf, SampleTypes);

} // namespace

TYPED_TEST(KeldaResamplerOf, FloatDoesWhatTheClassDoes)
{
    for (const int quality : {0, 3}) {
        kelda_resampler_config config = usual;
        config.sample_type = typeOf<TypeParam>;
        config.quality = quality;
        HighQualityResampler model(2, static_cast<HighQualityResampler::FilterQuality>(quality));
        model.setSamplingRate(44100, 48000);
        expectTheSameAs<TypeParam>(model, make(config));
    }
}

TYPED_TEST(KeldaResamplerOf, GStreamerGivesTheStreamThatTheClassGives)
{
    kelda_resampler_config config = gstreamer;
    config.sample_type = typeOf<TypeParam>;
    std::vector<TypeParam> in = tone<TypeParam>(4410);
    GStreamerResampler model(
        2, 44100, 48000, static_cast<GStreamerResampler::SampleDataType>(config.sample_type), 5);
    std::vector<TypeParam> expected(20'000);
    auto samples = static_cast<unsigned int>(expected.size());
    processClass(model, in, expected, samples, false, true);
    expected.resize(samples);
    EXPECT_NEAR(static_cast<double>(samples), 9600, 4);

    const Resampler resampler = make(config);
    EXPECT_EQ(streamThrough(resampler, in), expected);
    EXPECT_EQ(streamThrough(resampler, in), expected) << "a second stream";
    std::size_t taken = 0;
    process(resampler, in, 10, taken);
    EXPECT_EQ(kelda_resampler_reset(resampler.get()), KELDA_OK);
    EXPECT_EQ(streamThrough(resampler, in), expected) << "after a reset";
}

TEST(KeldaResampler, ShortDoesWhatTheClassDoes)
{
    HighQualityResamplerShort model(2, HighQualityResampler::High);
    model.setSamplingRate(44100, 48000);
    expectTheSameAs<short>(model, make({KELDA_RESAMPLER_SHORT, KELDA_INT16, 2, 2, 44100, 48000}));
}

TEST(KeldaResampler, ShortTakesNoOtherType)
{
    for (const kelda_sample_type type : {KELDA_INT32, KELDA_FLOAT32}) {
        EXPECT_EQ(refused({KELDA_RESAMPLER_SHORT, type, 2, 1, 44100, 48000}), KELDA_NOT_SUPPORTED);
    }
}

TEST(KeldaResampler, ALastFrameComesOutThroughASmallRoom)
{
    const std::vector<float> in = tone<float>(4410);
    const std::size_t frames = streamThrough(make(usual), in).size() / 2;
    EXPECT_GE(frames, 4800U);
    EXPECT_LT(frames, 5000U) << "with the silence that pushed it out";
}

TEST(KeldaResampler, FollowsADriftWithoutEverCopying)
{
    const std::vector<float> in = tone<float>(480);
    kelda_resampler_config config = usual;
    config.in_rate = 48000;
    const auto output = [&](double ppm) {
        const Resampler resampler = make(config);
        EXPECT_EQ(kelda_resampler_set_ppm(resampler.get(), ppm), KELDA_OK);
        std::size_t frames = 0;
        std::size_t taken = 0;
        for (int i = 0; i < 1000; ++i) {
            frames += process(resampler, in, 1000, taken).size() / 2;
            EXPECT_EQ(taken, 480U);
        }
        return static_cast<double>(frames);
    };
    const double unchanged = output(0);
    EXPECT_NEAR(output(1000), unchanged - 480, 2);
    EXPECT_NEAR(output(-1000), unchanged + 480, 2);

    // A copy has the level and the samples of its input, times the headroom; a filter changes them.
    HighQualityResampler copying(2, HighQualityResampler::Medium);
    std::vector<float> copied(960);
    std::vector<float> changeable = in;
    auto samples = static_cast<unsigned int>(copied.size());
    processClass(copying, changeable, copied, samples, false, false);
    copied.resize(samples);
    const Resampler resampler = make(config);
    std::size_t taken = 0;
    EXPECT_EQ(process(resampler, in, 480, taken), copied) << "at a ratio of 1";
    kelda_resampler_reset(resampler.get());
    EXPECT_EQ(kelda_resampler_set_ppm(resampler.get(), 0), KELDA_OK);
    EXPECT_NE(process(resampler, in, 480, taken), copied);
}

TEST(KeldaResampler, TakesTheRatiosThatTheClassesTakeAndNoOthers)
{
    kelda_resampler_config config = usual;
    config.in_rate = 8000;
    config.out_rate = 64000;
    const Resampler resampler = make(config);
    EXPECT_EQ(kelda_resampler_set_rates(resampler.get(), 64000, 8000), KELDA_OK);
    EXPECT_EQ(kelda_resampler_set_rates(resampler.get(), 64001, 8000), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_resampler_set_rates(resampler.get(), 7999, 64000), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_resampler_set_ppm(resampler.get(), 1), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_resampler_set_ppm(resampler.get(), -1), KELDA_OK);

    config.kind = KELDA_RESAMPLER_SHORT;
    config.sample_type = KELDA_INT16;
    EXPECT_EQ(refused(config), KELDA_INVALID_ARGUMENT);
    config.out_rate = 63999;
    const Resampler shortOne = make(config);
    EXPECT_EQ(kelda_resampler_set_rates(shortOne.get(), 64000, 8000), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_resampler_set_rates(shortOne.get(), 63999, 8000), KELDA_OK);
}

TEST(KeldaResampler, ProcessingAllocatesNothing)
{
    const Resampler resampler = make(usual);
    const std::vector<float> in = tone<float>(441);
    std::vector<float> out(1200);
    const testSupport::AllocationCounter allocations;
    for (int i = 0; i < 50; ++i) {
        std::size_t taken = 441;
        std::size_t written = 600;
        kelda_resampler_set_ppm(resampler.get(), i);
        kelda_resampler_process(resampler.get(), in.data(), &taken, out.data(), &written, 0);
    }
    EXPECT_EQ(allocations.count(), 0U);
}

TEST(KeldaResampler, HandsOutWhatWaitsWithoutInput)
{
    for (const kelda_resampler_config& config : {usual, gstreamer}) {
        const Resampler resampler = make(config);
        std::size_t taken = 0;
        process(resampler, tone<float>(4410), 10, taken);
        std::vector<float> out(200);
        std::size_t offered = 50;
        std::size_t room = 100;
        EXPECT_EQ(kelda_resampler_process(resampler.get(), nullptr, &offered, out.data(), &room,
                                          KELDA_FLUSH),
                  KELDA_OK);
        EXPECT_EQ(offered, 0U);
        EXPECT_EQ(room, 100U);
        offered = 0;
        room = 0;
        EXPECT_EQ(kelda_resampler_process(resampler.get(), nullptr, &offered, nullptr, &room, 0),
                  KELDA_OK);
        EXPECT_EQ(room, 0U);
    }
}

TEST(KeldaResampler, GStreamerLosesNothingAtEqualRatesInASmallRoom)
{
    kelda_resampler_config config = gstreamer;
    config.in_rate = 48000;
    const Resampler resampler = make(config);
    std::size_t taken = 0;
    const std::vector<float> in = tone<float>(100);
    const std::vector<float> out = process(resampler, in, 60, taken);
    EXPECT_EQ(taken, 60U);
    EXPECT_EQ(out, tone<float>(60));
    std::size_t room = 0;
    EXPECT_EQ(kelda_resampler_get_room(resampler.get(), 1234, &room), KELDA_OK);
    EXPECT_EQ(room, 1234U);
}

TEST(KeldaResampler, GStreamerTellsTheRoomThatKeepsNothingBack)
{
    const Resampler resampler = make(gstreamer);
    GStreamerResampler model(2, 44100, 48000, GStreamerResampler::Float32, 5);
    std::size_t room = 0;
    EXPECT_EQ(kelda_resampler_get_room(resampler.get(), 4410, &room), KELDA_OK);
    EXPECT_EQ(room, model.calculateOutputBufferSize(4410));
    EXPECT_EQ(kelda_resampler_get_room(resampler.get(), INT32_MAX, &room), KELDA_OK);
    EXPECT_EQ(room, std::size_t{INT32_MAX} * 2 * 48000 / 44100) << "beyond 32 bits";

    std::size_t taken = 0;
    process(resampler, tone<float>(4410), 10, taken, KELDA_FLUSH);
    EXPECT_EQ(kelda_resampler_get_room(resampler.get(), 0, &room), KELDA_OK);
    EXPECT_GT(room, 0U) << "for what it kept";
    EXPECT_EQ(kelda_resampler_get_room(make(usual).get(), 1, &room), KELDA_NOT_SUPPORTED);
}

TEST(KeldaResampler, GStreamerNeitherMutesNorFollows)
{
    const Resampler resampler = make(gstreamer);
    float samples[4] = {};
    std::size_t taken = 2;
    std::size_t room = 2;
    EXPECT_EQ(kelda_resampler_process(resampler.get(), samples, &taken, samples, &room, KELDA_MUTE),
              KELDA_NOT_SUPPORTED);
    EXPECT_EQ(taken, 2U);
    EXPECT_EQ(room, 2U);
    EXPECT_EQ(kelda_resampler_set_ppm(resampler.get(), 1), KELDA_NOT_SUPPORTED);
}

TEST(KeldaResampler, GStreamerTakesWholeRatesInItsRange)
{
    const Resampler resampler = make(gstreamer);
    EXPECT_EQ(kelda_resampler_set_rates(resampler.get(), 1000, 1'536'000), KELDA_OK);
    for (const double rate : {999.0, 1'536'001.0, 44100.5}) {
        EXPECT_EQ(kelda_resampler_set_rates(resampler.get(), rate, 48000), KELDA_INVALID_ARGUMENT);
        EXPECT_EQ(kelda_resampler_set_rates(resampler.get(), 48000, rate), KELDA_INVALID_ARGUMENT);
        kelda_resampler_config config = gstreamer;
        config.out_rate = rate;
        EXPECT_EQ(refused(config), KELDA_INVALID_ARGUMENT);
    }
}

TEST(KeldaResampler, WithoutGStreamersPluginsThatKindIsNotSupported)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setenv("GST_PLUGIN_SYSTEM_PATH", "/nonexistent", 1);
            setenv("GST_REGISTRY", "/nonexistent/registry", 1);
            std::_Exit(refused(gstreamer) == KELDA_NOT_SUPPORTED ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(KeldaResampler, RefusesWhatIsOutOfRange)
{
    const auto with = [](const kelda_resampler_config& base, auto change) {
        kelda_resampler_config config = base;
        change(config);
        return refused(config);
    };
    const double infinite = std::numeric_limits<double>::infinity();
    for (const int bad : {-1, 3}) {
        EXPECT_EQ(with(usual, [&](auto& c) { c.kind = static_cast<kelda_resampler_kind>(bad); }),
                  KELDA_INVALID_ARGUMENT);
        EXPECT_EQ(
            with(usual, [&](auto& c) { c.sample_type = static_cast<kelda_sample_type>(bad); }),
            KELDA_INVALID_ARGUMENT);
    }
    for (const int quality : {-1, 4}) {
        EXPECT_EQ(with(usual, [&](auto& c) { c.quality = quality; }), KELDA_INVALID_ARGUMENT);
        EXPECT_EQ(refused({KELDA_RESAMPLER_SHORT, KELDA_INT16, 2, quality, 44100, 48000}),
                  KELDA_INVALID_ARGUMENT);
    }
    for (const int quality : {0, 11}) {
        EXPECT_EQ(with(gstreamer, [&](auto& c) { c.quality = quality; }), KELDA_INVALID_ARGUMENT);
    }
    EXPECT_EQ(with(usual, [](auto& c) { c.channels = 0; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with(usual, [](auto& c) { c.channels = 257; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with(gstreamer, [](auto& c) { c.channels = 64; }), KELDA_INVALID_ARGUMENT);
    for (const double rate : {0.0, 0.5, -48000.0, infinite, std::nan(""), 2147483648.0}) {
        EXPECT_EQ(with(usual, [&](auto& c) { c.in_rate = rate; }), KELDA_INVALID_ARGUMENT) << rate;
        EXPECT_EQ(with(usual, [&](auto& c) { c.out_rate = rate; }), KELDA_INVALID_ARGUMENT) << rate;
    }
    EXPECT_EQ(refusal<kelda_resampler>([](kelda_resampler** resampler) {
                  return kelda_resampler_create(nullptr, resampler);
              }),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_resampler_create(&usual, nullptr), KELDA_INVALID_ARGUMENT);

    const Resampler resampler = make(usual);
    for (const double ppm : {100'001.0, -100'001.0, infinite, std::nan("")}) {
        EXPECT_EQ(kelda_resampler_set_ppm(resampler.get(), ppm), KELDA_INVALID_ARGUMENT) << ppm;
    }
}

TEST(KeldaResampler, ChecksPointersCountsAndFlags)
{
    const Resampler resampler = make(usual);
    float samples[4] = {};
    std::size_t taken = 2;
    std::size_t room = 2;
    const auto call = [&](kelda_resampler* handle, std::size_t* in, void* out, std::size_t* written,
                          int flags) {
        return kelda_resampler_process(handle, samples, in, out, written, flags);
    };
    kelda_resampler* const handle = resampler.get();
    EXPECT_EQ(call(nullptr, &taken, samples, &room, 0), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(call(handle, nullptr, samples, &room, 0), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(call(handle, &taken, nullptr, &room, 0), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(call(handle, &taken, samples, nullptr, 0), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(call(handle, &taken, samples, &room, 4), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(taken, 2U);
    EXPECT_EQ(room, 2U);
    for (std::size_t tooMany : {std::size_t{1} << 30, SIZE_MAX}) {
        EXPECT_EQ(call(handle, &tooMany, samples, &room, 0), KELDA_INVALID_ARGUMENT);
    }

    std::int64_t latency = 77;
    EXPECT_EQ(kelda_resampler_set_rates(nullptr, 1, 1), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_resampler_set_ppm(nullptr, 1), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_resampler_reset(nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_resampler_get_latency(nullptr, &latency), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_resampler_get_latency(handle, nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_resampler_get_room(nullptr, 1, &room), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_resampler_get_room(handle, 1, nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_resampler_get_room(make(gstreamer).get(), std::size_t{1} << 31, &room),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(latency, 77);
    kelda_resampler_destroy(nullptr);
}
