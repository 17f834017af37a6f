#pragma once

#include <cstdint>

#include "audioUtils/device/OutputDevice.h"
#include "miscUtils/TimeValue.h"

namespace keldaPlay {

/// How long the next frame waits in the device, fit to steer by where what the device tells is not.
class DeviceDelay
{
public:
    explicit DeviceDelay(const audioUtils::OutputDevice& device);

    /// ns. A value that no device can mean is replaced by the one before.
    [[nodiscard]] miscUtils::TimeValueDelta next();

    /// What came of a block.
    void written(audioUtils::OutputDevice::WriteReturnValue result, std::uint64_t numFrames);

private:
    const audioUtils::OutputDevice* m_device;
    miscUtils::TimeValueDelta m_last = 0;
    long m_timestamp;
    bool m_refilling = false;
    std::uint64_t m_framesRefilled = 0;
};

} // namespace keldaPlay
