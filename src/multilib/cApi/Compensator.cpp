#include <cmath>
#include <memory>

#include "audioUtils/PllDriftCompensator.h"
#include "cApi/detail/Create.h"

using cApi::guardedIf;

struct kelda_compensator
{
    kelda_compensator(const kelda_compensator_config& config, kelda_adjust_function function_,
                      void* user_)
        : function(function_),
          user(user_),
          compensator(
              config.min_adjustment, config.max_adjustment, config.kp, config.ki, config.kd,
              [this](int value) { report(value); }, config.sample_time_ms, config.filter_alpha)
    {
    }
    kelda_compensator(const kelda_compensator&) = delete;
    kelda_compensator& operator=(const kelda_compensator&) = delete;

    void report(int value)
    {
        adjustment = value;
        if (function != nullptr) {
            function(user, value);
        }
    }

    const kelda_adjust_function function;
    void* const user;
    int adjustment = 0;
    PllDriftCompensator compensator;
};

namespace {

bool isRight(const kelda_compensator_config& config)
{
    return config.min_adjustment < config.max_adjustment && config.kp > 0 && config.ki >= 0 &&
           config.kd >= 0 && std::isfinite(config.kp) && std::isfinite(config.ki) &&
           std::isfinite(config.kd) && config.sample_time_ms >= 1 && config.filter_alpha > 0 &&
           config.filter_alpha <= 1;
}

} // namespace

kelda_status kelda_compensator_create(const kelda_compensator_config* config,
                                      kelda_adjust_function function, void* user,
                                      kelda_compensator** compensator) noexcept
{
    return cApi::create(compensator, config != nullptr && isRight(*config), [&] {
        return std::make_unique<kelda_compensator>(*config, function, user);
    });
}

void kelda_compensator_destroy(kelda_compensator* compensator) noexcept
{
    cApi::destroy(compensator);
}

kelda_status kelda_compensator_update(kelda_compensator* compensator, int64_t drift,
                                      uint64_t now) noexcept
{
    return guardedIf(compensator != nullptr, [&] { compensator->compensator.update(drift, now); });
}

kelda_status kelda_compensator_restart(kelda_compensator* compensator) noexcept
{
    return guardedIf(compensator != nullptr, [&] { compensator->compensator.restart(); });
}

kelda_status kelda_compensator_reset(kelda_compensator* compensator) noexcept
{
    return guardedIf(compensator != nullptr, [&] { compensator->compensator.resetPID(); });
}

kelda_status kelda_compensator_get_adjustment(const kelda_compensator* compensator,
                                              int32_t* adjustment) noexcept
{
    return guardedIf(compensator != nullptr && adjustment != nullptr,
                     [&] { *adjustment = compensator->adjustment; });
}
