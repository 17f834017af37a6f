// Lets a sound card with a PLL follow a source whose clock runs 120 ppm faster than the card's, in
// virtual time: the card is simulated, its PLL can be real.
//
//     drift_with_pll [CARD ELEMENT]      e.g. hw:Loopback "iface=PCM,name='PCM Rate Shift 100000'"
#include "VirtualTime.h"
#include "audioUtils/PllDriftCompensator.h"
#include <alsa/asoundlib.h>
#include <cstdio>
#include <cstdlib>
#include <memory>

/// An integer control that sets a card's rate; as it stands it means the nominal one.
class Pll
{
public:
    bool open(const char* card, const char* element)
    {
        snd_ctl_t* ctl = nullptr;
        if (snd_ctl_open(&ctl, card, 0) < 0)
            return false;
        m_ctl.reset(ctl);
        snd_ctl_elem_id_t* id = nullptr;
        snd_ctl_elem_id_alloca(&id);
        snd_ctl_elem_value_t* value = nullptr;
        if (snd_ctl_ascii_elem_id_parse(id, element) < 0 || snd_ctl_elem_value_malloc(&value) < 0)
            return false;
        m_value.reset(value);
        snd_ctl_elem_value_set_id(value, id);
        if (snd_ctl_elem_read(ctl, value) < 0)
            return false;
        m_nominal = m_set = snd_ctl_elem_value_get_integer(value, 0);
        return m_nominal > 0;
    }

    void adjust(double ppm)
    {
        m_set = std::lround(static_cast<double>(m_nominal) * (1 + ppm * 1e-6));
        if (m_ctl) {
            snd_ctl_elem_value_set_integer(m_value.get(), 0, m_set);
            snd_ctl_elem_write(m_ctl.get(), m_value.get());
        }
    }

    /// What was set: the nearest that the control's whole numbers can.
    double ppm() const
    {
        return static_cast<double>(m_set - m_nominal) * 1e6 / static_cast<double>(m_nominal);
    }

private:
    struct Free
    {
        void operator()(snd_ctl_t* ctl) const { snd_ctl_close(ctl); }
        void operator()(snd_ctl_elem_value_t* value) const { snd_ctl_elem_value_free(value); }
    };
    std::unique_ptr<snd_ctl_t, Free> m_ctl;
    std::unique_ptr<snd_ctl_elem_value_t, Free> m_value;
    long m_nominal = 1'000'000; // of a simulated one: 1 ppm
    long m_set = 1'000'000;
};

int main(int argc, char** argv)
{
    Pll pll;
    if (argc == 3 && !pll.open(argv[1], argv[2]))
        return EXIT_FAILURE;
    constexpr double w = 0.32; // bandwidth of the loop, 1/s; gains and limits in 1/1000 ppm
    const auto adjust = [&](int adjustment) { pll.adjust(adjustment / 1000.0); };
    PllDriftCompensator compensator(-1'000'000, 1'000'000, 2 * w * 1000, w * w * 1000, 0, adjust,
                                    50, 1.0);
    VirtualTime time(150, 30);
    std::vector<float> block(blockFrames * channels);
    miscUtils::TimeValueDelta delta = 0;
    for (int n = 0; n < 6000; ++n) {
        time.receive();
        time.queue.read(time.now() + time.deviceDelay(), VirtualTime::bytesOf(block), delta);
        compensator.update(delta, time.now());
        time.play(blockFrames, pll.ppm());
        if (n % 1000 == 999)
            std::printf("%2d s: %4ld us late, %5.1f ppm faster\n", n / 100 + 1, delta / 1000,
                        pll.ppm());
    }
    const bool locked = std::abs(delta) < 20'000 && std::abs(pll.ppm() - 120) < 20;
    pll.adjust(0); // the card as it was found
    return locked && time.queue.counters().skippedFrames == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
