#pragma once

#include <cmath>
#include <numbers>

#include "Scenario.h"

namespace keldaLab {

/// How far off a crystal is at a time.
class CrystalClock
{
public:
    explicit CrystalClock(const Crystal& crystal) : m_crystal(crystal)
    {
        if (crystal.wanderPpm > 0) {
            m_radiansPerSecond = crystal.wanderPpmPerMinute / 60 / crystal.wanderPpm;
        }
    }

    [[nodiscard]] double ppmAt(double seconds) const
    {
        return m_crystal.ppm + m_crystal.wanderPpm * std::sin(m_radiansPerSecond * seconds);
    }

private:
    Crystal m_crystal;
    double m_radiansPerSecond = 0;
};

} // namespace keldaLab
