#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <random>
#include <span>
#include <vector>

#include "Content.h"
#include "CrystalClock.h"
#include "Scenario.h"
#include "audioUtils/PcmQueue.h"

namespace keldaLab {

using miscUtils::TimeValue;

/// Makes the stream: packets of frames with timestamps, which arrive when the scenario lets them.
class VirtualSource
{
public:
    VirtualSource(const Scenario& scenario, TimeValue start, Content content);

    /// When the next packet arrives, ns.
    [[nodiscard]] TimeValue nextArrival() const { return m_arrival; }

    /// Gives the next packet to the queue. While that is full, the packet waits.
    /// @return the frames that it had; 0: it waits
    std::size_t deliver(audioUtils::PcmQueue& queue);

    /// When a frame is to be heard, in ns: without jitter.
    [[nodiscard]] double idealTimeOf(double frame);

    [[nodiscard]] double ppmAt(TimeValue time) const
    {
        return m_crystal.ppmAt(static_cast<double>(time) * 1e-9);
    }

private:
    struct Packet
    {
        std::uint64_t firstFrame;
        double time; ///< ns since the start
        double nsPerFrame;
    };

    void prepare();
    void applyEvents(double seconds);

    Scenario m_scenario;
    TimeValue m_start;
    Content m_content;
    CrystalClock m_crystal;
    std::mt19937_64 m_random;
    std::vector<float> m_samples;
    std::deque<Packet> m_sent;   // the last ones, in the order of frames
    std::vector<Event> m_events; // to come
    std::uint64_t m_frame = 0;
    std::uint64_t m_packets = 0;
    double m_time = 0;   // of the next frame on the source's way through time, ns since the start
    double m_heldUp = 0; // the next packet, ns
    double m_offset = 0; // by which its timestamps have jumped, ns
    TimeValue m_arrival = 0;
    TimeValue m_pts = 0;
};

} // namespace keldaLab
