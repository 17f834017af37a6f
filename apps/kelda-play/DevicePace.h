#pragma once

#include <cstdint>

#include "miscUtils/TimeValue.h"

namespace keldaPlay {

/// Whether a device keeps time by taking no more than it plays; and the time of one that does not,
/// by the system's clock.
///
/// ALSA's plugins `null` and `file` take all that they are given, at once. What a device has taken
/// ahead of the time is no more than its buffer, what it tells to be under way, and what a sound
/// server may fetch beyond that. A device that has taken more is *kept* from then on: it counts as
/// one that plays at its nominal rate from an empty buffer.
///
/// What a card plays too fast does not add up: it is no sooner taken than forgiven, up to a tenth
/// of the rate, which is more than any card's crystal is off. Nor does what a device drops when it
/// is repaired, unless it is repaired before it can have played that.
///
/// One thread at a time; allocates nothing, reads no clock. Times and durations are in ns.
class DevicePace
{
public:
    /// @param sampleRate Hz
    /// @param bufferSize frames
    DevicePace(unsigned int sampleRate, std::uint64_t bufferSize);

    /// The device has taken frames.
    /// @param told     how long the device says that a frame takes; ignored beyond 10 s. Zero or
    ///                 less from one that keeps time is not to be had, once it plays
    /// @param measured whether the device measures that as a rule
    /// @return whether it is kept from now on, and was not before
    bool written(miscUtils::TimeValue now, std::uint64_t numFrames, miscUtils::TimeValueDelta told,
                 bool measured);

    /// The device had run dry or failed, and holds nothing any more.
    void repaired(miscUtils::TimeValue now);

    [[nodiscard]] bool isKept() const { return m_isKept; }

    /// How long the next frame waits in a kept device.
    [[nodiscard]] miscUtils::TimeValueDelta delay(miscUtils::TimeValue now) const;

    /// How long until a kept device has played down to its buffer; 0 of one that keeps time.
    [[nodiscard]] miscUtils::TimeValueDelta wait(miscUtils::TimeValue now) const;

private:
    [[nodiscard]] double heldAt(miscUtils::TimeValue now) const;

    double m_nsPerFrame;
    double m_buffer;   // ns
    double m_held = 0; // ns that were taken and have not passed, at the time
    miscUtils::TimeValue m_time = 0;
    miscUtils::TimeValue m_repairTime = 0; // the last one that was believed
    bool m_isKept = false;
};

} // namespace keldaPlay
