#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/faultyPcm/ControlFile.h"

namespace testSupport {

/// A sound card that fails on command, for as long as it lives: the ALSA device "faulty" of this
/// program and of those that it starts. It plays in real time (or Control::virtualTime), keeps what
/// was played, and what it does wrong is written into its Control at any time, also while a program
/// plays.
///
/// One at a time.
///
///     FaultySoundCard card;
///     card->fault = -EPIPE;
///     card->faultAtFrame = 48000;
///     device.open("faulty", ...);
class FaultySoundCard
{
public:
    FaultySoundCard();
    ~FaultySoundCard();
    FaultySoundCard(const FaultySoundCard&) = delete;
    FaultySoundCard& operator=(const FaultySoundCard&) = delete;

    /// Makes it a perfect card that has played nothing yet; it must be closed.
    void renew();

    [[nodiscard]] faultyPcm::Control* operator->() const { return m_control.get(); }

    /// Makes a libasound function return this instead of doing anything; 0 lets it do its work.
    void setResult(faultyPcm::Call call, int result);
    [[nodiscard]] std::uint32_t count(faultyPcm::Call call) const;
    [[nodiscard]] std::int64_t value(faultyPcm::Call call) const;

    /// The names of the functions called since this was asked last.
    std::vector<std::string> takeCalls();

    /// What was played: interleaved samples of type Sample.
    template<typename Sample>
    [[nodiscard]] std::vector<Sample> played() const
    {
        return samplesOf<Sample>(playedFile);
    }

    /// What it took, and never played.
    template<typename Sample>
    [[nodiscard]] std::vector<Sample> dropped() const
    {
        return samplesOf<Sample>(droppedFile);
    }

    /// The library that a program is to load before others to have its calls intercepted, too.
    static const std::string library;

    [[nodiscard]] const std::filesystem::path& folder() const { return m_folder; }

private:
    static constexpr const char* playedFile = "played.raw";
    static constexpr const char* droppedFile = "dropped.raw";

    template<typename Sample>
    [[nodiscard]] std::vector<Sample> samplesOf(const std::string& file) const
    {
        const std::string bytes = bytesOf(file);
        std::vector<Sample> samples(bytes.size() / sizeof(Sample));
        bytes.copy(reinterpret_cast<char*>(samples.data()), samples.size() * sizeof(Sample));
        return samples;
    }

    [[nodiscard]] std::string bytesOf(const std::string& file) const;

    std::filesystem::path m_folder;
    faultyPcm::ControlPointer m_control;
};

} // namespace testSupport
