#pragma once

#include "audioUtils/Logging.h"
#include "audioUtils/PcmQueue.h"
#include <cmath>
#include <vector>

constexpr unsigned int rate = 48000, channels = 2;
constexpr std::size_t blockFrames = 480;

/// A source and a sound card whose clocks differ, in virtual time: a minute takes a moment. 48 kHz,
/// stereo, float.
class VirtualTime
{
public:
    /// @param sourcePpm, cardPpm how much too fast the clocks run
    VirtualTime(double sourcePpm, double cardPpm) : m_sourcePpm(sourcePpm), m_cardPpm(cardPpm)
    {
        audioUtils::logToStandardError();
        queue.configure(true, 200, rate, channels, sizeof(float), "", true, 20'000'000, 10'000'000);
    }

    /// What the system's clock and the device would tell.
    [[nodiscard]] audioUtils::TimeValue now() const { return static_cast<unsigned long>(m_now); }
    [[nodiscard]] audioUtils::TimeValue deviceDelay() const { return 40'000'000; }

    /// What a producer has written by now: 100 ms ahead.
    void receive()
    {
        while (queue.bufferedDuration(miscUtils::NoTimeValue) < 100'000'000) {
            queue.write(static_cast<unsigned long>(m_pts), bytesOf(m_packet));
            m_pts += blockFrames * 1e9 / (rate * (1 + m_sourcePpm * 1e-6));
        }
    }

    /// The card plays so many frames, faster than its crystal by so much.
    void play(std::size_t frames, double ppm = 0)
    {
        m_now += static_cast<double>(frames) * 1e9 / (rate * (1 + (m_cardPpm + ppm) * 1e-6));
    }

    static nonstd::span<unsigned char> bytesOf(std::vector<float>& samples)
    {
        return {reinterpret_cast<unsigned char*>(samples.data()), samples.size() * sizeof(float)};
    }

    audioUtils::PcmQueue queue;

private:
    double m_sourcePpm;
    double m_cardPpm;
    double m_now = 1e9;   // ns
    double m_pts = 1.1e9; // ns
    std::vector<float> m_packet = std::vector<float>(blockFrames * channels);
};
