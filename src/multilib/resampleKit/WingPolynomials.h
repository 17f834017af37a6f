#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

#include "nonstd/span.hpp"

namespace resampleKit {

/// One wing of a filter as polynomials, one for each sample's length of it ("column").
///
/// A stretched filter needs weights at positions that have nothing in common with a table's rows.
/// Polynomials need no table look-up at all: neighbouring taps lie in neighbouring columns, so
/// their coefficients are loaded side by side.
///
/// In a column u runs from -1 to 1. Of degree 9 they follow the wing within 3e-8: half a turn of
/// its sine, cut off at 0.45, is all that a column holds.
class WingPolynomials
{
public:
    static constexpr std::size_t numCoefficients = 10;

    WingPolynomials(nonstd::span<const float> wing, std::size_t entriesPerSample)
        : m_numColumns(wing.size() / entriesPerSample),
          m_stride(m_numColumns + padding),
          m_coefficients(numCoefficients * m_stride)
    {
        for (std::size_t column = 0; column < m_numColumns; ++column) {
            const std::array<double, numCoefficients> fitted =
                fit(wing, column * entriesPerSample, entriesPerSample);
            for (std::size_t power = 0; power < numCoefficients; ++power) {
                m_coefficients[power * m_stride + column] = static_cast<float>(fitted[power]);
            }
        }
    }

    [[nodiscard]] std::size_t numColumns() const { return m_numColumns; }
    /// The coefficients of a power of u, from a column on; behind the wing there are zeros.
    [[nodiscard]] const float* coefficients(std::size_t power, std::size_t column) const
    {
        return m_coefficients.data() + power * m_stride + column;
    }
    [[nodiscard]] std::size_t bytes() const { return m_coefficients.size() * sizeof(float); }

private:
    static constexpr double pi = 3.14159265358979323846;
    static constexpr std::size_t padding = 64; // vectors that begin in the last columns

    /// The polynomial through the wing at Chebyshev's nodes cos(π (i + 1/2) / n).
    static std::array<double, numCoefficients> fit(nonstd::span<const float> wing,
                                                   std::size_t first, std::size_t length)
    {
        constexpr std::size_t n = numCoefficients;
        std::array<double, n> chebyshev{};
        for (std::size_t i = 0; i < n; ++i) {
            const double angle = pi * (static_cast<double>(i) + 0.5) / n;
            const double value =
                at(wing, static_cast<double>(first) +
                             (std::cos(angle) + 1) / 2 * static_cast<double>(length));
            for (std::size_t k = 0; k < n; ++k) {
                chebyshev[k] +=
                    (k == 0 ? 1.0 : 2.0) / n * value * std::cos(static_cast<double>(k) * angle);
            }
        }
        // T(k + 1) = 2 u T(k) - T(k - 1), in powers of u
        std::array<double, n> result{};
        std::array<double, n> before{};
        std::array<double, n> here{1};
        for (std::size_t k = 0; k < n; ++k) {
            for (std::size_t power = 0; power < n; ++power) {
                result[power] += chebyshev[k] * here[power];
            }
            std::array<double, n> next{};
            for (std::size_t power = 0; power < n; ++power) {
                next[power] = (k == 0 ? 1 : 2) * (power > 0 ? here[power - 1] : 0) - before[power];
            }
            before = here;
            here = next;
        }
        return result;
    }

    static double at(nonstd::span<const float> wing, double position)
    {
        const auto entry = static_cast<std::size_t>(position);
        const auto weight = [wing](std::size_t i) {
            return i < wing.size() ? static_cast<double>(wing[i]) : 0.0;
        };
        const double fraction = position - static_cast<double>(entry);
        return weight(entry) + fraction * (weight(entry + 1) - weight(entry));
    }

    std::size_t m_numColumns;
    std::size_t m_stride;
    std::vector<float> m_coefficients;
};

} // namespace resampleKit
