#include "FrameCounts.h"

#include <cmath>
#include <utility>

namespace keldaSync {

void FrameCounts::beginStream(unsigned int sampleRate)
{
    m_sampleRate = sampleRate;
    m_missingInDoubt = 0;
    m_hasBegun = false;
    m_queuedTime = 0;
    m_discardedBefore = m_discardedFrames;
    m_movedSeconds = movedSeconds();
    m_moved = 0;
}

void FrameCounts::endStream(std::uint64_t held, std::optional<std::uint64_t> discarded)
{
    m_unheardFrames += held;
    if (discarded) {
        m_discardedFrames = m_discardedBefore + *discarded;
    }
}

void FrameCounts::add(const BlockRecord& record)
{
    m_gapFrames += record.insertedFrames;
    m_skippedFrames += record.skippedFrames;
    m_mutedFrames += record.mutedFrames;
    m_moved = record.moved;
    const miscUtils::TimeValue queuedBefore = std::exchange(m_queuedTime, record.queueFill);
    if (record.resets > 0) {
        m_discardedFrames += static_cast<std::uint64_t>(
            std::llround(static_cast<double>(queuedBefore) * 1e-9 * m_sampleRate));
    }
    m_unheardFrames += record.droppedFrames;
    if (!record.isHeard()) {
        m_unheardFrames += record.dataFrames();
        return;
    }
    ++m_blocks;
    m_dataFrames += record.dataFrames();
    m_dataSeconds += static_cast<double>(record.dataFrames()) / m_sampleRate;
    m_silenceSeconds += static_cast<double>(record.silenceFrames) / m_sampleRate;
    m_underruns += record.result == audioUtils::OutputDevice::Underrun ? 1 : 0;
    m_hasBegun = m_hasBegun || record.dataFrames() > 0;
    if (record.dataFrames() > 0) {
        m_missingFrames += std::exchange(m_missingInDoubt, 0);
    }
    if (m_hasBegun) {
        m_missingInDoubt += record.paddedFrames;
    }
}

} // namespace keldaSync
