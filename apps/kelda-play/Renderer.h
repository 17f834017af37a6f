#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>

#include "BlockRenderer.h"

namespace keldaPlay {

/// The renderer's thread: plays block after block in real time.
class Renderer
{
public:
    /// @param reopen opens the device again, after it was closed, just as it was; false: it can't
    Renderer(audioUtils::PcmQueue& queue, audioUtils::OutputDevice& device,
             const FrameLayout& queued, unsigned int queuedRate, RenderPath path,
             std::function<bool()> reopen, Journal& journal);

    /// Renders a period at a time until stop(). While the device is gone the stream goes on
    /// unheard, and in time; the device is opened again and again, less and less often, until it
    /// takes what is written.
    void run();

    /// From any thread: makes run() return after the block that it is at.
    void stop() { m_stopped = true; }

    /// Whether run() has returned.
    [[nodiscard]] bool hasEnded() const { return m_ended; }

private:
    [[nodiscard]] bool renderBlock();
    void waitForDevice();
    void noteReturn();
    void passUnheard(std::chrono::milliseconds duration);

    BlockRenderer m_renderer;
    audioUtils::OutputDevice& m_device;
    std::function<bool()> m_reopen;
    Journal& m_journal;
    std::optional<std::chrono::steady_clock::time_point> m_lost; // while the device is gone
    std::chrono::milliseconds m_wait{};                          // before it is opened again
    std::atomic<bool> m_stopped = false;
    std::atomic<bool> m_ended = false;
};

} // namespace keldaPlay
