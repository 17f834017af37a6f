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
    /// @param reopen  opens the device again, after it was closed, just as it was; false: it can't
    /// @param waiting for how long at most a device that is gone is waited for; none: without end
    Renderer(audioUtils::PcmQueue& queue, audioUtils::OutputDevice& device,
             const FrameLayout& queued, unsigned int queuedRate, const RenderPath& path,
             std::function<bool()> reopen, std::optional<std::chrono::duration<double>> waiting,
             Journal& journal);

    /// Renders a period at a time until stop(), or until a device that is gone has been waited for
    /// in vain: it is opened again and again, less and less often, until it takes what is written.
    /// Meanwhile a stream that can wait stands still; any other goes on unheard, and in time.
    void run();

    /// From any thread: makes run() return after the block that it is at.
    void stop() { m_stopped = true; }

    /// Whether run() has returned.
    [[nodiscard]] bool hasEnded() const { return m_ended; }

    /// What has been rendered, once run() has returned.
    [[nodiscard]] const BlockRenderer& rendered() const { return m_renderer; }

private:
    [[nodiscard]] bool isTaken(const BlockRecord& record);
    void waitForRoom();
    void waitForDevice();
    [[nodiscard]] bool hasWaitedLong() const;
    void noteReturn();
    void passUnheard(std::chrono::milliseconds duration);

    BlockRenderer m_renderer;
    audioUtils::OutputDevice& m_device;
    bool m_canWait;
    std::function<bool()> m_reopen;
    std::optional<std::chrono::duration<double>> m_waiting;
    Journal& m_journal;
    std::optional<std::chrono::steady_clock::time_point> m_lost; // while the device is gone
    std::chrono::milliseconds m_wait{};                          // before it is opened again
    std::atomic<bool> m_stopped = false;
    std::atomic<bool> m_ended = false;
};

} // namespace keldaPlay
