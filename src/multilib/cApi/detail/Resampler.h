#pragma once

#include <memory>
#include <optional>

#include "kelda_audio.h"

/// One of the three, behind one face. What the arguments must be is checked before.
struct kelda_resampler
{
    kelda_resampler() = default;
    virtual ~kelda_resampler() = default;
    kelda_resampler(const kelda_resampler&) = delete;
    kelda_resampler& operator=(const kelda_resampler&) = delete;

    /// In Hz, at least 1 and below 2^31.
    [[nodiscard]] virtual kelda_status setRates(double inRate, double outRate) = 0;
    [[nodiscard]] virtual kelda_status setPpm(double ppm) = 0;
    /// Counts are in frames, of less than 2^31 samples.
    [[nodiscard]] virtual kelda_status process(const void* in, std::size_t& inFrames, void* out,
                                               std::size_t& outFrames, bool mute, bool flush) = 0;
    virtual void reset() = 0;
    [[nodiscard]] virtual std::int64_t latencyNs() const = 0;
    /// None: no more is taken than there is room for.
    [[nodiscard]] virtual std::optional<std::size_t> room(std::size_t inFrames) const = 0;
    [[nodiscard]] virtual std::uint32_t channels() const = 0;
};

namespace cApi {

/// The three kinds. They throw std::invalid_argument for what this kind does not take; null: this
/// kind can't be made so, or not on this machine.
[[nodiscard]] std::unique_ptr<kelda_resampler> floatResampler(const kelda_resampler_config& config);
[[nodiscard]] std::unique_ptr<kelda_resampler> shortResampler(const kelda_resampler_config& config);
[[nodiscard]] std::unique_ptr<kelda_resampler>
gstreamerResampler(const kelda_resampler_config& config);

} // namespace cApi
