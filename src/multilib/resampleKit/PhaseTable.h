#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>

#include "nonstd/span.hpp"

namespace resampleKit {

/// A filter table laid out for walking it: the weights of one phase side by side.
///
/// A wing as the kit designs it holds the weights of one output frame a whole sample apart, so that
/// each comes from another cache line, and all of them from the same few sets of the cache. Here
/// row p holds what a frame needs whose position is p entries behind a sample, both wings, in the
/// order of the signal:
///
///     row p = imp[p + (h - 1) n], ..., imp[p + n], imp[p], | imp[n - p], imp[2 n - p], ...
///             weights of x[i - h + 1], ..., x[i]           | of x[i + 1], ..., x[i + h]
///
/// with n entries a sample and h = halfWidth(). There are n + 1 rows, so that row p + 1 is always
/// the one to interpolate with. What lies past the end of the wing is 0.
template<typename Weight>
class PhaseTable
{
public:
    /// @param wing             the weights from the centre on
    /// @param entriesPerSample n
    /// @param alignment        of h, in weights
    /// @param guardRows        before row 0 and behind row n
    PhaseTable(nonstd::span<const Weight> wing, std::size_t entriesPerSample, std::size_t alignment,
               std::size_t guardRows = 0)
        : m_entriesPerSample(entriesPerSample),
          m_halfWidth((wing.size() / entriesPerSample + alignment - 1) / alignment * alignment),
          m_firstRow(guardRows * width()),
          m_numWeights((entriesPerSample + 1 + 2 * guardRows) * width()),
          m_weights(static_cast<Weight*>(
              ::operator new (m_numWeights * sizeof(Weight), std::align_val_t{cacheLine})))
    {
        std::fill_n(m_weights.get(), m_numWeights, Weight{});
        const auto weight = [wing](std::ptrdiff_t entry) {
            const auto distance = static_cast<std::size_t>(entry < 0 ? -entry : entry);
            return distance < wing.size() ? wing[distance] : Weight{};
        };
        const auto n = static_cast<std::ptrdiff_t>(entriesPerSample);
        const auto guard = static_cast<std::ptrdiff_t>(guardRows);
        Weight* right = m_weights.get() + m_halfWidth;
        for (std::ptrdiff_t phase = -guard; phase <= n + guard; ++phase) {
            for (std::ptrdiff_t k = 0; k < static_cast<std::ptrdiff_t>(m_halfWidth); ++k) {
                *(right - 1 - k) = weight(phase + k * n);
                *(right + k) = weight(n - phase + k * n);
            }
            right += width();
        }
    }

    [[nodiscard]] const Weight* row(std::size_t phase) const
    {
        return m_weights.get() + m_firstRow + phase * width();
    }
    [[nodiscard]] std::size_t entriesPerSample() const { return m_entriesPerSample; }
    [[nodiscard]] std::size_t halfWidth() const { return m_halfWidth; }
    [[nodiscard]] std::size_t width() const { return 2 * m_halfWidth; }
    [[nodiscard]] std::size_t bytes() const { return m_numWeights * sizeof(Weight); }

private:
    static constexpr std::size_t cacheLine = 64;

    struct Release
    {
        void operator()(Weight* weights) const
        {
            ::operator delete (weights, std::align_val_t{cacheLine});
        }
    };

    std::size_t m_entriesPerSample;
    std::size_t m_halfWidth;
    std::size_t m_firstRow;
    std::size_t m_numWeights;
    std::unique_ptr<Weight, Release> m_weights;
};

} // namespace resampleKit
