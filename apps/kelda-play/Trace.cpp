#include "Trace.h"

#include <sstream>

namespace keldaPlay {

Trace::Trace(const std::string& path)
    : m_file(path),
      m_rows("due_time_ns,delta_ns,queue_fill_ns,device_delay_ns,frames,silence_frames,"
             "inserted_frames,skipped_frames,padded_frames,underruns,adjustment_ppm,heard,"
             "muted_frames,dropped_frames,moved_ns\n")
{
}

void Trace::write(const BlockRecord& record)
{
    constexpr std::size_t enough = 8192;
    std::ostringstream row;
    row << record.dueTime << ',' << record.delta << ',' << record.queueFill << ','
        << record.deviceDelay << ',' << record.numFrames << ',' << record.silenceFrames << ','
        << record.insertedFrames << ',' << record.skippedFrames << ',' << record.paddedFrames << ','
        << (record.result == audioUtils::OutputDevice::Underrun ? 1 : 0) << ','
        << record.adjustmentPpm << ',' << (record.isHeard() ? 1 : 0) << ',' << record.mutedFrames
        << ',' << record.droppedFrames << ',' << record.moved << '\n';
    m_rows += row.view();
    if (m_rows.size() >= enough) {
        flush();
    }
}

void Trace::flush()
{
    m_file.write(m_rows);
    m_rows.clear();
}

void Trace::commit()
{
    flush();
    m_file.commit();
}

} // namespace keldaPlay
