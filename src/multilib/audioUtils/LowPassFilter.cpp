#include "audioUtils/LowPassFilter.h"

namespace audioUtils {

namespace {

constexpr double twoPi = 6.283185307179586;

} // namespace

LowPassFilter::~LowPassFilter() = default;

void LowPassFilter::reset()
{
    m_first = true;
}

// The order of the operations is part of the result, here and in filter().
void LowPassFilter::setAlpha(double alpha)
{
    if (alpha == m_alpha) {
        return;
    }
    m_alpha = alpha;
    if (alpha == 1.0) {
        m_b0 = 1.0;
        m_b1 = 0.0;
        m_a1 = 0.0;
        return;
    }
    const double w = (alpha / 15.0) * twoPi;
    const double r = 1.0 / (w + 2.0);
    m_b0 = m_b1 = w * r;
    m_a1 = (2.0 - w) * r;
}

double LowPassFilter::filter(double sample)
{
    if (m_first) {
        m_previousInput = sample;
        m_previousOutput = sample;
        m_first = false;
    }
    const double output = (m_b1 * m_previousInput + m_b0 * sample) + m_a1 * m_previousOutput;
    m_previousInput = sample;
    m_previousOutput = output;
    return output;
}

} // namespace audioUtils
