#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>
#include <vector>

#include <gmock/gmock.h>

#include "Handles.h"
#include "audioUtils/PllDriftCompensator.h"

using testing::ElementsAreArray;
using testing::SizeIs;

namespace {

constexpr kelda_compensator_config usual = {-500'000, 500'000, 800, 40, 2, 50, 0.5};

void append(void* user, std::int32_t adjustment)
{
    static_cast<std::vector<int>*>(user)->push_back(adjustment);
}

template<typename Exception>
void throwOne(void* /*user*/, std::int32_t /*adjustment*/)
{
    throw Exception("thrown by the caller's function");
}

template<>
void throwOne<std::bad_alloc>(void* /*user*/, std::int32_t /*adjustment*/)
{
    throw std::bad_alloc();
}

template<>
void throwOne<int>(void* /*user*/, std::int32_t /*adjustment*/)
{
    throw 1;
}

Compensator make(kelda_adjust_function function = nullptr, void* user = nullptr)
{
    return made<Compensator>([&](kelda_compensator** compensator) {
        return kelda_compensator_create(&usual, function, user, compensator);
    });
}

template<typename Exception>
kelda_status statusOf()
{
    return kelda_compensator_update(make(throwOne<Exception>).get(), 1, 1);
}

kelda_status refused(const kelda_compensator_config& config)
{
    return refusal<kelda_compensator>([&](kelda_compensator** compensator) {
        return kelda_compensator_create(&config, nullptr, nullptr, compensator);
    });
}

} // namespace

TEST(KeldaCompensator, ReportsWhatTheClassReports)
{
    std::vector<int> expected;
    PllDriftCompensator model(
        usual.min_adjustment, usual.max_adjustment, usual.kp, usual.ki, usual.kd,
        [&](int adjustment) { expected.push_back(adjustment); }, usual.sample_time_ms,
        usual.filter_alpha);
    std::vector<int> reported;
    const Compensator compensator = make(append, &reported);

    std::uint64_t now = 1'000'000'000;
    for (int i = 0; i < 400; ++i, now += 20'000'000) {
        const auto drift = static_cast<std::int64_t>(1e5 * std::sin(i / 25.0)) - 20'000;
        if (i == 150) {
            model.restart();
            EXPECT_EQ(kelda_compensator_restart(compensator.get()), KELDA_OK);
        }
        if (i == 300) {
            model.resetPID();
            EXPECT_EQ(kelda_compensator_reset(compensator.get()), KELDA_OK);
        }
        model.update(drift, now);
        EXPECT_EQ(kelda_compensator_update(compensator.get(), drift, now), KELDA_OK);
        std::int32_t last = -1;
        EXPECT_EQ(kelda_compensator_get_adjustment(compensator.get(), &last), KELDA_OK);
        EXPECT_EQ(last, expected.back());
    }
    EXPECT_THAT(reported, ElementsAreArray(expected));
    EXPECT_GT(reported.size(), 100U);
}

TEST(KeldaCompensator, NeedsNoFunction)
{
    const Compensator compensator = make();
    std::int32_t adjustment = -1;
    EXPECT_EQ(kelda_compensator_get_adjustment(compensator.get(), &adjustment), KELDA_OK);
    EXPECT_EQ(adjustment, 0);
    for (std::uint64_t now = 1'000'000'000; now < 2'000'000'000; now += 100'000'000) {
        EXPECT_EQ(kelda_compensator_update(compensator.get(), 100'000, now), KELDA_OK);
    }
    EXPECT_EQ(kelda_compensator_get_adjustment(compensator.get(), &adjustment), KELDA_OK);
    EXPECT_GT(adjustment, 80'000) << "in proportion to 100 us alone";
    EXPECT_EQ(kelda_compensator_reset(compensator.get()), KELDA_OK);
    EXPECT_EQ(kelda_compensator_get_adjustment(compensator.get(), &adjustment), KELDA_OK);
    EXPECT_EQ(adjustment, 0);
}

TEST(KeldaCompensator, NoExceptionLeavesTheInterface)
{
    EXPECT_EQ(statusOf<std::bad_alloc>(), KELDA_OUT_OF_MEMORY);
    EXPECT_EQ(statusOf<std::length_error>(), KELDA_OUT_OF_MEMORY);
    EXPECT_EQ(statusOf<std::invalid_argument>(), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(statusOf<std::runtime_error>(), KELDA_INTERNAL_ERROR);
    EXPECT_EQ(statusOf<int>(), KELDA_INTERNAL_ERROR);
}

TEST(KeldaCompensator, RefusesWhatTheClassWouldAbortOnOrIgnore)
{
    const double infinite = std::numeric_limits<double>::infinity();
    const double none = std::nan("");
    const auto with = [](auto kelda_compensator_config::*field, auto value) {
        kelda_compensator_config config = usual;
        config.*field = static_cast<std::remove_reference_t<decltype(config.*field)>>(value);
        return refused(config);
    };
    using Config = kelda_compensator_config;
    EXPECT_EQ(with(&Config::min_adjustment, usual.max_adjustment), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(with(&Config::max_adjustment, usual.min_adjustment - 1), KELDA_INVALID_ARGUMENT);
    for (const double gain : {0.0, -1.0, infinite, none}) {
        EXPECT_EQ(with(&Config::kp, gain), KELDA_INVALID_ARGUMENT) << gain;
    }
    for (const double gain : {-1e-9, infinite, none}) {
        EXPECT_EQ(with(&Config::ki, gain), KELDA_INVALID_ARGUMENT) << gain;
        EXPECT_EQ(with(&Config::kd, gain), KELDA_INVALID_ARGUMENT) << gain;
    }
    EXPECT_EQ(with(&Config::sample_time_ms, 0), KELDA_INVALID_ARGUMENT);
    for (const double alpha : {0.0, -0.5, 1.0001, none}) {
        EXPECT_EQ(with(&Config::filter_alpha, alpha), KELDA_INVALID_ARGUMENT) << alpha;
    }
    EXPECT_EQ(refusal<kelda_compensator>([](kelda_compensator** compensator) {
                  return kelda_compensator_create(nullptr, nullptr, nullptr, compensator);
              }),
              KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_compensator_create(&usual, nullptr, nullptr, nullptr), KELDA_INVALID_ARGUMENT);
}

TEST(KeldaCompensator, NullPointersAreRefused)
{
    std::int32_t adjustment = 7;
    EXPECT_EQ(kelda_compensator_update(nullptr, 0, 0), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_compensator_restart(nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_compensator_reset(nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_compensator_get_adjustment(nullptr, &adjustment), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(kelda_compensator_get_adjustment(make().get(), nullptr), KELDA_INVALID_ARGUMENT);
    EXPECT_EQ(adjustment, 7);
    kelda_compensator_destroy(nullptr);
}
