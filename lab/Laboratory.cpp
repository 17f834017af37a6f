#include "Laboratory.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include <malloc.h>

#include "BlockRenderer.h"
#include "Content.h"
#include "RandomEvents.h"
#include "VirtualDevice.h"
#include "VirtualSource.h"

namespace keldaLab {

namespace {

using keldaPlay::BlockRecord;
using keldaPlay::BlockRenderer;
using keldaPlay::Correction;

constexpr std::size_t channels = contentChannels;

/// The number of a block's first frame; none of silence, and of what is faded or joined.
std::optional<double> firstFrameOf(std::span<const unsigned char> block)
{
    constexpr std::size_t bytesPerFrame = channels * sizeof(float);
    const std::size_t frames = block.size() / bytesPerFrame;
    if (frames == 0) {
        return std::nullopt;
    }
    const double first = numberAt(block.data());
    const double last = numberAt(block.data() + block.size() - bytesPerFrame);
    return first >= 0 && last - first == static_cast<double>(frames - 1) ? std::optional(first)
                                                                         : std::nullopt;
}

/// Bytes; 0 where a sanitizer owns the heap.
std::uint64_t heapInUse()
{
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

class Laboratory
{
public:
    explicit Laboratory(Scenario scenario)
        : m_scenario(std::move(scenario)),
          m_device(m_scenario, m_now, [this](double ns) { waitFor(ns); }),
          m_source(m_scenario, start + startDelay,
                   contentCalled(m_scenario.content, m_scenario.sampleRate)),
          m_drift(m_scenario.drift)
    {
        const auto layout = keldaPlay::layoutOf(audioUtils::F32LE);
        static_cast<void>(m_device.open("", audioUtils::F32LE, 0, 0, 0, 0, 0, false, ""));
        m_queue.configure(true, m_scenario.queueMs, m_scenario.sampleRate, channels, 4, "lab", true,
                          static_cast<TimeValue>(m_scenario.jumpThresholdMs * 1e6),
                          static_cast<TimeValue>(m_scenario.filterMaxErrorMs * 1e6));
        const keldaPlay::FrameLayout frames{*layout, channels};
        keldaPlay::RenderPath path;
        if (m_scenario.drift.correction == Correction::Resample) {
            m_converter.emplace(m_scenario.resampler, m_scenario.sampleRate, m_scenario.sampleRate,
                                frames);
            path.converter = &*m_converter;
        }
        if (m_scenario.clicks.enabled) {
            m_clicks.emplace(m_scenario.clicks, frames, m_scenario.sampleRate);
            path.clicks = &*m_clicks;
        }
        if (m_scenario.drift.correction == Correction::Device) {
            path.setDeviceRate = [this](double ppm) {
                m_device.play();
                m_device.setPll(ppm);
            };
        }
        if (m_scenario.drift.correction != Correction::None) {
            path.drift = &m_drift;
        }
        m_renderer.emplace(m_queue, m_device, frames, m_scenario.sampleRate, std::move(path),
                           [this] { return m_now; });
        for (const Event& event : m_scenario.events) {
            if (event.kind == Event::Kind::Underrun) {
                m_stalls.push_back(event);
            }
        }
    }

    Result run()
    {
        m_result.sync.beginStream(m_scenario.sampleRate);
        const double early = m_scenario.seconds / 24;
        playUntil(early);
        const std::uint64_t heap = heapInUse();
        playUntil(m_scenario.seconds);
        if (heap > 0) {
            m_result.heapGrowth = std::max(heapInUse(), heap) - heap;
        }
        m_result.frames.close(m_queue, m_scenario.sampleRate);
        if (isAudio()) {
            m_renderer->playEnd();
            m_result.played = {m_device.played(), m_scenario.sampleRate};
        }
        return std::move(m_result);
    }

private:
    static constexpr TimeValue start = 1'000'000'000'000;
    static constexpr TimeValue startDelay = 500'000'000;

    void playUntil(double endSeconds)
    {
        while (seconds() < endSeconds) {
            stall();
            renderBlock();
        }
    }

    [[nodiscard]] bool isAudio() const { return m_scenario.content != "numbers"; }
    [[nodiscard]] bool isAccounted() const { return !isAudio() && !m_scenario.clicks.enabled; }
    [[nodiscard]] double seconds() const { return static_cast<double>(m_now - start) * 1e-9; }

    void waitFor(double ns)
    {
        const TimeValue until = m_now + static_cast<TimeValue>(std::llround(ns));
        while (m_source.nextArrival() <= until) {
            m_now = std::max(m_now, m_source.nextArrival());
            deliver();
        }
        m_now = until;
        m_device.play();
    }

    // The queue tells of a reset, but not of how much that dropped.
    void deliver()
    {
        const std::uint64_t resets = m_queue.counters().resets;
        const TimeValue held = m_queue.bufferedDuration(miscUtils::NoTimeValue);
        m_result.frames.addSent(m_source.deliver(m_queue));
        if (m_queue.counters().resets != resets) {
            m_result.frames.addDiscarded(framesIn(held, m_scenario.sampleRate));
        }
    }

    void stall()
    {
        if (!m_stalls.empty() && seconds() >= m_stalls.front().atSeconds) {
            waitFor(m_stalls.front().milliseconds * 1e6);
            m_stalls.erase(m_stalls.begin());
        }
    }

    void renderBlock()
    {
        m_device.play();
        const TimeValue now = m_now;
        const double heard = static_cast<double>(now) +
                             m_device.trueDelay(m_converter ? m_converter->latencyFrames() : 0);
        const bool wasRunning = m_device.isRunning();
        const BlockRecord record = m_renderer->render();
        if (isAccounted()) {
            m_result.frames.addBlock(m_renderer->lastBlock(), record);
        }
        m_result.alignments += record.isRealigned ? 1 : 0;
        const double needed = m_source.ppmAt(now) - m_device.truePpm();
        m_result.sync.add(record, errorOf(record, wasRunning ? std::optional(heard) : std::nullopt),
                          record.adjustmentPpm - needed);
    }

    /// us; none where it can't be told.
    /// @param heard ns, when the block's first frame is; none: not known yet
    std::optional<double> errorOf(const BlockRecord& record, std::optional<double> heard)
    {
        if (isAudio()) {
            return heard ? std::optional(static_cast<double>(record.delta) / 1000) : std::nullopt;
        }
        const std::optional<double> frame = firstFrameOf(m_renderer->lastBlock());
        return heard && frame ? std::optional((*heard - m_source.idealTimeOf(*frame)) / 1000)
                              : std::nullopt;
    }

    Scenario m_scenario;
    TimeValue m_now = start;
    audioUtils::PcmQueue m_queue;
    VirtualDevice m_device;
    VirtualSource m_source;
    keldaPlay::DriftLoop m_drift;
    std::optional<keldaPlay::ClickFilter> m_clicks;
    std::optional<keldaPlay::RateConverter> m_converter;
    std::optional<BlockRenderer> m_renderer;
    std::vector<Event> m_stalls;
    Result m_result;
};

} // namespace

Result run(const Scenario& scenario)
{
    Scenario whole = scenario;
    const std::vector<Event> events = randomEvents(scenario);
    whole.events.insert(whole.events.end(), events.begin(), events.end());
    std::ranges::stable_sort(whole.events, {}, &Event::atSeconds);
    return Laboratory(std::move(whole)).run();
}

keldaReport::Audio runWithClicks(Scenario scenario)
{
    scenario.clicks.enabled = false;
    return run(scenario).played;
}

} // namespace keldaLab
