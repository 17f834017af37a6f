#include "Trace.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace keldaPlay {

Trace::Trace(const std::string& path) : m_out(path)
{
    if (!m_out) {
        throw std::runtime_error(path + ": " + std::generic_category().message(errno));
    }
    m_out << "due_time_ns,delta_ns,queue_fill_ns,device_delay_ns,frames,silence_frames,"
             "inserted_frames,skipped_frames,padded_frames,underruns,adjustment_ppm,heard\n";
}

void Trace::write(const BlockRecord& record)
{
    m_out << record.dueTime << ',' << record.delta << ',' << record.queueFill << ','
          << record.deviceDelay << ',' << record.numFrames << ',' << record.silenceFrames << ','
          << record.insertedFrames << ',' << record.skippedFrames << ',' << record.paddedFrames
          << ',' << (record.result == audioUtils::OutputDevice::Underrun ? 1 : 0) << ','
          << record.adjustmentPpm << ',' << (record.isHeard() ? 1 : 0) << '\n';
}

bool Trace::isComplete()
{
    return m_out.flush().good();
}

} // namespace keldaPlay
