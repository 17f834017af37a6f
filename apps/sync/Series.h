#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace keldaSync {

/// What is known of a block, for a picture.
struct Point
{
    double seconds = 0;
    double errorUs = 0;
    double adjustmentPpm = 0;
    double fillMs = 0;
};

/// Points over any length of time in a few thousand spans, with the extremes of each.
class Series
{
public:
    struct Span
    {
        double seconds = 0; ///< of its first point
        double smallestErrorUs = 0;
        double largestErrorUs = 0;
        double adjustmentPpm = 0; ///< its mean, as the fill's
        double fillMs = 0;
        std::uint64_t points = 0;
    };

    void add(const Point& point)
    {
        if (m_spans.empty() || m_spans.back().points >= m_pointsPerSpan) {
            if (m_spans.size() == mostSpans) {
                halve();
            }
            m_spans.push_back({point.seconds, point.errorUs, point.errorUs, 0, 0, 0});
        }
        m_spans.back() = joined(m_spans.back(), {point.seconds, point.errorUs, point.errorUs,
                                                 point.adjustmentPpm, point.fillMs, 1});
    }

    [[nodiscard]] const std::vector<Span>& spans() const { return m_spans; }

private:
    static constexpr std::size_t mostSpans = 4096;

    static Span joined(const Span& first, const Span& second)
    {
        const auto points = static_cast<double>(first.points + second.points);
        const double part = static_cast<double>(second.points) / points;
        return {first.seconds,
                std::min(first.smallestErrorUs, second.smallestErrorUs),
                std::max(first.largestErrorUs, second.largestErrorUs),
                first.adjustmentPpm + part * (second.adjustmentPpm - first.adjustmentPpm),
                first.fillMs + part * (second.fillMs - first.fillMs),
                first.points + second.points};
    }

    void halve()
    {
        for (std::size_t i = 0; i + 1 < m_spans.size(); i += 2) {
            m_spans[i / 2] = joined(m_spans[i], m_spans[i + 1]);
        }
        m_spans.resize(m_spans.size() / 2);
        m_pointsPerSpan *= 2;
    }

    std::vector<Span> m_spans;
    std::uint64_t m_pointsPerSpan = 1;
};

} // namespace keldaSync
