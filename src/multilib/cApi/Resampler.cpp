#include "cApi/detail/Resampler.h"

#include <algorithm>

#include "cApi/detail/Arguments.h"
#include "cApi/detail/Create.h"

using cApi::guarded;
using cApi::guardedIf;

namespace {

bool isRate(double rate)
{
    return rate >= 1 && rate <= static_cast<double>(cApi::largestInt);
}

bool isRight(const kelda_resampler_config& config)
{
    return config.sample_type >= KELDA_INT16 && config.sample_type <= KELDA_FLOAT32 &&
           config.channels >= 1 && config.channels <= cApi::mostChannels &&
           isRate(config.in_rate) && isRate(config.out_rate);
}

std::unique_ptr<kelda_resampler> made(const kelda_resampler_config& config)
{
    switch (config.kind) {
    case KELDA_RESAMPLER_FLOAT:
        return cApi::floatResampler(config);
    case KELDA_RESAMPLER_SHORT:
        return cApi::shortResampler(config);
    case KELDA_RESAMPLER_GSTREAMER:
        return cApi::gstreamerResampler(config);
    }
    throw std::invalid_argument("no kind of resampler");
}

} // namespace

kelda_status kelda_resampler_create(const kelda_resampler_config* config,
                                    kelda_resampler** resampler) noexcept
{
    const kelda_status status = cApi::create(resampler, config != nullptr && isRight(*config), [&] {
        std::unique_ptr<kelda_resampler> made_ = made(*config);
        if (made_ != nullptr && made_->setRates(config->in_rate, config->out_rate) < 0) {
            throw std::invalid_argument("no rates");
        }
        return made_;
    });
    return status == KELDA_OK && *resampler == nullptr ? KELDA_NOT_SUPPORTED : status;
}

void kelda_resampler_destroy(kelda_resampler* resampler) noexcept
{
    cApi::destroy(resampler);
}

kelda_status kelda_resampler_set_rates(kelda_resampler* resampler, double in_rate,
                                       double out_rate) noexcept
{
    if (resampler == nullptr || !isRate(in_rate) || !isRate(out_rate)) {
        return KELDA_INVALID_ARGUMENT;
    }
    return guarded([&] { return resampler->setRates(in_rate, out_rate); });
}

kelda_status kelda_resampler_set_ppm(kelda_resampler* resampler, double ppm) noexcept
{
    constexpr double largest = 100'000;
    if (resampler == nullptr || !(ppm >= -largest && ppm <= largest)) {
        return KELDA_INVALID_ARGUMENT;
    }
    return guarded([&] { return resampler->setPpm(ppm); });
}

kelda_status kelda_resampler_process(kelda_resampler* resampler, const void* in, size_t* in_frames,
                                     void* out, size_t* out_frames, int flags) noexcept
{
    if (resampler == nullptr || in_frames == nullptr || out_frames == nullptr ||
        !cApi::isBuffer(out, *out_frames) || !cApi::fitsInt(*in_frames, resampler->channels()) ||
        (flags & ~(KELDA_MUTE | KELDA_FLUSH)) != 0) {
        return KELDA_INVALID_ARGUMENT;
    }
    return guarded([&] {
        std::size_t taken = in != nullptr ? *in_frames : 0;
        std::size_t written =
            std::min<std::size_t>(*out_frames, cApi::largestInt / resampler->channels());
        const kelda_status status = resampler->process(
            in, taken, out, written, (flags & KELDA_MUTE) != 0, (flags & KELDA_FLUSH) != 0);
        if (status == KELDA_OK) {
            *in_frames = taken;
            *out_frames = written;
        }
        return status;
    });
}

kelda_status kelda_resampler_reset(kelda_resampler* resampler) noexcept
{
    return guardedIf(resampler != nullptr, [&] { resampler->reset(); });
}

kelda_status kelda_resampler_get_latency(const kelda_resampler* resampler,
                                         int64_t* latency) noexcept
{
    return guardedIf(resampler != nullptr && latency != nullptr,
                     [&] { *latency = resampler->latencyNs(); });
}

kelda_status kelda_resampler_get_room(const kelda_resampler* resampler, size_t in_frames,
                                      size_t* out_frames) noexcept
{
    if (resampler == nullptr || out_frames == nullptr || !cApi::fitsInt(in_frames, 1)) {
        return KELDA_INVALID_ARGUMENT;
    }
    return guarded([&] {
        const std::optional<std::size_t> room = resampler->room(in_frames);
        *out_frames = room.value_or(*out_frames);
        return room.has_value() ? KELDA_OK : KELDA_NOT_SUPPORTED;
    });
}
