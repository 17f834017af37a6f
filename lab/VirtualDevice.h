#pragma once

#include <deque>
#include <functional>
#include <random>
#include <vector>

#include "CrystalClock.h"
#include "Scenario.h"
#include "audioUtils/device/OutputDevice.h"

namespace keldaLab {

using miscUtils::TimeValue;

/// A sound card in virtual time: it plays at its crystal's rate, tells its delay as well as the
/// scenario lets it, and a write() that has to wait moves the time on.
class VirtualDevice : public audioUtils::OutputDevice
{
public:
    /// @param now     the virtual time, ns
    /// @param waitFor moves it on by so many ns
    VirtualDevice(const Scenario& scenario, const TimeValue& now,
                  std::function<void(double)> waitFor);

    [[nodiscard]] bool open(const std::string&, audioUtils::PcmFormat format, unsigned int,
                            unsigned, std::uint64_t, std::uint64_t, std::uint64_t, bool,
                            const std::string&) override
    {
        m_format = format;
        return true;
    }
    void close() override {}
    void drain() override {}
    [[nodiscard]] bool isOpened() const override { return true; }
    WriteReturnValue write(void* buffer, std::uint64_t numFrames) override;
    [[nodiscard]] bool adjustParams(std::uint64_t, std::uint64_t, std::uint64_t) override
    {
        return false;
    }
    [[nodiscard]] audioUtils::PcmFormat sampleFormat() const override { return m_format; }
    [[nodiscard]] unsigned int sampleRate() const override { return m_scenario.sampleRate; }
    [[nodiscard]] unsigned int numChannels() const override { return 2; }
    [[nodiscard]] unsigned int numBytesPerSample() const override { return 4; }
    [[nodiscard]] std::uint64_t bufferSize() const override
    {
        return m_scenario.device.bufferFrames;
    }
    [[nodiscard]] std::uint64_t periodSize() const override
    {
        return m_scenario.device.periodFrames;
    }
    [[nodiscard]] std::uint64_t startThreshold() const override { return bufferSize(); }
    [[nodiscard]] std::int64_t getCompensatedRenderingDelay() const override;
    [[nodiscard]] audioUtils::RenderingDelay lastRenderingDelay() const override { return m_delay; }
    [[nodiscard]] TimeValue currentAudioTimestamp() const override { return m_now; }
    [[nodiscard]] int framesReady() const override { return 0; }

    /// The device's PLL.
    void setPll(double ppm) { m_pllPpm = ppm; }

    /// What was written of the left channel, if the content is audio.
    [[nodiscard]] const std::vector<float>& played() const { return m_played; }

    /// Plays until now.
    void play();

    /// Frames a second, right now.
    [[nodiscard]] double trueRate() const;
    [[nodiscard]] double truePpm() const; ///< of the crystal
    [[nodiscard]] bool isRunning() const { return m_running; }
    /// How long, in ns, until a frame is heard that is written so many frames from now.
    [[nodiscard]] double trueDelay(double framesAhead) const;

private:
    void measure();
    [[nodiscard]] double seconds() const { return static_cast<double>(m_now - m_start) * 1e-9; }
    /// The event that holds now, if one does.
    [[nodiscard]] const Event* current();

    Scenario m_scenario;
    const TimeValue& m_now;
    std::function<void(double)> m_waitFor;
    CrystalClock m_crystal;
    std::mt19937_64 m_random;
    audioUtils::PcmFormat m_format{};
    double m_pllPpm = 0;
    bool m_running = false;
    double m_queued = 0; // frames
    TimeValue m_start;
    TimeValue m_playedUntil;
    std::deque<Event> m_events; // of the delay, to come
    audioUtils::RenderingDelay m_delay;
    std::vector<float> m_played;
};

} // namespace keldaLab
