// Follows a source whose clock runs 200 ppm too fast, by converting its rate. A minute in virtual
// time.
#include "VirtualTime.h"
#include "audioUtils/PllDriftCompensator.h"
#include "audioUtils/resample/HighQualityResampler.h"
#include <cstdio>
#include <cstdlib>

using audioUtils::HighQualityResampler;
using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;

class DriftCorrection
{
public:
    DriftCorrection()
        : m_compensator(
              -1'000'000, 1'000'000, 2 * w * 1000, w * w * 1000, 0, // 1/1000 ppm
              [this](int adjustment) { m_adjustment = adjustment; }, 50, 1.0)
    {
    }

    /// @param delta of PcmQueue::read(): positive when the audio is late
    void update(TimeValueDelta delta, TimeValue now)
    {
        m_compensator.update(delta, now);
        m_ratio = static_cast<float>(1 + ppm() * 1e-6);
        if (m_ratio == 1) // there it copies, and jumps by a part of a frame
            m_ratio = std::nextafter(1.0F, 2.0F);
        m_resampler.setSamplingRate(m_ratio, 1);
    }

    /// Takes a block whole; what it makes of it is about as long, and valid until the next call.
    nonstd::span<float> convert(nonstd::span<float> block)
    {
        auto samples = static_cast<unsigned int>(m_output.size());
        m_resampler.processFloat(block.data(), static_cast<int>(block.size()), m_output.data(),
                                 samples, false, false);
        m_waiting += static_cast<double>(block.size()) - samples * static_cast<double>(m_ratio);
        return nonstd::span(m_output).first(samples);
    }

    /// How long what is offered now waits in the resampler, ns.
    TimeValue latency() const { return static_cast<TimeValue>(m_waiting * 1e9 / channels / rate); }

    double ppm() const { return m_adjustment / 1000.0; }

private:
    static constexpr double w = 0.32; // bandwidth of the loop, 1/s

    int m_adjustment = 0; // 1/1000 ppm
    PllDriftCompensator m_compensator;
    HighQualityResampler m_resampler{channels, HighQualityResampler::Best};
    float m_ratio = 1;
    double m_waiting = 0; // input samples
    std::vector<float> m_output = std::vector<float>(4 * blockFrames);
};

int main()
{
    VirtualTime time(200, 0);
    DriftCorrection drift;
    std::vector<float> block(blockFrames * channels);
    TimeValueDelta delta = 0;
    for (int n = 0; n < 6000; ++n) {
        time.receive();
        const TimeValue due = time.now() + time.deviceDelay() + drift.latency();
        time.queue.read(due, VirtualTime::bytesOf(block), delta);
        drift.update(delta, time.now());
        time.play(drift.convert(block).size() / channels);
        if (n % 1000 == 999)
            std::printf("%2d s: %4ld us late, %5.1f ppm faster\n", n / 100 + 1, delta / 1000,
                        drift.ppm());
    }
    const bool locked = std::abs(delta) < 5000 && std::abs(drift.ppm() - 200) < 2;
    return locked && time.queue.counters().skippedFrames == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
