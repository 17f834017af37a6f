#pragma once

#include <cstdint>

namespace testSupport {

/// Counts the heap allocations that the calling thread makes while it lives: new, malloc, calloc,
/// realloc and the aligned ones, in the program and in every shared library. (Under ThreadSanitizer
/// the aligned ones escape it.)
///
///     const AllocationCounter allocations;
///     device.write(block.data(), 480);
///     EXPECT_EQ(allocations.count(), 0);
class AllocationCounter
{
public:
    AllocationCounter();
    ~AllocationCounter() = default;
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    /// Allocations since construction. Only for the thread that made the counter.
    [[nodiscard]] std::uint64_t count() const;

private:
    std::uint64_t m_before;
};

} // namespace testSupport
