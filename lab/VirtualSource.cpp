#include "VirtualSource.h"

#include <algorithm>
#include <cmath>

namespace keldaLab {

VirtualSource::VirtualSource(const Scenario& scenario, TimeValue start, Content content)
    : m_scenario(scenario),
      m_start(start),
      m_content(std::move(content)),
      m_crystal(scenario.source.crystal),
      m_random(scenario.seed),
      m_samples(scenario.source.packetFrames * std::size_t{2}),
      m_events(scenario.events)
{
    std::ranges::sort(m_events, {}, &Event::atSeconds);
    prepare();
}

void VirtualSource::prepare()
{
    applyEvents(m_time * 1e-9);
    const auto& source = m_scenario.source;
    const double nsPerFrame =
        1e9 / m_scenario.sampleRate / (1 + ppmAt(m_start + static_cast<TimeValue>(m_time)) * 1e-6);
    m_sent.push_back({m_frame, m_time + m_offset, nsPerFrame});
    constexpr std::size_t remembered = 1000;
    if (m_sent.size() > remembered) {
        m_sent.pop_front();
    }
    const auto within = [this](double largest) {
        return std::uniform_real_distribution<double>(-largest, largest)(m_random) * 1e6;
    };
    const double jitter = within(source.timestampJitterMs);
    const double late =
        std::abs(within(source.arrivalJitterMs)) +
        static_cast<double>(source.burstPackets - 1 - m_packets % source.burstPackets) *
            source.packetFrames * nsPerFrame;
    m_pts = m_start + static_cast<TimeValue>(std::llround(m_time + m_offset + jitter));
    const auto arrival = m_start + static_cast<TimeValue>(std::llround(m_time + late + m_heldUp)) -
                         static_cast<TimeValue>(std::llround(source.leadMs * 1e6));
    m_heldUp = 0;
    m_arrival = std::max(m_arrival, arrival); // packets don't overtake one another
}

void VirtualSource::applyEvents(double seconds)
{
    while (!m_events.empty() && m_events.front().atSeconds <= seconds) {
        const Event& event = m_events.front();
        const double duration = event.milliseconds * 1e6;
        switch (event.kind) {
        case Event::Kind::Stop:
            m_time += duration;
            break;
        case Event::Kind::Gap:
            m_time += duration;
            m_frame +=
                static_cast<std::uint64_t>(event.milliseconds * m_scenario.sampleRate / 1000);
            break;
        case Event::Kind::Jump:
            m_offset += duration;
            break;
        case Event::Kind::Burst:
            m_heldUp = duration;
            break;
        default:
            break; // the renderer's and the device's
        }
        m_events.erase(m_events.begin());
    }
}

std::size_t VirtualSource::deliver(audioUtils::PcmQueue& queue)
{
    const std::size_t frames = m_samples.size() / 2;
    const TimeValue duration = frames * 1'000'000'000 / m_scenario.sampleRate;
    if (queue.bufferedDuration(miscUtils::NoTimeValue) + duration >
        TimeValue{m_scenario.queueMs} * 1'000'000) {
        m_arrival += 1'000'000;
        return 0;
    }
    m_content(m_frame, m_samples);
    static_cast<void>(
        queue.write(m_pts, std::span(reinterpret_cast<const unsigned char*>(m_samples.data()),
                                     m_samples.size() * sizeof(float))));
    m_time += static_cast<double>(frames) * m_sent.back().nsPerFrame;
    m_frame += frames;
    ++m_packets;
    prepare();
    return frames;
}

double VirtualSource::idealTimeOf(double frame)
{
    const auto after = std::ranges::find_if(m_sent, [frame](const Packet& packet) {
        return static_cast<double>(packet.firstFrame) > frame;
    });
    const Packet& packet = after == m_sent.begin() ? *after : *std::prev(after);
    return static_cast<double>(m_start) + packet.time +
           (frame - static_cast<double>(packet.firstFrame)) * packet.nsPerFrame;
}

} // namespace keldaLab
