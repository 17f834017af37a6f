#include "Content.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <stdexcept>
#include <vector>

#include "AudioFile.h"
#include "audioUtils/resample/HighQualityResampler.h"

namespace keldaLab {

namespace {

using audioUtils::HighQualityResampler;

constexpr std::uint64_t framesOfLeft = 1U << 20;

void playSine(std::uint64_t firstFrame, std::span<float> samples, unsigned int sampleRate)
{
    for (std::size_t i = 0; i < samples.size() / contentChannels; ++i) {
        const double turns =
            std::fmod(997.0 * static_cast<double>(firstFrame + i) / sampleRate, 1.0);
        const auto value = static_cast<float>(0.5 * std::cos(2 * std::numbers::pi * turns));
        samples[contentChannels * i] = samples[contentChannels * i + 1] = value;
    }
}

std::vector<float> converted(std::vector<float> mono, float from, float to)
{
    HighQualityResampler resampler(1, HighQualityResampler::Best);
    resampler.setSamplingRate(from, to);
    std::vector<float> result;
    std::vector<float> block(65536);
    int left = static_cast<int>(mono.size());
    float* in = mono.data();
    unsigned int written = 0;
    do {
        written = static_cast<unsigned int>(block.size());
        const int taken = resampler.processFloat(in, left, block.data(), written, false, left == 0);
        in += taken;
        left -= taken;
        result.insert(result.end(), block.begin(), block.begin() + written);
    } while (left > 0 || written > 0);
    return result;
}

/// A sound that can be repeated without a click of its own.
std::vector<float> smoothEnded(std::vector<float> sound, unsigned int sampleRate)
{
    const std::size_t length = std::min<std::size_t>(sound.size() / 2, sampleRate / 20);
    for (std::size_t i = 0; i < length; ++i) {
        const double turns = static_cast<double>(i) / static_cast<double>(length) / 2;
        const auto weight = static_cast<float>((1 - std::cos(2 * std::numbers::pi * turns)) / 2);
        sound[i] *= weight;
        sound[sound.size() - 1 - i] *= weight;
    }
    return sound;
}

/// The left channel, without what is above the highest frequency.
std::vector<float> readBand(const std::string& path, unsigned int sampleRate)
{
    SF_INFO info{};
    const keldaPlay::FileHandle file(sf_open(path.c_str(), SFM_READ, &info));
    if (!file) {
        throw std::runtime_error(path + ": " + sf_strerror(nullptr));
    }
    std::vector<float> frames(static_cast<std::size_t>(info.frames * info.channels));
    sf_readf_float(file.get(), frames.data(), info.frames);
    std::vector<float> mono;
    for (std::size_t i = 0; i < frames.size(); i += static_cast<std::size_t>(info.channels)) {
        mono.push_back(frames[i]);
    }
    constexpr auto band = static_cast<float>(2 * highestHertz);
    return smoothEnded(
        converted(converted(std::move(mono), static_cast<float>(info.samplerate), band), band,
                  static_cast<float>(sampleRate)),
        sampleRate);
}

} // namespace

void numberFrames(std::uint64_t firstFrame, std::span<float> samples)
{
    for (std::size_t i = 0; i < samples.size() / contentChannels; ++i) {
        const std::uint64_t number = firstFrame + i + 1;
        const std::uint64_t high = number / framesOfLeft;
        samples[contentChannels * i] = static_cast<float>(number % framesOfLeft);
        samples[contentChannels * i + 1] = static_cast<float>(high);
    }
}

double numberAt(const unsigned char* frame)
{
    float numbers[contentChannels] = {};
    std::memcpy(numbers, frame, sizeof numbers);
    return static_cast<double>(numbers[0]) +
           static_cast<double>(framesOfLeft) * static_cast<double>(numbers[1]) - 1;
}

Content contentCalled(const std::string& name, unsigned int sampleRate)
{
    if (name == "numbers") {
        return numberFrames;
    }
    if (name == "sine") {
        return [sampleRate](std::uint64_t firstFrame, std::span<float> samples) {
            playSine(firstFrame, samples, sampleRate);
        };
    }
    const auto sound = std::make_shared<const std::vector<float>>(readBand(name, sampleRate));
    return [sound](std::uint64_t firstFrame, std::span<float> samples) {
        for (std::size_t i = 0; i < samples.size(); ++i) {
            samples[i] = (*sound)[(firstFrame + i / contentChannels) % sound->size()];
        }
    };
}

} // namespace keldaLab
