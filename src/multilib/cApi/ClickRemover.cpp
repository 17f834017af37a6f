#include "audioUtils/clickRemover/ClickRemover.h"

#include <memory>

#include "cApi/detail/Arguments.h"
#include "cApi/detail/Create.h"

using cApi::guardedIf;

/// One for each sample type, behind one face.
struct kelda_click_remover
{
    explicit kelda_click_remover(const kelda_click_remover_config& config)
        : sampleRate(static_cast<int>(config.sample_rate)), channels(config.channels)
    {
    }
    virtual ~kelda_click_remover() = default;
    kelda_click_remover(const kelda_click_remover&) = delete;
    kelda_click_remover& operator=(const kelda_click_remover&) = delete;

    virtual void process(void* data, std::size_t frames) = 0;
    virtual std::size_t flush(void* data, std::size_t& frames) = 0;
    virtual void notifyUnderrun(std::uint64_t position) = 0;
    virtual void reset() = 0;
    [[nodiscard]] virtual std::size_t delay() const = 0;

    const int sampleRate;
    const std::size_t channels;
};

namespace {

template<typename T>
struct Remover final : kelda_click_remover
{
    explicit Remover(const kelda_click_remover_config& config)
        : kelda_click_remover(config),
          remover(config.gap_ms, config.margin_ms, config.fade_ms, config.skip_short_signals != 0)
    {
    }

    void process(void* data, std::size_t frames) override
    {
        remover.process(static_cast<T*>(data), sampleRate, channels, frames);
    }
    std::size_t flush(void* data, std::size_t& frames) override
    {
        return remover.flush(static_cast<T*>(data), sampleRate, channels, frames);
    }
    void notifyUnderrun(std::uint64_t position) override
    {
        remover.notifyUnderrun(position, sampleRate);
    }
    void reset() override { remover.reset(); }
    [[nodiscard]] std::size_t delay() const override { return remover.minimumDelay(sampleRate); }

    audioUtils::ClickRemover<T> remover;
};

std::unique_ptr<kelda_click_remover> made(const kelda_click_remover_config& config)
{
    switch (config.sample_type) {
    case KELDA_INT16:
        return std::make_unique<Remover<short>>(config);
    case KELDA_INT32:
        return std::make_unique<Remover<int>>(config);
    case KELDA_FLOAT32:
        return std::make_unique<Remover<float>>(config);
    }
    throw std::invalid_argument("no type of samples");
}

bool isRight(const kelda_click_remover_config& config)
{
    constexpr std::uint64_t reserveMs = 5;
    const std::uint64_t durationMs =
        std::uint64_t{config.gap_ms} + config.margin_ms + config.fade_ms + reserveMs;
    return config.sample_rate >= 1 && config.sample_rate <= cApi::largestInt &&
           config.channels >= 1 && config.channels <= cApi::mostChannels &&
           durationMs <= cApi::largestInt * 1000 / config.sample_rate;
}

} // namespace

kelda_status kelda_click_remover_create(const kelda_click_remover_config* config,
                                        kelda_click_remover** remover) noexcept
{
    return cApi::create(remover, config != nullptr && isRight(*config),
                        [&] { return made(*config); });
}

void kelda_click_remover_destroy(kelda_click_remover* remover) noexcept
{
    cApi::destroy(remover);
}

kelda_status kelda_click_remover_process(kelda_click_remover* remover, void* data,
                                         size_t frames) noexcept
{
    return guardedIf(remover != nullptr && cApi::isBuffer(data, frames) && cApi::fitsInt(frames, 1),
                     [&] { remover->process(data, frames); });
}

kelda_status kelda_click_remover_flush(kelda_click_remover* remover, void* data, size_t* frames,
                                       size_t* frames_left) noexcept
{
    const bool isRight = remover != nullptr && frames != nullptr && cApi::isBuffer(data, *frames) &&
                         cApi::fitsInt(*frames, 1);
    return guardedIf(isRight, [&] {
        const std::size_t left = remover->flush(data, *frames);
        if (frames_left != nullptr) {
            *frames_left = left;
        }
    });
}

kelda_status kelda_click_remover_notify_underrun(kelda_click_remover* remover,
                                                 uint64_t position) noexcept
{
    return guardedIf(remover != nullptr, [&] { remover->notifyUnderrun(position); });
}

kelda_status kelda_click_remover_reset(kelda_click_remover* remover) noexcept
{
    return guardedIf(remover != nullptr, [&] { remover->reset(); });
}

kelda_status kelda_click_remover_get_delay(const kelda_click_remover* remover,
                                           size_t* frames) noexcept
{
    return guardedIf(remover != nullptr && frames != nullptr, [&] { *frames = remover->delay(); });
}
