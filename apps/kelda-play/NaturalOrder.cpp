#include "NaturalOrder.h"

#include <algorithm>
#include <compare>

namespace keldaPlay {

namespace {

constexpr std::string_view digits = "0123456789";

bool isDigit(char c)
{
    return digits.find(c) != std::string_view::npos;
}

/// Takes off what begins with a digit, or else one byte.
std::string_view takePart(std::string_view& text)
{
    const std::size_t length =
        std::max<std::size_t>(1, std::min(text.find_first_not_of(digits), text.size()));
    const std::string_view part = text.substr(0, length);
    text.remove_prefix(length);
    return part;
}

std::string_view withoutZeros(std::string_view number)
{
    return number.substr(std::min(number.find_first_not_of('0'), number.size()));
}

std::strong_ordering compareParts(std::string_view a, std::string_view b)
{
    if (isDigit(a.front()) && isDigit(b.front())) {
        const std::string_view x = withoutZeros(a);
        const std::string_view y = withoutZeros(b);
        return x.size() != y.size() ? x.size() <=> y.size() : x.compare(y) <=> 0;
    }
    return a.compare(b) <=> 0;
}

} // namespace

bool isNaturallyLess(std::string_view a, std::string_view b)
{
    std::string_view restOfA = a;
    std::string_view restOfB = b;
    while (!restOfA.empty() && !restOfB.empty()) {
        const auto order = compareParts(takePart(restOfA), takePart(restOfB));
        if (!std::is_eq(order)) {
            return std::is_lt(order);
        }
    }
    // "01" and "1" are as large, but two names
    return restOfA.empty() && restOfB.empty() ? a < b : restOfA.empty();
}

} // namespace keldaPlay
