#include <atomic>
#include <memory>

#include "audioUtils/PcmQueue.h"
#include "cApi/detail/Arguments.h"
#include "cApi/detail/Create.h"

using cApi::guarded;
using cApi::guardedIf;

struct kelda_queue
{
    audioUtils::PcmQueue queue;
    std::atomic<std::uint32_t> bytesPerFrame = 0; // until it is configured
};

namespace {

constexpr std::uint64_t millisecondsPerSecond = 1000;

bool isRight(const kelda_queue_config& config)
{
    if (config.capacity_ms == 0 || config.sample_rate == 0 || config.channels == 0 ||
        config.bytes_per_sample == 0 || config.jump_threshold > std::uint64_t{INT64_MAX}) {
        return false;
    }
    // The queue counts the bytes of a frame and of a second in 32 bits.
    constexpr std::uint64_t largest = UINT32_MAX;
    const std::uint64_t bytesPerFrame = std::uint64_t{config.channels} * config.bytes_per_sample;
    return bytesPerFrame <= largest / config.sample_rate &&
           std::uint64_t{config.capacity_ms} * config.sample_rate >= millisecondsPerSecond;
}

void configure(kelda_queue& handle, const kelda_queue_config& config)
{
    handle.bytesPerFrame = 0;
    try {
        handle.queue.configure(config.timestamping != 0, config.capacity_ms, config.sample_rate,
                               config.channels, config.bytes_per_sample,
                               config.name != nullptr ? config.name : "", config.smoothing != 0,
                               config.jump_threshold, config.smoothing_threshold);
    } catch (...) {
        handle.queue.abortWrite();
        throw;
    }
    handle.bytesPerFrame = config.channels * config.bytes_per_sample;
}

/// Calls a function with the size in bytes of the frames at `data`, when the queue can take them.
template<typename Function>
kelda_status withFrames(kelda_queue* queue, const void* data, std::size_t frames, bool restIsRight,
                        Function function) noexcept
{
    if (queue == nullptr || !cApi::isBuffer(data, frames) || !restIsRight) {
        return KELDA_INVALID_ARGUMENT;
    }
    const std::uint32_t bytesPerFrame = queue->bytesPerFrame;
    if (bytesPerFrame == 0) {
        return KELDA_NOT_CONFIGURED;
    }
    if (!cApi::fitsInt(frames, bytesPerFrame)) {
        return KELDA_INVALID_ARGUMENT;
    }
    return guarded([&] { return function(frames * bytesPerFrame); });
}

} // namespace

kelda_status kelda_queue_create(kelda_queue** queue) noexcept
{
    return cApi::create(queue, true, [] { return std::make_unique<kelda_queue>(); });
}

void kelda_queue_destroy(kelda_queue* queue) noexcept
{
    cApi::destroy(queue);
}

kelda_status kelda_queue_configure(kelda_queue* queue, const kelda_queue_config* config) noexcept
{
    return guardedIf(queue != nullptr && config != nullptr && isRight(*config),
                     [&] { configure(*queue, *config); });
}

kelda_status kelda_queue_write(kelda_queue* queue, uint64_t pts, const void* data,
                               size_t frames) noexcept
{
    return withFrames(queue, data, frames, true, [&](std::size_t bytes) {
        const bool written =
            queue->queue.write(pts, {static_cast<const unsigned char*>(data), bytes});
        return written ? KELDA_OK : KELDA_ABORTED;
    });
}

kelda_status kelda_queue_abort_write(kelda_queue* queue) noexcept
{
    return guardedIf(queue != nullptr, [&] { queue->queue.abortWrite(); });
}

kelda_status kelda_queue_read(kelda_queue* queue, uint64_t time, void* out, size_t frames,
                              size_t* frames_read, int64_t* delta) noexcept
{
    return withFrames(queue, out, frames, frames_read != nullptr, [&](std::size_t bytes) {
        miscUtils::TimeValueDelta ignored = 0;
        *frames_read = queue->queue.read(time, {static_cast<unsigned char*>(out), bytes},
                                         delta != nullptr ? *delta : ignored);
        return KELDA_OK;
    });
}

kelda_status kelda_queue_resync_read(kelda_queue* queue) noexcept
{
    return guardedIf(queue != nullptr, [&] { queue->queue.resyncRead(); });
}

kelda_status kelda_queue_flush_old_data(kelda_queue* queue, uint64_t now) noexcept
{
    if (queue != nullptr && queue->bytesPerFrame == 0) {
        return KELDA_NOT_CONFIGURED;
    }
    return guardedIf(queue != nullptr, [&] { queue->queue.flushOldData(now); });
}

kelda_status kelda_queue_drain(kelda_queue* queue) noexcept
{
    return guardedIf(queue != nullptr, [&] { queue->queue.drain(); });
}

kelda_status kelda_queue_reset(kelda_queue* queue) noexcept
{
    return guardedIf(queue != nullptr, [&] { queue->queue.reset(); });
}

kelda_status kelda_queue_get_buffered_duration(kelda_queue* queue, uint64_t now,
                                               uint64_t* duration) noexcept
{
    return guardedIf(queue != nullptr && duration != nullptr,
                     [&] { *duration = queue->queue.bufferedDuration(now); });
}

kelda_status kelda_queue_get_read_pts(kelda_queue* queue, uint64_t* pts) noexcept
{
    return guardedIf(queue != nullptr && pts != nullptr, [&] { *pts = queue->queue.getReadPts(); });
}

kelda_status kelda_queue_get_write_pts(kelda_queue* queue, uint64_t* pts) noexcept
{
    return guardedIf(queue != nullptr && pts != nullptr,
                     [&] { *pts = queue->queue.getWritePts(); });
}

kelda_status kelda_queue_get_counters(kelda_queue* queue, kelda_queue_counters* counters) noexcept
{
    return guardedIf(queue != nullptr && counters != nullptr, [&] {
        const audioUtils::PcmQueueCounters now = queue->queue.counters();
        *counters = {now.insertedFrames, now.resets, now.silenceFrames, now.skippedFrames,
                     now.underruns};
    });
}
