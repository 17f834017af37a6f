#pragma once

#include <algorithm>
#include <cmath>
#include <ranges>
#include <sstream>
#include <string>
#include <string_view>

namespace testSupport {

/// Collects in what two things differ that should do the same, for a test to show.
class Differences
{
public:
    template<typename Value>
    void compare(std::string_view what, const Value& actual, const Value& expected)
    {
        if (actual == expected) {
            return;
        }
        if constexpr (requires { m_text << actual; }) {
            m_text << what << ": " << actual << ", not " << expected << '\n';
        } else {
            const auto first = std::ranges::mismatch(actual, expected).in1;
            m_text << what << ": from element " << std::distance(std::begin(actual), first)
                   << " on\n";
        }
    }

    /// Compares the elements that both have.
    void compareNear(std::string_view what, const auto& actual, const auto& expected,
                     double tolerance)
    {
        const auto isNear = [tolerance](auto a, auto b) {
            return std::abs(static_cast<double>(a) - static_cast<double>(b)) <= tolerance;
        };
        const auto [a, b] = std::ranges::mismatch(actual, expected, isNear);
        if (a != std::end(actual) && b != std::end(expected)) {
            m_text << what << ' ' << std::distance(std::begin(actual), a) << ": " << *a << ", not "
                   << *b << " ± " << tolerance << '\n';
        }
    }

    /// Empty when there are none.
    [[nodiscard]] std::string text() const { return m_text.str(); }

private:
    std::ostringstream m_text;
};

} // namespace testSupport
