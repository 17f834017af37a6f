#include "SyncRecord.h"

#include "Report.h"

namespace keldaPlay {

void SyncRecord::add(const BlockRecord& record)
{
    if (m_start == 0) {
        m_start = record.dueTime;
    }
    const double seconds = static_cast<double>(record.dueTime - m_start) * 1e-9;
    m_underruns += record.result == audioUtils::OutputDevice::Underrun ? 1 : 0;
    if (!record.isContinuous() || record.dataFrames() == 0 ||
        record.result != audioUtils::OutputDevice::Success) {
        m_sync.addInterruption(seconds, record.skippedFrames > 0,
                               record.silenceFrames + record.paddedFrames > 0);
        return;
    }
    const double error = static_cast<double>(record.delta) / 1000;
    m_sync.addBlock(seconds, error, 0);
    m_series.add(
        {seconds, error, record.adjustmentPpm, static_cast<double>(record.queueFill) * 1e-6});
}

void SyncRecord::write(const std::string& folder, const std::string& title,
                       const keldaReport::Audio* before, const keldaReport::Audio* after) const
{
    std::vector<keldaReport::Line> table = keldaReport::linesOf(m_sync);
    table.push_back({"underruns", "", static_cast<double>(m_underruns)});
    keldaReport::write(folder,
                       {title, table, m_series.spans(), m_sync.eventTimes(), before, after});
}

} // namespace keldaPlay
