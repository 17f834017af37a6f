#pragma once

#include <cstdint>

#include "DevicePace.h"
#include "audioUtils/device/OutputDevice.h"
#include "miscUtils/TimeValue.h"

namespace keldaPlay {

/// How long the next frame waits in the device, fit to steer by where what the device tells is not.
class DeviceDelay
{
public:
    explicit DeviceDelay(const audioUtils::OutputDevice& device);

    /// ns. Replaced by what the frames written and the time since make of an earlier one: a value
    /// that no device can mean, and one that stands alone among its neighbours by more than 1 ms.
    /// Of a device that takes faster than it plays it is what a clock makes of it.
    /// @param now ns
    [[nodiscard]] miscUtils::TimeValueDelta next(miscUtils::TimeValue now);

    /// What the device's PLL has been set to, if it has one.
    void setPll(double ppm) { m_pllPpm = ppm; }

    /// How much faster than its nominal rate the device plays, in ppm of the system's clock: its
    /// PLL at once, its crystal over the last minutes, and less than that in the first half of one.
    [[nodiscard]] double devicePpm() const { return m_ppm + m_pllPpm; }

    /// Whether the device stands still until it holds enough: what it tells then is what is written
    /// to it, and the time of the start is anybody's guess.
    [[nodiscard]] bool isFilling() const { return m_filling; }

    /// How long the next block waits, lest the device take it faster than it plays; ns. 0 of a
    /// device that sees to that by itself.
    [[nodiscard]] miscUtils::TimeValueDelta wait(miscUtils::TimeValue now) const
    {
        return m_pace.wait(now);
    }

    /// What came of a block.
    /// @param now ns, after the write
    void written(audioUtils::OutputDevice::WriteReturnValue result, std::uint64_t numFrames,
                 miscUtils::TimeValue now);

private:
    [[nodiscard]] miscUtils::TimeValueDelta durationOf(std::uint64_t numFrames) const;
    void estimateRate(miscUtils::TimeValue now, miscUtils::TimeValueDelta step);
    [[nodiscard]] bool isSettled(miscUtils::TimeValue now, miscUtils::TimeValueDelta step);
    [[nodiscard]] bool isBelievable(miscUtils::TimeValueDelta delay,
                                    miscUtils::TimeValueDelta expected);
    void keepPace(audioUtils::OutputDevice::WriteReturnValue result, std::uint64_t numFrames,
                  miscUtils::TimeValue now);

    const audioUtils::OutputDevice* m_device;
    miscUtils::TimeValueDelta m_last = 0; // believed
    miscUtils::TimeValue m_lastTime = 0;
    std::uint64_t m_framesSince = 0;
    bool m_known = false;

    /// How far the delays have been off what was expected, in all, at a time.
    struct Mark
    {
        miscUtils::TimeValue time = 0;
        miscUtils::TimeValueDelta off = 0;
    };
    Mark m_oldMark;
    Mark m_newMark;
    miscUtils::TimeValueDelta m_off = 0;
    miscUtils::TimeValue m_startTime = 0;
    bool m_jumping = false;
    miscUtils::TimeValue m_jumpTime = 0; // of the last jump, and of the first of a row
    miscUtils::TimeValue m_firstJumpTime = 0;
    miscUtils::TimeValueDelta m_offBefore = 0;
    double m_ppm = 0; // of the crystal
    double m_ppmBefore = 0;
    double m_pllPpm = 0;
    unsigned int m_doubts = 0;
    long m_timestamp;
    bool m_filling = true;
    bool m_wasFilling = true; // when it was asked last
    bool m_refilling = false; // after it has run
    std::uint64_t m_framesRefilled = 0;
    DevicePace m_pace;
};

} // namespace keldaPlay
