#include "DeviceDelay.h"

namespace keldaPlay {

using audioUtils::OutputDevice;
using miscUtils::TimeValueDelta;

namespace {

// More than any buffer, sound server or wireless link holds. A delay of days is a negative one that
// was divided as an unsigned number.
constexpr TimeValueDelta largest = 10'000'000'000;

} // namespace

DeviceDelay::DeviceDelay(const OutputDevice& device)
    : m_device(&device), m_timestamp(device.lastRenderingDelay().timestamp)
{
}

TimeValueDelta DeviceDelay::next()
{
    const TimeValueDelta delay =
        m_refilling
            ? static_cast<TimeValueDelta>(m_framesRefilled * 1'000'000'000 / m_device->sampleRate())
            : m_device->getCompensatedRenderingDelay();
    if (-largest < delay && delay < largest) {
        m_last = delay;
    }
    return m_last;
}

// A device that was repaired holds nothing and stands still until it has been filled again. Until
// then its last measurement is the one from before, and says nothing any more.
void DeviceDelay::written(OutputDevice::WriteReturnValue result, std::uint64_t numFrames)
{
    const long before = m_timestamp;
    m_timestamp = m_device->lastRenderingDelay().timestamp;
    const bool measured =
        m_timestamp != before || m_timestamp == audioUtils::RenderingDelay::noTimestamp;
    if (result == OutputDevice::Underrun) {
        m_framesRefilled = 0;
        m_refilling = true;
    }
    m_refilling = m_refilling && !measured;
    m_framesRefilled += numFrames;
}

} // namespace keldaPlay
