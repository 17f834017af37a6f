#pragma once

#include <algorithm>
#include <functional>

namespace audioUtils::detail {

/// The first row of a table whose member has this value; nullptr where there is none.
template<typename Table, typename Member, typename Value>
[[nodiscard]] const typename Table::value_type* findBy(const Table& table, Member member,
                                                       const Value& value)
{
    const auto row = std::ranges::find(table, value, member);
    return row != table.end() ? &*row : nullptr;
}

} // namespace audioUtils::detail
