#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace keldaLab {

constexpr std::size_t contentChannels = 2;

/// Nothing in the contents that are audio is above it, but what interrupts them.
constexpr double highestHertz = 4000;

/// Fills stereo frames, from one of the stream on.
using Content = std::function<void(std::uint64_t firstFrame, std::span<float> samples)>;

/// The numbers of the frames themselves, in two floats that hold them exactly; 0 is silence.
void numberFrames(std::uint64_t firstFrame, std::span<float> samples);

/// What numberFrames() put there; below 0 for silence.
[[nodiscard]] double numberAt(const unsigned char* frame);

/// What a scenario calls its content.
///
/// Throws std::runtime_error when a sound file can't be read.
[[nodiscard]] Content contentCalled(const std::string& name, unsigned int sampleRate);

} // namespace keldaLab
