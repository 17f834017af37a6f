#include "audioUtils/clickRemover/ClickRemover.h"

#include <cmath>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>

#include "Handles.h"
#include "support/AllocationCounter.h"

namespace {

constexpr kelda_click_remover_config usual = {KELDA_INT16, 48000, 2, 10, 5, 4, 0};

ClickRemover make(const kelda_click_remover_config& config = usual)
{
    return made<ClickRemover>([&](kelda_click_remover** remover) {
        return kelda_click_remover_create(&config, remover);
    });
}

kelda_status refused(const kelda_click_remover_config& config)
{
    return refusal<kelda_click_remover>([&](kelda_click_remover** remover) {
        return kelda_click_remover_create(&config, remover);
    });
}

/// 10 ms of stereo: a tone, or in every fourth ten blocks silence with a short signal in it.
template<typename T>
std::vector<T> block(int number)
{
    std::vector<T> samples(960);
    const bool isQuiet = number / 10 % 4 == 2;
    const std::size_t length = !isQuiet ? samples.size() : number % 10 == 5 ? 200 : 0;
    for (std::size_t i = 0; i < length; ++i) {
        const double phase = static_cast<double>(i / 2 + static_cast<std::size_t>(number) * 480);
        const double scale = std::is_integral_v<T> ? 20'000 : 0.7;
        samples[i] = static_cast<T>(scale * std::sin(phase / 7 + static_cast<double>(i % 2)));
    }
    return samples;
}

template<typename T>
class KeldaClickRemoverOf : public testing::Test
{
};

using SampleTypes = testing::Types<short, int, float>;
TYPED_TEST_SUITE(KeldaClickRemoverOf, SampleTypes);

} // namespace

TYPED_TEST(KeldaClickRemoverOf, EachSampleTypeDoesWhatTheClassDoes)
{
    for (const int skipShortSignals : {0, 1}) {
        kelda_click_remover_config config = usual;
        config.sample_type = typeOf<TypeParam>;
        config.skip_short_signals = skipShortSignals;
        const ClickRemover remover = make(config);
        audioUtils::ClickRemover<TypeParam> model(10, 5, 4, skipShortSignals != 0);

        std::size_t delay = 0;
        EXPECT_EQ(kelda_click_remover_get_delay(remover.get(), &delay), KELDA_OK);
        EXPECT_EQ(delay, model.minimumDelay(48000));
        EXPECT_EQ(delay, 960U);

        for (int number = 0; number < 100; ++number) {
            std::vector<TypeParam> expected = block<TypeParam>(number);
            std::vector<TypeParam> samples = expected;
            if (number == 15) {
                model.notifyUnderrun(15 * 480 - 400, 48000);
                EXPECT_EQ(kelda_click_remover_notify_underrun(remover.get(), 15 * 480 - 400),
                          KELDA_OK);
            }
            if (number == 70) {
                model.reset();
                EXPECT_EQ(kelda_click_remover_reset(remover.get()), KELDA_OK);
            }
            model.process(expected.data(), 48000, 2, 480);
            EXPECT_EQ(kelda_click_remover_process(remover.get(), samples.data(), 480), KELDA_OK);
            ASSERT_EQ(samples, expected) << "block " << number;
        }
        for (std::size_t left = 1; left > 0;) {
            std::vector<TypeParam> expected(600);
            std::vector<TypeParam> samples(600);
            std::size_t expectedFrames = 300;
            std::size_t frames = 300;
            const std::size_t expectedLeft = model.flush(expected.data(), 48000, 2, expectedFrames);
            EXPECT_EQ(kelda_click_remover_flush(remover.get(), samples.data(), &frames, &left),
                      KELDA_OK);
            EXPECT_EQ(frames, expectedFrames);
            EXPECT_EQ(left, expectedLeft);
            ASSERT_EQ(samples, expected);
        }
    }
}

TEST(KeldaClickRemover, AllocatesNothingAfterTheFirstBlock)
{
    const ClickRemover remover = make();
    std::vector<short> samples = block<short>(0);
    kelda_click_remover_process(remover.get(), samples.data(), 480);
    const testSupport::AllocationCounter allocations;
    for (int i = 0; i < 50; ++i) {
        std::fill(samples.begin(), samples.end(), static_cast<short>(i % 10 < 5 ? 1000 : 0));
        kelda_click_remover_process(remover.get(), samples.data(), 480);
    }
    EXPECT_EQ(allocations.count(), 0U);
}

TEST(KeldaClickRemover, RefusesWhatIsOutOfRange)
{
    const auto with = [](auto change) {
        kelda_click_remover_config config = usual;
        change(config);
        return refused(config);
    };
    EXPECT_EQ(with([](auto& c) { c.sample_type = static_cast<kelda_sample_type>(3); }),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.sample_type = static_cast<kelda_sample_type>(-1); }),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.sample_rate = 0; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.sample_rate = 0x80000000U; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.channels = 0; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.channels = 257; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.gap_ms = UINT32_MAX; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.margin_ms = 44'739'243; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with([](auto& c) { c.fade_ms = 44'739'243; }), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(refusal<kelda_click_remover>([](kelda_click_remover** remover) {
                  return kelda_click_remover_create(nullptr, remover);
              }),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_click_remover_create(&usual, nullptr), KELDA_INVALID_ARGUMENT);
}

TEST(KeldaClickRemover, ChecksBuffersAndCounts)
{
    const ClickRemover remover = make();
    short samples[4] = {};
    std::size_t frames = 2;
    std::size_t left = 77;
    EXPECT_EQ(kelda_click_remover_process(nullptr, samples, 2), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_click_remover_process(remover.get(), nullptr, 2), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_click_remover_process(remover.get(), samples, 0x80000000U),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_click_remover_process(remover.get(), nullptr, 0), KELDA_OK);

    EXPECT_EQ(kelda_click_remover_flush(nullptr, samples, &frames, &left), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_click_remover_flush(remover.get(), nullptr, &frames, &left),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_click_remover_flush(remover.get(), samples, nullptr, &left),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(frames, 2U);
    EXPECT_EQ(left, 77U);
    EXPECT_EQ(kelda_click_remover_flush(remover.get(), samples, &frames, nullptr), KELDA_OK);
    EXPECT_EQ(frames, 0U) << "an empty line gives nothing";

    EXPECT_EQ(kelda_click_remover_notify_underrun(nullptr, 0), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_click_remover_reset(nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_click_remover_get_delay(nullptr, &frames), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_click_remover_get_delay(remover.get(), nullptr), KELDA_INVALID_ARGUMENT);
    kelda_click_remover_destroy(nullptr);
}
