#include "ErrorStatistics.h"

#include <cmath>

namespace keldaSync {

void ErrorStatistics::add(double errorUs, double lengthSeconds)
{
    const double size = std::abs(errorUs);
    m_signed = size > std::abs(m_signed) ? errorUs : m_signed;
    m_sum += errorUs;
    m_sizes.add(size);
    ++m_blocksOfWindow;
    m_beyondOfWindow += size > limitUs ? 1 : 0;
    m_secondsOfWindow += lengthSeconds;
    if (m_secondsOfWindow >= 1) {
        endSecond();
    }
}

void ErrorStatistics::endSecond()
{
    m_secondsBeyond += 2 * m_beyondOfWindow > m_blocksOfWindow ? 1 : 0;
    m_secondsOfWindow = 0;
    m_blocksOfWindow = m_beyondOfWindow = 0;
}

double ErrorStatistics::mean() const
{
    return areMeasured() ? m_sum / static_cast<double>(m_sizes.count()) : 0;
}

} // namespace keldaSync
