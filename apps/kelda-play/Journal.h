#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "BlockRecord.h"

namespace keldaPlay {

using keldaSync::BlockRecord;
using keldaSync::isHeard;

/// Carries the records from the renderer's thread to the main thread, which has the time to print
/// them: a ring in which neither ever waits for the other.
class Journal
{
public:
    Journal() : m_ring(capacity) { m_taken.reserve(capacity); }

    /// For one writer. Allocates nothing; drops the record, and counts it, when nobody takes
    /// them for long.
    void append(const BlockRecord& record)
    {
        const std::size_t end = m_end.load(std::memory_order_relaxed);
        if (end - m_begin.load(std::memory_order_acquire) < capacity) {
            m_ring[end % capacity] = record;
            m_end.store(end + 1, std::memory_order_release);
        } else {
            m_dropped.fetch_add(1, std::memory_order_relaxed);
        }
    }

    /// The records since the last call; valid until the next one. For one reader.
    [[nodiscard]] const std::vector<BlockRecord>& take()
    {
        m_taken.clear();
        const std::size_t end = m_end.load(std::memory_order_acquire);
        for (std::size_t i = m_begin.load(std::memory_order_relaxed); i != end; ++i) {
            m_taken.push_back(m_ring[i % capacity]);
        }
        m_begin.store(end, std::memory_order_release);
        return m_taken;
    }

    /// How many were dropped since the last call. For the reader.
    [[nodiscard]] std::uint64_t takeDropped()
    {
        return m_dropped.exchange(0, std::memory_order_relaxed);
    }

    /// Many seconds of blocks; it is taken 20 times a second.
    static constexpr std::size_t capacity = 4096;

private:
    std::vector<BlockRecord> m_ring;
    std::vector<BlockRecord> m_taken;
    std::atomic<std::size_t> m_begin = 0; // both count without end
    std::atomic<std::size_t> m_end = 0;
    std::atomic<std::uint64_t> m_dropped = 0;
};

} // namespace keldaPlay
